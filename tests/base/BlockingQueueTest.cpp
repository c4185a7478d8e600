#include "base/BlockingQueue.h"

#include <atomic>
#include <cerrno>
#include <memory>
#include <thread>

#include "base/BaseTest.h"
#include "base/Timestamp.h"

namespace {

/// Called instead of pthread_cond_timedwait on this thread while set.
thread_local std::function<int(pthread_mutex_t*, const timespec&)> timed_wait;

}  // namespace

extern "C" {

int __real_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* until);
int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* until) {
    return timed_wait ? timed_wait(mutex, *until) : __real_pthread_cond_timedwait(condition, mutex, until);
}

}  // extern "C"

namespace {

using namespace zv_loc_fw;
using testing::ElementsAre;
using testing::IsEmpty;

class BlockingQueueTest : public base_test::BaseTest {
protected:
    ~BlockingQueueTest() override { timed_wait = nullptr; }

    void* pop(const TimeDiff& timeout, bool* closed = nullptr) {
        void* item = this;
        EXPECT_EQ(mQueue->pop(&item, timeout, closed), 0);
        return item;
    }

    int mItems[3] = {};
    std::unique_ptr<BlockingQueue> mQueue{BlockingQueue::createInstance("q", true)};
};

TEST_F(BlockingQueueTest, ItemsComeOutInOrderThenNothing) {
    for (int& item : mItems) {
        EXPECT_EQ(mQueue->push(&item), 0);
    }
    bool closed = true;
    for (int& item : mItems) {
        EXPECT_EQ(pop(TimeDiff(0), &closed), &item);
        EXPECT_FALSE(closed);
    }
    for (const int64_t nanoseconds : {0, -1, 20'000'000}) {
        const Timestamp deadline = Timestamp::now(CLOCK_REALTIME) + TimeDiff(0).add(0, nanoseconds);
        EXPECT_EQ(pop(TimeDiff(0).add(0, nanoseconds)), nullptr);
        EXPECT_TRUE(Timestamp::now(CLOCK_REALTIME) >= deadline);
    }
    EXPECT_THAT(mLog.texts(), IsEmpty());
    EXPECT_EQ(mQueue->pop(nullptr, TimeDiff(), nullptr), 2);
}

TEST_F(BlockingQueueTest, ClosedQueueDrainsAndRefuses) {
    ASSERT_EQ(mQueue->push(&mItems[0]), 0);
    EXPECT_EQ(mQueue->close(), 0);
    EXPECT_EQ(mQueue->push(&mItems[1]), 3);
    EXPECT_TRUE(pushKeptItemOut(3));
    for (void* expected : {static_cast<void*>(&mItems[0]), static_cast<void*>(nullptr)}) {
        bool closed = false;
        EXPECT_EQ(pop(TimeDiff(), &closed), expected) << "returns at once";
        EXPECT_TRUE(closed);
    }
    EXPECT_EQ(pop(TimeDiff()), nullptr);
    EXPECT_THAT(mLog.texts(), ElementsAre("[q] push: error: 3", "[q] pop: queue is already closed"));
}

TEST_F(BlockingQueueTest, PopWithoutLimitWaitsForPushAndForClose) {
    std::atomic<bool> popped{false};
    std::thread consumer([&] {
        bool closed = true;
        EXPECT_EQ(pop(TimeDiff(), &closed), &mItems[0]);
        EXPECT_FALSE(closed);
        popped = true;
        EXPECT_EQ(pop(TimeDiff(), &closed), nullptr);
        EXPECT_TRUE(closed);
    });
    EXPECT_EQ(mQueue->push(&mItems[0]), 0);
    while (!popped) {
        std::this_thread::yield();
    }
    EXPECT_EQ(mQueue->close(), 0);
    consumer.join();
}

TEST_F(BlockingQueueTest, EveryWakeRestartsTheFullTimeoutAndALateItemIsTaken) {
    Timestamp last = Timestamp::now(CLOCK_REALTIME) + TimeDiff(1000);
    int waits = 0;
    timed_wait = [&](pthread_mutex_t* mutex, const timespec& until) {
        const Timestamp deadline = Timestamp::at(CLOCK_REALTIME, until.tv_sec, until.tv_nsec);
        EXPECT_FALSE(last >= deadline);
        last = deadline;
        if (++waits < 3) {
            return 0;
        }
        pthread_mutex_unlock(mutex);
        EXPECT_EQ(mQueue->push(&mItems[0]), 0);
        pthread_mutex_lock(mutex);
        return ETIMEDOUT;
    };
    EXPECT_EQ(pop(TimeDiff(1000)), &mItems[0]);
    EXPECT_EQ(waits, 3);
}

TEST_F(BlockingQueueTest, DeadlineFormWarnsAndLeftItemsAreReportedNotFreed) {
    const timespec past{1, 0};
    const timespec future{std::time(nullptr) + 1000, 0};
    void* item = this;
    timed_wait = [&](pthread_mutex_t*, const timespec& until) {
        EXPECT_NEAR(static_cast<double>(until.tv_sec - future.tv_sec), 0, 500);
        return EINVAL;
    };
    EXPECT_EQ(mQueue->pop(&item, &future, nullptr), 10);
    EXPECT_TRUE(mLog.contains("[q] pop: error: 4"));
    EXPECT_TRUE(mLog.contains("[q] pop 0: error: 10"));
    timed_wait = nullptr;
    EXPECT_EQ(mQueue->pop(&item, &past, nullptr), 0);
    EXPECT_EQ(item, nullptr);
    ASSERT_EQ(mQueue->push(&mItems[0]), 0);
    EXPECT_EQ(mQueue->pop(&item, nullptr, nullptr), 0);
    EXPECT_EQ(item, &mItems[0]);
    ASSERT_EQ(mQueue->push(&mItems[0]), 0);
    mQueue.reset();
    EXPECT_EQ(mLog.count("[q] pop 0: deprecated."), 3U);
    EXPECT_EQ(mLog.texts().back(), "[q] ~BlockingQueueImpl: memory leak");
}

TEST_F(BlockingQueueTest, EachItemComesOutOnceOrWasRefused) {
    constexpr size_t kPerProducer = 2000;
    constexpr size_t kProducers = 3;
    std::vector<std::atomic<int>> seen(kProducers * kPerProducer);
    std::atomic<size_t> pushed{0};
    std::vector<std::thread> threads;
    for (size_t p = 0; p < kProducers; ++p) {
        threads.emplace_back([&, p] {
            for (size_t i = p * kPerProducer; i < (p + 1) * kPerProducer; ++i) {
                const int result = mQueue->push(&seen[i]);
                EXPECT_TRUE(result == 0 || result == 3);
                seen[i] += result == 3 ? 1 : 0;
                ++pushed;
            }
        });
        threads.emplace_back([&] {
            bool closed = false;
            while (void* item = pop(TimeDiff(), &closed)) {
                ++*static_cast<std::atomic<int>*>(item);
            }
            EXPECT_TRUE(closed);
        });
    }
    while (pushed < kProducers * kPerProducer / 2) {
        std::this_thread::yield();
    }
    EXPECT_EQ(mQueue->close(), 0);
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::atomic<int>& count : seen) {
        ASSERT_EQ(count, 1);
    }
}

}  // namespace
