#include "PostcardTest.h"
#include "postcard/InMemoryStreamImpl.h"
#include "postcard/InPostcardImpl.h"

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
    int16_t narrow = 6;
    const char* text = nullptr;
    EXPECT_EQ(0, reader->getInt32("A", value));
    EXPECT_EQ(7, value);
    EXPECT_EQ(14u, reader->getBuffer()->getGetCursor());
    EXPECT_EQ(0, reader->getString("S", &text));
    EXPECT_STREQ("hi", text);
    EXPECT_EQ(0, reader->getStringDup("S", &text));
    const std::unique_ptr<const char[]> copy(text);
    EXPECT_STREQ("hi", text);
    EXPECT_EQ(kFieldAbsent, reader->getUInt32("A", other));
    EXPECT_EQ(kFieldAbsent, reader->getInt16("A", narrow));
    EXPECT_EQ(kFieldAbsent, reader->getInt32("AA", value));
    EXPECT_EQ(kFieldAbsent, reader->getStringDup("A", &text));
    EXPECT_EQ(0, reader->getInt32Default("a", value));
    EXPECT_EQ(7, value);
    EXPECT_EQ(5u, other);
    EXPECT_EQ(6, narrow);
    text = "preset";
    EXPECT_EQ(0, reader->getStringOptional("A", &text));
    EXPECT_STREQ("preset", text);
    EXPECT_TRUE(InPostcard::hasField(*reader, "A"));
    EXPECT_TRUE(InPostcard::hasField(*reader, "S"));
    EXPECT_FALSE(InPostcard::hasField(*reader, "B"));
    EXPECT_FALSE(InPostcard::hasField(*reader, ""));
    EXPECT_FALSE(InPostcard::hasField(*reader, nullptr));
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

TEST_F(InPostcardTest, PointersAreInt64) {
    int target = 0;
    void* const pointers[] = {&target, nullptr};
    const Reader reader = reading(written([&](OutPostcard& c) {
        EXPECT_EQ(0, c.addPtr("p", &target));
        EXPECT_EQ(0, c.addArrayPtr("p", 2, pointers));
    }));
    void* out[2] = {};
    int count = 2;
    long long integer = 0;
    EXPECT_EQ(0, reader->getArrayPtr("p", &count, out));
    EXPECT_THAT(out, testing::ElementsAreArray(pointers));
    EXPECT_EQ(0, reader->getPtr("p", out[1]));
    EXPECT_EQ(kFieldAbsent, reader->getPtr("absent", out[1]));
    EXPECT_EQ(&target, out[1]);
    EXPECT_EQ(0, reader->getInt64("p", integer));
    EXPECT_EQ(reinterpret_cast<long long>(&target), integer);
}

TEST_F(InPostcardTest, ArrayCapacityIsRespected) {
    const int32_t stored[] = {1, 2, 3};
    const Reader reader = reading(written([&](OutPostcard& c) { EXPECT_EQ(0, c.addArrayInt32("a", 3, stored)); }));
    int32_t out[3] = {};
    int count = 0;
    EXPECT_EQ(0, reader->getArrayInt32("a", &count, nullptr));
    EXPECT_EQ(3, count);
    for (int capacity : {-1, 0, 2}) {
        count = capacity;
        EXPECT_EQ(7, reader->getArrayInt32("a", &count, out));
        EXPECT_EQ(capacity, count);
        EXPECT_EQ("getArray failed 7", said());
    }
    EXPECT_THAT(out, testing::Each(0));
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
    int32_t value = 0;
    EXPECT_EQ(0, static_cast<InPostcardImpl&>(*reader).findField(FT_INT32, "v", 1));
    EXPECT_EQ(0, reader->getBuffer()->extract(&value, sizeof(value)));
    EXPECT_EQ(3, value);
    EXPECT_EQ("", said());
}

TEST_F(InPostcardTest, ReaderWithoutBytesAnswersWithErrors) {
    const Reader created(InPostcard::createInstance());
    EXPECT_EQ(2, created->init(nullptr, 4, true));
    EXPECT_EQ(3, created->init("abcd", 0, false));
    EXPECT_EQ(nullptr, created->getBuffer());
    const Reader from_nothing(InPostcard::createInstance(static_cast<OutPostcard*>(nullptr)));
    EXPECT_EQ("init failed 2; init failed 3; InPostcardImpl(pInMem) failed 2", said());
    for (InPostcard* reader : {created.get(), from_nothing.get()}) {
        bool value = false;
        EXPECT_EQ(3, reader->getBoolDefault("n", value));
        EXPECT_EQ("findName failed 3, field index 0; get simple failed 3", said());
        EXPECT_FALSE(InPostcard::hasField(*reader, "n"));
    }
}

TEST_F(InPostcardTest, TakesTheWritersBytesOver) {
    Writer writer = numbered(7);
    const void* bytes = writer->getInternalBuffer()->getBuffer();
    const Reader reader(InPostcard::createInstance(writer.get()));
    EXPECT_EQ(bytes, reader->getBuffer()->getBuffer());
    EXPECT_EQ(15u, reader->getBuffer()->getCapacity());
    EXPECT_EQ(nullptr, writer->getInternalBuffer()->getBuffer());
    EXPECT_EQ(0u, writer->getInternalBuffer()->getSize());
    (void)finished([&](OutPostcard& c) { EXPECT_EQ(5, c.addCard("v", writer.get())); });
    EXPECT_EQ("addBlobWithType failed 6; add card failed 5", said());
    const Reader second(InPostcard::createInstance(writer.get()));
    writer.reset();
    EXPECT_EQ(7, number(*reader));
    EXPECT_EQ("", said());
    int32_t value = 0;
    EXPECT_EQ(3, second->getInt32("v", value));
    EXPECT_EQ("extract error 4; findName failed 4, field index 0; get simple failed 3", said());

    // The header of an open card is its placeholder: the scan runs off the bytes.
    const Writer open(OutPostcard::createInstance());
    EXPECT_EQ(0, open->init());
    const Reader unfinished(InPostcard::createInstance(open.get()));
    EXPECT_EQ(3, unfinished->getInt32("v", value));
    EXPECT_EQ("extract error 5; findName failed 102, field index 0; get simple failed 3", said());
    EXPECT_EQ(3, open->finalize());
    EXPECT_EQ(0, open->addBool("v", true));  // of no use, but harmless
}

TEST_F(InPostcardTest, OwnsAHandedOverStreamAndBorrowsAsTold) {
    const Bytes bytes = bytesOf(*numbered(7));
    auto* stream = new InMemoryStreamImpl;
    EXPECT_EQ(0, stream->setBufferNoDup(bytes.data(), bytes.size()));
    const Reader over_stream(InPostcard::createInstance(stream));
    const Reader borrowing(InPostcard::createInstance());
    EXPECT_EQ(0, borrowing->init(bytes.data(), bytes.size(), false));
    EXPECT_EQ(7, number(*over_stream));
    EXPECT_EQ(7, number(*borrowing));
}

}  // namespace
}  // namespace zv_loc_fw
