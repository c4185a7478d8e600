#pragma once

#include <cstddef>
#include <cstdint>
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

/// memcpy for what is short as a rule, and of no fixed length: names and small values are not worth a call.
inline void copyShort(char* destination, const char* source, size_t size) {
    if (size > 16) {
        std::memcpy(destination, source, size);
    } else if (size >= 8) {
        uint64_t first = 0;
        uint64_t last = 0;
        std::memcpy(&first, source, 8);
        std::memcpy(&last, source + size - 8, 8);
        std::memcpy(destination, &first, 8);
        std::memcpy(destination + size - 8, &last, 8);
    } else if (size >= 4) {
        uint32_t first = 0;
        uint32_t last = 0;
        std::memcpy(&first, source, 4);
        std::memcpy(&last, source + size - 4, 4);
        std::memcpy(destination, &first, 4);
        std::memcpy(destination + size - 4, &last, 4);
    } else if (size > 0) {
        const char middle = source[size / 2];
        const char last = source[size - 1];
        destination[0] = source[0];
        destination[size / 2] = middle;
        destination[size - 1] = last;
    }
}

/// memcmp for the same, of two that are equal as a rule.
[[nodiscard]] inline bool sameShort(const char* a, const char* b, size_t size) {
    if (size > 16) {
        return std::memcmp(a, b, size) == 0;
    }
    if (size >= 8) {
        return std::memcmp(a, b, 8) == 0 && std::memcmp(a + size - 8, b + size - 8, 8) == 0;
    }
    if (size >= 4) {
        return std::memcmp(a, b, 4) == 0 && std::memcmp(a + size - 4, b + size - 4, 4) == 0;
    }
    return size == 0 || (a[0] == b[0] && a[size / 2] == b[size / 2] && a[size - 1] == b[size - 1]);
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
