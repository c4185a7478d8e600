#include "base/ConfigFile.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>

#include "base/BaseTest.h"

namespace {

using namespace zv_loc_fw;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

class ConfigFileTest : public base_test::BaseTest {
protected:
    ~ConfigFileTest() override { (void)std::remove(mPath.c_str()); }

    using File = std::unique_ptr<ConfigFile>;
    static File open(const char* path) { return File(ConfigFile::createInstance(path, 0, false)); }
    File load(const std::string& content) {
        std::ofstream(mPath, std::ios::binary) << content;
        return open(mPath.c_str());
    }

    std::string mPath = testing::TempDir() + "config-" + std::to_string(getpid());
};

TEST_F(ConfigFileTest, ReadsKeysAndValues) {
    const std::string long_value(1018, 'v');
    const auto file = load(
        "\n  # comment = 1\n\t\v\f\r\n"
        "a=1\n  A_b-9\t= text with blanks  \r\n"
        "hash = a # b\nquoted = \"  x  \"\nempty = \"\"\ninner = \"a\"b\"\nopen_end = a\"\n"
        "equals = = x\n"
        "l =" +
        long_value +
        "\n"
        "twice = 1\ntwice = 2\nlast=no newline");
    ASSERT_TRUE(file->loaded());
    const std::pair<const char*, std::string> cases[] = {
        {"a", "1"},
        {"A_b-9", "text with blanks"},
        {"hash", "a # b"},
        {"quoted", "  x  "},
        {"empty", ""},
        {"inner", "a\"b"},
        {"open_end", "a\""},
        {"equals", "= x"},
        {"l", long_value},
        {"twice", "2"},
        {"last", "no newline"},
    };
    for (const auto& [key, value] : cases) {
        const char* text = nullptr;
        EXPECT_EQ(file->getString(key, &text), 0);
        EXPECT_EQ(text, value) << key;
        EXPECT_EQ(file->getStringDup(key, &text, "default"), 0);
        EXPECT_EQ(text, value);
        delete[] text;
    }
    EXPECT_THAT(mLog.texts(), IsEmpty());
    const char* text = "before";
    EXPECT_EQ(file->getString("A", &text), 1000);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(file->getString(nullptr, &text), 3);
    EXPECT_EQ(file->getStringDup("a", nullptr, "d"), 4);
}

TEST_F(ConfigFileTest, OneBadLineMakesEveryKeyAbsent) {
    const std::pair<std::string, int> cases[] = {
        {"k = " + std::string(1018, 'v') + "\n", 101},  // 1023 with its newline
        {"k = " + std::string(1019, 'v'), 101},
        {"#" + std::string(3000, 'c'), 101},
        {"1k = 1", 110},
        {"_k = 1", 110},
        {"= 1", 110},
        {"\xEF\xBB\xBFk = 1", 110},
        {"k 1", 111},
        {"k x = 1", 111},
        {"k", 111},
        {"k =", 112},
        {"k = \t ", 112},
        {"k = \"", 112},
        {"k = \"x", 112},
        {"k = \"x\" y", 112}};
    for (const auto& [line, code] : cases) {
        mLog.clear();
        const auto file = load("first = 1\n\n" + line + "\nlast = 2\n");
        EXPECT_FALSE(file->loaded()) << line;
        EXPECT_THAT(mLog.texts(),
                    ElementsAre(testing::MatchesRegex(
                        "\\[ConfigFile\\] ConfigFileImpl: cannot load config file result \\[" + std::to_string(code) +
                        "\\] \\[" + mPath + "\\], error \\[[0-9]+\\]\\[.*\\], line\\[3\\]")))
            << line;
        int32_t number = 7;
        EXPECT_EQ(file->getInt32("first", number), 1000);
        EXPECT_EQ(number, 7);
    }
}

TEST_F(ConfigFileTest, FileThatCannotBeReadStillYieldsAnObject) {
    const auto none = open(nullptr);
    EXPECT_FALSE(none->loaded() || open("/nonexistent/file")->loaded() || open("/")->loaded());
    const std::string start = "[ConfigFile] ConfigFileImpl: cannot load config file result ";
    EXPECT_THAT(mLog.texts(),
                ElementsAre(start + "[2] [], error [0][Success], line[0]",
                            start + "[3] [/nonexistent/file], error [2][No such file or directory], line[0]",
                            start + "[10] [/], error [21][Is a directory], line[0]"));
    const char* text = nullptr;
    EXPECT_EQ(none->getString("k", &text), 2);
    EXPECT_EQ(none->getStringDup("k", &text, "default"), 0);
    EXPECT_STREQ(text, "default");
    delete[] text;
    double real = 0;
    EXPECT_EQ(none->getDoubleDefault("k", real, 2.5), 0);
    EXPECT_EQ(real, 2.5);
}

TEST_F(ConfigFileTest, ConvertsNumbersOrSaysWhyNot) {
    const struct {
        const char* text;
        int code;
        int32_t number;
        int real_code;
        double real;
    } cases[] = {{"16", 0, 16, 0, 16},
                 {"-2147483648", 0, INT32_MIN, 0, -2147483648.0},
                 {"0x10", 0, 16, 0, 16},
                 {"010", 0, 8, 0, 10},
                 {"\" 5\"", 0, 5, 0, 5},
                 {"\"\"", 101, 7, 101, 7},
                 {"\"  \"", 104, 7, 103, 7},
                 {"99999999999999999999", 102, 7, 0, 1e20},
                 {"-9223372036854775808", 102, 7, 0, -9223372036854775808.0},
                 {"text", 104, 7, 103, 7},
                 {"5 apples", 104, 7, 103, 7},
                 {"0x", 104, 7, 103, 7},
                 {"2.5", 104, 7, 0, 2.5},
                 {"1e999", 104, 7, 102, 7},
                 {"3000000000", 105, 7, 0, 3e9},
                 {"-2147483649", 105, 7, 0, -2147483649.0}};
    for (const auto& c : cases) {
        const auto file = load(std::string("k = ") + c.text + "\n");
        int32_t number = 7;
        EXPECT_EQ(file->getInt32("k", number), c.code) << c.text;
        EXPECT_EQ(number, c.number) << c.text;
        EXPECT_TRUE(c.code == 0 || mLog.contains("[ConfigFile] getInt32 failed [k] " + std::to_string(c.code)));
        EXPECT_EQ(file->getInt32Default("k", number, 9), c.code) << "an error takes no default";
        double real = 7;
        EXPECT_EQ(file->getDouble("k", real), c.real_code) << c.text;
        EXPECT_EQ(real, c.real) << c.text;
    }
    EXPECT_EQ(mLog.count("conversion error [34] [Numerical result out of range]"), 1U);
}

TEST_F(ConfigFileTest, SignedGettersLookAtTheOutputAfterwards) {
    const auto file = load("minus = -1\nzero = 0\none = 1\ntext = x\n");
    const struct {
        const char* key;
        int32_t preset;
        int pz_result, pz_value, pnz_result, pnz_value;
    } cases[] = {
        {"absent", 7, 0, 2, 0, 2},   {"minus", 7, 1, 2, 1, 2},  {"zero", 7, 0, 0, 1, 2},  {"one", 7, 0, 1, 0, 1},
        {"text", 7, 104, 7, 104, 7}, {"text", 0, 104, 0, 1, 2}, {"text", -7, 1, 2, 1, 2},
    };
    for (const auto& c : cases) {
        int32_t value = c.preset;
        EXPECT_EQ(file->get_PZ_Int32Default(c.key, value, 2), c.pz_result) << c.key;
        EXPECT_EQ(value, c.pz_value) << c.key;
        value = c.preset;
        EXPECT_EQ(file->get_PNZ_Int32Default(c.key, value, 2), c.pnz_result) << c.key;
        EXPECT_EQ(value, c.pnz_value) << c.key;
    }
}

}  // namespace
