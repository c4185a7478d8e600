#include "app/StopSignals.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

#include "base/log.h"

namespace zv_loc_fw {

namespace {

constexpr const char* kTag = "main";

sigset_t stopSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    return set;
}

/// For the calling thread, which then takes the signals' default action.
void unblock() {
    const sigset_t set = stopSignals();
    (void)pthread_sigmask(SIG_UNBLOCK, &set, nullptr);  // cannot fail with these arguments
}

void giveUp(int error) {
    log_error(kTag, "no orderly stop by signals: %s", std::strerror(error));
    unblock();
}

}  // namespace

void StopSignals::block() {
    const sigset_t set = stopSignals();
    (void)pthread_sigmask(SIG_BLOCK, &set, nullptr);  // cannot fail with these arguments
}

StopSignals::StopSignals(std::function<void()> stop) : mStop(std::move(stop)) {}

StopSignals::~StopSignals() {
    if (mThread != nullptr) {
        const uint64_t one = 1;
        (void)!::write(mWakeUp, &one, sizeof(one));  // an eventfd's first write never fails
        (void)mThread->join();                       // one that could not be started says so
    }
    for (const int descriptor : {mSignals, mWakeUp}) {
        if (descriptor >= 0) {
            (void)::close(descriptor);
        }
    }
}

void StopSignals::watch() {
    const sigset_t set = stopSignals();
    mSignals = ::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    mWakeUp = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (mSignals < 0 || mWakeUp < 0) {
        giveUp(errno);
        return;
    }
    // Kept when the launch fails: the thread may run all the same, and the destructor joins it.
    mThread.reset(new (std::nothrow) ThreadImpl(kTag, this, false));
    if (mThread == nullptr || mThread->launch() != 0) {
        giveUp(EAGAIN);
    }
}

int StopSignals::run() {
    pollfd descriptors[] = {{mSignals, POLLIN, 0}, {mWakeUp, POLLIN, 0}};
    while (descriptors[1].revents == 0) {
        if (::poll(descriptors, std::size(descriptors), -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            giveUp(errno);
            return 0;
        }
        if (descriptors[0].revents != 0) {
            takeSignal();
            descriptors[0].fd = -1;  // once; from now on only the wake-up counts
            descriptors[0].revents = 0;
        }
    }
    return 0;
}

void StopSignals::takeSignal() {
    signalfd_siginfo info;
    if (::read(mSignals, &info, sizeof(info)) != sizeof(info)) {
        giveUp(errno);
        return;
    }
    log_info(kTag, "signal %u, stopping", info.ssi_signo);
    unblock();  // this thread alone: the next signal comes here and takes its default action
    mStop();
}

}  // namespace zv_loc_fw
