#include "base/WaitableBase.h"

#include <cerrno>
#include <cstring>

#include "base/Timestamp.h"
#include "base/log.h"

namespace zv_loc_fw {

WaitableBase::WaitableBase(const char* name) : mMutex(name, false), mName(name) {
    int result = 0;
    int error = 0;
    const auto failed = [&](int code) {
        result = code;
        error = errno;
    };
    pthread_condattr_t attributes;
    if (pthread_condattr_init(&attributes) != 0) {
        failed(2);
    } else {
        if (pthread_condattr_setclock(&attributes, CLOCK_REALTIME) != 0) {
            failed(3);
        } else if (pthread_cond_init(&mCondition, &attributes) != 0) {
            failed(4);
        }
        if (pthread_condattr_destroy(&attributes) != 0) {
            failed(5);
        }
    }
    if (result != 0) {
        log_error_no_lock(mName, "WaitableBase: pthread conditional variable error: %d, errno=%d, [%s]", result, error,
                          std::strerror(error));
    }
}

WaitableBase::~WaitableBase() {
    if (pthread_cond_destroy(&mCondition) != 0) {
        const int error = errno;
        log_error_no_lock(mName, "~WaitableBase: pthread_cond_destroy error: %d, [%s]", error, std::strerror(error));
    }
}

void WaitableBase::traceLine(const char* text) const {
    log_verbose_no_lock(mName, "%s", text);
}

int WaitableBase::lockFailed() const {
    constexpr int kLockFailed = 3;
    log_error_no_lock(mName, "lock : result %d", kLockFailed);
    return kLockFailed;
}

int WaitableBase::unlockFailed() const {
    constexpr int kUnlockFailed = 3;
    log_error_no_lock(mName, "unlock : result %d", kUnlockFailed);
    return kUnlockFailed;
}

int WaitableBase::waitLockFailed() const {
    constexpr int kLockFailed = 2;
    log_error_no_lock(mName, "WaitableBase: lock_and_wait error: %d", kLockFailed);
    return kLockFailed;
}

int WaitableBase::signalFailed(int result, int error) const {
    log_error_no_lock(mName, "WaitableBase: signal_one_and_then_unlock result: %d, errno %d, [%s]", result, error,
                      std::strerror(error));
    return result;
}

int WaitableBase::signal_all_and_then_unlock() {
    trace("about to signal");
    int error = 0;
    const int result = unlockAfterSignal(pthread_cond_broadcast(&mCondition), error);
    if (result != 0) {
        // "errno:" with a colon, unlike above: deliberate
        log_error_no_lock(mName, "WaitableBase: signal_all_and_then_unlock result: %d, errno: %d, [%s]", result, error,
                          std::strerror(error));
    }
    return result;
}

int WaitableBase::wait(const TimeDiff& timeout) {
    if (!timeout.isValid()) {
        return pthread_cond_wait(&mCondition, mMutex.native());
    }
    // Read anew at every pass: each wake restarts the full time-out. That is deliberate.
    const Timestamp now = Timestamp::now(CLOCK_REALTIME);
    const Timestamp deadline = now + timeout;
    const timespec until = timeout.get_total_sec() > 0.0F ? deadline.getTimestampPtr() : now.getTimestampPtr();
    return pthread_cond_timedwait(&mCondition, mMutex.native(), &until);
}

int WaitableBase::waitLocked(const TimeDiff& timeout) {
    constexpr int kWaitFailed = 15;

    do {
        trace("about to wait");
        const int wait_result = wait(timeout);
        const int error = errno;
        trace("just waken up from wait");
        if (wait_result == ETIMEDOUT) {
            return 0;  // no error: the caller finds its state unchanged
        }
        if (wait_result != 0) {
            log_error_no_lock(mName, "lock_and_wait: pthread_cond_wait error: %d, [%s]", error, std::strerror(error));
            log_error_no_lock(mName, "WaitableBase: lock_and_wait error: %d", kWaitFailed);
            return kWaitFailed;  // the mutex is held all the same
        }
    } while (ZeroIfShouldWaitAgain_locked() == 0);
    return 0;
}

}  // namespace zv_loc_fw
