#include "base/BlockingQueueImpl.h"

#include <new>

#include "base/Timestamp.h"
#include "base/log.h"

namespace zv_loc_fw {

namespace {

constexpr char kName[] = "BlockingQueue";

/// How long it is until a deadline on the real-time clock: no limit without one, nothing when it has passed.
TimeDiff spanUntil(const timespec* deadline) {
    const Timestamp now = Timestamp::now(CLOCK_REALTIME);
    if (deadline == nullptr) {
        return {};
    }
    const Timestamp end = Timestamp::at(CLOCK_REALTIME, deadline->tv_sec, deadline->tv_nsec);
    return end >= now ? end - now : TimeDiff(0);
}

}  // namespace

BlockingQueue* BlockingQueue::createInstance(const char* name, [[maybe_unused]] bool unused) {
    return new (std::nothrow) BlockingQueueImpl(name);
}

BlockingQueueImpl::BlockingQueueImpl(const char* name) : WaitableBase(kName), mName(name != nullptr ? name : kName) {}

BlockingQueueImpl::~BlockingQueueImpl() {
    if (mItems.count() != 0) {
        log_warning(mName, "~BlockingQueueImpl: memory leak");
    }
}

int BlockingQueueImpl::push(void* item) {
    int result = 0;
    if (lock() != 0) {
        result = 2;  // lock failed
    } else {
        const bool closed = mClosed;
        if (!closed) {
            mItems.push(item);
        }
        if (signal_one_and_then_unlock() != 0) {
            result = 4;  // signal or unlock failed
        } else if (closed) {
            result = 3;  // closed, the caller keeps the item
        }
    }
    if (result != 0) {
        log_error_no_lock(mName, "push: error: %d", result);
    }
    return result;
}

int BlockingQueueImpl::close() {
    int result = 0;
    if (lock() != 0) {
        result = 2;  // lock failed
    } else {
        mClosed = true;
        if (signal_all_and_then_unlock() != 0) {
            result = 3;  // signal or unlock failed
        }
    }
    if (result != 0) {
        log_error_no_lock(mName, "close: error: %d", result);
    }
    return result;
}

int BlockingQueueImpl::pop(void** item, const TimeDiff& timeout, bool* closed) {
    const auto finish = [this](int result) {
        if (result > 0) {
            log_error_no_lock(mName, "pop: error: %d", result);
        }
        return result;
    };
    if (item == nullptr) {
        return finish(2);  // no item pointer
    }
    *item = nullptr;
    if (closed != nullptr) {
        *closed = false;
    }
    const int wait_result = lock_and_wait(timeout);
    if (wait_result != 0) {
        constexpr int kWaitFailedButHeld = 15;
        if (wait_result == kWaitFailedButHeld) {
            (void)unlock();
        }
        return finish(4);  // wait failed
    }
    if (closed != nullptr) {
        *closed = mClosed;
    } else if (mClosed) {
        log_warning(mName, "pop: queue is already closed");
    }
    // After a time-out too: an item may have come together with it. Without one the item stays null.
    (void)mItems.pop(item);
    return finish(unlock() != 0 ? 5 : 0);  // 5: unlock failed, the item is the caller's
}

int BlockingQueueImpl::pop(void** item, const timespec* deadline, bool* closed) {
    log_warning(mName, "pop 0: deprecated.");
    int result = 0;
    if (item == nullptr) {
        result = 2;  // no item pointer
    } else if (pop(item, spanUntil(deadline), closed) != 0) {
        result = 10;  // the other form failed
    }
    if (result != 0) {
        log_error_no_lock(mName, "pop 0: error: %d", result);
    }
    return result;
}

}  // namespace zv_loc_fw
