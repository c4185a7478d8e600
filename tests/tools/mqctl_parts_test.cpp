#include <gmock/gmock.h>

#include "CardValue.h"
#include "FieldArgs.h"
#include "GlobalOptions.h"
#include "Text.h"

namespace mqctl {
namespace {

using testing::HasSubstr;

TEST(FieldArgsTest, ArgumentsAreReadByTheirTypes) {
    for (const auto& [argument, name, type, hex] : {
             std::tuple("A=x=y", "A", "string", "78 3d 79 00"),
             std::tuple("A=", "A", "string", "00"),
             std::tuple("URL=http://a:80/", "URL", "string", "68 74 74 70 3a 2f 2f 61 3a 38 30 2f 00"),
             std::tuple("A:string=1", "A", "string", "31 00"),
             std::tuple("A:B:uint8=0xff", "A:B", "uint8", "ff"),
             std::tuple("TX-ID=7", "TX-ID", "int32", "07 00 00 00"),
             std::tuple("TX-ID:string=7", "TX-ID", "string", "37 00"),
             std::tuple("POST-DATA=hi", "POST-DATA", "blob", "68 69"),
             std::tuple("FORCE_NEW_CONNECTION=true", "FORCE_NEW_CONNECTION", "bool", "01"),
             std::tuple("DATA-ITEMS=2", "DATA-ITEMS", "int32[]", "02 00 00 00"),
             std::tuple("A:blob=hex:0A ff", "A", "blob", "0a ff"),
             std::tuple("A:int16[]=-1,2", "A", "int16[]", "ff ff 02 00"),
             std::tuple("A:bool[]=true,false,7", "A", "bool[]", "01 00 07"),
             std::tuple("A:float=-inf", "A", "float", "00 00 80 ff"),
             std::tuple("A:double=nan", "A", "double", "00 00 00 00 00 00 f8 7f"),
         }) {
        std::string why;
        const std::optional<Field> field = fieldFromArgument(argument, &why);
        ASSERT_TRUE(field.has_value()) << argument << ": " << why;
        EXPECT_EQ(field->name, name);
        EXPECT_STREQ(field->type->name, type);
        EXPECT_EQ(toHex(field->value, " "), hex) << argument;
    }
    for (const auto& [argument, reason] : {
             std::pair("A", "KEY=TEXT"),
             std::pair("=x", "KEY of 1"),
             std::pair("A:int=1", "no type \"int\""),
             std::pair("A:int8=", "\"\" is no value"),
             std::pair("A:int8=1x", "\"1x\""),
             std::pair("A:int8= 1", "\" 1\""),
             std::pair("A:uint8=-1", "\"-1\""),
             std::pair("A:uint64=18446744073709551616", "is no"),
             std::pair("A:int32[]=1,,2", "\"\" is no value"),
             std::pair("A:float=1e39", "is no"),
             std::pair("A:double=1e999", "is no"),
             std::pair("A:double=nan:0x0", "is no"),
             std::pair("A:bool=yes", "is no"),
             std::pair("A:blob=hex:0g", "digits"),
             std::pair("A:card=x", "--json-in"),
         }) {
        std::string why;
        EXPECT_FALSE(fieldFromArgument(argument, &why).has_value()) << argument;
        EXPECT_THAT(why, HasSubstr(reason));
    }
}

TEST(TextTest, Base64IsCanonicalBothWays) {
    for (const auto& [bytes, text] : {std::pair("", ""), std::pair("f", "Zg=="), std::pair("fo", "Zm8="),
                                      std::pair("foo", "Zm9v"), std::pair("foob", "Zm9vYg==")}) {
        EXPECT_EQ(toBase64(bytes), text);
        EXPECT_EQ(fromBase64(text), bytes);
    }
    for (const char* wrong : {"Z", "Zg", "Zg=", "Zg==Zg==", "Z===", "Zh==", "Zm9=", "Zm 8", "====", "Zg=a"}) {
        EXPECT_EQ(fromBase64(wrong), std::nullopt) << wrong;
    }
}

TEST(TextTest, OnlyGoodUtf8ReachesATerminal) {
    for (const char* good : {"", "x", "\xC2\xA0", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xF4\x8F\xBF\xBF"}) {
        EXPECT_TRUE(isUtf8(good));
        EXPECT_EQ(printable(good), good);
    }
    for (const char* bad : {"\x80", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80",
                            "\xE2\x82", "\xC3x"}) {
        EXPECT_FALSE(isUtf8(bad)) << toHex(bad, " ");
    }
    EXPECT_EQ(printable("a\033[31m\n\xFF\xC2\x9B"), "a\\x1b[31m\\n\\xff\\xc2\\x9b");
    EXPECT_EQ(cutTo("\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xACzz", 4), "\xE2\x82\xAC...");
    EXPECT_EQ(cutTo("abc", 3), "abc");
    EXPECT_EQ(cutTo("abcd", 2), "..");
}

TEST(DurationTest, TimesAreReadWithTheirUnits) {
    for (const auto& [text, ms] : {std::pair("250ms", 250), std::pair("2", 2000), std::pair("1.5s", 1500),
                                   std::pair("3m", 180000), std::pair("1h", 3600000)}) {
        EXPECT_EQ(parseDuration(text), Duration(ms)) << text;
    }
    for (const char* wrong : {"", "0", "-1", "s", "1d", "1 s", "inf", "nan", "1e99", "0.1ms", ".5", "+1"}) {
        EXPECT_EQ(parseDuration(wrong), std::nullopt) << wrong;
    }
    for (const auto& [seconds, text] :
         {std::pair(0.00003, "30 us"), std::pair(0.0003, "0.3 ms"), std::pair(0.412, "412 ms"),
          std::pair(3.24, "3.2 s"), std::pair(60.0, "60 s")}) {
        EXPECT_EQ(formatDuration(std::chrono::duration<double>(seconds)), text);
    }
}

}  // namespace
}  // namespace mqctl
