#include <csignal>

#include "PostcardTest.h"
#include "postcard/InMemoryStreamImpl.h"
#include "postcard/OutMemoryStreamImpl.h"

// Under the sanitizers too, an allocation that is too large fails instead of ending the test.
extern "C" const char* __asan_default_options();
extern "C" const char* __tsan_default_options();
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
extern "C" const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}

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
    EXPECT_EQ(nullptr, small.getBuffer());
    EXPECT_EQ(1u, fillUntilGrowth(small));
    EXPECT_EQ(nullptr, small.claim(63));
    EXPECT_EQ(64u, fillUntilGrowth(small));
    EXPECT_EQ(128u, fillUntilGrowth(small));

    OutMemoryStreamImpl exact;
    EXPECT_EQ(0, exact.append(data.data(), 100));
    EXPECT_EQ(101u, fillUntilGrowth(exact));
    EXPECT_EQ(200u, fillUntilGrowth(exact));
    EXPECT_EQ(0, exact.append(exact.getBuffer(), exact.getSize()));  // its own bytes, in the buffer that goes
    EXPECT_EQ(data + std::string(100, 'x') + data + std::string(100, 'x'), contents(exact));
}

TEST_F(MemoryStreamTest, FailedAppendLeavesContents) {
    OutMemoryStreamImpl stream;
    ASSERT_EQ(0, stream.append("abc", 3));
    EXPECT_EQ(2, stream.append("x", 0));
    EXPECT_EQ(2, stream.append(nullptr, 4));
    EXPECT_EQ("expand error 2; append error 2; expand error 2; append error 2", said());
    volatile size_t too_much = size_t{1} << 62;
    EXPECT_EQ(2, stream.append("x", too_much));
    EXPECT_EQ("expand error 3; append error 2", said());
    EXPECT_EQ(2, stream.reserve(too_much));
    EXPECT_EQ("", said());
    EXPECT_EQ("abc", contents(stream));
    too_much = SIZE_MAX;
    EXPECT_EXIT((void)stream.append("x", too_much), testing::KilledBySignal(SIGABRT), "");
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

// Wrong frees are the sanitizers' to find.
TEST_F(MemoryStreamTest, FreesAdoptedBuffersAndClonesOwn) {
    auto stream = std::make_unique<InMemoryStreamImpl>();
    const void* adopted = new char[3]{'a', 'b', 'c'};
    EXPECT_EQ(0, stream->setBufferOwnership(&adopted, 3));
    EXPECT_EQ(nullptr, adopted);
    ASSERT_EQ(0, stream->setGetCursor(2));
    const std::unique_ptr<InMemoryStream> copy(stream->clone());
    EXPECT_EQ(2u, copy->getGetCursor());
    EXPECT_EQ(0, stream->setBufferNoDup("xy", 2));
    EXPECT_EQ(0u, stream->getGetCursor());
    const std::unique_ptr<InMemoryStream> copy_of_borrowed(stream->clone());
    EXPECT_NE(stream->getBuffer(), copy_of_borrowed->getBuffer());
    EXPECT_EQ(2, stream->setBufferOwnership(nullptr, 3));
    EXPECT_EQ("setBufferOwnership failed 2", said());
    stream.reset();
    EXPECT_EQ("abc", contents(*copy));
    EXPECT_EQ("xy", contents(*copy_of_borrowed));
}

}  // namespace
}  // namespace zv_loc_fw
