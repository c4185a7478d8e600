#include "Wire.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/DeviceFiles.h"

namespace chaos::wire {

namespace {

constexpr size_t kLargestDatagram = size_t{64} * 1024;
constexpr size_t kMostFiles = 4;

[[noreturn]] void giveUp(const std::string& what) {
    std::perror(("chaos: " + what).c_str());
    std::abort();
}

sockaddr_un addressOf(const std::string& name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = std::string(test_support::device_files::kSocketDirectory) + "/" + name;
    if (path.size() >= sizeof(address.sun_path)) {
        giveUp("the name is too long: " + name);
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

union Control {
    cmsghdr header;
    char space[CMSG_SPACE(kMostFiles * sizeof(int))];
};

std::string contentOf(int file) {
    struct stat status {};
    if (fstat(file, &status) != 0) {
        giveUp("a file that came");
    }
    std::string bytes(static_cast<size_t>(status.st_size), '\0');
    if (pread(file, bytes.data(), bytes.size(), 0) != status.st_size) {
        giveUp("reading a file that came");
    }
    return bytes;
}

}  // namespace

int bindName(const std::string& name) {
    const sockaddr_un address = addressOf(name);
    unlink(address.sun_path);
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        giveUp("bind " + name);
    }
    return fd;
}

void removeName(const std::string& name) {
    unlink(addressOf(name).sun_path);
}

int send(const std::string& participant, const std::string& bytes, const std::vector<int>& files) {
    sockaddr_un address = addressOf(participant);
    iovec part{const_cast<char*>(bytes.data()), bytes.size()};
    Control control{};
    msghdr message{};
    message.msg_name = &address;
    message.msg_namelen = sizeof(address);
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (!files.empty()) {
        const size_t size = files.size() * sizeof(int);
        message.msg_control = &control;
        message.msg_controllen = CMSG_SPACE(size);
        control.header.cmsg_level = SOL_SOCKET;
        control.header.cmsg_type = SCM_RIGHTS;
        control.header.cmsg_len = CMSG_LEN(size);
        std::memcpy(CMSG_DATA(&control.header), files.data(), size);
    }
    const int sender = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const timeval patience{30, 0};
    setsockopt(sender, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
    const int error = sendmsg(sender, &message, MSG_NOSIGNAL) < 0 ? errno : 0;
    close(sender);
    return error;
}

int sendMessage(const std::string& participant, const std::string& bytes, bool file) {
    if (!file && bytes.size() <= kLargestDatagram) {
        return send(participant, bytes);
    }
    const int sealed = memoryFile(bytes, allSeals());
    const int error = send(participant, std::string(1, '\0'), {sealed});
    close(sealed);
    return error;
}

int memoryFile(const std::string& bytes, int seals) {
    const int file = memfd_create("chaos", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (file < 0 || write(file, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()) ||
        (seals != 0 && fcntl(file, F_ADD_SEALS, seals) != 0)) {
        giveUp("memory file");
    }
    return file;
}

int allSeals() {
    return F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL;
}

std::vector<std::string> drain(int socket) {
    std::vector<std::string> messages;
    std::string buffer(kLargestDatagram, '\0');
    while (true) {
        iovec part{buffer.data(), buffer.size()};
        Control control{};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = &control;
        message.msg_controllen = sizeof(control);
        const ssize_t size = recvmsg(socket, &message, MSG_CMSG_CLOEXEC | MSG_DONTWAIT);
        if (size < 0) {
            return messages;
        }
        if (const cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr) {
            int file = -1;
            std::memcpy(&file, CMSG_DATA(header), sizeof(file));
            messages.push_back(contentOf(file));
            close(file);
        } else {
            messages.push_back(buffer.substr(0, static_cast<size_t>(size)));
        }
    }
}

}  // namespace chaos::wire
