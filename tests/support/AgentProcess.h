#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace test_support {

/// How a process ended: by exit with a status, or by a signal.
struct ProcessEnd {
    bool exited = false;
    int status = 0;  // exit status or signal number

    static ProcessEnd exit(int status) { return {true, status}; }
    static ProcessEnd signal(int number) { return {false, number}; }
    friend bool operator==(const ProcessEnd&, const ProcessEnd&) = default;
};
/// For failure messages: "exit status 3", "signal 9".
void PrintTo(const ProcessEnd& end, std::ostream* out);

/// A real program under test, started by the constructor, with everything it writes kept. It dies with the test
/// process, however that ends, and at the latest in the destructor. Any thread may call.
class AgentProcess {
public:
    struct Options {
        std::vector<std::string> arguments = {};
    };

    explicit AgentProcess(const std::string& executable) : AgentProcess(executable, Options{}) {}
    AgentProcess(const std::string& executable, const Options& options);
    ~AgentProcess();
    AgentProcess(const AgentProcess&) = delete;
    AgentProcess& operator=(const AgentProcess&) = delete;

    [[nodiscard]] pid_t pid() const { return mPid; }
    void signal(int number);
    /// Waits for its end; nothing after `seconds`. May be asked again.
    [[nodiscard]] std::optional<ProcessEnd> wait(int seconds = 30);
    [[nodiscard]] bool running();
    /// SIGTERM, then wait().
    [[nodiscard]] std::optional<ProcessEnd> stop();

    /// Standard output and standard error so far, as they came.
    [[nodiscard]] std::string log() const;
    /// How often the text occurs in the log.
    [[nodiscard]] size_t count(const std::string& part) const;
    /// Waits until count(part) is at least `times`; false after 30 seconds, or when the process ended without it.
    [[nodiscard]] bool waitForLine(const std::string& part, size_t times = 1) const;

    /// Descriptors that the process has open.
    [[nodiscard]] size_t descriptorCount() const;
    /// Memory that it has from the kernel and no file stands behind.
    [[nodiscard]] size_t anonymousKiB() const;

private:
    void keep(std::vector<std::string> command);

    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
    std::string mLog;
    pid_t mPid = -1;
    std::optional<ProcessEnd> mEnd;
    /// Starts the process, reads its output and reaps it. The kernel's "die with your parent" means the thread that
    /// forked, so that thread must live as long as the process.
    std::thread mKeeper;
};

/// Waits until a participant's socket exists in the device's socket directory, takes a connection and has its rights;
/// false after 30 seconds.
[[nodiscard]] bool waitForSocket(const std::string& name);

}  // namespace test_support
