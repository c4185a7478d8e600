#pragma once

#include <cstddef>
#include <cstdint>

#include "postcard/FieldTable.h"
#include "postcard/MemoryStream.h"

namespace zv_loc_fw {

class OutPostcard;

/// The result of a getter whose field is not there. Silent, and the output is untouched.
inline constexpr int kFieldAbsent = -1;

/// Reads the fields of a postcard by type and name (format: OutPostcard). Every lookup scans the bytes from the start
/// and moves the reader's cursor: one thread at a time. A field of the right name and another type is not seen; of
/// several fields with one name and type the first is read. Bytes from a stranger are safe to read.
///
/// Getters return 0, kFieldAbsent, or a positive code, logged under "InPostcard"; the output is then untouched unless
/// stated otherwise. Codes shared by all: 2 no name, and then no output is touched. Strings, blobs and nested cards
/// point into the reader's bytes.
class InPostcard {
public:
    /// An empty reader for init(). @return the caller's; null without memory
    [[nodiscard]] static InPostcard* createInstance();
    /// A reader that takes the writer's bytes over; the writer is left without any, and remains the caller's. Without a
    /// finished writer every lookup fails. @return the caller's; null without memory
    [[nodiscard]] static InPostcard* createInstance(OutPostcard* writer);
    /// A ready reader over a stream that it owns from now on (also when null is returned: then it is freed).
    [[nodiscard]] static InPostcard* createInstance(InMemoryStream* stream);

    virtual ~InPostcard() = default;

    /// Sets the reader over size bytes at data, once.
    /// @param own whether the reader frees data with delete[]; otherwise data outlives the reader
    /// @return 0; 2 no data; 3 size 0; 4 no memory; 5 not adopted
    [[nodiscard]] virtual int init(const void* data, size_t size, bool own) = 0;
    /// The reader's stream; null before init().
    [[nodiscard]] virtual InMemoryStream* getBuffer() = 0;

/// A simple value. @return 0; kFieldAbsent; 3 damaged card; 4 value cut off. A bool is true for the byte 1 alone.
#define ZV_DECLARE(Suffix, Type, Code) virtual int get##Suffix(const char* name, Type& value) = 0;
    ZV_POSTCARD_SIMPLE_TYPES(ZV_DECLARE)
#undef ZV_DECLARE
    /// @param value out: zero-terminated text inside the reader; null unless 0 is returned
    /// @return 0; kFieldAbsent; 3 no output; 4 damaged card; 5, 6 no value; 7 not zero-terminated
    virtual int getString(const char* name, const char** value) = 0;
    /// @param value out: a copy for the caller to free with delete[]
    /// @return 0; kFieldAbsent; 2 no output; 3 getString failed; 4 no memory
    virtual int getStringDup(const char* name, const char** value) = 0;

/// As the plain getter, but an absent field is 0 and leaves the output, preset by the caller, as it is.
#define ZV_DECLARE(Suffix, Type, Code) virtual int get##Suffix##Default(const char* name, Type& value) = 0;
    ZV_POSTCARD_SIMPLE_TYPES(ZV_DECLARE)
#undef ZV_DECLARE
    /// As getString, but an absent field is 0 and leaves the output as it is.
    virtual int getStringOptional(const char* name, const char** value) = 0;
    /// A pointer's value, from an FT_INT64.
    virtual int getPtr(const char* name, void*& value) = 0;
    /// @param data, size out: the bytes inside the reader; null and 0 unless 0 is returned
    /// @return 0; kFieldAbsent; 3 no output; 4 damaged card; 5 length cut off; 7 empty, or beyond the card's end
    virtual int getBlob(const char* name, const void** data, size_t* size) = 0;
    /// The index-th nested card of that name.
    /// @param card out: the caller's, to be deleted before this reader, whose bytes it reads; null unless 0 is returned
    /// @return 0; kFieldAbsent; 3 no output; 4 damaged card; 8 no memory; 9 refused by init
    virtual int getCard(const char* name, InPostcard** card, int index) = 0;

/// An array.
/// @param count in: elements that fit into out; out: elements there are
/// @param out may be null, then only the count is told
/// @return 0; 3 no count; 4 absent (not silent: deliberate) or damaged; 5 odd size; 6
/// empty; 7 does not fit, nothing copied
#define ZV_DECLARE(Suffix, Type, Code) virtual int getArray##Suffix(const char* name, int* count, Type* out) = 0;
    ZV_POSTCARD_ARRAY_TYPES(ZV_DECLARE)
#undef ZV_DECLARE
    virtual int getArrayPtr(const char* name, int* count, void** out) = 0;

    /// Whether a field of that name exists, whatever its type. Silent.
    [[nodiscard]] static bool hasField(InPostcard& card, const char* name);
};

}  // namespace zv_loc_fw
