#include "support/AgentProcess.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <ostream>

#include "support/DeviceFiles.h"
#include "support/files.h"

namespace test_support {
namespace {

constexpr auto kPatience = std::chrono::seconds(30);

[[noreturn]] void giveUp(const char* what) {
    std::perror(what);
    std::abort();
}

/// A proxy of the machine's would take the requests away from the test's own servers.
bool isProxyVariable(const std::string& entry) {
    static constexpr std::array kNames = {"http_proxy=", "https_proxy=", "all_proxy=", "no_proxy=",
                                          "HTTP_PROXY=", "HTTPS_PROXY=", "ALL_PROXY=", "NO_PROXY="};
    return std::any_of(kNames.begin(), kNames.end(), [&](const char* name) { return entry.starts_with(name); });
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

template <typename Condition>
bool waitUntil(int seconds, Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

std::string socketPath(const std::string& name) {
    return std::string(device_files::kSocketDirectory) + "/" + name;
}

}  // namespace

void PrintTo(const ProcessEnd& end, std::ostream* out) {
    *out << (end.exited ? "exit status " : "signal ") << end.status;
}

AgentProcess::AgentProcess(const std::string& executable, const Options& options) {
    mKeeper = std::thread([this, executable, options] { keep(executable, options); });
    std::unique_lock lock(mMutex);
    mChanged.wait(lock, [&] { return mPid > 0; });
}

AgentProcess::~AgentProcess() {
    signal(SIGKILL);
    mKeeper.join();
}

void AgentProcess::keep(const std::string& executable, const Options& options) {
    std::vector<std::string> arguments{executable};
    arguments.insert(arguments.end(), options.arguments.begin(), options.arguments.end());
    std::vector<std::string> environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        if (!isProxyVariable(*entry)) {
            environment.emplace_back(*entry);
        }
    }
    environment.insert(environment.end(), options.environment.begin(), options.environment.end());
    const std::vector<char*> argv = pointersTo(arguments);
    const std::vector<char*> envp = pointersTo(environment);
    int output[2];
    if (pipe2(output, O_CLOEXEC) != 0) {
        giveUp("pipe");
    }
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0) {
        giveUp("fork");
    }
    if (child == 0) {
        // Between fork and exec of a program with threads: nothing but system calls.
        sigset_t none;
        sigemptyset(&none);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        bool ready = getppid() == parent && dup2(output[1], 1) == 1 && dup2(output[1], 2) == 2 &&
                     pthread_sigmask(SIG_SETMASK, &none, nullptr) == 0;
        for (const auto& [resource, limit] : options.limits) {
            const rlimit both{limit, limit};
            ready = ready && setrlimit(static_cast<__rlimit_resource>(resource), &both) == 0;
        }
        if (ready) {
            execve(executable.c_str(), argv.data(), envp.data());
        }
        _exit(127);
    }
    close(output[1]);
    {
        const std::lock_guard guard(mMutex);
        mPid = child;
        mChanged.notify_all();
    }
    char buffer[16384];
    ssize_t size = 0;
    while ((size = read(output[0], buffer, sizeof(buffer))) != 0) {
        if (size > 0) {
            const std::lock_guard guard(mMutex);
            mLog.append(buffer, static_cast<size_t>(size));
            mChanged.notify_all();
        } else if (errno != EINTR) {
            giveUp("read");
        }
    }
    close(output[0]);
    // First only look: as long as the process is not reaped, its number belongs to nobody else.
    siginfo_t info{};
    while (waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT) != 0) {
        if (errno != EINTR) {
            giveUp("waitid");
        }
    }
    const std::lock_guard guard(mMutex);
    waitpid(child, nullptr, 0);
    mEnd = info.si_code == CLD_EXITED ? ProcessEnd::exit(info.si_status) : ProcessEnd::signal(info.si_status);
    mChanged.notify_all();
}

void AgentProcess::signal(int number) {
    const std::lock_guard guard(mMutex);
    if (!mEnd.has_value()) {
        kill(mPid, number);
    }
}

std::optional<ProcessEnd> AgentProcess::wait(int seconds) {
    std::unique_lock lock(mMutex);
    mChanged.wait_for(lock, std::chrono::seconds(seconds), [&] { return mEnd.has_value(); });
    return mEnd;
}

bool AgentProcess::running() {
    const std::lock_guard guard(mMutex);
    return !mEnd.has_value();
}

std::optional<ProcessEnd> AgentProcess::stop() {
    signal(SIGTERM);
    return wait();
}

std::string AgentProcess::log() const {
    const std::lock_guard guard(mMutex);
    return mLog;
}

size_t AgentProcess::countLocked(const std::string& part) const {
    size_t found = 0;
    for (size_t at = mLog.find(part); at != std::string::npos; at = mLog.find(part, at + part.size())) {
        ++found;
    }
    return found;
}

size_t AgentProcess::count(const std::string& part) const {
    const std::lock_guard guard(mMutex);
    return countLocked(part);
}

bool AgentProcess::waitForLine(const std::string& part, size_t times) const {
    std::unique_lock lock(mMutex);
    mChanged.wait_for(lock, kPatience, [&] { return mEnd.has_value() || countLocked(part) >= times; });
    return countLocked(part) >= times;
}

size_t AgentProcess::descriptorCount() const {
    const std::filesystem::directory_iterator directory("/proc/" + std::to_string(mPid) + "/fd");
    return static_cast<size_t>(std::distance(begin(directory), end(directory)));
}

size_t AgentProcess::residentKiB() const {
    const std::string status = readFile("/proc/" + std::to_string(mPid) + "/status");
    const size_t at = status.find("VmRSS:");
    return at == std::string::npos ? 0 : std::strtoul(status.c_str() + at + 6, nullptr, 10);
}

bool waitForSocket(const std::string& name, int seconds) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof(address.sun_path), "%s", socketPath(name).c_str());
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool there = waitUntil(
        seconds, [&] { return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0; });
    close(fd);
    return there;
}

bool waitForSocketGone(const std::string& name, int seconds) {
    return waitUntil(seconds, [&] { return access(socketPath(name).c_str(), F_OK) != 0; });
}

}  // namespace test_support
