// Both readers of configuration files, over the same bytes.

#include "base/ConfigFile.h"

#include <sys/mman.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "base/text.h"
#include "platform/posutil/pos_conf.h"
#include "support/Input.h"

namespace {

using zv_loc_fw::ConfigFile;

constexpr int32_t kPreset = 12345;
constexpr int32_t kDefault = 67890;

/// The file that is read, in memory.
int file() {
    static const int fd = memfd_create("fuzz", MFD_CLOEXEC);
    return fd;
}

const std::string& path() {
    static const std::string text = "/proc/self/fd/" + std::to_string(file());
    return text;
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && zv_loc_fw::isBlank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && zv_loc_fw::isBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

/// What a file without a bad line says, read in the simplest way.
std::map<std::string, std::string> modelOf(std::string_view content) {
    std::map<std::string, std::string> model;
    while (!content.empty()) {
        const size_t end = std::min(content.find('\n'), content.size());
        const std::string line(content.substr(0, end));
        content.remove_prefix(std::min(end + 1, content.size()));
        const std::string_view text = trim(line);
        const size_t equals = text.find('=');
        if (text.empty() || text[0] == '#' || equals == text.npos) {
            continue;
        }
        std::string_view value = trim(text.substr(equals + 1));
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
            value = value.substr(1, value.size() - 2);
        }
        model[std::string(trim(text.substr(0, equals)))] = value;
    }
    return model;
}

void readNumbers(const ConfigFile& config, const char* key, bool known) {
    int32_t number = kPreset;
    const int result = config.getInt32(key, number);
    FUZZ_CHECK((result == ConfigFile::kAbsent) == !known && (result == 0 || number == kPreset));

    int32_t with_default = kPreset;
    FUZZ_CHECK(config.getInt32Default(key, with_default, kDefault) == (known ? result : 0));
    FUZZ_CHECK(with_default == (known ? number : kDefault));

    int32_t positive_or_zero = kPreset;
    const int replaced = config.get_PZ_Int32Default(key, positive_or_zero, kDefault);
    FUZZ_CHECK(positive_or_zero >= 0 && (replaced == 1) == (known && number < 0));
    int32_t positive = kPreset;
    (void)config.get_PNZ_Int32Default(key, positive, kDefault);
    FUZZ_CHECK(positive > 0 && (!known || result != 0 || number <= 0 || positive == number));

    double real = kPreset;
    const int real_result = config.getDouble(key, real);
    FUZZ_CHECK((real_result == ConfigFile::kAbsent) == !known && (real_result == 0 || real == kPreset));
    double real_default = kPreset;
    FUZZ_CHECK(config.getDoubleDefault(key, real_default, kDefault) == (known ? real_result : 0));
}

void readTexts(const ConfigFile& config, const char* key, const std::string* expected) {
    const char* text = nullptr;
    const int result = config.getString(key, &text);
    FUZZ_CHECK(result == (!config.loaded() ? 2 : expected != nullptr ? 0 : ConfigFile::kAbsent));
    FUZZ_CHECK(result != 0 || *expected == text);
    const char* copy = nullptr;
    FUZZ_CHECK(config.getStringDup(key, &copy, "default") == 0);
    const std::unique_ptr<const char[]> owner(copy);
    FUZZ_CHECK(copy == (result == 0 ? *expected : "default"));
}

void readConfigFile(const std::map<std::string, std::string>& model, bool comparable) {
    const std::unique_ptr<ConfigFile> config(ConfigFile::createInstance(path().c_str(), 0, false));
    for (const char* key : {"A", "CAIRN_AP_ROOT_DIR", "no such key"}) {
        const auto known = model.find(key);
        if (comparable) {
            const bool there = config->loaded() && known != model.end();
            readNumbers(*config, key, there);
            readTexts(*config, key, there ? &known->second : nullptr);
        }
    }
    if (!config->loaded() || !comparable) {
        return;
    }
    for (const auto& [key, value] : model) {
        readNumbers(*config, key.c_str(), true);
        readTexts(*config, key.c_str(), &value);
    }
}

void readTable() {
    for (const uint32_t limit : {0U, 1U, 8U}) {
        long number = kPreset;
        const std::unique_ptr<char[]> text(new char[limit]());
        bool number_found = true;
        bool text_found = true;
        const pos_conf_entry table[] = {
            {"A", &number, 'n', &number_found}, {"B", text.get(), 's', &text_found}, {"A", nullptr, 'n', nullptr}};
        FUZZ_CHECK(pos_read_conf_long(path().c_str(), table, 3, limit) == 0);
        FUZZ_CHECK(number_found || number == kPreset);
        FUZZ_CHECK(!text_found || (limit > 0 && strnlen(text.get(), limit) < limit));
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    fuzz::quietLog(0);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FUZZ_CHECK(ftruncate(file(), 0) == 0);
    FUZZ_CHECK(pwrite(file(), data, size, 0) == static_cast<ssize_t>(size));
    const std::string_view content(reinterpret_cast<const char*>(data), size);
    // A text with zeros in it is cut where C strings end: what it says is nobody's concern, but it must do no harm.
    readConfigFile(modelOf(content), content.find('\0') == content.npos);
    readTable();
    return 0;
}
