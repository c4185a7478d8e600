#pragma once

#include <memory>

#include "postcard/FieldWalk.h"
#include "postcard/InMemoryStreamImpl.h"
#include "postcard/InPostcard.h"

namespace zv_loc_fw {

class OutPostcard;

/// Ready when there is a stream; without one every lookup answers 3.
class InPostcardImpl final : public InPostcard {
public:
    InPostcardImpl() = default;
    explicit InPostcardImpl(std::unique_ptr<InMemoryStream> stream);
    InPostcardImpl(const InPostcardImpl&) = delete;
    InPostcardImpl& operator=(const InPostcardImpl&) = delete;

    [[nodiscard]] int init(const void* data, size_t size, bool own) override;
    /// Reads what the writer's stream held, which is left without.
    void take(OutPostcard* writer);
    [[nodiscard]] InMemoryStream* getBuffer() override { return mStream; }

#define ZV_DECLARE(Suffix, Type, Code)                       \
    int get##Suffix(const char* name, Type& value) override; \
    int get##Suffix##Default(const char* name, Type& value) override;
    ZV_POSTCARD_SIMPLE_TYPES(ZV_DECLARE)
#undef ZV_DECLARE
    int getString(const char* name, const char** value) override;
    int getStringDup(const char* name, const char** value) override;
    int getStringOptional(const char* name, const char** value) override;
    int getPtr(const char* name, void*& value) override;
    int getBlob(const char* name, const void** data, size_t* size) override;
    int getCard(const char* name, InPostcard** card, int index) override;

#define ZV_DECLARE(Suffix, Type, Code) int getArray##Suffix(const char* name, int* count, Type* out) override;
    ZV_POSTCARD_ARRAY_TYPES(ZV_DECLARE)
#undef ZV_DECLARE
    int getArrayPtr(const char* name, int* count, void** out) override;

    /// Puts the stream's cursor on the value of the index-th field of that type and name.
    /// @return 0; kFieldAbsent; 2 no name; 3 no stream, or its cursor not reset; 4 header unreadable; 5 empty name; 101
    ///         beyond the header's end; 102 type, 103 name length, 104 name cut off; 105 value not skippable
    int findField(uint16_t type, const char* name, int index);

    /// The bytes of the index-th field of that type and name.
    /// @param data out: the value's first byte; without with_length the length word before it
    /// @param size out: the length word, which counts the bytes behind it
    /// @return 0; kFieldAbsent; 2 no name; 3 no output; 4 lookup failed; 5 length word
    /// cut off; 7 value empty or cut off
    int getBlobByType(const char* name, eFieldType type, const void** data, size_t* size, bool with_length, int index);

private:
    FieldWalk::Found findPlainly(eFieldType type, const char* name);

    // InPostcardWalk.cpp
    int locate(uint16_t type, const char* name, int index, FieldWalk& walk);
    void settle(const FieldWalk& walk);
    int readSlowly(eFieldType type, const char* name, void* value, size_t size);
    int getStringSlowly(const char* name, const char** value);
    int getBlobSlowly(const char* name, eFieldType type, const void** data, size_t* size, bool with_length, int index);

    template <typename T>
    int getSimple(eFieldType type, const char* name, T& value);
    template <typename T>
    int getArray(eFieldType type, const char* name, int* count, T* out);

    InMemoryStreamImpl mOwnStream;
    std::unique_ptr<InMemoryStream> mAdoptedStream;
    InMemoryStream* mStream = nullptr;           // one of these two
    InMemoryStreamImpl* mPlainStream = nullptr;  // the same, when it is of our own kind: needs no virtual call
};

}  // namespace zv_loc_fw
