#include "platform/posutil/LocalRecver.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "platform/posutil/PosLogLine.h"
#include "platform/posutil/SealedMessage.h"

namespace pos_util {

namespace {

constexpr char kTag[] = "PosIpc";
/// The most descriptors that one message can carry (the kernel's SCM_MAX_FD). There is room for all: what has none the
/// kernel closes itself, and that may take as long as the sender likes.
constexpr size_t kMaxFiles = 253;
constexpr size_t kSmallestBuffer = 4096;
/// How long the kernel's shortage of memory is waited for before the next try.
constexpr int kShortageMs = 100;
/// Only others that replace the same file at the same time make more than two tries necessary.
constexpr int kBindTries = 5;

/// What came beside a message's bytes. Every descriptor is closed at the end, whatever became of the message.
class Attachment {
public:
    explicit Attachment(msghdr* message) {
        message->msg_control = mControl;
        message->msg_controllen = sizeof(mControl);
    }
    ~Attachment() {
        for (size_t i = 0; i < mCount; ++i) {
            closeAtOnce(file(i));
        }
    }
    Attachment(const Attachment&) = delete;
    Attachment& operator=(const Attachment&) = delete;

    /// After the receive call.
    void take(msghdr& message) {
        for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr; header = CMSG_NXTHDR(&message, header)) {
            if (header->cmsg_level == SOL_SOCKET && header->cmsg_type == SCM_RIGHTS) {
                mFiles = CMSG_DATA(header);  // the kernel puts all of them into one
                mCount = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
            }
        }
    }
    [[nodiscard]] size_t count() const { return mCount; }
    [[nodiscard]] int file(size_t index) const {
        int fd = -1;
        memcpy(&fd, mFiles + index * sizeof(int), sizeof(int));
        return fd;
    }

private:
    /// A foreign socket may be set to linger: closing its last descriptor would wait until its peer has read all.
    static void closeAtOnce(int fd) {
        const linger none = {0, 0};
        (void)setsockopt(fd, SOL_SOCKET, SO_LINGER, &none, sizeof(none));
        close(fd);
    }

    alignas(cmsghdr) char mControl[CMSG_SPACE(kMaxFiles * sizeof(int))];
    const unsigned char* mFiles = nullptr;
    size_t mCount = 0;
};

}  // namespace

LocalRecver::LocalRecver(const std::shared_ptr<IPosIpcListener>& listener, const SocketAddress& address)
    : mListener(listener), mAddress(address) {}

LocalRecver::~LocalRecver() {
    struct stat file = {};
    if (mHasFile && lstat(mAddress.path(), &file) == 0 && file.st_dev == mDevice && file.st_ino == mInode) {
        unlink(mAddress.path());
    }
}

bool LocalRecver::open() {
    const char* const reason = makeFile();
    if (reason != nullptr) {
        POS_LOG_ERROR(kTag, "cannot receive on %s: %s", mAddress.path(), reason);
    }
    return reason == nullptr;
}

const char* LocalRecver::makeFile() {
    mSocket = UniqueFd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!mSocket.valid()) {
        return strerror(errno);
    }
    // The file gets the socket's own mode, less the umask: it never has more rights, not even between bind and a chmod.
    if (fchmod(mSocket.get(), 0770) != 0) {
        return strerror(errno);
    }
    if (const char* const reason = bindReplacing()) {
        return reason;
    }
    struct stat file = {};
    if (lstat(mAddress.path(), &file) != 0) {
        return strerror(errno);
    }
    mHasFile = true;
    mDevice = file.st_dev;
    mInode = file.st_ino;
    return nullptr;
}

const char* LocalRecver::bindReplacing() {
    for (int i = 0; i < kBindTries; ++i) {
        if (bind(mSocket.get(), mAddress.get(), mAddress.length()) == 0) {
            return nullptr;
        }
        // A link is in the way as such, wherever it leads; a directory is none that unlink removes.
        if (errno != EADDRINUSE || (unlink(mAddress.path()) != 0 && errno != ENOENT)) {
            return strerror(errno);
        }
    }
    return "others keep making the file";
}

void LocalRecver::stop() {
    const int saved = errno;
    mStopped.store(true);
    // On Linux this wakes the listening thread, though nothing is connected, and lets every later receive return at once:
    // a stop cannot be missed.
    shutdown(mSocket.get(), SHUT_RD);
    errno = saved;
}

bool LocalRecver::listen() {
    bool usable = true;
    while (usable && !mStopped.load()) {
        usable = takeMessage();
    }
    return usable;
}

bool LocalRecver::takeMessage() {
    // Senders of other makes may put more than kPosIpcMaxDatagram into a datagram: nothing is cut silently.
    // cppcheck-suppress nullPointer
    const ssize_t length = recv(mSocket.get(), nullptr, 0, MSG_PEEK | MSG_TRUNC);
    if (mStopped.load()) {
        return true;
    }
    return length >= 0 ? takeDatagram(static_cast<size_t>(length)) : outlive(errno);
}

bool LocalRecver::takeDatagram(size_t length) {
    if (length > kPosIpcMaxMessage) {
        return dropDatagram(length, "too long");
    }
    std::unique_ptr<char[]> large;
    char* buffer = nullptr;
    if (length > kPosIpcMaxDatagram) {
        large.reset(new (std::nothrow) char[length]);
        buffer = large.get();
    } else {
        if (length > mBufferSize || mBuffer == nullptr) {
            size_t size = kSmallestBuffer;
            while (size < length) {
                size *= 2;
            }
            mBuffer.reset(new (std::nothrow) char[size]);
            mBufferSize = mBuffer != nullptr ? size : 0;
        }
        buffer = mBuffer.get();
    }
    if (buffer == nullptr) {
        return dropDatagram(length, "out of memory");
    }

    iovec part = {buffer, length};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    Attachment attachment(&message);
    const ssize_t received = recvmsg(mSocket.get(), &message, MSG_CMSG_CLOEXEC | MSG_DONTWAIT);
    if (received < 0) {
        return outlive(errno);
    }
    attachment.take(message);
    const size_t file_count = attachment.count();
    handOver(buffer, static_cast<size_t>(received), file_count == 1 ? attachment.file(0) : -1, file_count,
             message.msg_flags);
    return true;
}

bool LocalRecver::dropDatagram(size_t length, const char* reason) {
    char first = 0;
    iovec part = {&first, sizeof(first)};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    Attachment attachment(&message);
    if (recvmsg(mSocket.get(), &message, MSG_CMSG_CLOEXEC | MSG_DONTWAIT) < 0) {
        return outlive(errno);
    }
    attachment.take(message);
    POS_LOG_WARNING(kTag, "%s: message of %zu bytes dropped: %s", mAddress.path(), length, reason);
    return true;
}

void LocalRecver::handOver(const char* data, size_t length, int file, size_t file_count, int flags) {
    const char* reason = nullptr;
    if ((flags & MSG_TRUNC) != 0) {
        reason = "it was longer than announced";
    } else if ((flags & MSG_CTRUNC) != 0) {
        reason = "its descriptors could not all be received";
    } else if (file_count == 0) {
        mListener->onReceive(data, static_cast<uint32_t>(length), this);
    } else if (file_count != 1 || length != 1) {
        reason = "a long message is one descriptor and one byte";
    } else {
        SealedMessage message;
        reason = message.map(file);
        if (reason == nullptr) {
            mListener->onReceive(message.data(), message.size(), this);
        }
    }
    if (reason != nullptr) {
        POS_LOG_WARNING(kTag, "%s: message of %zu bytes with %zu descriptors refused: %s", mAddress.path(), length,
                        file_count, reason);
    }
}

bool LocalRecver::outlive(int errno_value) {
    if (errno_value == EINTR || errno_value == EAGAIN) {
        return true;
    }
    POS_LOG_ERROR(kTag, "%s: cannot receive: %s", mAddress.path(), strerror(errno_value));
    if (errno_value == ENOMEM || errno_value == ENOBUFS) {
        // The message is still there: try again a little later rather than at once. Only a stop ends the wait.
        pollfd stopped = {mSocket.get(), POLLRDHUP, 0};
        (void)poll(&stopped, 1, kShortageMs);
        return true;
    }
    return false;
}

}  // namespace pos_util
