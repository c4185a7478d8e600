#include "app/CommandLine.h"

#include <getopt.h>
#include <gtest/gtest.h>

#include <climits>
#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using Arguments = std::vector<std::string>;

int32_t maskOf(Arguments arguments) {
    arguments.insert(arguments.begin(), "inet-agent");
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    optind = 0;  // the parser starts anew
    return zv_loc_fw::parseCommandLine(static_cast<int>(arguments.size()), argv.data()).launchTriggerMask;
}

TEST(CommandLine, MaskIsHexadecimalAndKeepsThirtyTwoBits) {
    const struct {
        const char* text;
        int32_t mask;
    } cases[] = {
        {"0", 0},
        {"1", 1},
        {"0x1", 1},
        {"0X1f", 0x1f},
        {"10", 0x10},
        {"10000", 0x10000},
        {"7fffffff", INT32_MAX},
        {"80000000", INT32_MIN},
        {"100000000", 0},
        {"FFFFFFFFF", -1},
        {"ffffffffffffffff", -1},
        {" +2", 2},
        {"-1", -1},
        {"1z", 1},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(maskOf({"--launch-trigger-mask", test.text}), test.mask) << test.text;
        EXPECT_EQ(maskOf({std::string("--launch-trigger-mask=") + test.text}), test.mask) << test.text;
    }
}

TEST(CommandLine, EverythingElseIsPassedOver) {
    const std::string mask = "--launch-trigger-mask=3";
    const struct {
        Arguments arguments;
        int32_t mask;
    } cases[] = {
        {{}, 0},
        {{"--cairn-modem-cell", "any text", "--cairn-wifi=", mask}, 3},
        {{"--cairn-wifi", "--launch-trigger-mask=4", mask}, 3},
        {{"--cairn-wifi", mask}, 0},
        {{"--nonsense", "--help", "--version=7", mask}, 3},
        {{"-x", "-m1", mask}, 3},
        {{"operand", mask, "operand"}, 3},
        {{"--launch-trigger-mask=4", mask}, 3},
        {{mask, "--launch-trigger-mask"}, 3},
        {{"--", mask}, 0},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(maskOf(test.arguments), test.mask) << testing::PrintToString(test.arguments);
    }
}

TEST(CommandLineDeathTest, AMaskThatIsNoNumberEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const char* text : {"", "x", "  ", "-", "10000000000000000"}) {
        EXPECT_EXIT((void)maskOf({"--launch-trigger-mask", text}), testing::KilledBySignal(SIGABRT), "") << text;
    }
}

}  // namespace
