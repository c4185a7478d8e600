// Reception of descriptors: memfds with any seals, of any length, with any company, and files that are no memfds. Only
// one thing may come in, and it must be exactly what the file holds.

#include "platform/posutil/SealedMessage.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>
#include <vector>

#include "platform/posutil/PosIpc.h"
#include "support/Door.h"
#include "support/Input.h"

namespace {

constexpr size_t kMaxFiles = 10;
constexpr size_t kLargeFile = size_t{200} * 1024;
constexpr unsigned kNeededSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL;

enum Kind : size_t {
    kMemfd,
    kHugePages,
    kNoSealing,
    kRegularFile,
    kDirectory,
    kDevice,
    kPipe,
    kSocket,
    kEvent,
    kKinds
};

struct File {
    int fd = -1;
    /// Whether the receiver may map it; then this is what it holds.
    bool sound = false;
    std::string content;
};

File makeMemfd(fuzz::Input& input, bool sealing) {
    const auto form = input.number<uint8_t>();
    const unsigned seals = form & 0x1F;  // the four, and F_SEAL_FUTURE_WRITE
    File file;
    file.fd = memfd_create("fuzz", MFD_CLOEXEC | (sealing ? MFD_ALLOW_SEALING : 0));
    FUZZ_CHECK(file.fd >= 0);
    file.content = input.piece();
    off_t length = static_cast<off_t>(file.content.size());
    if ((form & 0x60) == 0x20) {
        file.content.resize(kLargeFile);
        length = static_cast<off_t>(kLargeFile);
    } else if ((form & 0x60) == 0x60) {
        length = off_t{pos_util::kPosIpcMaxMessage} + 1;  // a hole: it costs nothing
    }
    FUZZ_CHECK(pwrite(file.fd, file.content.data(), file.content.size(), 0) >= 0);
    FUZZ_CHECK(ftruncate(file.fd, length) == 0);
    const bool sealed = fcntl(file.fd, F_ADD_SEALS, static_cast<int>(seals)) == 0;
    file.sound = sealing && sealed && (seals & kNeededSeals) == kNeededSeals && length >= 1 &&
                 length <= off_t{pos_util::kPosIpcMaxMessage};
    return file;
}

File makeFile(fuzz::Input& input) {
    File file;
    int pair[2] = {-1, -1};
    switch (input.below(kKinds)) {
        case kMemfd:
            return makeMemfd(input, true);
        case kNoSealing:
            return makeMemfd(input, false);
        case kHugePages:
            file.fd = memfd_create("fuzz", MFD_CLOEXEC | MFD_ALLOW_SEALING | MFD_HUGETLB);
            if (file.fd >= 0) {
                (void)fcntl(file.fd, F_ADD_SEALS, static_cast<int>(kNeededSeals));
            }
            break;
        case kRegularFile:
            file.fd = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
            break;
        case kDirectory:
            file.fd = open("/tmp", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            break;
        case kDevice:
            file.fd = open("/dev/zero", O_RDWR | O_CLOEXEC);
            break;
        case kPipe:
            FUZZ_CHECK(pipe2(pair, O_CLOEXEC) == 0);
            break;
        case kSocket:
            FUZZ_CHECK(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) == 0);
            break;
        default:
            file.fd = eventfd(0, EFD_CLOEXEC);
    }
    if (pair[0] >= 0) {
        close(pair[1]);
        file.fd = pair[0];
    }
    return file;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    fuzz::quietLog(5);
    return 0;
}

/// The input is a row of messages: number of files, the files, the payload.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    fuzz::Door door;
    for (size_t i = 0; i < fuzz::Door::kMaxMessages && !input.empty(); ++i) {
        const size_t count = input.below(kMaxFiles + 1);
        std::vector<int> files;
        File last;
        for (size_t n = 0; n < count; ++n) {
            File file = makeFile(input);
            if (file.fd >= 0) {
                files.push_back(file.fd);
                last = std::move(file);
            }
        }
        const std::string payload(input.bytes(input.below(3)));
        const bool single = files.size() == 1;
        const bool none = files.empty();
        if (door.send(payload, files)) {
            if (none) {
                door.expect(payload);
            } else if (single && last.sound && payload.size() == 1) {
                door.expect(std::move(last.content));
            }
        }
    }
    door.receive();
    return 0;
}
