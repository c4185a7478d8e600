#pragma once

#include <sys/stat.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/posutil/PosIpc.h"
#include "platform/posutil/SocketAddress.h"
#include "platform/posutil/UniqueFd.h"

namespace pos_util {

/// The one kind of receiver there is. One thread listens; stop() may come from any, and from a signal handler.
class LocalRecver : public PosIpcRecver {
public:
    LocalRecver(const std::shared_ptr<IPosIpcListener>& listener, const SocketAddress& address);
    ~LocalRecver() override;

    /// Makes the socket and its file, once.
    /// @return false when that fails (logged)
    bool open();
    void stop() override;
    /// See PosIpc::startBlockingListening.
    bool listen();

private:
    /// The results are null, or why the file cannot be made.
    const char* makeFile();
    const char* bindReplacing();

    // Each of these says whether the socket is good for more.

    /// Waits for a message and hands it to the listener; returns as well when stop() was called. What a message is
    /// refused for is logged.
    bool takeMessage();
    /// @param length the datagram's true length
    bool takeDatagram(size_t length);
    bool dropDatagram(size_t length, const char* reason);
    /// @param errno_value of a failed receive call
    bool outlive(int errno_value);

    /// @param file the descriptor beside the bytes, when there is just one
    void handOver(const char* data, size_t length, int file, size_t file_count, int flags);

    const std::shared_ptr<IPosIpcListener> mListener;
    const SocketAddress mAddress;
    UniqueFd mSocket;
    std::atomic<bool> mStopped{false};
    /// The file that this receiver made, to tell it from one that has taken its place.
    bool mHasFile = false;
    dev_t mDevice = 0;
    ino_t mInode = 0;
    /// For messages up to kPosIpcMaxDatagram; only the listening thread uses it.
    std::unique_ptr<char[]> mBuffer;
    size_t mBufferSize = 0;
};

}  // namespace pos_util
