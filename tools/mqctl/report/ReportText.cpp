#include "report/ReportText.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>

namespace mqctl::report {

namespace {

/// Length of the valid UTF-8 character at the front, its code point in *code; 0 when there is none.
size_t characterAt(std::string_view text, uint32_t* code) {
    const auto byte = [&text](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    if (first < 0x80) {
        *code = first;
        return 1;
    }
    const size_t length = (first & 0xe0U) == 0xc0U   ? 2
                          : (first & 0xf0U) == 0xe0U ? 3
                          : (first & 0xf8U) == 0xf0U ? 4
                                                     : 0;
    if (length == 0 || text.size() < length) {
        return 0;
    }
    *code = first & (0x7fU >> length);
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0U) != 0x80U) {
            return 0;
        }
        *code = (*code << 6U) | (byte(i) & 0x3fU);
    }
    constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = *code >= 0xd800 && *code <= 0xdfff;
    return *code < kLeast[length] || *code > 0x10ffff || surrogate ? 0 : length;
}

bool isControl(uint32_t code) {
    return code < 0x20 || (code >= 0x7f && code < 0xa0);
}

/// Line and paragraph ends, marks and overrides of the reading direction, what has no width, and what is no character.
bool isTreacherous(uint32_t code) {
    return (code >= 0x200b && code <= 0x200f) || (code >= 0x2028 && code <= 0x202e) ||
           (code >= 0x2060 && code <= 0x206f) || code == 0x061c || code == 0xfeff || (code & 0xfffeU) == 0xfffeU ||
           (code >= 0xfdd0 && code <= 0xfdef);
}

}  // namespace

std::string printable(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        uint32_t code = 0;
        size_t length = characterAt(text, &code);
        char form[16];
        if (length == 0) {
            (void)std::snprintf(form, sizeof(form), "\\x%02x", static_cast<unsigned char>(text.front()));
            out += form;
            length = 1;
        } else if (isControl(code)) {
            (void)std::snprintf(form, sizeof(form), "\\x%02x", code);
            out += form;
        } else if (isTreacherous(code)) {
            (void)std::snprintf(form, sizeof(form), "\\u{%x}", code);
            out += form;
        } else {
            out += text.substr(0, length);
        }
        text.remove_prefix(length);
    }
    return out;
}

std::string escaped(std::string_view text) {
    std::string out;
    for (const char c : printable(text)) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&#39;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string withoutSecrets(std::string_view url) {
    url = url.substr(0, url.find_first_of("?#"));
    const size_t scheme = url.find("://");
    if (scheme == std::string_view::npos) {
        return std::string(url);
    }
    const size_t host = scheme + 3;
    const std::string_view authority = url.substr(host, url.find_first_of("/\\", host) - host);
    const size_t at = authority.rfind('@');
    return std::string(url.substr(0, host)) +
           std::string(url.substr(at == std::string_view::npos ? host : host + at + 1));
}

size_t columns(std::string_view text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(),
                                             [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U; }));
}

std::string shortened(const std::string& text, size_t length) {
    if (columns(text) <= length || length == 0) {
        return text;
    }
    size_t at = 0;
    for (size_t kept = 0; kept + 1 < length || (static_cast<unsigned char>(text[at]) & 0xc0U) == 0x80U; ++at) {
        kept += (static_cast<unsigned char>(text[at]) & 0xc0U) != 0x80U ? 1 : 0;
    }
    while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xc0U) == 0x80U) {
        ++at;
    }
    return text.substr(0, at) + "\u2026";
}

std::string fixed(double value, int digits) {
    char text[64];
    (void)std::snprintf(text, sizeof(text), "%.*f", digits, value);
    return text;
}

std::string duration(double seconds) {
    constexpr double kMinute = 60;
    constexpr double kHour = 3600;
    if (seconds < 1) {
        return fixed(seconds * 1e3, seconds < 0.01 ? 1 : 0) + " ms";
    }
    if (seconds < kMinute) {
        return fixed(seconds, seconds < 10 ? 2 : 1) + " s";
    }
    if (seconds < kHour) {
        return fixed(std::floor(seconds / kMinute), 0) + " min " + fixed(std::floor(std::fmod(seconds, kMinute)), 0) +
               " s";
    }
    return fixed(std::floor(seconds / kHour), 0) + " h " + fixed(std::floor(std::fmod(seconds, kHour) / kMinute), 0) +
           " min";
}

}  // namespace mqctl::report
