#include "platform/posutil/pos_conf.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "platform/TempDir.h"
#include "platform/posutil/pos_log.h"

namespace {

using test_support::TempDir;

TEST(PosConf, NumbersAreWholeDecimalOrHexadecimalValues) {
    const TempDir dir;
    constexpr long kUntouched = 77;
    const struct {
        const char* content;
        bool found;
        long value;
    } cases[] = {
        {"KEY = 300000\n", true, 300000},
        {"KEY=1", true, 1},
        {" \tKEY\t=\t-5 \r\n", true, -5},
        {"KEY = 0x1F\n", true, 31},
        {"KEY = 010\n", true, 10},
        {"KEY = 9223372036854775807\n", true, LONG_MAX},
        {"KEY = 1\nother = 3\nKEY = 2\n", true, 2},
        {"KEY = 1\nKEY = none\n", true, 1},
        {"# KEY = 1\n#KEY=1\n", false, 0},
        {"KEY 1\n= 1\nKEYS = 1\nKE = 1\nkey = 1\n", false, 0},
        {"KEY = 9223372036854775808\n", false, 0},
        {"KEY = 1x\nKEY = 0x\nKEY = \nKEY = 1 2\n", false, 0},
        {"", false, 0},
    };
    for (const auto& each : cases) {
        long value = kUntouched;
        bool found = !each.found;
        const pos_conf_entry entry = {"KEY", &value, 'n', &found};
        EXPECT_EQ(pos_read_conf_long(dir.write("c", each.content).c_str(), &entry, 1, 172), 0);
        EXPECT_EQ(found, each.found) << each.content;
        EXPECT_EQ(value, each.found ? each.value : kUntouched) << each.content;
    }
}

TEST(PosConf, TextIsTrimmedAndCutAndTablesMayBeLarge) {
    const TempDir dir;
    const std::string path = dir.write("c", "A =  two words \nB=\nC = 1=2\nN = 4\n" + std::string(5000, 'x') + "\n");
    char a[6] = "?????";
    char b[6] = "?????";
    char c[6] = "?????";
    long n = 0;
    bool found[3] = {};
    const pos_conf_entry table[] = {
        {"A", a, 's', &found[0]}, {"B", b, 's', &found[1]}, {"C", c, 's', nullptr},
        {"N", &n, 'n', nullptr},  {"N", a, 'x', &found[2]}, {nullptr, a, 's', nullptr},
    };
    EXPECT_EQ(pos_read_conf_long(path.c_str(), table, 6, 6), 0);
    EXPECT_STREQ(a, "two w");
    EXPECT_STREQ(b, "");
    EXPECT_STREQ(c, "1=2");
    EXPECT_EQ(n, 4);
    EXPECT_TRUE(found[0] && found[1]);
    EXPECT_FALSE(found[2]);
}

TEST(PosConf, UnreadableFileTouchesNothing) {
    const TempDir dir;
    long value = 5;
    bool found = true;
    const pos_conf_entry entry = {"KEY", &value, 'n', &found};
    for (const std::string& path : {dir.path("absent"), dir.path(""), std::string("/dev/zero")}) {
        EXPECT_EQ(pos_read_conf_long(path.c_str(), &entry, 1, 172), -1) << path;
    }
    EXPECT_EQ(pos_read_conf_long(nullptr, &entry, 1, 172), -1);
    EXPECT_EQ(value, 5);
    EXPECT_TRUE(found);
}

TEST(PosLog, TimestampIsCutToItsBuffer) {
    char whole[32];
    get_timestamp(whole, sizeof(whole));
    EXPECT_EQ(std::string(whole).size(), 12U);
    EXPECT_TRUE(whole[2] == ':' && whole[5] == ':' && whole[8] == '.') << whole;
    char part[4];
    get_timestamp(part, sizeof(part));
    EXPECT_EQ(std::string(part).size(), 3U);
}

}  // namespace
