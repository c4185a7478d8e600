#include "support/AgentProcess.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <string_view>

#include "support/DeviceFiles.h"

namespace test_support {
namespace {

constexpr auto kPatience = std::chrono::seconds(30);

[[noreturn]] void giveUp(const char* what) {
    std::perror(what);
    std::abort();
}

size_t occurrences(const std::string& text, const std::string& part) {
    size_t found = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
        ++found;
    }
    return found;
}

}  // namespace

void PrintTo(const ProcessEnd& end, std::ostream* out) {
    *out << (end.exited ? "exit status " : "signal ") << end.status;
}

AgentProcess::AgentProcess(const std::string& executable, const Options& options) {
    // A proxy of the machine's would take the requests away from the test's own servers.
    for (const char* name : {"http_proxy", "https_proxy", "all_proxy", "HTTP_PROXY", "HTTPS_PROXY", "ALL_PROXY"}) {
        unsetenv(name);
    }
    std::vector<std::string> command = options.arguments;
    command.insert(command.begin(), executable);
    mKeeper = std::thread([this, command] { keep(command); });
    std::unique_lock lock(mMutex);
    mChanged.wait(lock, [&] { return mPid > 0; });
}

AgentProcess::~AgentProcess() {
    signal(SIGKILL);
    mKeeper.join();
}

void AgentProcess::keep(std::vector<std::string> command) {
    std::vector<char*> argv;
    for (std::string& word : command) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    int output[2];
    const pid_t parent = getpid();
    const pid_t child = pipe2(output, O_CLOEXEC) == 0 ? fork() : -1;
    if (child < 0) {
        giveUp("pipe or fork");
    }
    if (child == 0) {
        // Between fork and exec of a program with threads: nothing but system calls.
        sigset_t none;
        sigemptyset(&none);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() == parent && dup2(output[1], 1) == 1 && dup2(output[1], 2) == 2 &&
            pthread_sigmask(SIG_SETMASK, &none, nullptr) == 0) {
            execv(argv[0], argv.data());
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

size_t AgentProcess::count(const std::string& part) const {
    return occurrences(log(), part);
}

bool AgentProcess::waitForLine(const std::string& part, size_t times) const {
    std::unique_lock lock(mMutex);
    mChanged.wait_for(lock, kPatience, [&] { return mEnd.has_value() || occurrences(mLog, part) >= times; });
    return occurrences(mLog, part) >= times;
}

size_t AgentProcess::descriptorCount() const {
    const std::filesystem::directory_iterator directory("/proc/" + std::to_string(mPid) + "/fd");
    return static_cast<size_t>(std::distance(begin(directory), end(directory)));
}

size_t AgentProcess::anonymousKiB() const {
    std::ifstream status("/proc/" + std::to_string(mPid) + "/status");
    constexpr std::string_view kName = "RssAnon:";
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(kName)) {
            return std::stoul(line.substr(kName.size()));
        }
    }
    return 0;
}

bool waitForSocket(const std::string& name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof(address.sun_path), "%s/%s", device_files::kSocketDirectory, name.c_str());
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    bool there = false;
    while (!there && std::chrono::steady_clock::now() < deadline) {
        struct stat file {};
        // Whoever makes a socket gives it its rights after its name.
        there = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
                stat(address.sun_path, &file) == 0 && (file.st_mode & ACCESSPERMS) == (S_IRWXU | S_IRWXG);
        std::this_thread::sleep_for(std::chrono::milliseconds(there ? 0 : 5));
    }
    close(fd);
    return there;
}

}  // namespace test_support
