#include "PostcardTest.h"
#include "postcard/InMemoryStreamImpl.h"

namespace zv_loc_fw {
namespace {

class InPostcardTest : public PostcardTest {
protected:
    static Writer numbered(int32_t number) {
        return finished([&](OutPostcard& c) { EXPECT_EQ(0, c.addInt32("v", number)); });
    }

    static int32_t number(InPostcard& reader) {
        int32_t value = 0;
        EXPECT_EQ(0, reader.getInt32("v", value));
        return value;
    }

    static Reader nested(InPostcard& parent, int index) {
        InPostcard* inner = nullptr;
        EXPECT_EQ(0, parent.getCard("v", &inner, index));
        return Reader(inner);
    }
};

TEST_F(InPostcardTest, ReadsByTypeAndName) {
    const Reader reader =
        reading(hex("18 00 00 00 0C 00 02 00 41 00 07 00 00 00 13 00 02 00 53 00 03 00 00 00 68 69 00 00"));
    int32_t value = 0;
    uint32_t other = 5;
    const char* text = nullptr;
    EXPECT_EQ(0, reader->getInt32("A", value));
    EXPECT_EQ(7, value);
    EXPECT_EQ(0, reader->getString("S", &text));
    EXPECT_STREQ("hi", text);
    EXPECT_EQ(0, reader->getStringDup("S", &text));
    EXPECT_STREQ("hi", text);
    delete[] text;
    text = "preset";
    EXPECT_EQ(kFieldAbsent, reader->getUInt32("A", other));
    EXPECT_EQ(kFieldAbsent, reader->getInt32("AA", value));
    EXPECT_EQ(0, reader->getInt32Default("a", value));
    EXPECT_EQ(0, reader->getStringOptional("A", &text));
    EXPECT_STREQ("preset", text);
    EXPECT_EQ(7, value);
    EXPECT_EQ(5u, other);
    EXPECT_TRUE(InPostcard::hasField(*reader, "A") && InPostcard::hasField(*reader, "S"));
    EXPECT_FALSE(InPostcard::hasField(*reader, "B") || InPostcard::hasField(*reader, nullptr));
    EXPECT_EQ("", said());
}

// Most of the values lie at odd addresses.
TEST_F(InPostcardTest, ReadsEverySimpleTypeAndArrayBack) {
    const Reader reader = reading(everyType());
#define ZV_GET(Suffix, Type, Code)                              \
    {                                                           \
        Type value{}, again{};                                  \
        EXPECT_EQ(0, reader->get##Suffix("n", value));          \
        EXPECT_EQ(0, reader->get##Suffix##Default("n", again)); \
        EXPECT_EQ(kSample<Type>, value) << #Suffix;             \
        EXPECT_EQ(kSample<Type>, again) << #Suffix;             \
    }
    ZV_POSTCARD_SIMPLE_TYPES(ZV_GET)
#undef ZV_GET
#define ZV_GET(Suffix, Type, Code)                                           \
    {                                                                        \
        Type values[3] = {0, 1, 1};                                          \
        const Type expected[3] = {kSample<Type>, 0, 1};                      \
        int count = 3;                                                       \
        EXPECT_EQ(0, reader->getArray##Suffix("n", &count, values));         \
        EXPECT_EQ(2, count);                                                 \
        EXPECT_THAT(values, testing::ElementsAreArray(expected)) << #Suffix; \
    }
    ZV_POSTCARD_ARRAY_TYPES(ZV_GET)
#undef ZV_GET
    uint8_t last = 0;
    EXPECT_EQ(kFieldAbsent, reader->getUInt8("lost", last));
    EXPECT_EQ("", said());
}

TEST_F(InPostcardTest, PointersAreInt64AndArrayCapacityIsRespected) {
    int target = 0;
    void* const pointers[] = {&target, nullptr};
    const Reader reader = reading(written([&](OutPostcard& c) {
        EXPECT_EQ(0, c.addPtr("p", &target));
        EXPECT_EQ(0, c.addArrayPtr("p", 2, pointers));
    }));
    void* out[2] = {};
    int count = 0;
    EXPECT_EQ(0, reader->getArrayPtr("p", &count, nullptr));
    EXPECT_EQ(2, count);
    for (int capacity : {-1, 0, 1}) {
        count = capacity;
        EXPECT_EQ(7, reader->getArrayPtr("p", &count, out));
        EXPECT_EQ(capacity, count);
        EXPECT_EQ("getArray failed 7", said());
    }
    count = 2;
    EXPECT_EQ(0, reader->getArrayPtr("p", &count, out));
    EXPECT_THAT(out, testing::ElementsAreArray(pointers));
    long long integer = 0;
    EXPECT_EQ(0, reader->getInt64("p", integer));
    EXPECT_EQ(reinterpret_cast<long long>(&target), integer);
}

TEST_F(InPostcardTest, OnlyTheByteOneIsTrue) {
    for (const auto& [byte, expected] : {std::pair("00", false), {"01", true}, {"02", false}, {"FF", false}}) {
        const std::string one = byte;
        const Reader reader = reading(card(hex("12 00 02 00 6E 00 " + one + " 26 00 02 00 6E 00 01 00 00 00 " + one)));
        bool value = !expected;
        bool element = !expected;
        int count = 1;
        EXPECT_EQ(0, reader->getBool("n", value));
        EXPECT_EQ(0, reader->getArrayBool("n", &count, &element));
        EXPECT_EQ(expected, value) << byte;
        EXPECT_EQ(expected, element) << byte;
    }
}

TEST_F(InPostcardTest, FirstOfSeveralFieldsIsReadAndCardsByIndex) {
    const Writer middle = finished([&](OutPostcard& c) {
        EXPECT_EQ(0, c.addCard("v", numbered(10).get()));
        EXPECT_EQ(0, c.addCard("v", numbered(11).get()));
    });
    const Reader reader = reading(written([&](OutPostcard& c) {
        EXPECT_EQ(0, c.addInt32("v", 1));
        EXPECT_EQ(0, c.addCard("v", numbered(2).get()));
        EXPECT_EQ(0, c.addInt32("v", 3));
        EXPECT_EQ(0, c.addCard("v", middle.get()));
    }));
    EXPECT_EQ(1, number(*reader));
    EXPECT_EQ(2, number(*nested(*reader, 0)));
    const Reader second = nested(*reader, 1);
    EXPECT_EQ(11, number(*nested(*second, 1)));
    InPostcard* none = reader.get();
    EXPECT_EQ(kFieldAbsent, reader->getCard("v", &none, 2));
    EXPECT_EQ(kFieldAbsent, reader->getCard("v", &none, -1));
    EXPECT_EQ(nullptr, none);
    EXPECT_EQ("", said());
}

TEST_F(InPostcardTest, TakesTheWritersBytesOver) {
    Writer writer = numbered(7);
    const void* bytes = writer->getInternalBuffer()->getBuffer();
    const Reader reader(InPostcard::createInstance(writer.get()));
    EXPECT_EQ(bytes, reader->getBuffer()->getBuffer());
    EXPECT_EQ(nullptr, writer->getInternalBuffer()->getBuffer());
    (void)finished([&](OutPostcard& c) { EXPECT_EQ(5, c.addCard("v", writer.get())); });
    EXPECT_EQ("addBlobWithType failed 6; add card failed 5", said());
    writer.reset();
    EXPECT_EQ(7, number(*reader));
}

// Wrong frees are the sanitizers' to find.
TEST_F(InPostcardTest, StreamsAreAdoptedBorrowedAndCopied) {
    auto* stream = new InMemoryStreamImpl;
    EXPECT_EQ(4, stream->extract(nullptr, 1));
    const void* adopted = new char[3]{'a', 'b', 'c'};
    EXPECT_EQ(0, stream->setBufferOwnership(&adopted, 3));
    EXPECT_EQ(nullptr, adopted);
    EXPECT_EQ(3, stream->extract(nullptr, 0));
    EXPECT_EQ(1, stream->setGetCursor(4));
    EXPECT_EQ(0, stream->setGetCursor(2));
    const std::unique_ptr<InMemoryStream> copy(stream->clone());
    const Bytes bytes = bytesOf(*numbered(7));
    EXPECT_EQ(0, stream->setBufferNoDup(bytes.data(), bytes.size()));
    EXPECT_EQ(7, number(*Reader(InPostcard::createInstance(stream))));
    char last = 0;
    EXPECT_EQ(0, copy->extract(&last, 1));
    EXPECT_EQ('c', last);
    EXPECT_EQ("extract error 4; extract error 3; setGetCursor range error", said());
}

}  // namespace
}  // namespace zv_loc_fw
