#pragma once

#include <cstdint>
#include <memory>

#include "platform/posutil/PosIpc.h"
#include "platform/posutil/SocketAddress.h"
#include "platform/posutil/UniqueFd.h"

struct msghdr;

namespace pos_util {

/// The one kind of sender there is. One thread at a time.
class LocalSender : public PosIpcSender {
public:
    explicit LocalSender(const SocketAddress& address);

    /// See PosIpc::send.
    bool send(const uint8_t* data, uint32_t length);

private:
    /// The results are null, or why the message was dropped; and errno of a failed call, as far as it matters.
    const char* deliver(const uint8_t* data, uint32_t length);
    const char* deliverInFile(const uint8_t* data, uint32_t length);
    const char* transmit(const msghdr& message);
    const char* transmitWithin(int socket, const msghdr& message, int timeout_ms);

    const SocketAddress mAddress;
    /// Tried first; invalid when there was no descriptor left for it.
    const std::shared_ptr<const UniqueFd> mShared;
    /// A send waited in vain, and none succeeded since.
    bool mFull = false;
};

}  // namespace pos_util
