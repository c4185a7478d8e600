#pragma once

#include <memory>

#include "postcard/MemoryStream.h"

namespace zv_loc_fw {

class InMemoryStreamImpl final : public InMemoryStream {
public:
    InMemoryStreamImpl() = default;
    InMemoryStreamImpl(const InMemoryStreamImpl&) = delete;
    InMemoryStreamImpl& operator=(const InMemoryStreamImpl&) = delete;

    [[nodiscard]] size_t getSize() const override { return getCapacity(); }
    [[nodiscard]] const void* getBuffer() const override { return mBuffer; }
    [[nodiscard]] int setBufferOwnership(const void** buffer, size_t size) override;
    int setBufferNoDup(const void* buffer, size_t size) override;
    [[nodiscard]] int extract(void* dest, size_t n) override;
    [[nodiscard]] size_t getGetCursor() const override { return mGetCursor; }
    [[nodiscard]] int setGetCursor(size_t pos) override {
        if (pos > mCapacity) {
            return refuseCursor();
        }
        mGetCursor = pos;
        return 0;
    }
    [[nodiscard]] size_t getCapacity() const override { return mCapacity; }
    [[nodiscard]] InMemoryStream* clone() const override;

private:
    static int refuseCursor();

    const char* mBuffer = nullptr;
    std::unique_ptr<const char[]> mOwned;  // mBuffer, when it is this stream's to free
    size_t mGetCursor = 0;
    size_t mCapacity = 0;
};

}  // namespace zv_loc_fw
