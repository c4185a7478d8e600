#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// The processes that take part, and what the kernel tells about them.
namespace bench {

/// Ends the program; its children end with it.
[[noreturn]] void die(const std::string& what);

/// A child process, which ends with this object, and with this process however that ends. To be started by the main
/// thread. Its output goes nowhere.
class Process {
public:
    Process() = default;
    Process(Process&& other) noexcept;
    Process& operator=(Process&& other) noexcept;
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process() { stop(); }

    /// @param prepare runs in the child, before the program takes its place
    static Process start(const std::vector<std::string>& command, const std::function<void()>& prepare = {});
    /// A child of a role that RegisterRole has.
    static Process as(const std::string& role, const std::vector<std::string>& arguments,
                      const std::function<void()>& prepare = {});

    [[nodiscard]] pid_t pid() const { return mPid; }
    [[nodiscard]] bool running();
    /// Politely at first.
    void stop();

private:
    explicit Process(pid_t pid) : mPid(pid) {}
    pid_t mPid = -1;
};

/// What this program can be beside the benchmark: who serves us is started anew. A mere fork would lie in memory just
/// as we do, which no real server does; the processor's branch prediction takes the one for the other and gains from it.
/// And some libraries do not survive a fork.
using Role = std::function<void(const std::vector<std::string>& arguments)>;

/// As a static object: puts it on the list.
struct RegisterRole {
    RegisterRole(const char* name, Role role);
};

/// The first argument of a program that is to play a role: kRoleOption ROLE ARGUMENTS...
inline constexpr const char* kRoleOption = "--as";
/// Ends the program with the role.
[[noreturn]] void play(const std::vector<std::string>& words);

/// @return "" when there is none
std::string findProgram(const std::string& name);

/// Until the condition holds. @return false after ten seconds, or when the process has ended
bool waitFor(Process* process, const std::function<bool()>& condition);

/// Puts all threads of a process on one core. @param pid 0: this process
/// @return false when there is no such core for us
bool moveTo(pid_t pid, int core);

/// Processor time of a process so far, all threads, in nanoseconds.
double cpuTime(pid_t pid);

/// How often its threads have gone to sleep so far.
std::uint64_t sleeps(pid_t pid);

struct Memory {
    double resident = 0;  ///< MiB, as RSS
    double own = 0;       ///< MiB, shared with no other process
};
Memory memoryOf(pid_t pid);

/// MiB of memory that is resident now, without what is a shared file in memory.
double residentWithoutShared(pid_t pid);

}  // namespace bench
