#pragma once

#include <pthread.h>

#include "base/ThreadAnnotations.h"

namespace zv_loc_fw {

/// A named, error-checking mutex: locking it twice from one thread, or unlocking it from a thread that does not hold
/// it, fails and is logged instead of blocking or corrupting. Its own lines take no lock (log_error_no_lock).
/// Any thread may lock and unlock; the owner constructs and destroys. The bodies of lock and unlock stand here so that
/// whoever holds the mutex itself pays for the C library's call alone.
class CAPABILITY("mutex") MutexImpl {
public:
    /// @param name tag of its log lines, not copied; "Mutex" when null
    /// @param unused has no effect, the mutex is error-checking whatever it says
    /// A failure is only logged: 2 attribute, 3 type, 4 mutex, 5 attribute not released.
    MutexImpl(const char* name, bool unused);
    virtual ~MutexImpl();
    MutexImpl(const MutexImpl&) = delete;
    MutexImpl& operator=(const MutexImpl&) = delete;

    /// @return 0; 1 failed, logged with pthread_mutex_lock's result
    [[nodiscard]] virtual int lock() TRY_ACQUIRE(false) NO_THREAD_SAFETY_ANALYSIS {
        if (mVerbose) {
            trace("lock: about to lock");
        }
        if (const int result = pthread_mutex_lock(&mMutex); result != 0) {
            return lockFailed(result);
        }
        if (mVerbose) {
            trace("lock: just acquired");
        }
        return 0;
    }
    /// @return 0; 1 failed, logged with errno (not the result: deliberate)
    virtual int unlock() RELEASE() NO_THREAD_SAFETY_ANALYSIS {
        if (pthread_mutex_unlock(&mMutex) != 0) {
            return unlockFailed();
        }
        if (mVerbose) {
            trace("lock: just released");  // "lock": deliberate
        }
        return 0;
    }

    /// For condition variables that wait with this mutex.
    pthread_mutex_t* native() { return &mMutex; }

    /// Traces every lock and unlock at verbose level; off at first. For the owner, before others use the mutex.
    void setVerbose(bool verbose) { mVerbose = verbose; }

private:
    void trace(const char* text) const;
    [[nodiscard]] int lockFailed(int result) const;
    [[nodiscard]] int unlockFailed() const;

    const char* mName;
    bool mVerbose = false;
    // What is left when construction fails: still an error-checking mutex.
    pthread_mutex_t mMutex = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;
};

}  // namespace zv_loc_fw
