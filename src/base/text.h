#pragma once

#include <cstddef>
#include <cstring>

// Small text helpers that the C library of the device or of the workstation lacks, or that depend on a locale there.

namespace zv_loc_fw {

/// Copies at most size - 1 characters and terminates. @return the length of source (size or more: it was cut)
inline size_t copyText(char* destination, const char* source, size_t size) {
    const size_t length = std::strlen(source);
    if (size > 0) {
        const size_t copied = length < size ? length : size - 1;
        std::memcpy(destination, source, copied);
        destination[copied] = '\0';
    }
    return length;
}

/// The space character and the codes 9 to 13.
constexpr bool isBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

constexpr bool isAsciiLetter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

constexpr bool isAsciiDigit(char c) {
    return c >= '0' && c <= '9';
}

}  // namespace zv_loc_fw
