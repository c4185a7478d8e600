#pragma once

#include <pthread.h>

#include <cerrno>

#include "base/MutexImpl.h"
#include "base/ThreadAnnotations.h"

namespace zv_loc_fw {

class TimeDiff;

/// A mutex, a condition variable and the question "is what I wait for there?", which a derived class answers.
///
///   producer: lock(), change the state, signal_one_and_then_unlock()
///   consumer: lock_and_wait(timeout), look at the state (a time-out is no error), change it, unlock()
///
/// Any number of threads; the condition variable waits on CLOCK_REALTIME. Failures are logged without the log's lock.
/// The steps of a hand-over that succeed at once have their bodies here: a final class then pays for no call but those
/// of the C library.
class WaitableBase {
public:
    /// Waits until ZeroIfShouldWaitAgain_locked() answers non-zero or the time is up. Every wake that does not end the
    /// wait restarts the full time-out: deliberate. The analysis cannot express "held on 0 and on 15": exempt.
    /// @param timeout invalid: no limit; zero or negative: one look, no wait
    /// @return 0 mutex held (also after a time-out); 2 lock failed, not held; 15 wait failed, held
    [[nodiscard]] virtual int lock_and_wait(const TimeDiff& timeout) NO_THREAD_SAFETY_ANALYSIS {
        trace("about to lock for wait");
        if (mMutex.lock() != 0) {
            return waitLockFailed();
        }
        return ZeroIfShouldWaitAgain_locked() != 0 ? 0 : waitLocked(timeout);
    }
    /// @return 0; 3 failed
    virtual int unlock() RELEASE(mMutex) {
        trace("about to unlock");
        if (mMutex.unlock() != 0) {
            return unlockFailed();
        }
        trace("unlocked");
        return 0;
    }
    virtual ~WaitableBase();
    /// @return 0; 3 failed, not held
    [[nodiscard]] virtual int lock() TRY_ACQUIRE(false, mMutex) {
        trace("about to lock for state modification");
        if (mMutex.lock() != 0) {
            return lockFailed();
        }
        trace("just acquired lock for state modification");
        return 0;
    }
    /// Wakes one waiter and unlocks, whatever became of the wake-up.
    /// @return 0; 4 unlock failed; 101 signal failed
    virtual int signal_one_and_then_unlock() RELEASE(mMutex) {
        trace("about to signal");
        int error = 0;
        const int result = unlockAfterSignal(pthread_cond_signal(&mCondition), error);
        return result == 0 ? 0 : signalFailed(result, error);
    }
    /// The same for all waiters.
    virtual int signal_all_and_then_unlock() RELEASE(mMutex);

    /// Traces every step at verbose level; off at first. For the owner, before others use the object.
    void setVerbose(bool verbose) { mVerbose = verbose; }

    WaitableBase(const WaitableBase&) = delete;
    WaitableBase& operator=(const WaitableBase&) = delete;

protected:
    /// @param name tag of the log lines and name of the mutex, not copied
    explicit WaitableBase(const char* name);

    /// 0: keep waiting. Called with the mutex held; must not lock it.
    virtual int ZeroIfShouldWaitAgain_locked() REQUIRES(mMutex) = 0;

    MutexImpl mMutex;

private:
    void trace(const char* text) const {
        if (mVerbose) {
            traceLine(text);
        }
    }
    void traceLine(const char* text) const;
    /// The failures: each logs its line and returns its code.
    [[nodiscard]] int lockFailed() const;
    [[nodiscard]] int unlockFailed() const;
    [[nodiscard]] int waitLockFailed() const;
    [[nodiscard]] int signalFailed(int result, int error) const;
    /// lock_and_wait once the first look has found nothing.
    int waitLocked(const TimeDiff& timeout) REQUIRES(mMutex);
    int wait(const TimeDiff& timeout) REQUIRES(mMutex);
    /// @param error out: errno, for the failure's line
    int unlockAfterSignal(int signal_result, int& error) RELEASE(mMutex) {
        error = errno;
        if (unlock() != 0) {
            return 4;  // unlock failed
        }
        return signal_result != 0 ? 101 : 0;  // 101: signal failed
    }

    pthread_cond_t mCondition = PTHREAD_COND_INITIALIZER;
    const char* mName;
    bool mVerbose = false;
};

}  // namespace zv_loc_fw
