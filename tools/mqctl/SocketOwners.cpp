#include "SocketOwners.h"

#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "platform/posutil/UniqueFd.h"

namespace mqctl {

namespace {

namespace fs = std::filesystem;

// Names of newer kernel headers.
constexpr uint32_t kShowUser = 0x40;
constexpr uint16_t kUserAttribute = 7;
constexpr time_t kPatienceSec = 1;

/// The kernel's own form of a device number.
uint32_t kernelDevice(dev_t device) {
    return major(device) << 20 | (minor(device) & 0xFFFFF);
}

std::optional<unsigned long long> numberOf(const std::string& text, size_t from) {
    char* end = nullptr;
    const unsigned long long number = std::strtoull(text.c_str() + from, &end, 10);
    return end != text.c_str() + from ? std::optional(number) : std::nullopt;
}

std::string userName(uid_t user) {
    char buffer[4096];
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(user, &entry, buffer, sizeof(buffer), &found) == 0 && found != nullptr) {
        return entry.pw_name;
    }
    return std::to_string(user);
}

}  // namespace

SocketOwners::SocketOwners() {
    askKernel();
    findProcesses();
}

void SocketOwners::askKernel() {
    const pos_util::UniqueFd netlink(::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
    if (!netlink.valid()) {
        return;
    }
    const timeval patience{kPatienceSec, 0};
    (void)::setsockopt(netlink.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    struct {
        nlmsghdr header;
        unix_diag_req request;
    } question = {};
    question.header.nlmsg_len = sizeof(question);
    question.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    question.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    question.request.sdiag_family = AF_UNIX;
    question.request.udiag_states = UINT32_MAX;
    question.request.udiag_show = UDIAG_SHOW_VFS | kShowUser;
    if (::send(netlink.get(), &question, sizeof(question), 0) < 0) {
        return;
    }
    alignas(nlmsghdr) char answer[32768];
    while (true) {
        const ssize_t received = ::recv(netlink.get(), answer, sizeof(answer), 0);
        if (received < 0 && errno == EINTR) {
            continue;
        }
        if (received <= 0) {
            return;
        }
        auto size = static_cast<size_t>(received);
        for (const char* at = answer; size >= sizeof(nlmsghdr);) {
            nlmsghdr header{};
            std::memcpy(&header, at, sizeof(header));
            if (header.nlmsg_len < sizeof(header) || header.nlmsg_len > size || header.nlmsg_type == NLMSG_DONE ||
                header.nlmsg_type == NLMSG_ERROR) {
                return;
            }
            takeAnswer(at + NLMSG_HDRLEN, header.nlmsg_len - NLMSG_HDRLEN);
            const size_t step = std::min<size_t>(NLMSG_ALIGN(header.nlmsg_len), size);
            at += step;
            size -= step;
        }
    }
}

void SocketOwners::takeAnswer(const char* data, size_t size) {
    unix_diag_msg message{};
    if (size < sizeof(message)) {
        return;
    }
    std::memcpy(&message, data, sizeof(message));
    Socket socket;
    socket.inode = message.udiag_ino;
    bool bound = false;
    for (size_t at = NLMSG_ALIGN(sizeof(message)); size - at >= sizeof(nlattr);) {
        nlattr attribute{};
        std::memcpy(&attribute, data + at, sizeof(attribute));
        if (attribute.nla_len < NLA_HDRLEN || attribute.nla_len > size - at) {
            break;
        }
        const char* value = data + at + NLA_HDRLEN;
        const size_t value_size = attribute.nla_len - size_t{NLA_HDRLEN};
        if (attribute.nla_type == UNIX_DIAG_VFS && value_size >= sizeof(unix_diag_vfs)) {
            unix_diag_vfs file{};
            std::memcpy(&file, value, sizeof(file));
            socket.file = file.udiag_vfs_ino;
            socket.device = file.udiag_vfs_dev;
            bound = true;
        } else if (attribute.nla_type == kUserAttribute && value_size >= sizeof(uint32_t)) {
            uint32_t user = 0;
            std::memcpy(&user, value, sizeof(user));
            socket.user = user;
        }
        at += std::min<size_t>(NLA_ALIGN(attribute.nla_len), size - at);
    }
    if (bound) {
        mSockets.push_back(socket);
    }
}

void SocketOwners::findProcesses() {
    std::error_code error;
    for (fs::directory_iterator process("/proc", error), end; !error && process != end; process.increment(error)) {
        const auto pid = numberOf(process->path().filename().string(), 0);
        if (!pid.has_value()) {
            continue;
        }
        std::error_code hidden;  // another user's process, or one that has just ended
        for (fs::directory_iterator entry(process->path() / "fd", hidden); !hidden && entry != end;
             entry.increment(hidden)) {
            constexpr std::string_view kSocket = "socket:[";
            std::error_code closed;
            const std::string target = fs::read_symlink(entry->path(), closed).string();
            if (!closed && target.compare(0, kSocket.size(), kSocket) == 0) {
                if (const auto inode = numberOf(target, kSocket.size())) {
                    mProcesses.emplace(*inode, static_cast<pid_t>(*pid));
                }
            }
        }
    }
}

SocketOwner SocketOwners::of(const struct stat& file) const {
    SocketOwner owner;
    for (const Socket& socket : mSockets) {
        // The kernel tells the low half of the inode.
        if (socket.file != (file.st_ino & UINT32_MAX) || socket.device != kernelDevice(file.st_dev)) {
            continue;
        }
        if (socket.user.has_value()) {
            owner.user = userName(*socket.user);
        }
        if (const auto process = mProcesses.find(socket.inode); process != mProcesses.end()) {
            owner.pid = process->second;
            std::ifstream name("/proc/" + std::to_string(process->second) + "/comm");
            (void)std::getline(name, owner.process);
        }
        break;
    }
    return owner;
}

}  // namespace mqctl
