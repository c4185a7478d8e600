// A configuration file of 200 lines, from the path to the object and back to nothing.

#include <unistd.h>

#include <memory>

#include "base/ConfigFile.h"
#include "harness/harness.h"
#include "micro/config_text.h"

namespace bench {

TemporaryFile::TemporaryFile(const std::string& text) : mPath("/tmp/inet-agent-bench-XXXXXX") {
    const int file = mkstemp(mPath.data());
    require(file >= 0 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
    (void)close(file);
}

TemporaryFile::~TemporaryFile() {
    (void)unlink(mPath.c_str());
}

std::string configText(const char* first_line) {
    std::string text = std::string(first_line) + "\n\n";
    for (int i = 0; i < kConfigPairs; ++i) {
        if (i > 0 && i % 8 == 0) {
            text += "# the next settings\n\n";
        }
        text += "SETTING_NUMBER_" + std::to_string(i) + " = " +
                (i % 2 == 0 ? std::to_string(i * 37) : "/data/some/path") + "\n";
    }
    return text;
}

namespace {

Loop loading() {
    auto file = std::make_shared<TemporaryFile>(configText("# settings"));
    return [file](std::size_t n) {
        for (; n > 0; --n) {
            const std::unique_ptr<zv_loc_fw::ConfigFile> config(
                zv_loc_fw::ConfigFile::createInstance(file->path(), 0, false));
            require(config != nullptr && config->loaded());
        }
    };
}

const Register kRow(Row{"config/load", kOurs, loading});

}  // namespace

}  // namespace bench
