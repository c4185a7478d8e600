#pragma once

#include <cstddef>

/// The byte containers under every postcard. Not thread-safe: each belongs to one card or one message at a time.
/// Buffers that change hands are made with new char[] and freed with
/// delete[]. Failures are logged under "MemoryStream".
namespace zv_loc_fw {

/// Encoded bytes, as the transport takes them for sending.
class MemoryStreamBase {
public:
    virtual ~MemoryStreamBase() = default;
    /// Bytes written (out), or all bytes there are, read or not (in).
    [[nodiscard]] virtual size_t getSize() const = 0;
    /// Null before the first append, or without a buffer. Valid until the stream changes.
    [[nodiscard]] virtual const void* getBuffer() const = 0;
};

/// A growable, append-only buffer.
class OutMemoryStream : public MemoryStreamBase {
public:
    /// @return the caller's; null without memory
    [[nodiscard]] static OutMemoryStream* createInstance();

    [[nodiscard]] virtual void* getBufferNonConst() = 0;
    /// Grows when the free space is not larger than n (so also when it would just fit: deliberate), to the larger of
    /// the need and twice the capacity, at least 64.
    /// @return 0; 2 nothing to append, or no memory (contents unchanged). An overflow of the sizes aborts.
    [[nodiscard]] virtual int append(const void* data, size_t n) = 0;
    [[nodiscard]] virtual size_t getPutCursor() const = 0;
};

/// A read cursor over a fixed buffer.
class InMemoryStream : public MemoryStreamBase {
public:
    /// @return the caller's; null without memory
    [[nodiscard]] static InMemoryStream* createInstance();

    /// Adopts *buffer, to be freed with delete[], and sets it to null.
    /// @return 0; 2 null argument; 3 not set
    [[nodiscard]] virtual int setBufferOwnership(const void** buffer, size_t size) = 0;
    /// Borrows the buffer, which outlives the stream or the next set; null is accepted. @return 0
    virtual int setBufferNoDup(const void* buffer, size_t size) = 0;
    /// Copies n bytes from the cursor, or skips them when dest is null.
    /// @return 0; 3 nothing asked for; 4 no buffer; 5 fewer than n left (the cursor stays)
    [[nodiscard]] virtual int extract(void* dest, size_t n) = 0;
    [[nodiscard]] virtual size_t getGetCursor() const = 0;
    /// @return 0; 1 beyond the capacity (the capacity itself is allowed)
    [[nodiscard]] virtual int setGetCursor(size_t pos) = 0;
    [[nodiscard]] virtual size_t getCapacity() const = 0;
    /// A stream with the same cursor over a private copy of the whole buffer.
    /// @return the caller's; null without memory
    [[nodiscard]] virtual InMemoryStream* clone() const = 0;
};

}  // namespace zv_loc_fw
