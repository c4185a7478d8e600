#include "tools/Terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace test_support {

namespace {

constexpr int kLimitMs = 30000;

}  // namespace

Terminal::Terminal(const std::string& executable, std::vector<std::string> arguments,
                   const std::vector<std::string>& environment) {
    winsize size{};
    size.ws_row = 24;
    size.ws_col = 80;
    arguments.insert(arguments.begin(), executable);
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    mPid = ::forkpty(&mMaster, nullptr, nullptr, &size);
    if (mPid == 0) {
        (void)::setenv("TERM", "xterm", 1);
        (void)::unsetenv("NO_COLOR");
        for (const std::string& entry : environment) {
            const size_t equals = entry.find('=');
            (void)::setenv(entry.substr(0, equals).c_str(), entry.substr(equals + 1).c_str(), 1);
        }
        (void)::execv(executable.c_str(), argv.data());
        ::_exit(127);
    }
    if (mPid < 0) {
        std::perror("forkpty");
        std::abort();
    }
}

Terminal::~Terminal() {
    if (mPid > 0) {
        (void)::kill(mPid, SIGKILL);
        (void)::waitpid(mPid, nullptr, 0);
    }
    (void)::close(mMaster);
}

void Terminal::signal(int number) const {
    (void)::kill(mPid, number);
}

bool Terminal::read() {
    pollfd ready{mMaster, POLLIN, 0};
    char part[4096];
    if (::poll(&ready, 1, kLimitMs) <= 0) {
        return false;
    }
    const ssize_t count = ::read(mMaster, part, sizeof(part));  // fails once the program has gone
    if (count <= 0) {
        return false;
    }
    mOutput.append(part, static_cast<size_t>(count));
    return true;
}

bool Terminal::waitFor(const std::string& text) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(kLimitMs);
    while (mOutput.find(text) == std::string::npos) {
        if (std::chrono::steady_clock::now() > limit || !read()) {
            return false;
        }
    }
    return true;
}

int Terminal::wait() {
    while (read()) {
    }
    int status = 0;
    if (mPid < 0 || ::waitpid(mPid, &status, 0) != mPid) {
        return -1;
    }
    mPid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace test_support
