#pragma once

#include "postcard/OutMemoryStreamImpl.h"
#include "postcard/OutPostcard.h"

namespace zv_loc_fw {

class OutPostcardImpl final : public OutPostcard {
public:
    OutPostcardImpl() = default;
    OutPostcardImpl(const OutPostcardImpl&) = delete;
    OutPostcardImpl& operator=(const OutPostcardImpl&) = delete;

    [[nodiscard]] int init() override;
    [[nodiscard]] int finalize() override;
    [[nodiscard]] MemoryStreamBase* getInternalBuffer() override { return mState == kCreated ? nullptr : &mStream; }
    [[nodiscard]] const MemoryStreamBase* getEncodedBuffer() const override {
        return mState == kCreated ? nullptr : &mStream;
    }

#define ZV_DECLARE(Suffix, Type, Code) [[nodiscard]] int add##Suffix(const char* name, const Type& value) override;
    ZV_POSTCARD_SIMPLE_TYPES(ZV_DECLARE)
#undef ZV_DECLARE
    [[nodiscard]] int addString(const char* name, const char* value) override;
    [[nodiscard]] int addPtr(const char* name, void* const& value) override;
    [[nodiscard]] int addBlob(const char* name, const void* data, size_t size) override;
    [[nodiscard]] int addCard(const char* name, const OutPostcard* card) override;

#define ZV_DECLARE(Suffix, Type, Code) \
    [[nodiscard]] int addArray##Suffix(const char* name, int count, const Type* elements) override;
    ZV_POSTCARD_ARRAY_TYPES(ZV_DECLARE)
#undef ZV_DECLARE
    [[nodiscard]] int addArrayPtr(const char* name, int count, void* const* elements) override;

    /// The common writer of strings, blobs and cards.
    /// @param with_length whether the bytes are preceded by their number; a card's begin with it already
    /// @return 0; 2 to 5 as every add; 6 no data; 8 type, 9 name length, 10 name, 11 length (also: 4 GiB or more, then
    ///         nothing was appended), 12 data not appended
    [[nodiscard]] int addBlobWithType(const char* name, eFieldType type, const void* data, size_t size,
                                      bool with_length);

private:
    enum State : int32_t { kCreated = 0, kOpen = 1, kFinished = 2 };

    [[nodiscard]] int checkName(const char* name, size_t& length) const;
    template <typename T>
    int addSimple(eFieldType type, const char* name, const T& value);
    template <typename T>
    int appendSimple(eFieldType type, const char* name, const T& value);
    int appendSimpleGrowing(eFieldType type, const char* name, size_t length, const void* value, size_t size);
    int addArray(eFieldType type, const char* name, int count, const void* elements, size_t width);
    int appendLong(eFieldType type, const char* name, size_t length, const void* data, size_t size, bool with_length);
    int appendLongGrowing(eFieldType type, const char* name, size_t length, const void* data, size_t size,
                          bool with_length);

    State mState = kCreated;
    OutMemoryStreamImpl mStream;
};

}  // namespace zv_loc_fw
