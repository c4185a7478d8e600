#include "base/ConfigFileImpl.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "base/checked.h"
#include "base/log.h"
#include "base/text.h"

namespace zv_loc_fw {

namespace {

constexpr char kTag[] = "ConfigFile";

constexpr size_t kBufferSize = 1024;
constexpr size_t kLongestLine = 1022;
static_assert(kLongestLine <= TextArena::kLongestText);

constexpr int kReplacedByDefault = 1;

/// @return null without memory
std::unique_ptr<char[]> copyOf(std::string_view text) {
    std::unique_ptr<char[]> copy(new (std::nothrow) char[checkedAdd(text.size(), 1)]);
    if (copy != nullptr) {
        text.copy(copy.get(), text.size());
        copy[text.size()] = '\0';
    }
    return copy;
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && isBlank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

bool isKeyCharacter(char c) {
    return isAsciiLetter(c) || isAsciiDigit(c) || c == '_' || c == '-';
}

/// The line of every failure of a getter. @return the code
int report(const char* getter, const char* key, int code) {
    if (key != nullptr) {
        log_error(kTag, "%s failed [%s] %d", getter, key, code);
    } else {
        log_error(kTag, "%s failed %d", getter, code);
    }
    return code;
}

/// @return 0; 101 empty, 102 beyond 64 bits, 103 conversion, 104 trailing text, 105 beyond 32 bits
int toInt32(const char* text, int32_t& value) {
    if (*text == '\0') {
        return 101;
    }
    char* end = nullptr;
    errno = 0;
    const long long number = std::strtoll(text, &end, 0);
    const int error = errno;
    if (number == LLONG_MAX || number == LLONG_MIN) {
        return 102;
    }
    // Text without any digit is trailing text, whatever a C library makes of errno then.
    if (error != 0 && end != text) {
        log_error(kTag, "conversion error [%d] [%s]", error, std::strerror(error));
        return 103;
    }
    if (*end != '\0') {
        return 104;
    }
    if (number < INT32_MIN || number > INT32_MAX) {
        return 105;
    }
    value = static_cast<int32_t>(number);
    return 0;
}

/// @return 0; 101 empty, 102 out of range, 103 trailing text
int toDouble(const char* text, double& value) {
    if (*text == '\0') {
        return 101;
    }
    char* end = nullptr;
    errno = 0;
    const double number = std::strtod(text, &end);
    const int error = errno;
    if (error != 0 && end != text) {
        log_error(kTag, "conversion error [%d] [%s]", error, std::strerror(error));
        return 102;
    }
    if (*end != '\0') {
        return 103;
    }
    value = number;
    return 0;
}

/// Only an absent key takes the default. @return the getter's result, 0 in that case
template <typename T>
int orDefault(int result, T& value, const T& default_value) {
    if (result != ConfigFile::kAbsent) {
        return result;
    }
    value = default_value;
    return 0;
}

}  // namespace

ConfigFile* ConfigFile::createInstance(const char* path, [[maybe_unused]] uint64_t unused_size,
                                       [[maybe_unused]] bool unused_flag) {
    return new (std::nothrow) ConfigFileImpl(path);
}

ConfigFileImpl::ConfigFileImpl(const char* path) {
    int32_t line = 0;
    int error = 0;
    const int result = load(path, line, error);
    mLoaded = result == 0;
    if (!mLoaded) {
        log_error(kTag, "ConfigFileImpl: cannot load config file result [%d] [%s], error [%d][%s], line[%d]", result,
                  path != nullptr ? path : "", error, std::strerror(error), line);
    }
}

int ConfigFileImpl::load(const char* path, int32_t& line, int& error) {
    errno = 0;
    if (path == nullptr) {
        return 2;  // no path
    }
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path, "r"), std::fclose);
    if (file == nullptr) {
        error = errno;
        return 3;  // not opened
    }
    const int result = readLines(file.get(), line);
    error = errno;
    return result;
}

int ConfigFileImpl::readLines(FILE* file, int32_t& line) {
    const std::unique_ptr<char[]> buffer(new (std::nothrow) char[kBufferSize]);
    if (buffer == nullptr) {
        return 4;  // no memory for the line
    }
    while (std::fgets(buffer.get(), kBufferSize, file) != nullptr) {
        line = checkedAdd(line, 1);
        const int result = addLine(buffer.get(), std::strlen(buffer.get()));
        if (result != 0) {
            return result;
        }
    }
    return std::ferror(file) != 0 ? 10 : 0;  // 10: read error
}

const char* ConfigFileImpl::subStringDup(std::string_view text) {
    const char* copy = mTexts.copy(text);
    if (copy == nullptr) {
        log_error(kTag, "subStringDup failed %d", 4);
    }
    return copy;
}

int ConfigFileImpl::addLine(const char* text, size_t length) {
    if (length > kLongestLine) {
        return 101;  // too long, or cut
    }
    const std::string_view line = trim({text, length});
    if (line.empty() || line.front() == '#') {
        return 0;
    }
    if (!isAsciiLetter(line.front())) {
        return 110;  // a key begins with a letter
    }
    size_t key_size = 1;
    while (key_size < line.size() && isKeyCharacter(line[key_size])) {
        ++key_size;
    }
    std::string_view value = trim(line.substr(key_size));
    if (value.empty() || value.front() != '=') {
        return 111;  // no "="
    }
    value = trim(value.substr(1));
    if (value.empty()) {
        return 112;  // no value
    }
    if (value.front() == '"') {
        if (value.size() < 2 || value.back() != '"') {
            return 112;  // quote not closed
        }
        value = value.substr(1, value.size() - 2);
    }
    const ConfigPair pair{subStringDup(line.substr(0, key_size)), subStringDup(value)};
    if (pair.key == nullptr) {
        return 114;  // key not copied
    }
    if (pair.value == nullptr) {
        return 115;  // value not copied
    }
    return mPairs.tryPush(pair) ? 0 : 113;  // pair not kept
}

const char* ConfigFileImpl::find(const char* key) const {
    for (const auto* node = mPairs.head(); node != nullptr; node = node->next) {
        if (std::strcmp(node->value.key, key) == 0) {
            return node->value.value;
        }
    }
    return nullptr;
}

int ConfigFileImpl::getString(const char* key, const char** value) const {
    constexpr char kGetter[] = "getString";
    if (!mLoaded) {
        return report(kGetter, key, 2);
    }
    if (key == nullptr) {
        return report(kGetter, key, 3);
    }
    if (value == nullptr) {
        return report(kGetter, key, 4);
    }
    *value = find(key);
    return *value != nullptr ? 0 : kAbsent;
}

int ConfigFileImpl::getStringDup(const char* key, const char** value, const char* default_value) const {
    constexpr char kGetter[] = "getStringDup";
    const char* source = nullptr;
    int copy_failed = 111;
    if (mLoaded) {
        if (key == nullptr) {
            return report(kGetter, key, 3);
        }
        if (value == nullptr) {
            return report(kGetter, key, 4);
        }
        *value = nullptr;
        source = find(key);
        if (source != nullptr) {
            copy_failed = 101;
        }
    }
    if (source == nullptr) {
        source = default_value;
    }
    if (source == nullptr) {
        return kAbsent;
    }
    if (value == nullptr) {
        return report(kGetter, key, 4);
    }
    *value = copyOf(source).release();
    return *value != nullptr ? 0 : report(kGetter, key, copy_failed);
}

template <typename T>
int ConfigFileImpl::getNumber(const char* getter, const char* key, T& value, int (*convert)(const char*, T&)) const {
    if (!mLoaded) {
        log_debug(kTag, "%s m_loaded is false", getter);
        return kAbsent;
    }
    if (key == nullptr) {
        return report(getter, key, 3);
    }
    const char* const text = find(key);
    if (text == nullptr) {
        return kAbsent;
    }
    const int result = convert(text, value);
    return result != 0 ? report(getter, key, result) : 0;
}

int ConfigFileImpl::getAtLeast(int32_t lowest, const char* key, int32_t& value, const int32_t& default_value) const {
    const int result = getInt32(key, value);
    if (result == kAbsent) {
        value = default_value;
        return 0;
    }
    // Looked at even when the conversion failed and the output is still the caller's own: deliberate.
    if (value >= lowest) {
        return result;
    }
    value = default_value;
    return kReplacedByDefault;
}

int ConfigFileImpl::getInt32(const char* key, int32_t& value) const {
    return getNumber("getInt32", key, value, toInt32);
}

int ConfigFileImpl::getInt32Default(const char* key, int32_t& value, const int32_t& default_value) const {
    return orDefault(getInt32(key, value), value, default_value);
}

int ConfigFileImpl::get_PZ_Int32Default(const char* key, int32_t& value, const int32_t& default_value) const {
    return getAtLeast(0, key, value, default_value);
}

int ConfigFileImpl::get_PNZ_Int32Default(const char* key, int32_t& value, const int32_t& default_value) const {
    return getAtLeast(1, key, value, default_value);
}

int ConfigFileImpl::getDouble(const char* key, double& value) const {
    return getNumber("getDouble", key, value, toDouble);
}

int ConfigFileImpl::getDoubleDefault(const char* key, double& value, const double& default_value) const {
    return orDefault(getDouble(key, value), value, default_value);
}

}  // namespace zv_loc_fw
