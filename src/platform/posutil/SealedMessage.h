#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/posutil/UniqueFd.h"

namespace pos_util {

/// A message in a memfd that nobody can change any more.
class SealedMessage {
public:
    SealedMessage() = default;
    SealedMessage(const SealedMessage&) = delete;
    SealedMessage& operator=(const SealedMessage&) = delete;
    ~SealedMessage();

    /// Maps what a stranger sent, after making sure that it is sealed, of ordinary memory and of a sensible size: a
    /// file that shrinks under its reader would end this process by SIGBUS.
    /// @return null, or why it is refused
    const char* map(int fd);

    [[nodiscard]] const char* data() const { return static_cast<const char*>(mData); }
    [[nodiscard]] uint32_t size() const { return mSize; }

    /// Writes a message into a new file and seals it.
    /// @return an invalid descriptor on failure; errno says why
    static UniqueFd create(const uint8_t* data, uint32_t size);

private:
    void* mData = nullptr;
    uint32_t mSize = 0;
};

}  // namespace pos_util
