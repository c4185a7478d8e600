#include <algorithm>

#include "PostcardTest.h"
#include "postcard/InMemoryStreamImpl.h"

namespace zv_loc_fw {
namespace {

// Bytes that no writer made.
class DamagedCardTest : public PostcardTest {
protected:
    // Every getter once, with the sanitizers watching. Positive results have lines and the others none; what is handed
    // out lies inside. Returns how many fields were found.
    int readEverything(InPostcard& reader) {
        int found = 0;
        const auto check = [&](int result, const void* data = nullptr, size_t size = 0) {
            const std::string lines = said();
            EXPECT_GE(result, kFieldAbsent);
            EXPECT_EQ(result > 0, !lines.empty()) << result << lines;
            if (result == 0 && data != nullptr) {
                const auto* first = static_cast<const char*>(reader.getBuffer()->getBuffer());
                EXPECT_GE(data, first);
                EXPECT_LE(static_cast<const char*>(data) + size, first + reader.getBuffer()->getSize());
            }
            found += result == 0 ? 1 : 0;
        };
        const char* text = nullptr;
        const void* data = nullptr;
        size_t size = 0;
        const int text_result = reader.getString("n", &text);
        check(text_result, text, text_result == 0 ? std::strlen(text) + 1 : 0);
        const int blob_result = reader.getBlob("n", &data, &size);
        check(blob_result, data, size);
        InPostcard* inner = nullptr;
        const int inner_result = reader.getCard("n", &inner, 0);
        const Reader owned(inner);
        check(inner_result, inner != nullptr ? inner->getBuffer()->getBuffer() : nullptr,
              inner != nullptr ? inner->getBuffer()->getSize() : 0);
#define ZV_GET(Suffix, Type, Code)             \
    {                                          \
        Type value{};                          \
        check(reader.get##Suffix("n", value)); \
    }
        ZV_POSTCARD_SIMPLE_TYPES(ZV_GET)
#undef ZV_GET
#define ZV_GET(Suffix, Type, Code)                           \
    {                                                        \
        Type values[2] = {};                                 \
        int count = 2;                                       \
        check(reader.getArray##Suffix("n", &count, values)); \
    }
        ZV_POSTCARD_ARRAY_TYPES(ZV_GET)
#undef ZV_GET
        uint8_t last = 0;
        check(reader.getUInt8("last", last));
        (void)InPostcard::hasField(reader, "absent");
        EXPECT_EQ("", said());
        return found;
    }
};

TEST_F(DamagedCardTest, EveryTruncationIsReadSafely) {
    const Bytes whole = everyType();
    ASSERT_EQ(3 + 11 + 11 + 1, readEverything(*reading(whole)));
    int found = 0;
    for (auto size = 1; size < std::ssize(whole); ++size) {
        const Reader reader = reading(Bytes(whole.begin(), whole.begin() + size));
        const int before = std::exchange(found, readEverything(*reader));
        ASSERT_GE(found, before) << size;  // fields before the cut stay readable
        // The header claims the missing bytes, so nobody can say that a field is absent; but the end byte is not read.
        bool absent = false;
        ASSERT_EQ(size + 1 < std::ssize(whole) ? 3 : kFieldAbsent, reader->getBool("absent", absent)) << size;
        said();
    }
}

TEST_F(DamagedCardTest, EveryChangedByteIsReadSafely) {
    const Bytes whole = everyType();
    for (size_t at = 0; at < whole.size() && !HasFailure(); ++at) {
        for (int change : {0x01, 0x02, 0x04, 0x10, 0x80, 0xFF, static_cast<int>(whole[at])}) {
            Bytes changed = whole;
            changed[at] = static_cast<uint8_t>(changed[at] ^ change);
            readEverything(*reading(changed));
            EXPECT_FALSE(HasFailure()) << "byte " << at << " changed by " << change;
        }
    }
}

// A stream that the reader does not know, so that it walks step by step.
class OtherStream : public InMemoryStream {
public:
    explicit OtherStream(const Bytes& bytes) { (void)mStream.setBufferNoDup(bytes.data(), bytes.size()); }
    size_t getSize() const override { return mStream.getSize(); }
    const void* getBuffer() const override { return mStream.getBuffer(); }
    int setBufferOwnership(const void** buffer, size_t size) override {
        return mStream.setBufferOwnership(buffer, size);
    }
    int setBufferNoDup(const void* buffer, size_t size) override { return mStream.setBufferNoDup(buffer, size); }
    int extract(void* dest, size_t n) override { return mStream.extract(dest, n); }
    size_t getGetCursor() const override { return mStream.getGetCursor(); }
    int setGetCursor(size_t pos) override { return mStream.setGetCursor(pos); }
    size_t getCapacity() const override { return mStream.getCapacity(); }
    InMemoryStream* clone() const override { return mStream.clone(); }

private:
    InMemoryStreamImpl mStream;
};

// The short way through a card and the one step by step agree on every result, line and cursor.
TEST_F(DamagedCardTest, BothWaysThroughACardAgree) {
    const Bytes whole = everyType() + Bytes{0, 0};
    const auto outcome = [&](InPostcard& reader, const Bytes& bytes) {
        std::string all;
        const auto add = [&](int result, const void* data, size_t size) {
            const auto at = data == nullptr ? 0 : static_cast<const uint8_t*>(data) - bytes.data();
            all += std::to_string(result) + " " + std::to_string(at) + " " + std::to_string(size) + " " +
                   std::to_string(reader.getBuffer()->getGetCursor()) + " " + said() + "\n";
        };
        for (const char* name : {"n", "last", "absent"}) {
            const char* text = nullptr;
            const void* data = nullptr;
            size_t size = 0;
            int number = 0;
            uint8_t small = 0;
            add(reader.getString(name, &text), text, 0);
            add(reader.getBlob(name, &data, &size), data, size);
            add(reader.getInt32(name, number), nullptr, static_cast<size_t>(number));
            add(reader.getUInt8(name, small), nullptr, small);
        }
        return all;
    };
    for (size_t at = 0; at < whole.size() && !HasFailure(); ++at) {
        for (int change : {0x00, 0x01, 0x02, 0x04, 0x10, 0x80, 0xFF, static_cast<int>(whole[at])}) {
            for (const size_t kept : {whole.size(), whole.size() - 2, at + 1}) {
                Bytes changed(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(std::max(kept, at + 1)));
                changed[at] = static_cast<uint8_t>(changed[at] ^ change);
                const Reader plain(InPostcard::createInstance());
                ASSERT_EQ(0, plain->init(changed.data(), changed.size(), false));
                const Reader stepping(InPostcard::createInstance(new OtherStream(changed)));
                EXPECT_EQ(outcome(*stepping, changed), outcome(*plain, changed)) << at << " " << change << " " << kept;
            }
        }
    }
}

TEST_F(DamagedCardTest, EachDamageOnTheWayHasItsCodes) {
    const struct {
        const char* bytes;
        int find;  // what a lookup for "X" answers, and at which field
        int field;
        int extract = 0;  // what the stream and the skipping of a value say before, if anything
        int skip = 0;
        int type = 0;
    } cases[] = {
        // the header, over a field of 10 bytes: 0, 1, 4, one too few, true, one too many, far too many, most, cut off
        {"00 00 00 00 0C 00 02 00 41 00 07 00 00 00 00", 101, 0},
        {"01 00 00 00 0C 00 02 00 41 00 07 00 00 00 00", kFieldAbsent, 0},
        {"04 00 00 00 0C 00 02 00 41 00 07 00 00 00 00", 101, 1},
        {"0A 00 00 00 0C 00 02 00 41 00 07 00 00 00 00", 101, 1},
        {"0B 00 00 00 0C 00 02 00 41 00 07 00 00 00 00", kFieldAbsent, 1},
        {"0C 00 00 00 0C 00 02 00 41 00 07 00 00 00 00", 102, 1, 5},
        {"0F 00 00 00 0C 00 02 00 41 00 07 00 00 00 00", 102, 1, 5},
        {"FF FF FF FF 0C 00 02 00 41 00 07 00 00 00 00", 102, 1, 5},
        {"01 00 00", 4, 0, 5},
        // a field's head: type, name length and name cut off, no name
        {"09 00 00 00 0C", 102, 0, 5},
        {"09 00 00 00 0C 00 02", 103, 0, 5},
        {"09 00 00 00 0C 00 02 00 58", 104, 0, 5},
        {"09 00 00 00 0C 00 00 00 07 00 00 00 00", 104, 0, 3},
        // no such type
        {"07 00 00 00 00 00 02 00 41 00 00", 105, 0, 0, 100, 0},
        {"07 00 00 00 09 00 02 00 41 00 00", 105, 0, 0, 101, 9},
        {"07 00 00 00 17 00 02 00 41 00 00", 105, 0, 0, 101, 23},
        {"07 00 00 00 29 00 02 00 41 00 00", 105, 0, 0, 101, 41},
        {"07 00 00 00 0C 01 02 00 41 00 00", 105, 0, 0, 101, 268},
        // a value: cut off; its length word cut off, 0, too large
        {"0B 00 00 00 0C 00 02 00 41 00 07", 105, 0, 5, 3, 12},
        {"0F 00 00 00 13 00 02 00 41 00 01 00", 105, 0, 5, 102, 19},
        {"0F 00 00 00 01 00 02 00 41 00 01 00", 105, 0, 5, 102, 1},
        {"0F 00 00 00 14 00 02 00 41 00 01 00", 105, 0, 5, 104, 20},
        {"0B 00 00 00 13 00 02 00 41 00 00 00 00 00 00", 105, 0, 0, 103, 19},
        {"0B 00 00 00 01 00 02 00 41 00 00 00 00 00 00", 105, 0, 0, 103, 1},
        {"0B 00 00 00 28 00 02 00 41 00 00 00 00 00 00", 105, 0, 0, 2, 40},
        {"12 00 00 00 12 00 02 00 41 00 01 14 00 02 00 42 00 00 00 00 00 00", 105, 1, 0, 2, 20},
        {"0B 00 00 00 20 00 02 00 41 00 FF FF FF FF 00", 105, 0, 5, 3, 32},
    };
    const auto line = [](int code, const std::string& text, const std::string& rest = "") {
        return code > 0 ? text + std::to_string(code) + rest + "; " : "";
    };
    for (const auto& c : cases) {
        const Reader reader = reading(hex(c.bytes));
        int32_t value = 0;
        EXPECT_EQ(c.find > 0 ? 3 : kFieldAbsent, reader->getInt32("X", value)) << c.bytes;
        EXPECT_EQ(line(c.extract, "extract error ") +
                      line(c.skip, "skipValueByType failed ", ", type " + std::to_string(c.type)) +
                      line(c.find, "findName failed ", ", field index " + std::to_string(c.field)) +
                      (c.find > 0 ? "get simple failed 3" : ""),
                  said())
            << c.bytes;
        EXPECT_FALSE(InPostcard::hasField(*reader, "X")) << c.bytes;
        EXPECT_EQ("", said());
    }
}

TEST_F(DamagedCardTest, EachDamagedValueHasItsCodes) {
    using Getter = std::function<int(InPostcard&)>;
    int32_t value = 0;
    int count = 0;
    const char* text = nullptr;
    const void* data = nullptr;
    size_t size = 0;
    InPostcard* found = nullptr;
    const Getter number = [&](auto& r) { return r.getInt32("A", value); };
    const Getter string = [&](auto& r) { return r.getString("A", &text); };
    const Getter blob = [&](auto& r) { return r.getBlob("A", &data, &size); };
    const Getter inner = [&](auto& r) { return r.getCard("A", &found, 0); };
    const Getter array = [&](auto& r) { return r.getArrayInt32("A", &count, nullptr); };
    const struct {
        int expected;
        Getter getter;
        const char* bytes;
        const char* lines;
    } cases[] = {
        {4, number, "FF 00 00 00 0C 00 02 00 41 00 07", "extract error 5; get simple failed 4"},
        {7, string, "0D 00 00 00 13 00 02 00 41 00 02 00 00 00 68 69 00", "get string failed 7"},
        {0, string, "0E 00 00 00 13 00 02 00 41 00 03 00 00 00 68 00 00 00", ""},
        {4, string, "0B 00 00 00 13 00 02 00 41 00 00 00 00 00 00",
         "extract error 3; get blob failed 7; get string failed 4"},
        {5, blob, "FF 00 00 00 14 00 02 00 41 00 01", "extract error 5; get blob failed 5"},
        {7, blob, "0B 00 00 00 14 00 02 00 41 00 FF FF FF FF 00", "extract error 5; get blob failed 7"},
        {4, inner, "0B 00 00 00 01 00 02 00 41 00 03 00 00 00 00",
         "extract error 5; get blob failed 7; get card failed 4"},
        {5, array, "0E 00 00 00 20 00 02 00 41 00 03 00 00 00 01 02 03 00", "getArray failed 5"},
        {4, array, "01 00 00 00 00", "getArray failed 4"},  // absent, but not silent
        {2, [&](auto& r) { return r.getInt32(nullptr, value); }, "01 00 00 00 00", "get simple failed 2"},
        {3, [&](auto& r) { return r.getInt32("", value); }, "01 00 00 00 00",
         "findName failed 5, field index 0; get simple failed 3"},
        {3, [](auto& r) { return r.getArrayBool("A", nullptr, nullptr); }, "00", "getArray failed 3"},
        {2, [&](auto& r) { return r.getArrayInt32(nullptr, &count, nullptr); }, "00", "getArray failed 2"},
        {2, [&](auto& r) { return r.getString(nullptr, &text); }, "00", "get string failed 2"},
        {3, [](auto& r) { return r.getString("A", nullptr); }, "00", "get string failed 3"},
        {2, [](auto& r) { return r.getStringDup("A", nullptr); }, "00", "get string duplicate failed 2"},
        {2, [&](auto& r) { return r.getBlob(nullptr, &data, &size); }, "00", "get blob failed 2"},
        {3, [&](auto& r) { return r.getBlob("A", nullptr, &size); }, "00", "get blob failed 3"},
        {2, [&](auto& r) { return r.getCard(nullptr, &found, 0); }, "00", "get card failed 2"},
        {3, [](auto& r) { return r.getCard("A", nullptr, 0); }, "00", "get card failed 3"},
        {2, [](auto& r) { return r.init(nullptr, 4, true); }, "00", "init failed 2"},
    };
    for (const auto& damaged : cases) {
        EXPECT_EQ(damaged.expected, damaged.getter(*reading(hex(damaged.bytes)))) << damaged.lines;
        EXPECT_EQ(damaged.lines, said()) << damaged.bytes;
    }
}

// The bytes count a name's length in 16 bits: a longer one must not be mistaken for what is left of it there.
TEST_F(DamagedCardTest, LongNamesMatchAsAWholeOnly) {
    const std::string longest(65534, 'n');
    const Reader reader =
        reading(card(hex("11 00 02 00 6E 00 01 11 00 FF FF") + Bytes(longest.begin(), longest.end()) + hex("00 02")));
    uint8_t value = 0;
    EXPECT_EQ(0, reader->getUInt8(longest.c_str(), value));
    EXPECT_EQ(2, value);
    for (size_t length : {65535u, 65536u, 65537u, 131070u}) {
        EXPECT_EQ(kFieldAbsent, reader->getUInt8(std::string(length, 'n').c_str(), value)) << length;
    }
}

}  // namespace
}  // namespace zv_loc_fw
