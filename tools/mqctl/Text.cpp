#include "Text.h"

#include <array>
#include <cstdint>
#include <cstdio>

namespace mqctl {

namespace {

constexpr std::string_view kBase64Digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

uint8_t byteAt(std::string_view text, size_t at) {
    return static_cast<uint8_t>(text[at]);
}

/// Bytes of the character that begins at `at`; 0 when there is none (RFC 3629: nothing overlong, no surrogates).
size_t utf8Length(std::string_view text, size_t at) {
    const uint8_t first = byteAt(text, at);
    if (first < 0x80) {
        return 1;
    }
    const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() - at < length) {
        return 0;
    }
    for (size_t i = 1; i < length; ++i) {
        if ((byteAt(text, at + i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    const uint8_t second = byteAt(text, at + 1);
    const bool overlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool outside = (first == 0xED && second > 0x9F) || (first == 0xF4 && second > 0x8F);
    return overlong || outside ? 0 : length;
}

int hexDigit(char digit) {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    const char lower = static_cast<char>(digit | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

}  // namespace

bool isUtf8(std::string_view text) {
    for (size_t at = 0; at < text.size();) {
        const size_t length = utf8Length(text, at);
        if (length == 0) {
            return false;
        }
        at += length;
    }
    return true;
}

std::string printable(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (size_t at = 0; at < text.size();) {
        const uint8_t first = byteAt(text, at);
        const size_t length = utf8Length(text, at);
        // U+0080 to U+009F are control characters as well.
        const bool control =
            first < 0x20 || first == 0x7F || (first == 0xC2 && length == 2 && byteAt(text, at + 1) < 0xA0);
        if (length > 0 && !control) {
            result.append(text.substr(at, length));
        } else if (first == '\n' || first == '\r' || first == '\t') {
            result += first == '\n' ? "\\n" : first == '\r' ? "\\r" : "\\t";
        } else {
            for (size_t i = 0; i < (length > 0 ? length : 1); ++i) {
                result += "\\x" + toHex(text.substr(at + i, 1), "");
            }
        }
        at += length > 0 ? length : 1;
    }
    return result;
}

size_t columnsOf(std::string_view text) {
    size_t columns = 0;
    for (const char c : text) {
        columns += (static_cast<uint8_t>(c) & 0xC0) != 0x80 ? 1 : 0;
    }
    return columns;
}

std::string cutTo(std::string_view text, size_t columns) {
    constexpr std::string_view kDots = "...";
    if (columnsOf(text) <= columns) {
        return std::string(text);
    }
    const size_t keep = columns > kDots.size() ? columns - kDots.size() : 0;
    size_t at = 0;
    for (size_t taken = 0; at < text.size(); ++at) {
        if ((byteAt(text, at) & 0xC0) != 0x80 && taken++ == keep) {
            break;
        }
    }
    return std::string(text.substr(0, at)).append(kDots.substr(0, columns));
}

std::string toHex(std::string_view bytes, const char* separator) {
    std::string result;
    for (const char byte : bytes) {
        char digits[3];
        (void)std::snprintf(digits, sizeof(digits), "%02x", static_cast<unsigned>(static_cast<uint8_t>(byte)));
        result += (result.empty() ? "" : separator);
        result += digits;
    }
    return result;
}

std::optional<std::string> fromHex(std::string_view text) {
    std::string result;
    int high = -1;
    for (const char c : text) {
        if (c == ' ' || (c >= '\t' && c <= '\r')) {
            continue;
        }
        const int digit = hexDigit(c);
        if (digit < 0) {
            return std::nullopt;
        }
        if (high < 0) {
            high = digit;
        } else {
            result += static_cast<char>(high * 16 + digit);
            high = -1;
        }
    }
    return high < 0 ? std::optional(result) : std::nullopt;
}

std::string toBase64(std::string_view bytes) {
    std::string result;
    result.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t at = 0; at < bytes.size(); at += 3) {
        const size_t count = bytes.size() - at < 3 ? bytes.size() - at : 3;
        uint32_t group = 0;
        for (size_t i = 0; i < 3; ++i) {
            group = group << 8 | (i < count ? byteAt(bytes, at + i) : 0U);
        }
        for (size_t i = 0; i < 4; ++i) {
            result += i <= count ? kBase64Digits[group >> (18 - 6 * i) & 63] : '=';
        }
    }
    return result;
}

std::optional<std::string> fromBase64(std::string_view text) {
    if (text.size() % 4 != 0) {
        return std::nullopt;
    }
    std::string result;
    result.reserve(text.size() / 4 * 3);
    for (size_t at = 0; at < text.size(); at += 4) {
        const bool last = at + 4 == text.size();
        const size_t padding = !last ? 0 : text[at + 2] == '=' && text[at + 3] == '=' ? 2 : text[at + 3] == '=' ? 1 : 0;
        uint32_t group = 0;
        for (size_t i = 0; i < 4; ++i) {
            const size_t digit = i < 4 - padding ? kBase64Digits.find(text[at + i]) : 0;
            if (digit == std::string_view::npos) {
                return std::nullopt;
            }
            group = group << 6 | static_cast<uint32_t>(digit);
        }
        if ((group & ((1U << (8 * padding)) - 1)) != 0) {
            return std::nullopt;  // bits that no byte holds
        }
        for (size_t i = 0; i < 3 - padding; ++i) {
            result += static_cast<char>(group >> (16 - 8 * i) & 0xFF);
        }
    }
    return result;
}

}  // namespace mqctl
