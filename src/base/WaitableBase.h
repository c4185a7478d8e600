#pragma once

#include <pthread.h>

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
class WaitableBase {
public:
    /// Waits until ZeroIfShouldWaitAgain_locked() answers non-zero or the time is up. Every wake that does not end the
    /// wait restarts the full time-out: deliberate. The analysis cannot express "held on 0 and on 15": exempt.
    /// @param timeout invalid: no limit; zero or negative: one look, no wait
    /// @return 0 mutex held (also after a time-out); 2 lock failed, not held; 15 wait failed, held
    [[nodiscard]] virtual int lock_and_wait(const TimeDiff& timeout) NO_THREAD_SAFETY_ANALYSIS;
    /// @return 0; 3 failed
    virtual int unlock() RELEASE(mMutex);
    virtual ~WaitableBase();
    /// @return 0; 3 failed, not held
    [[nodiscard]] virtual int lock() TRY_ACQUIRE(false, mMutex);
    /// Wakes one waiter and unlocks, whatever became of the wake-up.
    /// @return 0; 4 unlock failed; 101 signal failed
    virtual int signal_one_and_then_unlock() RELEASE(mMutex);
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
    void trace(const char* text) const;
    int wait(const TimeDiff& timeout) REQUIRES(mMutex);
    int unlockAfterSignal(int signal_result, int& error) RELEASE(mMutex);

    pthread_cond_t mCondition = PTHREAD_COND_INITIALIZER;
    const char* mName;
    bool mVerbose = false;
};

}  // namespace zv_loc_fw
