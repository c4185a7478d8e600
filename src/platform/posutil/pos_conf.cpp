#include "platform/posutil/pos_conf.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

const char* const POS_PATH_MARLOW_CONF = "/vendor/etc/marlow.conf";
const char* const POS_PATH_GPS_CONF = "/vendor/etc/gps.conf";

namespace {

// Configuration files have a few kilobytes; what is longer is something else.
constexpr size_t kMaxFileSize = size_t{1024} * 1024;
constexpr std::string_view kBlanks = " \t\r\v\f";

bool readFile(const char* path, std::string& content) {
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return false;
    }
    char chunk[4096];
    ssize_t got = 0;
    do {
        got = read(file, chunk, sizeof(chunk));
        if (got > 0) {
            content.append(chunk, static_cast<size_t>(got));
        }
    } while ((got > 0 && content.size() <= kMaxFileSize) || (got < 0 && errno == EINTR));
    close(file);
    return got == 0;
}

std::string_view trim(std::string_view text) {
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool toNumber(const std::string& text, long& number) {
    const size_t digits = (text.starts_with('-') || text.starts_with('+')) ? 1 : 0;
    // A leading zero alone does not make a number octal.
    const bool hexadecimal = text.compare(digits, 2, "0x") == 0 || text.compare(digits, 2, "0X") == 0;
    char* end = nullptr;
    errno = 0;
    const long value = strtol(text.c_str(), &end, hexadecimal ? 16 : 10);
    if (text.empty() || errno == ERANGE || end != text.c_str() + text.size()) {
        return false;
    }
    number = value;
    return true;
}

bool store(const pos_conf_entry& entry, std::string_view text, uint32_t string_limit) {
    if (entry.value == nullptr) {
        return false;
    }
    if (entry.type == 'n') {
        return toNumber(std::string(text), *static_cast<long*>(entry.value));
    }
    if (entry.type == 's' && string_limit > 0) {
        const std::string_view kept = text.substr(0, string_limit - 1);
        char* const out = static_cast<char*>(entry.value);
        if (!kept.empty()) {
            memcpy(out, kept.data(), kept.size());
        }
        out[kept.size()] = '\0';
        return true;
    }
    return false;
}

}  // namespace

int pos_read_conf_long(const char* path, const pos_conf_entry* table, uint32_t count, uint32_t string_limit) {
    std::string content;
    if (path == nullptr || (table == nullptr && count > 0) || !readFile(path, content)) {
        return -1;  // cannot be read
    }
    for (uint32_t i = 0; i < count; ++i) {
        if (table[i].found != nullptr) {
            *table[i].found = false;
        }
    }
    for (size_t begin = 0; begin < content.size();) {
        const size_t end = std::min(content.find('\n', begin), content.size());
        const std::string_view line = trim(std::string_view(content).substr(begin, end - begin));
        begin = end + 1;
        const size_t equals = line.find('=');
        if (line.starts_with('#') || equals == std::string_view::npos) {
            continue;
        }
        const std::string_view key = trim(line.substr(0, equals));
        const std::string_view value = trim(line.substr(equals + 1));
        for (uint32_t i = 0; i < count; ++i) {
            const pos_conf_entry& entry = table[i];
            if (entry.name != nullptr && key == entry.name && store(entry, value, string_limit) &&
                entry.found != nullptr) {
                *entry.found = true;
            }
        }
    }
    return 0;
}
