#pragma once

#include "base/ThreadAnnotations.h"

namespace zv_loc_fw {

class MutexImpl;

/// Holds a mutex for the length of a scope. Whether the lock could be taken or not, the guarded work is done: a failure
/// is reported under the tag "AutoLock" ("AutoLock: lock error: %d": 2 no mutex, 3 lock failed) and remembered.
class SCOPED_CAPABILITY AutoLock {
public:
    /// @param mutex not owned; null is reported
    explicit AutoLock(MutexImpl* mutex) ACQUIRE(mutex);
    ~AutoLock() RELEASE();
    AutoLock(const AutoLock&) = delete;
    AutoLock& operator=(const AutoLock&) = delete;

    [[nodiscard]] bool holds() const { return mHolds; }

private:
    MutexImpl* mMutex;
    bool mHolds = false;
};

}  // namespace zv_loc_fw
