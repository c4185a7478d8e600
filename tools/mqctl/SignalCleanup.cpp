#include "SignalCleanup.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>

#include "ExitCode.h"

namespace mqctl {

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

struct File {
    const std::string path;
    const dev_t device;
    const ino_t inode;
    File* const next;
};

/// A list that only grows, so that a handler may walk it at any time.
std::atomic<File*> files{nullptr};
std::atomic<bool> lineShown{false};
static_assert(std::atomic<File*>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

/// Only calls that a signal handler may make.
extern "C" void endBySignal(int number) {
    for (const File* file = files.load(); file != nullptr; file = file->next) {
        struct stat now {};
        if (::lstat(file->path.c_str(), &now) == 0 && now.st_dev == file->device && now.st_ino == file->inode) {
            (void)::unlink(file->path.c_str());
        }
    }
    if (lineShown.load() && ::write(STDERR_FILENO, kEraseLine, sizeof(kEraseLine) - 1) < 0) {
        // Nothing to be done about it here.
    }
    ::_exit(kSignalled + number);
}

sigset_t handledSignals() {
    sigset_t set;
    (void)sigemptyset(&set);
    for (const int number : kSignals) {
        (void)sigaddset(&set, number);
    }
    return set;
}

}  // namespace

void SignalCleanup::install() {
    for (const int number : kSignals) {
        struct sigaction action {};
        if (::sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
            action = {};
            action.sa_handler = endBySignal;
            action.sa_mask = handledSignals();
            (void)::sigaction(number, &action, nullptr);
        }
    }
}

void SignalCleanup::remember(const std::string& path) {
    struct stat now {};
    if (::lstat(path.c_str(), &now) != 0) {
        return;
    }
    // Lives as long as the process: a handler may be looking at it.
    auto* const file = new File{path, now.st_dev, now.st_ino, files.load()};
    files.store(file);
}

void SignalCleanup::setLineShown(bool shown) {
    lineShown.store(shown);
}

SignalCleanup::Hold::Hold() {
    const sigset_t set = handledSignals();
    (void)::pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

SignalCleanup::Hold::~Hold() {
    const sigset_t set = handledSignals();
    (void)::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

}  // namespace mqctl
