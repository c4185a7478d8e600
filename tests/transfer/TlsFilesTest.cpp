#include "transfer/TlsFiles.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "base/log.h"
#include "support/DeviceFiles.h"
#include "support/LogCapture.h"

namespace {

using namespace zv_loc_fw;
namespace device_files = test_support::device_files;
using test_support::LogCapture;

// The choice is made once per process, so each case has a process of its own.
TEST(TlsFilesDeathTest, TheAuthoritiesAreChosenOnceForAll) {
    const struct {
        bool main;
        bool backup;
        const char* choice;
        const char* line;
    } cases[] = {
        {true, true, device_files::kCaFile, nullptr},
        {true, false, device_files::kCaFile, nullptr},
        {false, true, device_files::kBackupCaFile, "[KVIA] Couldn't open main cert file, use backup"},
        {false, false, device_files::kCaFile, "[KVIA] Couldn't find cert files"},
    };
    for (const auto& test : cases) {
        const auto run = [&] {
            log_set_global_level(EL_VERBOSE);
            device_files::reset();
            if (test.main) {
                device_files::writeCaFile("main");
            }
            if (test.backup) {
                device_files::writeRaw(device_files::kBackupCaFile, "backup");
            }
            const LogCapture log;
            const bool empty_before = caFilePath()[0] == '\0';
            getCertName();
            device_files::writeCaFile("added later");
            getCertName();
            const bool logged = log.lines().size() == (test.line != nullptr ? 1U : 0U) &&
                                (test.line == nullptr || log.contains(test.line));
            return empty_before && logged && std::strcmp(caFilePath(), test.choice) == 0 ? 0 : 1;
        };
        EXPECT_EXIT(_exit(run()), testing::ExitedWithCode(0), "") << test.main << test.backup;
    }
}

TEST(TlsFiles, ServiceUrlsAreKnownByThirteenCharacters) {
    const std::string prefix = SERVICE_HOST_PREFIX;
    ASSERT_EQ(prefix.size(), 13U);
    EXPECT_TRUE(isServiceUrl((prefix + "ioning.example/x").c_str()));
    for (const std::string& other : {prefix.substr(0, 12), "H" + prefix.substr(1), "https://u@" + prefix.substr(8),
                                     "http" + prefix.substr(5), std::string()}) {
        EXPECT_FALSE(isServiceUrl(other.c_str())) << other;
    }
}

}  // namespace
