#include "postcard/OutMemoryStreamImpl.h"

#include <algorithm>
#include <new>
#include <utility>

#include "base/LargePages.h"
#include "base/checked.h"
#include "base/log.h"
#include "platform/HeapPages.h"

namespace zv_loc_fw {

namespace {

constexpr char kTag[] = "MemoryStream";
constexpr size_t kMinimumCapacity = 64;

// The results of the growing step appear in its log line alone; append() answers 2 for both.
constexpr int kNothingToAppend = 2;
constexpr int kNoMemory = 3;
constexpr int kAppendFailed = 2;

/// @return null without memory
std::unique_ptr<char[]> allocate(size_t capacity) {
    std::unique_ptr<char[]> bytes(new (std::nothrow) char[capacity]);
    if (bytes != nullptr) {
        preferLargePages(bytes.get(), capacity, platform::kOwnMappingFrom);
    }
    return bytes;
}

int fail(int expand_result) {
    log_error(kTag, "expand error %d", expand_result);
    log_error(kTag, "append error %d", kAppendFailed);
    return kAppendFailed;
}

}  // namespace

OutMemoryStream* OutMemoryStream::createInstance() {
    return new (std::nothrow) OutMemoryStreamImpl;
}

int OutMemoryStreamImpl::refuse() {
    return fail(kNothingToAppend);
}

int OutMemoryStreamImpl::appendGrowing(const void* data, size_t n) {
    const size_t need = checkedAdd(mPutCursor, n);
    const size_t capacity =
        need < kMinimumCapacity ? kMinimumCapacity : std::max(need, checkedMul(mCapacity, size_t{2}));
    std::unique_ptr<char[]> grown = allocate(capacity);
    if (grown == nullptr) {
        return fail(kNoMemory);
    }
    if (mPutCursor > 0) {
        std::memcpy(grown.get(), mBuffer.get(), mPutCursor);
    }
    // Before the old buffer goes: data may lie in it.
    std::memcpy(grown.get() + mPutCursor, data, n);
    mBuffer = std::move(grown);
    mCapacity = capacity;
    mPutCursor = need;
    return 0;
}

int OutMemoryStreamImpl::reserve(size_t capacity) {
    if (capacity <= mCapacity) {
        return 0;
    }
    std::unique_ptr<char[]> grown = allocate(capacity);
    if (grown == nullptr) {
        return 2;  // no memory
    }
    if (mPutCursor > 0) {
        std::memcpy(grown.get(), mBuffer.get(), mPutCursor);
    }
    mBuffer = std::move(grown);
    mCapacity = capacity;
    return 0;
}

int OutMemoryStreamImpl::reserveBehind(size_t n) {
    // One more than asked for: append() grows when it would just fit.
    const size_t need = checkedAdd(checkedAdd(mPutCursor, n), 1);
    return need <= mCapacity ? 0 : reserve(std::max(need, checkedMul(mCapacity, size_t{2})));
}

std::unique_ptr<char[]> OutMemoryStreamImpl::releaseBuffer() {
    mPutCursor = 0;
    mCapacity = 0;
    return std::move(mBuffer);
}

}  // namespace zv_loc_fw
