#pragma once

#include <cstring>
#include <functional>
#include <memory>

#include "postcard/MemoryStream.h"

namespace zv_loc_fw {

class OutMemoryStreamImpl final : public OutMemoryStream {
public:
    OutMemoryStreamImpl() = default;
    OutMemoryStreamImpl(const OutMemoryStreamImpl&) = delete;
    OutMemoryStreamImpl& operator=(const OutMemoryStreamImpl&) = delete;

    [[nodiscard]] size_t getSize() const override { return getPutCursor(); }
    [[nodiscard]] const void* getBuffer() const override { return mBuffer.get(); }
    [[nodiscard]] void* getBufferNonConst() override { return mBuffer.get(); }
    [[nodiscard]] size_t getPutCursor() const override { return mPutCursor; }

    [[nodiscard]] int append(const void* data, size_t n) override {
        if (n == 0 || data == nullptr) {
            return refuse();
        }
        if (mCapacity - mPutCursor > n) {
            std::memcpy(mBuffer.get() + mPutCursor, data, n);
            mPutCursor += n;
            return 0;
        }
        return appendGrowing(data, n);
    }

    /// The place of the next n bytes, for the caller to fill, if append() would take them without growing; else null
    /// and nothing has happened. So a run of small appends that fits costs one test.
    [[nodiscard]] char* claim(size_t n) {
        if (mCapacity - mPutCursor <= n) {
            return nullptr;
        }
        char* place = mBuffer.get() + mPutCursor;
        mPutCursor += n;
        return place;
    }

    /// Makes room for at least `capacity` bytes in all, silently. @return 0; 2 no memory
    [[nodiscard]] int reserve(size_t capacity);
    /// Makes room for n more bytes, so that appends of no more do not grow; where that takes growing, at least to twice
    /// the capacity. @return as reserve()
    [[nodiscard]] int reserveBehind(size_t n);

    /// Whether these bytes are this stream's own, which growing moves.
    [[nodiscard]] bool holds(const void* bytes) const {
        const std::less<const void*> before;
        return mBuffer != nullptr && !before(bytes, mBuffer.get()) && before(bytes, mBuffer.get() + mCapacity);
    }

    /// Hands the bytes over (getSize() of them, asked before); the stream is then as new.
    [[nodiscard]] std::unique_ptr<char[]> releaseBuffer();

private:
    int refuse();
    int appendGrowing(const void* data, size_t n);

    std::unique_ptr<char[]> mBuffer;
    size_t mPutCursor = 0;
    size_t mCapacity = 0;
};

}  // namespace zv_loc_fw
