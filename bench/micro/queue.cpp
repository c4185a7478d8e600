// The hand-over between threads when nobody waits, beside the least that any such queue does.

#include <pthread.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>

#include "base/BlockingQueue.h"
#include "base/Timestamp.h"
#include "harness/harness.h"

namespace bench {

namespace {

using zv_loc_fw::BlockingQueue;

/// What is left at the end is nobody's, and popped so that the queue does not complain.
std::shared_ptr<BlockingQueue> queueWith(std::size_t items) {
    static int item;
    std::shared_ptr<BlockingQueue> queue(BlockingQueue::createInstance("Bench", false), [items](BlockingQueue* one) {
        void* left = nullptr;
        bool closed = false;
        for (std::size_t i = 0; i < items; ++i) {
            (void)one->pop(&left, zv_loc_fw::TimeDiff(0), &closed);
        }
        delete one;
    });
    for (std::size_t i = 0; i < items; ++i) {
        require(queue->push(&item) == 0);
    }
    return queue;
}

/// @param depth items there are while one more is pushed and the oldest popped
Loop passing(std::size_t depth) {
    return [queue = queueWith(depth - 1)](std::size_t n) {
        const zv_loc_fw::TimeDiff unlimited;
        for (; n > 0; --n) {
            void* item = nullptr;
            bool closed = false;
            require(queue->push(&n) == 0 && queue->pop(&item, unlimited, &closed) == 0 && item != nullptr);
        }
    };
}

/// The least: no waiting, no closing.
template <typename Mutex>
struct PlainQueue {
    Mutex mutex;
    std::deque<void*> items;
};

/// What a mutex costs that notices its misuse, as ours does.
class CheckingMutex {
public:
    void lock() { require(pthread_mutex_lock(&mMutex) == 0); }
    void unlock() { require(pthread_mutex_unlock(&mMutex) == 0); }

private:
    pthread_mutex_t mMutex = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;
};

template <typename Mutex>
Loop passingPlain() {
    return [queue = std::make_shared<PlainQueue<Mutex>>()](std::size_t n) {
        for (; n > 0; --n) {
            {
                const std::lock_guard guard(queue->mutex);
                queue->items.push_back(&n);
            }
            const std::lock_guard guard(queue->mutex);
            keep(queue->items.front());
            queue->items.pop_front();
        }
    };
}

/// The same as one would write it to wait at.
struct WaitingQueue : PlainQueue<std::mutex> {
    std::condition_variable filled;
};

Loop passingWaiting() {
    return [queue = std::make_shared<WaitingQueue>()](std::size_t n) {
        for (; n > 0; --n) {
            {
                const std::lock_guard guard(queue->mutex);
                queue->items.push_back(&n);
                queue->filled.notify_one();
            }
            std::unique_lock guard(queue->mutex);
            queue->filled.wait(guard, [&] { return !queue->items.empty(); });
            keep(queue->items.front());
            queue->items.pop_front();
        }
    };
}

Register grown(std::size_t depth) {
    return Register(Row{"growth/queue", kOurs, [depth] { return passing(depth); }, depth});
}

const Register kRows[] = {
    Register(Row{"queue/depth-1", kOurs, [] { return passing(1); }}),
    Register(Row{"queue/depth-1", "std::mutex + std::deque", passingPlain<std::mutex>}),
    Register(Row{"queue/depth-1", "error-checking mutex + std::deque", passingPlain<CheckingMutex>}),
    Register(Row{"queue/depth-1", "std::mutex + std::deque + std::condition_variable", passingWaiting}),
    grown(1),
    grown(10),
    grown(100),
    grown(1000),
    grown(10000),
};

}  // namespace

}  // namespace bench
