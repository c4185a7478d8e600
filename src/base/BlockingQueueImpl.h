#pragma once

#include <climits>

#include "base/BlockingQueue.h"
#include "base/List.h"
#include "base/WaitableBase.h"

namespace zv_loc_fw {

class BlockingQueueImpl final : public BlockingQueue, public WaitableBase {
public:
    explicit BlockingQueueImpl(const char* name);
    ~BlockingQueueImpl() override;

    int push(void* item) override;
    int close() override;
    int pop(void** item, const timespec* deadline, bool* closed) override;
    // Exempt: the mutex is held, or not, by the result of lock_and_wait.
    int pop(void** item, const TimeDiff& timeout, bool* closed) override NO_THREAD_SAFETY_ANALYSIS;

private:
    int ZeroIfShouldWaitAgain_locked() override REQUIRES(mMutex) {
        if (mClosed) {
            return -1;
        }
        const size_t count = mItems.count();
        return count > INT_MAX ? INT_MAX : static_cast<int>(count);
    }

    const char* mName;

    Queue<void*> mItems GUARDED_BY(mMutex);
    bool mClosed GUARDED_BY(mMutex) = false;
};

}  // namespace zv_loc_fw
