#include "postcard/InMemoryStreamImpl.h"

#include <cstring>
#include <new>
#include <utility>

#include "base/log.h"

namespace zv_loc_fw {

namespace {

constexpr char kTag[] = "MemoryStream";

}  // namespace

InMemoryStream* InMemoryStream::createInstance() {
    return new (std::nothrow) InMemoryStreamImpl;
}

int InMemoryStreamImpl::setBufferOwnership(const void** buffer, size_t size) {
    int result = 0;
    if (buffer == nullptr) {
        result = 2;  // no pointer
    } else if (setBufferNoDup(*buffer, size) != 0) {
        result = 3;  // not set
    } else {
        mOwned.reset(mBuffer);
        *buffer = nullptr;
    }
    if (result != 0) {
        log_error(kTag, "setBufferOwnership failed %d", result);
    }
    return result;
}

int InMemoryStreamImpl::setBufferNoDup(const void* buffer, size_t size) {
    mOwned.reset();
    mBuffer = static_cast<const char*>(buffer);
    mGetCursor = 0;
    mCapacity = size;
    return 0;
}

int InMemoryStreamImpl::extract(void* dest, size_t n) {
    int result = 0;
    if (n == 0) {
        result = 3;  // nothing asked for
    } else if (mBuffer == nullptr) {
        result = 4;  // no buffer
    } else if (n > mCapacity - mGetCursor) {
        result = 5;  // not enough bytes left
    }
    if (result != 0) {
        log_error(kTag, "extract error %d", result);
        return result;
    }
    if (dest != nullptr) {
        std::memcpy(dest, mBuffer + mGetCursor, n);
    }
    mGetCursor += n;
    return 0;
}

int InMemoryStreamImpl::refuseCursor() {
    log_error(kTag, "setGetCursor range error");
    return 1;  // beyond the capacity
}

InMemoryStream* InMemoryStreamImpl::clone() const {
    std::unique_ptr<InMemoryStreamImpl> copy(new (std::nothrow) InMemoryStreamImpl);
    if (copy == nullptr) {
        return nullptr;
    }
    if (mBuffer != nullptr) {
        auto* const bytes = new (std::nothrow) char[mCapacity];
        if (bytes == nullptr) {
            return nullptr;
        }
        std::memcpy(bytes, mBuffer, mCapacity);
        copy->mOwned.reset(bytes);
        copy->mBuffer = bytes;
    }
    copy->mGetCursor = mGetCursor;
    copy->mCapacity = mCapacity;
    return copy.release();
}

}  // namespace zv_loc_fw
