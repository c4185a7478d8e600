#pragma once

#include <cstddef>
#include <cstdint>

#include "postcard/FieldTable.h"
#include "postcard/MemoryStream.h"

namespace zv_loc_fw {

/// Writes a postcard: the one message format between the processes of the location stack.
///
///   createInstance(), init(), any number of add...(), finalize(), then send getInternalBuffer()
///
/// Bytes: a 4-byte length of what follows, the fields in the order in which they were added, one zero byte. A field is
/// its type (2 bytes), the length of its name with the terminating zero (2), the name, and the value. Integers are in
/// the host's byte order, little-endian on the device. The whole format with an example: docs/protocol.md.
///
///   init, addInt32("A", 7), addString("S", "hi"), finalize:
///   18 00 00 00 | 0C 00 02 00 41 00 07 00 00 00 | 13 00 02 00 53 00 03 00 00 00 68 69 00 | 00
///
/// Names have 1 to 255 characters; the same name may occur again. After a failed add the bytes already written stay
/// (nothing is rolled back), so a card with a failure is not sent. One thread at a time. Failures are logged under
/// "OutPostcard". Codes shared by every add: 2 not open, 3 no name, 4 empty name, 5 name of 256 characters or more. A
/// value of 4 GiB or more is refused (11) before anything is written; a card that grew so large cannot be finished (3).
class OutPostcard {
public:
    /// @return the caller's; null without memory
    [[nodiscard]] static OutPostcard* createInstance();

    virtual ~OutPostcard() = default;

    /// Opens the card. @return 0; 2 opened before; 3 no memory
    [[nodiscard]] virtual int init() = 0;
    /// Writes the length and the end byte; no field can follow. Its failure line says "init failed %d": deliberate.
    /// @return 0; 2 not open; 3 bytes missing, too many or not appended
    [[nodiscard]] virtual int finalize() = 0;
    /// The card's bytes, owned by the card; null before init().
    [[nodiscard]] virtual MemoryStreamBase* getInternalBuffer() = 0;
    /// The same stream, read-only.
    [[nodiscard]] virtual const MemoryStreamBase* getEncodedBuffer() const = 0;

/// A simple value. @return 0; 2 to 5 as above; 6 type, 7 name length, 8 name, 9 value not appended
#define ZV_DECLARE(Suffix, Type, Code) [[nodiscard]] virtual int add##Suffix(const char* name, const Type& value) = 0;
    ZV_POSTCARD_SIMPLE_TYPES(ZV_DECLARE)
#undef ZV_DECLARE
    /// Text with its terminating zero. @return 0; 2 no name; 3 no value; 4 not written
    [[nodiscard]] virtual int addString(const char* name, const char* value) = 0;
    /// A pointer's value, as an FT_INT64.
    [[nodiscard]] virtual int addPtr(const char* name, void* const& value) = 0;
    /// Raw bytes. @return 0; 2 to 5 as above; 6 no data; 8 type, 9 name length, 10
    /// name, 11 length, 12 data not appended
    ///         (size 0 leaves an empty blob in the card and is 12 all the same; readers stumble over it: avoid)
    [[nodiscard]] virtual int addBlob(const char* name, const void* data, size_t size) = 0;
    /// A copy of a finished card. @return 0; 2 no name; 3 no card; 4 card not finished; 5 not written
    [[nodiscard]] virtual int addCard(const char* name, const OutPostcard* card) = 0;

/// An array. @return 0; 2 to 5 as above; 6 no elements; 7 count below 1; 8 type, 9 name length, 10 name, 11 length,
///         12 elements not appended
#define ZV_DECLARE(Suffix, Type, Code) \
    [[nodiscard]] virtual int addArray##Suffix(const char* name, int count, const Type* elements) = 0;
    ZV_POSTCARD_ARRAY_TYPES(ZV_DECLARE)
#undef ZV_DECLARE
    [[nodiscard]] virtual int addArrayPtr(const char* name, int count, void* const* elements) = 0;
};

}  // namespace zv_loc_fw
