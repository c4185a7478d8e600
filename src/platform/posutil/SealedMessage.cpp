#include "platform/posutil/SealedMessage.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/posutil/PosIpc.h"

namespace pos_util {

namespace {

constexpr int kAllSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL;

}  // namespace

SealedMessage::~SealedMessage() {
    if (mData != nullptr) {
        munmap(mData, mSize);
    }
}

const char* SealedMessage::map(int fd) {
    // The seals first: only then what follows cannot change any more. More seals than ours do no harm.
    const int seals = fcntl(fd, F_GET_SEALS);
    if (seals < 0 || (seals & kAllSeals) != kAllSeals) {
        return "the file is not sealed";
    }
    struct stat status = {};
    struct statfs system = {};
    if (fstat(fd, &status) != 0 || fstatfs(fd, &system) != 0) {
        return strerror(errno);
    }
    // A memfd of huge pages can be sealed too, but its pages may be missing when they are read.
    if (!S_ISREG(status.st_mode) || system.f_type != TMPFS_MAGIC) {
        return "the file is not a memfd";
    }
    if (status.st_size < 1 || status.st_size > static_cast<off_t>(kPosIpcMaxMessage)) {
        return "the file's size is out of range";
    }
    const auto size = static_cast<uint32_t>(status.st_size);
    void* const data = mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
    if (data == MAP_FAILED) {
        return strerror(errno);
    }
    mData = data;
    mSize = size;
    return nullptr;
}

UniqueFd SealedMessage::create(const uint8_t* data, uint32_t size) {
    UniqueFd file(memfd_create("pos-ipc", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!file.valid() || ftruncate(file.get(), static_cast<off_t>(size)) != 0) {
        return {};
    }
    for (uint32_t done = 0; done < size;) {
        const ssize_t written = write(file.get(), data + done, size - done);
        if (written > 0) {
            done += static_cast<uint32_t>(written);
        } else if (written == 0 || errno != EINTR) {
            return {};
        }
    }
    if (fcntl(file.get(), F_ADD_SEALS, kAllSeals) != 0) {
        return {};
    }
    return file;
}

}  // namespace pos_util
