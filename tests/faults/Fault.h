#pragma once

#include <cerrno>

/// Failures that no machine produces on demand: one of the product's calls fails, of those that the linker leads here.
namespace fault_test {

enum class Point {
    NothrowNew,
    PlainNew,
    CurlMemory,  // whatever libcurl allocates; needs prepareCurl()
    Bind,
    Chmod,
    Fchmod,
    Ftruncate,
    MemfdCreate,
    Mmap,
    Opendir,
    PthreadCreate,
    Recv,
    Recvmsg,
    Sendmsg,
    Socket,
    Symlink,
    Write,
};

enum class On { AgentThreads, AllThreads, ThisThread };

/// Armed from construction to destruction, one at a time. Made and destroyed while nobody else arms one; threads may
/// run into it at any time.
class Fault {
public:
    struct Options {
        int nth = 1;         // the first call that fails
        int times = 1;       // and how many in a row
        int error = ENOMEM;  // errno; an allocation has none
        On on = On::AllThreads;
    };

    Fault(Point point, const Options& options);
    ~Fault();
    Fault(const Fault&) = delete;
    Fault& operator=(const Fault&) = delete;

    [[nodiscard]] static bool fired();
};

/// Makes libcurl allocate where faults are. Once, before it is used.
void prepareCurl();

}  // namespace fault_test
