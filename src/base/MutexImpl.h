#pragma once

#include <pthread.h>

#include "base/ThreadAnnotations.h"

namespace zv_loc_fw {

/// A named, error-checking mutex: locking it twice from one thread, or unlocking it from a thread that does not hold
/// it, fails and is logged instead of blocking or corrupting. Its own lines take no lock (log_error_no_lock).
/// Any thread may lock and unlock; the owner constructs and destroys.
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
    [[nodiscard]] virtual int lock() TRY_ACQUIRE(false);
    /// @return 0; 1 failed, logged with errno (not the result: deliberate)
    virtual int unlock() RELEASE();

    /// For condition variables that wait with this mutex.
    pthread_mutex_t* native() { return &mMutex; }

    /// Traces every lock and unlock at verbose level; off at first. For the owner, before others use the mutex.
    void setVerbose(bool verbose) { mVerbose = verbose; }

private:
    const char* mName;
    bool mVerbose = false;
    // What is left when construction fails: still an error-checking mutex.
    pthread_mutex_t mMutex = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;
};

}  // namespace zv_loc_fw
