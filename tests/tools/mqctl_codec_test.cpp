#include <gmock/gmock.h>

#include <random>

#include "CardBytes.h"
#include "CardJson.h"
#include "CardText.h"
#include "CardValue.h"
#include "Text.h"

namespace mqctl {
namespace {

using testing::HasSubstr;

/// The card's bytes in hexadecimal without header and end byte, and its field as JSON.
struct Literal {
    const char* hex;
    const char* json;
};

std::string bytesOf(const char* hex) {
    const std::string fields = fromHex(hex).value();
    std::string card;
    const auto length = static_cast<uint32_t>(fields.size() + 1);
    card.append(reinterpret_cast<const char*>(&length), sizeof(length));
    return card + fields + '\0';
}

std::string encoded(const std::string& json) {
    std::string why;
    const std::optional<Json> parsed = parseJson(json, &why);
    const std::optional<Fields> fields = parsed.has_value() ? cardFromJson(*parsed, &why) : std::nullopt;
    return fields.has_value() ? encodeCard(*fields) : "failed: " + why;
}

/// As encode would do with decode's text.
std::string thereAndBack(const Fields& fields) {
    return encoded(cardToJson(fields).dump());
}

constexpr Literal kLiterals[] = {
    {"01 00 02 00 41 00 01 00 00 00 00", R"({"name":"A","type":"card","fields":[]})"},
    {"0a 00 02 00 41 00 ff ff ff ff ff ff ff ff", R"({"name":"A","type":"int64","value":-1})"},
    {"0a 00 02 00 41 00 01 00 00 00 00 00 20 00", R"({"name":"A","type":"int64","value":"9007199254740993"})"},
    {"0a 00 02 00 41 00 00 00 00 00 00 00 00 80", R"({"name":"A","type":"int64","value":"-9223372036854775808"})"},
    {"0b 00 02 00 41 00 00 00 00 00 00 00 20 00", R"({"name":"A","type":"uint64","value":9007199254740992})"},
    {"0b 00 02 00 41 00 ff ff ff ff ff ff ff ff", R"({"name":"A","type":"uint64","value":"18446744073709551615"})"},
    {"0c 00 02 00 41 00 07 00 00 00", R"({"name":"A","type":"int32","value":7})"},
    {"0d 00 02 00 41 00 ff ff ff ff", R"({"name":"A","type":"uint32","value":4294967295})"},
    {"0e 00 02 00 41 00 00 80", R"({"name":"A","type":"int16","value":-32768})"},
    {"0f 00 02 00 41 00 ff ff", R"({"name":"A","type":"uint16","value":65535})"},
    {"10 00 02 00 41 00 80", R"({"name":"A","type":"int8","value":-128})"},
    {"11 00 02 00 41 00 ff", R"({"name":"A","type":"uint8","value":255})"},
    {"12 00 02 00 41 00 01", R"({"name":"A","type":"bool","value":true})"},
    {"12 00 02 00 41 00 02", R"({"name":"A","type":"bool","value":2})"},
    {"13 00 02 00 41 00 03 00 00 00 68 69 00", R"({"name":"A","type":"string","value":"hi"})"},
    {"13 00 02 00 41 00 04 00 00 00 68 00 69 00", R"({"name":"A","type":"string","value":"h\u0000i"})"},
    {"13 00 02 00 41 00 02 00 00 00 68 69", R"({"name":"A","type":"string","base64":"aGk=","size":2})"},
    {"13 00 02 00 41 00 02 00 00 00 ff 00", R"({"name":"A","type":"string","base64":"/wA=","size":2})"},
    {"13 00 02 00 41 00 00 00 00 00", R"({"name":"A","type":"string","base64":"","size":0})"},
    {"14 00 02 00 41 00 03 00 00 00 00 01 02", R"({"name":"A","type":"blob","base64":"AAEC","size":3})"},
    {"14 00 02 00 41 00 00 00 00 00", R"({"name":"A","type":"blob","base64":"","size":0})"},
    {"15 00 02 00 41 00 00 00 00 00 00 00 f8 3f", R"({"name":"A","type":"double","value":1.5})"},
    {"15 00 02 00 41 00 00 00 00 00 00 00 00 80", R"({"name":"A","type":"double","value":-0.0})"},
    {"15 00 02 00 41 00 01 00 00 00 00 00 f0 7f", R"({"name":"A","type":"double","value":"nan:0x7ff0000000000001"})"},
    {"15 00 02 00 41 00 00 00 00 00 00 00 f0 ff", R"({"name":"A","type":"double","value":"-inf"})"},
    {"16 00 02 00 41 00 00 00 80 7f", R"({"name":"A","type":"float","value":"inf"})"},
    {"16 00 02 00 41 00 34 12 c0 ff", R"({"name":"A","type":"float","value":"nan:0xffc01234"})"},
    {"1e 00 02 00 41 00 08 00 00 00 01 00 00 00 00 00 20 00",
     R"({"name":"A","type":"int64[]","value":["9007199254740993"]})"},
    {"1f 00 02 00 41 00 08 00 00 00 01 00 00 00 00 00 00 00", R"({"name":"A","type":"uint64[]","value":[1]})"},
    {"20 00 02 00 41 00 08 00 00 00 01 00 00 00 fe ff ff ff", R"({"name":"A","type":"int32[]","value":[1,-2]})"},
    {"20 00 02 00 41 00 00 00 00 00", R"({"name":"A","type":"int32[]","value":[]})"},
    {"20 00 02 00 41 00 03 00 00 00 01 02 03", R"({"name":"A","type":"int32[]","base64":"AQID","size":3})"},
    {"21 00 02 00 41 00 04 00 00 00 01 00 00 00", R"({"name":"A","type":"uint32[]","value":[1]})"},
    {"22 00 02 00 41 00 02 00 00 00 ff ff", R"({"name":"A","type":"int16[]","value":[-1]})"},
    {"23 00 02 00 41 00 02 00 00 00 ff ff", R"({"name":"A","type":"uint16[]","value":[65535]})"},
    {"24 00 02 00 41 00 02 00 00 00 01 ff", R"({"name":"A","type":"int8[]","value":[1,-1]})"},
    {"25 00 02 00 41 00 01 00 00 00 ff", R"({"name":"A","type":"uint8[]","value":[255]})"},
    {"26 00 02 00 41 00 03 00 00 00 00 01 09", R"({"name":"A","type":"bool[]","value":[false,true,9]})"},
    {"27 00 02 00 41 00 08 00 00 00 00 00 00 00 00 00 f8 3f", R"({"name":"A","type":"double[]","value":[1.5]})"},
    {"28 00 02 00 41 00 04 00 00 00 00 00 c0 3f", R"({"name":"A","type":"float[]","value":[1.5]})"},
    {"12 00 02 00 ff 00 01", R"({"name_base64":"/w==","type":"bool","value":true})"},
};

TEST(CodecTest, EveryTypeAndEveryOddValueIsTheSameBothWays) {
    for (const Literal& literal : kLiterals) {
        const std::string bytes = bytesOf(literal.hex);
        const std::string json = std::string(R"({"fields":[)") + literal.json + "]}";
        Fields fields;
        Malformed why;
        EXPECT_EQ(parseCard(bytes, 0, &fields, &why), bytes.size()) << literal.json << why.reason;
        EXPECT_EQ(cardToJson(fields).dump(), json);
        EXPECT_EQ(toHex(encoded(json), " "), toHex(bytes, " ")) << literal.json;
    }
}

/// Any card that the format allows, and values that no writer makes.
Fields randomFields(std::mt19937& random, int depth) {
    const auto below = [&random](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    Fields fields;
    for (unsigned count = below(8); count > 0; --count) {
        Field field;
        do {
            field.type = findFieldType(static_cast<uint16_t>(below(41)));
        } while (field.type == nullptr);
        field.name.resize(1 + (below(20) == 0 ? 254 : below(6)));
        for (char& c : field.name) {
            c = static_cast<char>(below(4) == 0 ? 1 + below(255) : 'A' + below(26));
        }
        if (field.type->kind == Kind::kCard) {
            field.fields = depth < 4 ? randomFields(random, depth + 1) : Fields();
        } else {
            const bool sized = field.type->width == 0 || field.type->array;
            field.value.resize(sized ? below(20) : field.type->width);
            for (char& c : field.value) {
                c = static_cast<char>(below(3) == 0 ? 0xFF : below(3) == 0 ? 0xF0 + below(16) : below(256));
            }
            if (field.type->kind == Kind::kString && below(2) == 0) {
                field.value = std::string(below(9), 'x') + '\0';
            }
        }
        fields.push_back(std::move(field));
    }
    return fields;
}

TEST(CodecTest, RandomCardsComeBackByteForByte) {
    std::mt19937 random(7);
    for (int i = 0; i < 500; ++i) {
        const Fields fields = randomFields(random, 0);
        const std::string bytes = encodeCard(fields);
        Fields parsed;
        Malformed why;
        ASSERT_EQ(parseCard(bytes, 0, &parsed, &why), bytes.size()) << why.reason << " at " << why.offset;
        ASSERT_EQ(toHex(encodeCard(parsed), ""), toHex(bytes, ""));
        ASSERT_EQ(toHex(thereAndBack(parsed), ""), toHex(bytes, "")) << cardToJson(parsed).dump();
        ASSERT_FALSE(!parsed.empty() && cardToText(parsed, 2).empty());
    }
}

TEST(CodecTest, DamagedCardsAreRefusedOrComeBackByteForByte) {
    std::mt19937 random(11);
    for (int i = 0; i < 30; ++i) {
        const std::string bytes = encodeCard(randomFields(random, 0));
        for (size_t at = 0; at < bytes.size(); ++at) {
            Fields fields;
            Malformed why;
            ASSERT_FALSE(parseCard(std::string_view(bytes).substr(0, at), 0, &fields, &why).has_value()) << at;
            ASSERT_LE(why.offset, at);
            std::string corrupt = bytes;
            corrupt[at] = static_cast<char>(random());
            fields.clear();
            if (const auto end = parseCard(corrupt, 0, &fields, &why)) {
                ASSERT_EQ(toHex(thereAndBack(fields), ""), toHex(corrupt.substr(0, *end), ""));
            } else {
                ASSERT_LE(why.offset, corrupt.size());
                ASSERT_FALSE(why.reason.empty());
            }
        }
    }
}

TEST(CodecTest, DamageHasAPlaceAndAReason) {
    const auto deep = [] {
        Fields fields;
        for (int i = 0; i < 64; ++i) {
            Fields outer;
            outer.push_back({"C", findFieldType(uint16_t{1}), "", std::move(fields)});
            fields = std::move(outer);
        }
        return encodeCard(fields);
    };
    struct Case {
        std::string bytes;
        size_t offset;
        const char* reason;
    };
    const auto hex = [](const char* text) { return fromHex(text).value(); };
    for (const auto& [bytes, offset, reason] :
         {Case{"", 0, "length is cut off"}, Case{hex("00000000"), 0, "no end byte"},
          Case{hex("02000000 00"), 0, "wants 2 bytes, but only 1"}, Case{hex("01000000 07"), 4, "end byte is not 0"},
          Case{hex("03000000 0c00 00"), 6, "name's length is cut off"}, Case{bytesOf("0900"), 4, "no type 9"},
          Case{bytesOf("0c00 0100 00"), 6, "a name of 1 bytes"},
          Case{bytesOf("0c00 0101 00"), 6, "a name of 257 bytes"}, Case{bytesOf("0c00 0200 4142"), 8, "zero"},
          Case{bytesOf("0c00 0300 410000"), 8, "zero"},
          Case{bytesOf("0c00 0200 4100 070000"), 14, "room for the end byte"},
          Case{bytesOf("1300 0200 4100 09000000 00"), 14, "wants 9 bytes"},
          Case{bytesOf("0100 0200 4100 00000000"), 10, "no end byte"}, Case{deep(), 4 + 64 * 10 - 4, "nested"}}) {
        Fields fields;
        Malformed why;
        EXPECT_FALSE(parseCard(bytes, 0, &fields, &why).has_value()) << reason;
        EXPECT_EQ(why.offset, offset) << reason << ": " << why.reason;
        EXPECT_THAT(why.reason, HasSubstr(reason));
    }
}

TEST(CodecTest, WrongJsonIsToldWithItsPlace) {
    for (const auto& [json, reason] : {
             std::pair(R"([])", "\"fields\""),
             std::pair(R"({"fields":7})", "\"fields\""),
             std::pair(R"({"fields":[7]})", "fields[0]: not an object"),
             std::pair(R"({"fields":[{"type":"bool","value":true}]})", "fields[0]: a \"name\""),
             std::pair(R"({"fields":[{"name":"","type":"bool","value":true}]})", "\"name\""),
             std::pair(R"({"fields":[{"name":"a\u0000b","type":"bool","value":true}]})", "\"name\""),
             std::pair(R"({"fields":[{"name":"A","type":"int33","value":1}]})", "\"type\""),
             std::pair(R"({"fields":[{"name":"A","type":"bool","valu":1}]})", "no key \"valu\""),
             std::pair(R"({"fields":[{"name":"A","type":"bool"}]})", "\"value\" is wanted"),
             std::pair(R"({"fields":[{"name":"A","type":"int8","value":128}]})", "128 is no int8"),
             std::pair(R"({"fields":[{"name":"A","type":"uint8","value":-1}]})", "-1 is no uint8"),
             std::pair(R"({"fields":[{"name":"A","type":"int32","value":1.5}]})", "1.5 is no int32"),
             std::pair(R"({"fields":[{"name":"A","type":"int64","value":"9223372036854775808"}]})", "is no int64"),
             std::pair(R"({"fields":[{"name":"A","type":"float","value":1e39}]})", "is no float"),
             std::pair(R"({"fields":[{"name":"A","type":"double","value":"nan:0x1"}]})", "is no double"),
             std::pair(R"({"fields":[{"name":"A","type":"bool","value":256}]})", "256 is no bool"),
             std::pair(R"({"fields":[{"name":"A","type":"string","value":7}]})", "no text"),
             std::pair(R"({"fields":[{"name":"A","type":"int32[]","value":7}]})", "is an array"),
             std::pair(R"({"fields":[{"name":"A","type":"int32[]","value":[7,"x"]}]})", "\"x\" is no int32"),
             std::pair(R"({"fields":[{"name":"A","type":"blob","value":"x"}]})", "\"base64\""),
             std::pair(R"({"fields":[{"name":"A","type":"blob","base64":"x"}]})", "no base64"),
             std::pair(R"({"fields":[{"name":"A","type":"blob","file":"/nowhere/file"}]})",
                       "/nowhere/file: No such file"),
             std::pair(R"({"fields":[{"name":"C","type":"card","fields":[{"name":"A"}]}]})", "fields[0].fields[0]: "),
             std::pair(R"({"fields":[)", "line 1"),
         }) {
        EXPECT_THAT(encoded(json), AllOf(HasSubstr("failed: "), HasSubstr(reason))) << json;
    }
    // A call for each level would be more than the stack takes.
    const std::string deep = std::string(300000, '[') + std::string(300000, ']');
    EXPECT_THAT(encoded(R"({"fields":[{"name":"A","type":"int8","value":)" + deep + "}]}"),
                HasSubstr("an array is no int8"));
}

TEST(CodecTest, TextShowsWhatAPersonWants) {
    Fields fields;
    Malformed why;
    const std::string bytes = bytesOf(
        "13 00 02 00 41 00 05 00 00 00 22 1b 0a ff 00"
        "14 00 04 00 42 42 42 00 03 00 00 00 68 69 0a"
        "14 00 02 00 43 00 12 00 00 00 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10 11"
        "01 00 02 00 44 00 08 00 00 00 12 00 02 00 45 00 03 00"
        "13 00 02 00 46 00 01 00 00 00 78"
        "16 00 02 00 47 00 cd cc cc 3d");
    ASSERT_TRUE(parseCard(bytes, 0, &fields, &why).has_value()) << why.reason;
    EXPECT_EQ(cardToText(fields, 2),
              "  A    string  \"\\\"\\x1b\\n\\xff\"\n"
              "  BBB  blob    3 bytes \"hi\\n\"\n"
              "  C    blob    18 bytes 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f ...\n"
              "  D    card    1 field\n"
              "    E  bool  3\n"
              "  F    string  \"x\" (without its zero)\n"
              "  G    float   0.1\n");
}

}  // namespace
}  // namespace mqctl
