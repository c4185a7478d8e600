#include "CardValue.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace mqctl {

namespace {

constexpr std::string_view kNan = "nan";

/// The lowest `width` bytes of a number; the wire has the host's byte order, which is little-endian.
void appendBits(uint64_t bits, size_t width, std::string* bytes) {
    bytes->append(reinterpret_cast<const char*>(&bits), width);
}

uint64_t bitsAt(const FieldType& type, const char* bytes) {
    uint64_t bits = 0;
    std::memcpy(&bits, bytes, type.width);
    return bits;
}

/// Negative for the sign, the magnitude for the rest. @return whether it is an integer that 64 bits hold
bool readInteger(std::string_view text, bool* negative, uint64_t* magnitude) {
    *negative = !text.empty() && text[0] == '-';
    const std::string digits(text.substr(*negative || (!text.empty() && text[0] == '+') ? 1 : 0));
    const bool hexadecimal = digits.size() > 2 && digits[0] == '0' && (digits[1] | 0x20) == 'x';
    // strtoull would take blanks and another sign.
    if (digits.empty() || digits[0] < '0' || digits[0] > '9') {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    *magnitude = std::strtoull(digits.c_str(), &end, hexadecimal ? 16 : 10);
    return errno == 0 && *end == '\0';
}

/// The shortest text that reads back to the same number.
std::string shortest(double value, bool is_float) {
    char text[40];
    for (int precision = 1; precision <= 17; ++precision) {
        (void)std::snprintf(text, sizeof(text), "%.*g", precision, value);
        if (is_float ? std::strtof(text, nullptr) == static_cast<float>(value) : std::strtod(text, nullptr) == value) {
            break;
        }
    }
    return text;
}

bool appendNan(const FieldType& type, std::string_view bits_text, std::string* bytes) {
    uint64_t bits = type.width == 8 ? 0x7ff8000000000000 : 0x7fc00000;
    bool negative = false;
    if (!bits_text.empty() && (bits_text[0] != ':' || !readInteger(bits_text.substr(1), &negative, &bits) || negative ||
                               (type.width == 4 && bits > std::numeric_limits<uint32_t>::max()))) {
        return false;
    }
    std::string value;
    appendBits(bits, type.width, &value);
    if (!std::isnan(floatingAt(type, value.data()))) {
        return false;
    }
    *bytes += value;
    return true;
}

}  // namespace

uint64_t integerAt(const FieldType& type, const char* bytes) {
    const uint64_t bits = bitsAt(type, bytes);
    const unsigned unused = 64 - type.width * 8U;
    return type.kind == Kind::kSigned ? static_cast<uint64_t>(static_cast<int64_t>(bits << unused) >> unused) : bits;
}

bool appendInteger(const FieldType& type, bool negative, uint64_t magnitude, std::string* bytes) {
    const unsigned value_bits = type.width * 8U - (type.kind == Kind::kSigned ? 1 : 0);
    const uint64_t largest = std::numeric_limits<uint64_t>::max() >> (64 - value_bits);
    const uint64_t limit = !negative ? largest : type.kind == Kind::kSigned ? largest + 1 : 0;
    if (magnitude > limit) {
        return false;
    }
    appendBits(negative ? 0 - magnitude : magnitude, type.width, bytes);
    return true;
}

double floatingAt(const FieldType& type, const char* bytes) {
    if (type.width == sizeof(float)) {
        float value = 0;
        std::memcpy(&value, bytes, sizeof(value));
        return static_cast<double>(value);
    }
    double value = 0;
    std::memcpy(&value, bytes, sizeof(value));
    return value;
}

bool appendFloating(const FieldType& type, double value, std::string* bytes) {
    if (type.width == sizeof(double)) {
        bytes->append(reinterpret_cast<const char*>(&value), sizeof(value));
        return true;
    }
    if (std::isfinite(value) && std::fabs(value) > static_cast<double>(std::numeric_limits<float>::max())) {
        return false;
    }
    const float narrow = static_cast<float>(value);
    bytes->append(reinterpret_cast<const char*>(&narrow), sizeof(narrow));
    return true;
}

std::string toText(const FieldType& type, const char* bytes) {
    switch (type.kind) {
        case Kind::kSigned:
            return std::to_string(static_cast<int64_t>(integerAt(type, bytes)));
        case Kind::kBool:
            if (static_cast<uint8_t>(*bytes) <= 1) {
                return *bytes != 0 ? "true" : "false";
            }
            [[fallthrough]];
        case Kind::kUnsigned:
            return std::to_string(integerAt(type, bytes));
        case Kind::kFloating: {
            const double value = floatingAt(type, bytes);
            if (std::isnan(value)) {
                char text[32];
                (void)std::snprintf(text, sizeof(text), "nan:0x%llx",
                                    static_cast<unsigned long long>(bitsAt(type, bytes)));
                return text;
            }
            return std::isinf(value) ? value > 0 ? "inf" : "-inf" : shortest(value, type.width == sizeof(float));
        }
        default:
            return {};  // cards, strings and blobs have their own forms
    }
}

bool appendFromText(const FieldType& type, std::string_view text, std::string* bytes) {
    if (type.kind == Kind::kBool && (text == "true" || text == "false")) {
        bytes->push_back(text == "true" ? '\1' : '\0');
        return true;
    }
    if (type.kind == Kind::kSigned || type.kind == Kind::kUnsigned || type.kind == Kind::kBool) {
        bool negative = false;
        uint64_t magnitude = 0;
        return readInteger(text, &negative, &magnitude) && appendInteger(type, negative, magnitude, bytes);
    }
    if (type.kind != Kind::kFloating) {
        return false;
    }
    if (text.substr(0, kNan.size()) == kNan) {
        return appendNan(type, text.substr(kNan.size()), bytes);
    }
    const std::string number(text);
    if (number.empty() || (number[0] >= '\t' && number[0] <= ' ')) {
        return false;
    }
    char* end = nullptr;
    const double value = std::strtod(number.c_str(), &end);
    // "inf" is meant, 1e999 is not.
    const bool too_large = std::isinf(value) && number.find_first_of("0123456789") != std::string::npos;
    return *end == '\0' && !std::isnan(value) && !too_large && appendFloating(type, value, bytes);
}

}  // namespace mqctl
