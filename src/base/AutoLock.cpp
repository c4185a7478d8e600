#include "base/AutoLock.h"

#include "base/MutexImpl.h"
#include "base/log.h"

namespace zv_loc_fw {

namespace {

constexpr char kTag[] = "AutoLock";

constexpr int kNoMutex = 2;
constexpr int kFailed = 3;

}  // namespace

// The guarded work is done without the lock too, when there is none to be had: nothing the analysis could follow.
AutoLock::AutoLock(MutexImpl* mutex) NO_THREAD_SAFETY_ANALYSIS : mMutex(mutex) {
    if (mMutex == nullptr) {
        log_error_no_lock(kTag, "AutoLock: lock error: %d", kNoMutex);
    } else if (mMutex->lock() != 0) {
        log_error_no_lock(kTag, "AutoLock: lock error: %d", kFailed);
    } else {
        mHolds = true;
    }
}

AutoLock::~AutoLock() NO_THREAD_SAFETY_ANALYSIS {
    if (mMutex == nullptr) {
        log_error_no_lock(kTag, "AutoLock: unlock error: %d", kNoMutex);
    } else if (mHolds && mMutex->unlock() != 0) {
        log_error_no_lock(kTag, "AutoLock: unlock error: %d", kFailed);
    }
}

}  // namespace zv_loc_fw
