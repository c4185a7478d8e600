#include "PostcardTest.h"
#include "postcard/InMemoryStreamImpl.h"
#include "postcard/OutMemoryStreamImpl.h"

namespace zv_loc_fw {
namespace {

using MemoryStreamTest = PostcardTest;

std::string contents(const MemoryStreamBase& stream) {
    return {static_cast<const char*>(stream.getBuffer()), stream.getSize()};
}

// The size at which the next growth happens, appending single bytes.
size_t fillUntilGrowth(OutMemoryStreamImpl& stream) {
    const void* before = stream.getBuffer();
    while (stream.getBuffer() == before) {
        EXPECT_EQ(0, stream.append("x", 1));
    }
    return stream.getSize();
}

TEST_F(MemoryStreamTest, GrowsWhenTheRequestEqualsTheFreeSpace) {
    const std::string data(100, 'd');
    OutMemoryStreamImpl small;
    EXPECT_EQ(1u, fillUntilGrowth(small));
    EXPECT_EQ(nullptr, small.claim(63));
    EXPECT_EQ(64u, fillUntilGrowth(small));
    EXPECT_EQ(128u, fillUntilGrowth(small));

    OutMemoryStreamImpl exact;
    EXPECT_EQ(0, exact.append(data.data(), 100));
    EXPECT_EQ(101u, fillUntilGrowth(exact));
    EXPECT_EQ(200u, fillUntilGrowth(exact));
    EXPECT_EQ(0, exact.append(exact.getBuffer(), exact.getSize()));  // its own bytes, in the buffer that goes
    EXPECT_EQ(2, exact.append("x", 0));
    EXPECT_EQ(2, exact.append(nullptr, 4));
    EXPECT_EQ("expand error 2; append error 2; expand error 2; append error 2", said());
    EXPECT_EQ(data + std::string(100, 'x') + data + std::string(100, 'x'), contents(exact));
}

TEST_F(MemoryStreamTest, ExtractsSkipsAndRefuses) {
    InMemoryStreamImpl stream;
    char out[4] = {};
    EXPECT_EQ(4, stream.extract(out, 1));
    EXPECT_EQ(0, stream.setBufferNoDup("abcdef", 6));
    EXPECT_EQ(3, stream.extract(out, 0));
    EXPECT_EQ(0, stream.extract(nullptr, 2));
    EXPECT_EQ(0, stream.extract(out, 3));
    EXPECT_STREQ("cde", out);
    EXPECT_EQ(5, stream.extract(out, SIZE_MAX));
    EXPECT_EQ(5u, stream.getGetCursor());
    EXPECT_EQ(6u, stream.getSize());
    EXPECT_EQ(0, stream.setGetCursor(6));
    EXPECT_EQ(1, stream.setGetCursor(7));
    EXPECT_EQ(6u, stream.getGetCursor());
    EXPECT_EQ("extract error 4; extract error 3; extract error 5; setGetCursor range error", said());
}

}  // namespace
}  // namespace zv_loc_fw
