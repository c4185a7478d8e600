#include "platform/posutil/pos_conf.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "support/files.h"

namespace {

TEST(PosConf, NumbersAreWholeDecimalOrHexadecimalValues) {
    const test_support::TempDir dir;
    constexpr long kUntouched = 77;
    const struct {
        const char* content;
        bool found;
        long value = kUntouched;
    } cases[] = {{"KEY=1", true, 1},
                 {" \tKEY\t=\t-5 \r\n", true, -5},
                 {"KEY = 0x1F\n", true, 31},
                 {"KEY = 010\n", true, 10},
                 {"KEY = 9223372036854775807\n", true, LONG_MAX},
                 {"KEY = 1\nother = 3\nKEY = 2\n", true, 2},
                 {"KEY = 1\nKEY = none\n", true, 1},
                 {"# KEY = 1\n#KEY=1\n", false},
                 {"KEY 1\n= 1\nKEYS = 1\nKE = 1\nkey = 1\n", false},
                 {"KEY = 9223372036854775808\n", false},
                 {"KEY = 1x\nKEY = 0x\nKEY = \nKEY = 1 2\n", false},
                 {"", false}};
    long value = kUntouched;
    bool found = true;
    const pos_conf_entry entry = {"KEY", &value, 'n', &found};
    for (const std::string& path : {dir.file("absent"), dir.path(), std::string("/dev/zero")}) {
        EXPECT_EQ(pos_read_conf_long(path.c_str(), &entry, 1, 172), -1) << path;
    }
    EXPECT_TRUE(found) << "nothing is touched";
    for (const auto& each : cases) {
        value = kUntouched;
        EXPECT_EQ(pos_read_conf_long(dir.write("c", each.content).c_str(), &entry, 1, 172), 0);
        EXPECT_EQ(found, each.found) << each.content;
        EXPECT_EQ(value, each.value) << each.content;
    }
}

TEST(PosConf, TextIsTrimmedAndCut) {
    const test_support::TempDir dir;
    const std::string path = dir.write("c", std::string(5000, 'x') + "\nA =  two words \nB = 1=2\n");
    char a[6] = "?????";
    char b[6] = "?????";
    const pos_conf_entry table[] = {{"A", a, 's', nullptr}, {"B", b, 's', nullptr}};
    EXPECT_EQ(pos_read_conf_long(path.c_str(), table, 2, sizeof(a)), 0);
    EXPECT_EQ(std::string(a) + " " + b, "two w 1=2");
}

}  // namespace
