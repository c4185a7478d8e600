#include "macro/process.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>
#include <utility>

namespace bench {

namespace {

constexpr auto kPatience = std::chrono::seconds(10);
constexpr auto kPause = std::chrono::milliseconds(2);

using Clock = std::chrono::steady_clock;

/// In the child: no output, and no life without the parent.
void settle(pid_t parent) {
    (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) {
        std::_Exit(1);
    }
    const int nowhere = ::open("/dev/null", O_RDWR);
    if (std::getenv("BENCH_VERBOSE") == nullptr) {
        (void)::dup2(nowhere, STDERR_FILENO);
    }
    (void)::dup2(nowhere, STDIN_FILENO);
    (void)::dup2(nowhere, STDOUT_FILENO);
    (void)::close(nowhere);
}

std::map<std::string, Role>& roles() {
    static std::map<std::string, Role> all;
    return all;
}

std::vector<pid_t> threadsOf(pid_t pid) {
    std::vector<pid_t> threads;
    const std::string path = "/proc/" + (pid == 0 ? "self" : std::to_string(pid)) + "/task";
    DIR* const directory = ::opendir(path.c_str());
    if (directory == nullptr) {
        return threads;
    }
    while (const dirent* entry = ::readdir(directory)) {  // NOLINT(concurrency-mt-unsafe): the stream is our own
        if (const int thread = std::atoi(entry->d_name); thread > 0) {  // NOLINT(cert-err34-c): 0 for the dots
            threads.push_back(thread);
        }
    }
    (void)::closedir(directory);
    return threads;
}

/// The sum of the numbers that follow these words at the beginning of a line.
double sumOf(const std::string& path, const std::vector<std::string>& words) {
    std::ifstream file(path);
    double sum = 0;
    for (std::string line; std::getline(file, line);) {
        for (const std::string& word : words) {
            if (line.compare(0, word.size(), word) == 0) {
                sum += std::strtod(line.c_str() + word.size(), nullptr);
            }
        }
    }
    return sum;
}

}  // namespace

void die(const std::string& what) {
    (void)std::fprintf(stderr, "bench: %s\n", what.c_str());
    std::_Exit(1);
}

Process::Process(Process&& other) noexcept : mPid(std::exchange(other.mPid, -1)) {}

Process& Process::operator=(Process&& other) noexcept {
    std::swap(mPid, other.mPid);
    return *this;
}

Process Process::start(const std::vector<std::string>& command, const std::function<void()>& prepare) {
    (void)std::fflush(stdout);
    const pid_t parent = ::getpid();
    const pid_t child = ::fork();
    if (child < 0) {
        die("no process can be started");
    }
    if (child == 0) {
        settle(parent);
        std::vector<char*> arguments;
        arguments.reserve(command.size() + 1);
        for (const std::string& word : command) {
            arguments.push_back(const_cast<char*>(word.c_str()));
        }
        arguments.push_back(nullptr);
        if (prepare) {
            prepare();
        }
        (void)::execvp(arguments[0], arguments.data());
        std::_Exit(127);
    }
    return Process(child);
}

Process Process::as(const std::string& role, const std::vector<std::string>& arguments,
                    const std::function<void()>& prepare) {
    std::vector<std::string> command = {"/proc/self/exe", kRoleOption, role};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return start(command, prepare);
}

RegisterRole::RegisterRole(const char* name, Role role) {
    roles()[name] = std::move(role);
}

void play(const std::vector<std::string>& words) {
    if (words.empty() || !roles().contains(words[0])) {
        die("no such role");
    }
    roles().at(words[0])({words.begin() + 1, words.end()});
    std::_Exit(0);
}

bool Process::running() {
    if (mPid > 0 && ::waitpid(mPid, nullptr, WNOHANG) != 0) {
        mPid = -1;
    }
    return mPid > 0;
}

void Process::stop() {
    if (mPid <= 0) {
        return;
    }
    (void)::kill(mPid, SIGTERM);
    for (const auto end = Clock::now() + kPatience; running() && Clock::now() < end;) {
        std::this_thread::sleep_for(kPause);
    }
    if (mPid > 0) {
        (void)::kill(mPid, SIGKILL);
        (void)::waitpid(mPid, nullptr, 0);
        mPid = -1;
    }
}

std::string findProgram(const std::string& name) {
    const char* const path = std::getenv("PATH");
    std::istringstream directories((path != nullptr ? std::string(path) : "") + ":/usr/sbin:/sbin");
    for (std::string directory; std::getline(directories, directory, ':');) {
        directory.append("/").append(name);
        if (directory.front() == '/' && ::access(directory.c_str(), X_OK) == 0) {
            return directory;
        }
    }
    return {};
}

bool waitFor(Process* process, const std::function<bool()>& condition) {
    for (const auto end = Clock::now() + kPatience; Clock::now() < end;) {
        if (condition()) {
            return true;
        }
        if (process != nullptr && !process->running()) {
            return false;
        }
        std::this_thread::sleep_for(kPause);
    }
    return false;
}

bool moveTo(pid_t pid, int core) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(static_cast<std::size_t>(core), &set);
    bool moved = true;
    for (const pid_t thread : threadsOf(pid)) {
        // A thread may have ended meanwhile.
        moved = (::sched_setaffinity(thread, sizeof(set), &set) == 0 || errno == ESRCH) && moved;
    }
    return moved;
}

double cpuTime(pid_t pid) {
    clockid_t clock{};
    timespec now{};
    if (::clock_getcpuclockid(pid, &clock) != 0 || ::clock_gettime(clock, &now) != 0) {
        return 0;
    }
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

std::uint64_t sleeps(pid_t pid) {
    double sum = 0;
    for (const pid_t thread : threadsOf(pid)) {
        sum += sumOf("/proc/" + std::to_string(pid) + "/task/" + std::to_string(thread) + "/status",
                     {"voluntary_ctxt_switches:"});
    }
    return static_cast<std::uint64_t>(sum);
}

Memory memoryOf(pid_t pid) {
    const std::string path = "/proc/" + std::to_string(pid) + "/smaps_rollup";
    return {sumOf(path, {"Rss:"}) / 1024, sumOf(path, {"Private_Clean:", "Private_Dirty:"}) / 1024};
}

double residentWithoutShared(pid_t pid) {
    return sumOf("/proc/" + std::to_string(pid) + "/status", {"RssAnon:", "RssFile:"}) / 1024;
}

}  // namespace bench
