#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace mqctl {

/// Who holds a socket. What the kernel does not tell this user stays empty.
struct SocketOwner {
    std::optional<pid_t> pid;
    std::string process;
    std::string user;
};

/// The owners of all socket files, as of its construction. The kernel's socket diagnosis tells a bound socket's file by
/// device and inode: paths mean nothing, for there may be many directories of that name (a private view of a device).
class SocketOwners {
public:
    SocketOwners();

    /// @param file the socket file, links followed
    [[nodiscard]] SocketOwner of(const struct stat& file) const;
    /// The kernel told no owner at all.
    [[nodiscard]] bool unknown() const {
        return std::none_of(mSockets.begin(), mSockets.end(), [](const Socket& each) { return each.user.has_value(); });
    }

private:
    struct Socket {
        uint64_t file = 0;  // the bound file's inode
        uint32_t device = 0;
        uint64_t inode = 0;  // the socket's own
        std::optional<uid_t> user;
    };

    void askKernel();
    void takeAnswer(const char* data, size_t size);
    void findProcesses();

    std::vector<Socket> mSockets;
    std::map<uint64_t, pid_t> mProcesses;  // by a socket's own inode
};

}  // namespace mqctl
