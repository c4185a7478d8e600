#include "support/TestClient.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/DeviceFiles.h"

namespace test_support {
namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kLargestDatagram = 64 * 1024;
constexpr int kAllSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL;

[[noreturn]] void giveUp(const std::string& what) {
    std::fprintf(stderr, "test client: %s: %s\n", what.c_str(), std::strerror(errno));
    std::abort();
}

sockaddr_un addressOf(const std::string& participant) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = std::string(device_files::kSocketDirectory) + "/" + participant;
    if (path.size() >= sizeof(address.sun_path)) {
        giveUp("the name is too long: " + participant);
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

/// A memory file that holds the bytes and can never change again.
int sealedFile(const std::string& bytes) {
    const int file = memfd_create("message", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (write(file, bytes.data(), bytes.size()) != std::ssize(bytes) || fcntl(file, F_ADD_SEALS, kAllSeals) != 0) {
        giveUp("memory file");
    }
    return file;
}

std::string contentOf(int file) {
    std::string bytes(static_cast<size_t>(lseek(file, 0, SEEK_END)), '\0');
    if (fcntl(file, F_GET_SEALS) != kAllSeals || pread(file, bytes.data(), bytes.size(), 0) != std::ssize(bytes)) {
        giveUp("a large message came in something that is no sealed memory file");
    }
    return bytes;
}

/// A message with room for exactly one descriptor.
struct Message {
    explicit Message(std::string& payload) : part{payload.data(), payload.size()} {
        header.msg_iov = &part;
        header.msg_iovlen = 1;
        header.msg_control = &control;
        header.msg_controllen = sizeof(control);
    }

    iovec part;
    msghdr header{};
    union {
        cmsghdr header;
        char space[CMSG_SPACE(sizeof(int))];
    } control{};
};

}  // namespace

TestClient::TestClient(std::string name) : mName(std::move(name)) {
    device_files::requireDevice();
    const sockaddr_un address = addressOf(mName);
    unlink(address.sun_path);
    mFd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (mFd < 0 || bind(mFd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        giveUp("bind " + mName);
    }
}

TestClient::~TestClient() {
    close(mFd);
    unlink(addressOf(mName).sun_path);
}

int TestClient::send(const std::string& participant, const std::string& bytes) {
    sockaddr_un address = addressOf(participant);
    const bool large = bytes.size() > kLargestDatagram;
    const int file = large ? sealedFile(bytes) : -1;
    std::string payload = large ? std::string(1, '\0') : bytes;
    Message message(payload);
    message.header.msg_name = &address;
    message.header.msg_namelen = sizeof(address);
    if (large) {
        message.control.header = {CMSG_LEN(sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
        std::memcpy(CMSG_DATA(&message.control.header), &file, sizeof(file));
    } else {
        message.header.msg_controllen = 0;
    }
    // A socket of its own: a full receiver must not hold back what goes to others. A blocking send waits for room.
    const int sender = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const timeval patience{30, 0};
    setsockopt(sender, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
    const int error = sendmsg(sender, &message.header, MSG_NOSIGNAL) < 0 ? errno : 0;
    close(sender);
    if (large) {
        close(file);
    }
    return error;
}

std::optional<std::string> TestClient::receiveBytes(std::chrono::milliseconds limit) {
    const auto deadline = Clock::now() + limit;
    pollfd readable{mFd, POLLIN, 0};
    int ready = 0;
    do {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        ready = poll(&readable, 1, left > 0 ? static_cast<int>(left) : 0);
    } while (ready < 0 && errno == EINTR);
    if (ready <= 0) {
        return std::nullopt;
    }
    std::string payload(kLargestDatagram + 1, '\0');
    Message message(payload);
    const ssize_t size = recvmsg(mFd, &message.header, MSG_CMSG_CLOEXEC);
    if (size < 0 || (message.header.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0) {
        giveUp("a message over 64 KiB came as a plain datagram, or with more than one descriptor");
    }
    payload.resize(static_cast<size_t>(size));
    if (message.header.msg_controllen == 0) {
        return payload;
    }
    if (message.control.header.cmsg_type != SCM_RIGHTS || size != 1) {
        giveUp("a large message's datagram is not of one byte with one descriptor");
    }
    int file = -1;
    std::memcpy(&file, CMSG_DATA(&message.control.header), sizeof(file));
    std::string bytes = contentOf(file);
    close(file);
    return bytes;
}

std::optional<Card> TestClient::receiveAny(std::chrono::milliseconds limit) {
    const std::optional<std::string> bytes = receiveBytes(limit);
    if (!bytes.has_value()) {
        return std::nullopt;
    }
    std::optional<Card> card = Card::decode(*bytes);
    if (!card.has_value()) {
        giveUp("a message of " + std::to_string(bytes->size()) + " bytes is no card");
    }
    return card;
}

std::optional<Card> TestClient::receive(std::chrono::milliseconds limit) {
    const auto deadline = Clock::now() + limit;
    while (true) {
        std::optional<Card> card =
            receiveAny(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()));
        if (!card.has_value() || card->getString("INFO") != "REGISTER-EVENT") {
            return card;
        }
    }
}

Card TestClient::request(const std::string& req, const std::string& to, const std::string& url, int32_t txId,
                         int32_t timeoutSec) const {
    Card card;
    card.string("FROM", mName).string("TO", to).string("REQ", req).int32("TX-ID", txId);
    return card.string("URL", url).int32("TIMEOUT-SEC", timeoutSec);
}

std::optional<Card> TestClient::exchange(const Card& request, std::chrono::milliseconds limit) {
    if (const int error = send(request); error != 0) {
        errno = error;
        giveUp("send to " + request.getString("TO").value_or("nobody"));
    }
    return receive(limit);
}

}  // namespace test_support
