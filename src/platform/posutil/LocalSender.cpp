#include "platform/posutil/LocalSender.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <mutex>

#include "platform/posutil/PosLogLine.h"
#include "platform/posutil/SealedMessage.h"

namespace pos_util {

namespace {

constexpr char kTag[] = "PosIpc";

UniqueFd makeSocket() {
    return UniqueFd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
}

/// One for all senders that there are at a time, so that a send costs no descriptor.
std::shared_ptr<const UniqueFd> sharedSocket() {
    static std::mutex mutex;
    static std::weak_ptr<const UniqueFd> kept;
    const std::lock_guard guard(mutex);
    std::shared_ptr<const UniqueFd> socket = kept.lock();
    if (socket == nullptr) {
        socket = std::make_shared<const UniqueFd>(makeSocket());
        kept = socket;
    }
    return socket;
}

/// sendmsg that a signal does not cut short; with MSG_DONTWAIT only, as it would wait all over again.
ssize_t sendAtOnce(int socket, const msghdr& message) {
    ssize_t sent = 0;
    do {
        sent = sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    } while (sent < 0 && errno == EINTR);
    return sent;
}

}  // namespace

LocalSender::LocalSender(const SocketAddress& address) : mAddress(address), mShared(sharedSocket()) {}

bool LocalSender::send(const uint8_t* data, uint32_t length) {
    const char* const reason = deliver(data, length);
    if (reason != nullptr) {
        POS_LOG_WARNING(kTag, "message of %u bytes to %s dropped: %s", length, mAddress.path(), reason);
    }
    return reason == nullptr;
}

const char* LocalSender::deliver(const uint8_t* data, uint32_t length) {
    if (length > kPosIpcMaxMessage) {
        return "too long";
    }
    if (data == nullptr && length > 0) {
        return "no data";
    }
    if (length > kPosIpcMaxDatagram) {
        return deliverInFile(data, length);
    }
    iovec part = {const_cast<uint8_t*>(data), length};
    msghdr message = {};
    message.msg_name = const_cast<sockaddr*>(mAddress.get());
    message.msg_namelen = mAddress.length();
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    return transmit(message);
}

const char* LocalSender::deliverInFile(const uint8_t* data, uint32_t length) {
    const UniqueFd file = SealedMessage::create(data, length);
    if (!file.valid()) {
        return strerror(errno);
    }
    // Its value means nothing; a descriptor needs some byte to travel with on other kinds of sockets.
    char mark = 0;
    iovec part = {&mark, sizeof(mark)};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message = {};
    message.msg_name = const_cast<sockaddr*>(mAddress.get());
    message.msg_namelen = mAddress.length();
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    const int fd = file.get();
    memcpy(CMSG_DATA(header), &fd, sizeof(fd));
    return transmit(message);
}

const char* LocalSender::transmit(const msghdr& message) {
    if (sendAtOnce(mShared->get(), message) >= 0) {
        mFull = false;
        return nullptr;
    }
    // What others have not read yet may fill the shared socket: only one of this send's own tells whether it is this
    // receiver that is full.
    const UniqueFd own = errno == EAGAIN || errno == EBADF ? makeSocket() : UniqueFd();
    if (own.valid() && sendAtOnce(own.get(), message) >= 0) {
        mFull = false;
        return nullptr;
    }
    if (errno != EAGAIN) {
        return strerror(errno);
    }
    if (mFull) {
        return "the receiver is still full";
    }
    return transmitWithin(own.get(), message, kPosIpcSendTimeoutMs);
}

const char* LocalSender::transmitWithin(int socket, const msghdr& message, int timeout_ms) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            mFull = true;
            return "the receiver is full";
        }
        // Poll does not see another socket's full queue; the kernel's own time-out does. Signals must not prolong it.
        timeval timeout = {};
        timeout.tv_sec = static_cast<decltype(timeout.tv_sec)>(left / 1000000);
        timeout.tv_usec = static_cast<decltype(timeout.tv_usec)>(left % 1000000);
        if (setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout)) != 0) {
            return strerror(errno);
        }
        if (sendmsg(socket, &message, MSG_NOSIGNAL) >= 0) {
            return nullptr;
        }
        if (errno != EINTR && errno != EAGAIN) {
            return strerror(errno);
        }
    }
}

}  // namespace pos_util
