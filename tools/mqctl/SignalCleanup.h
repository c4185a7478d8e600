#pragma once

#include <string>

namespace mqctl {

/// What a signal that ends mqctl leaves clean: socket files and aliases of its own, and a terminal line that is being
/// redrawn. SIGINT, SIGTERM and SIGHUP then end the process with 128 plus their number.
class SignalCleanup {
public:
    /// Once, before any thread. A signal that is ignored stays so.
    static void install();

    /// The file as it is now goes on a signal, unless another has taken its place. Never forgotten: a file that is gone
    /// does no harm. One thread.
    static void remember(const std::string& path);

    /// Whether a line on standard error is to be erased first.
    static void setLineShown(bool shown);

    /// Holds signals back in this thread, and in those that it starts, for as long as it lives.
    class Hold {
    public:
        Hold();
        ~Hold();
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;
    };
};

/// Erases the line that is being redrawn.
inline constexpr char kEraseLine[] = "\r\033[K";

}  // namespace mqctl
