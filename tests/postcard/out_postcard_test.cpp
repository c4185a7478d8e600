#include <climits>

#include "PostcardTest.h"

namespace zv_loc_fw {
namespace {

using OutPostcardTest = PostcardTest;

TEST_F(OutPostcardTest, WritesTheExampleAndThenNothingMore) {
    const Writer writer = finished([](OutPostcard& c) {
        EXPECT_EQ(0, c.addInt32("A", 7));
        EXPECT_EQ(0, c.addString("S", "hi"));
    });
    const Bytes example = hex("18 00 00 00 0C 00 02 00 41 00 07 00 00 00 13 00 02 00 53 00 03 00 00 00 68 69 00 00");
    EXPECT_EQ(example, bytesOf(*writer));
    EXPECT_EQ(2, writer->finalize());
    EXPECT_EQ(2, writer->addInt32("A", 7));
    EXPECT_EQ(4, writer->addString("A", "x"));
    EXPECT_EQ(example, bytesOf(*writer));
}

TEST_F(OutPostcardTest, WritesEveryTypeLiterally) {
    const Writer inner = finished([](OutPostcard&) {});
    void* const p = reinterpret_cast<void*>(0x0102030405060708);
    const double doubles[] = {1, -2};
    const float floats[] = {1};
    const long long longs[] = {-2};
    const unsigned long long ulongs[] = {0xFFFFFFFFFFFFFFFE};
    const int32_t ints[] = {1, 2};
    const uint32_t uints[] = {3};
    const int16_t shorts[] = {-1, 2};
    const uint16_t ushorts[] = {1};
    const int8_t chars[] = {-1};
    const uint8_t bytes[] = {1, 2, 3};
    const bool bools[] = {true, false};
    const struct {
        std::function<int(OutPostcard&)> add;
        const char* type;
        const char* value;
    } cases[] = {
        {[&](auto& c) { return c.addCard("n", inner.get()); }, "01", "01 00 00 00 00"},
        {[&](auto& c) { return c.addInt64("n", -2); }, "0A", "FE FF FF FF FF FF FF FF"},
        {[&](auto& c) { return c.addPtr("n", p); }, "0A", "08 07 06 05 04 03 02 01"},
        {[&](auto& c) { return c.addUInt64("n", 1); }, "0B", "01 00 00 00 00 00 00 00"},
        {[&](auto& c) { return c.addInt32("n", -2); }, "0C", "FE FF FF FF"},
        {[&](auto& c) { return c.addUInt32("n", 0x01020304); }, "0D", "04 03 02 01"},
        {[&](auto& c) { return c.addInt16("n", -2); }, "0E", "FE FF"},
        {[&](auto& c) { return c.addUInt16("n", 0x0102); }, "0F", "02 01"},
        {[&](auto& c) { return c.addInt8("n", -2); }, "10", "FE"},
        {[&](auto& c) { return c.addUInt8("n", 200); }, "11", "C8"},
        {[&](auto& c) { return c.addBool("n", true); }, "12", "01"},
        {[&](auto& c) { return c.addString("n", ""); }, "13", "01 00 00 00 00"},
        {[&](auto& c) { return c.addBlob("n", "a\0b", 3); }, "14", "03 00 00 00 61 00 62"},
        {[&](auto& c) { return c.addDouble("n", 1.0); }, "15", "00 00 00 00 00 00 F0 3F"},
        {[&](auto& c) { return c.addFloat("n", 1.0F); }, "16", "00 00 80 3F"},
        {[&](auto& c) { return c.addArrayInt64("n", 1, longs); }, "1E", "08 00 00 00 FE FF FF FF FF FF FF FF"},
        {[&](auto& c) { return c.addArrayPtr("n", 1, &p); }, "1E", "08 00 00 00 08 07 06 05 04 03 02 01"},
        {[&](auto& c) { return c.addArrayUInt64("n", 1, ulongs); }, "1F", "08 00 00 00 FE FF FF FF FF FF FF FF"},
        {[&](auto& c) { return c.addArrayInt32("n", 2, ints); }, "20", "08 00 00 00 01 00 00 00 02 00 00 00"},
        {[&](auto& c) { return c.addArrayUInt32("n", 1, uints); }, "21", "04 00 00 00 03 00 00 00"},
        {[&](auto& c) { return c.addArrayInt16("n", 2, shorts); }, "22", "04 00 00 00 FF FF 02 00"},
        {[&](auto& c) { return c.addArrayUInt16("n", 1, ushorts); }, "23", "02 00 00 00 01 00"},
        {[&](auto& c) { return c.addArrayInt8("n", 1, chars); }, "24", "01 00 00 00 FF"},
        {[&](auto& c) { return c.addArrayUInt8("n", 3, bytes); }, "25", "03 00 00 00 01 02 03"},
        {[&](auto& c) { return c.addArrayBool("n", 2, bools); }, "26", "02 00 00 00 01 00"},
        {[&](auto& c) { return c.addArrayDouble("n", 1, doubles); }, "27", "08 00 00 00 00 00 00 00 00 00 F0 3F"},
        {[&](auto& c) { return c.addArrayFloat("n", 1, floats); }, "28", "04 00 00 00 00 00 80 3F"},
    };
    for (const auto& known : cases) {
        const Bytes field = hex(std::string(known.type) + " 00 02 00 6E 00 " + known.value);
        EXPECT_EQ(card(field), written([&](auto& c) { EXPECT_EQ(0, known.add(c)); })) << known.type;
    }
    EXPECT_EQ("", said());
}

// Whichever part of a field it is that makes the bytes grow. 255 characters are the longest name.
TEST_F(OutPostcardTest, FieldsStayWholeAcrossGrowth) {
    for (size_t length = 1; length <= 255; ++length) {
        const std::string name(length, 'n');
        const auto size = static_cast<uint16_t>(length + 1);
        const Bytes head = Bytes{static_cast<uint8_t>(size), static_cast<uint8_t>(size >> 8)} +
                           Bytes(name.c_str(), name.c_str() + size);
        const Bytes simple = hex("0D 00") + head + word(0x01020304);
        const Bytes blob = hex("14 00") + head + hex("02 00 00 00 61 62");
        ASSERT_EQ(card(simple + blob + simple), written([&](OutPostcard& c) {
                      EXPECT_EQ(0, c.addUInt32(name.c_str(), 0x01020304));
                      EXPECT_EQ(0, c.addBlob(name.c_str(), "ab", 2));
                      EXPECT_EQ(0, c.addUInt32(name.c_str(), 0x01020304));
                  }));
    }
}

TEST_F(OutPostcardTest, RefusesWithoutWriting) {
    const std::string longer(256, 'n');
    const long long one = 1;
    const struct {
        int expected;
        std::function<int(OutPostcard&)> operation;
        const char* lines;
    } cases[] = {
        {2, [](auto& c) { return c.init(); }, "init failed 2"},
        {3, [](auto& c) { return c.addInt64(nullptr, 1); }, "add simple failed 3"},
        {4, [](auto& c) { return c.addPtr("", nullptr); }, "add simple failed 4"},
        {5, [&](auto& c) { return c.addInt8(longer.c_str(), 1); }, "add simple failed 5"},
        {6, [](auto& c) { return c.addArrayInt32("x", 2, nullptr); }, "add array failed 6"},
        {7, [&](auto& c) { return c.addArrayInt64("x", 0, &one); }, "add array failed 7"},
        {11, [&](auto& c) { return c.addArrayInt64("x", INT_MAX, &one); }, "add array failed 11"},
        {6, [](auto& c) { return c.addBlob("x", nullptr, 0); }, "addBlobWithType failed 6"},
        {11, [](auto& c) { return c.addBlob("x", "x", size_t{1} << 32); }, "addBlobWithType failed 11"},
        {3, [](auto& c) { return c.addString("x", nullptr); }, "add string failed 3"},
        {4, [](auto& c) { return c.addString("", "x"); }, "addBlobWithType failed 4; add string failed 4"},
        {3, [](auto& c) { return c.addCard("x", nullptr); }, "add card failed 3"},
        {4, [](auto& c) { return c.addCard("x", &c); }, "add card failed 4"},
    };
    // An empty blob is stored and reported.
    EXPECT_EQ(card(hex("14 00 02 00 62 00 00 00 00 00 11 00 02 00 78 00 01")), written([&](OutPostcard& c) {
                  for (const auto& refused : cases) {
                      EXPECT_EQ(refused.expected, refused.operation(c)) << refused.lines;
                      EXPECT_EQ(refused.lines, said());
                  }
                  EXPECT_EQ(12, c.addBlob("b", "x", 0));
                  EXPECT_EQ("expand error 2; append error 2; addBlobWithType failed 12", said());
                  EXPECT_EQ(0, c.addUInt8("x", 1));
              }));
    EXPECT_EQ(2, Writer(OutPostcard::createInstance())->addBool("n", true));
}

}  // namespace
}  // namespace zv_loc_fw
