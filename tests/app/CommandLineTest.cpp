#include "app/CommandLine.h"

#include <getopt.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>

namespace {

// What else may stand on the command line, and masks that are no numbers, are tried with the real program.
TEST(CommandLine, MaskIsHexadecimalAndKeepsThirtyTwoBits) {
    const std::pair<std::string, int32_t> cases[] = {
        {"0", 0},
        {"0x1", 1},
        {"0X1f", 0x1f},
        {"10000", 0x10000},
        {"7fffffff", INT32_MAX},
        {"80000000", INT32_MIN},
        {"100000000", 0},
        {"ffffffffffffffff", -1},
        {" +2", 2},
        {"-1", -1},
        {"1z", 1},
    };
    for (const auto& [text, mask] : cases) {
        for (const std::string& option : {std::string("--launch-trigger-mask="), std::string("--cairn-wifi=")}) {
            std::string program = "inet-agent";
            std::string argument = option + text;
            char* argv[] = {program.data(), argument.data(), nullptr};
            optind = 0;  // the parser starts anew
            EXPECT_EQ(zv_loc_fw::parseCommandLine(2, argv).launchTriggerMask, option[2] == 'l' ? mask : 0) << argument;
        }
    }
}

}  // namespace
