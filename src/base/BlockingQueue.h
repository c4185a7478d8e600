#pragma once

#include <ctime>

namespace zv_loc_fw {

class TimeDiff;

/// First-in-first-out hand-over of untyped items between threads. Open until close(), never reopened; what is queued at
/// that moment can still be popped. Without a limit: push never blocks but on the lock.
/// The queue owns no item: who pops it, owns it. Any thread may call any operation but the destructor, which needs the
/// queue to itself: no other operation may still be returning.
class BlockingQueue {
public:
    /// @param name tag of the log lines, not copied; "BlockingQueue" when null
    /// @param unused has no effect
    /// @return the caller's, deleted through this interface; null without memory
    [[nodiscard]] static BlockingQueue* createInstance(const char* name, bool unused);

    /// Items that are left are not freed; the line "~BlockingQueueImpl: memory leak" says so.
    virtual ~BlockingQueue() = default;

    /// Adds an item and wakes one waiter.
    /// @return 0; 2 lock failed, 3 closed: the caller keeps the item; 4 wake-up or unlock failed, the item *is* queued
    [[nodiscard]] virtual int push(void* item) = 0;

    /// Refuses further items and wakes every waiter.
    /// @return 0; 2 lock failed; 3 wake-up or unlock failed, closed all the same
    virtual int close() = 0;

    /// Deprecated form with an absolute CLOCK_REALTIME deadline (null: no limit); warns on every call.
    /// @return 0; 2 no item pointer; 10 the other form failed
    [[nodiscard]] virtual int pop(void** item, const timespec* deadline, bool* closed) = 0;

    /// Takes the oldest item, waiting for one at most for the time-out (invalid: without limit).
    /// @param item out: the item, or null when the wait ended without one
    /// @param closed out, may be null (a closed queue then logs a warning): whether the queue is closed
    /// @return 0; 2 no item pointer; 4 wait failed; 5 unlock failed (an item handed out is the caller's)
    [[nodiscard]] virtual int pop(void** item, const TimeDiff& timeout, bool* closed) = 0;
};

/// Whether push() left the item with the caller, who then has to release it.
[[nodiscard]] constexpr bool pushKeptItemOut(int push_result) {
    return push_result == 2 || push_result == 3;
}

}  // namespace zv_loc_fw
