#pragma once

#include <cstdint>
#include <memory>

/// Datagrams between the processes of one device, each receiver on a socket file of its own.
///
/// AF_UNIX, SOCK_DGRAM: one datagram is one message, without any header. A message over 64 KiB travels as a sealed
/// memfd (F_SEAL_SHRINK, GROW, WRITE, SEAL) in SCM_RIGHTS beside a one-byte payload. See docs/protocol.md.
namespace pos_util {

class PosIpcRecver;

/// Up to this many bytes a message travels inside the datagram, beyond it as a memfd.
inline constexpr uint32_t kPosIpcMaxDatagram = 64 * 1024;
/// A longer message is neither sent nor received.
inline constexpr uint32_t kPosIpcMaxMessage = 256 * 1024 * 1024;
/// How long a sender waits for a receiver whose socket is full, in milliseconds.
inline constexpr int kPosIpcSendTimeoutMs = 500;

/// Takes what arrives.
class IPosIpcListener {
public:
    virtual ~IPosIpcListener() = default;
    /// Called on the listening thread for each message.
    /// @param data valid until the call returns; may be null when length is 0
    virtual void onReceive(const char* data, uint32_t length, const PosIpcRecver* recver) = 0;
};

/// A destination. All senders of a process share one descriptor; a send whose message finds no room through it makes one
/// of its own, for that send alone. After a send that waited in vain the destination is tried without waiting until it
/// takes a message again. One thread at a time.
class PosIpcSender {
public:
    virtual ~PosIpcSender() = default;
};

/// A bound socket file and the right to listen on it. The destructor removes the file if it is still this receiver's
/// own (same device and inode); nobody may be listening then.
class PosIpcRecver {
public:
    virtual ~PosIpcRecver() = default;
    /// Makes the listening thread return, or the next listen at once: stopping is sticky, and senders are refused from
    /// then on (EPIPE). From any thread or a signal handler, any number of times.
    virtual void stop() = 0;
};

class PosIpc {
public:
    /// @param path of the receiver's socket file, addressed anew on every send, so that a participant that restarted
    ///        under its old name is reached
    [[nodiscard]] static std::shared_ptr<PosIpcSender> getPosIpcLocalSender(const char* path);

    /// Creates the socket file, replacing an old file of that name. The file never has more rights than 0770.
    /// @return null when it cannot be made (logged)
    [[nodiscard]] static std::unique_ptr<PosIpcRecver> getPosIpcLocalRecver(
        const std::shared_ptr<IPosIpcListener>& listener, const char* path);

    /// Hands every message to the listener until the receiver is stopped. Blocks. A broken
    /// socket is logged and ends it too.
    /// @return whether it ended because of stop()
    static bool startBlockingListening(PosIpcRecver& recver);

    /// Sends one message. Waits at most kPosIpcSendTimeoutMs for a full receiver; a message that is dropped is logged
    /// with its destination and size.
    /// @param message_id not used by local sockets; callers pass -1
    /// @return whether the message was handed to the kernel
    static bool send(PosIpcSender& sender, const uint8_t* data, uint32_t length, int32_t message_id);
};

}  // namespace pos_util
