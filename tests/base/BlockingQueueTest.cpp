#include "base/BlockingQueue.h"

#include <atomic>
#include <cerrno>
#include <memory>
#include <optional>
#include <thread>

#include "base/BaseTest.h"
#include "base/Faults.h"
#include "base/Timestamp.h"

namespace {

using namespace zv_loc_fw;
using base_test::Fault;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class BlockingQueueTest : public base_test::BaseTest {
protected:
    ~BlockingQueueTest() override { base_test::timed_wait = nullptr; }

    void* popNow(bool* closed = nullptr) {
        void* item = this;
        EXPECT_EQ(mQueue->pop(&item, TimeDiff(0), closed), 0);
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
        EXPECT_EQ(popNow(&closed), &item);
        EXPECT_FALSE(closed);
    }
    EXPECT_EQ(popNow(), nullptr);
    EXPECT_THAT(mLog.texts(), IsEmpty());
}

TEST_F(BlockingQueueTest, ClosedQueueDrainsAndRefuses) {
    ASSERT_EQ(mQueue->push(&mItems[0]), 0);
    ASSERT_EQ(mQueue->push(&mItems[1]), 0);
    EXPECT_EQ(mQueue->close(), 0);
    EXPECT_EQ(mQueue->push(&mItems[2]), 3);
    EXPECT_TRUE(pushKeptItemOut(3));
    for (void* expected :
         {static_cast<void*>(&mItems[0]), static_cast<void*>(&mItems[1]), static_cast<void*>(nullptr)}) {
        void* item = this;
        bool closed = false;
        EXPECT_EQ(mQueue->pop(&item, TimeDiff(), &closed), 0) << "returns at once";
        EXPECT_EQ(item, expected);
        EXPECT_TRUE(closed);
    }
    EXPECT_EQ(popNow(nullptr), nullptr);
    EXPECT_THAT(mLog.texts(), ElementsAre("[q] push: error: 3", "[q] pop: queue is already closed"));
    EXPECT_EQ(mLog.lines()[1].priority, 5);
}

TEST_F(BlockingQueueTest, PopWithoutLimitWaitsForPushAndForClose) {
    std::atomic<int> popped{0};
    std::thread consumer([&] {
        void* item = nullptr;
        bool closed = false;
        EXPECT_EQ(mQueue->pop(&item, TimeDiff(), &closed), 0);
        EXPECT_EQ(item, &mItems[0]);
        EXPECT_FALSE(closed);
        ++popped;
        EXPECT_EQ(mQueue->pop(&item, TimeDiff(), &closed), 0);
        EXPECT_EQ(item, nullptr);
        EXPECT_TRUE(closed);
    });
    EXPECT_EQ(mQueue->push(&mItems[0]), 0);
    while (popped == 0) {
        std::this_thread::yield();
    }
    EXPECT_EQ(mQueue->close(), 0);
    consumer.join();
}

TEST_F(BlockingQueueTest, ItemThatComesWithTheTimeoutIsTaken) {
    base_test::timed_wait = [this](pthread_mutex_t* mutex, const timespec&) {
        pthread_mutex_unlock(mutex);
        EXPECT_EQ(mQueue->push(&mItems[0]), 0);
        pthread_mutex_lock(mutex);
        return ETIMEDOUT;
    };
    EXPECT_EQ(popNow(), &mItems[0]);
}

TEST_F(BlockingQueueTest, FailuresHaveTheirCodesAndLeaveTheQueueUsable) {
    EXPECT_EQ(mQueue->pop(nullptr, TimeDiff(), nullptr), 2);
    std::optional<Fault> fault(std::in_place, "pthread_cond_timedwait", EINVAL);
    void* item = this;
    EXPECT_EQ(mQueue->pop(&item, TimeDiff(1), nullptr), 4);
    EXPECT_EQ(item, nullptr);
    fault.emplace("pthread_mutex_lock", EINVAL);
    EXPECT_EQ(mQueue->push(&mItems[0]), 2);
    fault.emplace("pthread_mutex_lock", EINVAL);
    EXPECT_EQ(mQueue->pop(&item, TimeDiff(1), nullptr), 4);
    fault.emplace("pthread_cond_signal", EINVAL);
    EXPECT_EQ(mQueue->push(&mItems[1]), 4);
    EXPECT_EQ(popNow(), &mItems[1]) << "queued all the same";
    fault.emplace("pthread_mutex_lock", EINVAL);
    EXPECT_EQ(mQueue->close(), 2);
    fault.emplace("pthread_cond_broadcast", EINVAL);
    EXPECT_EQ(mQueue->close(), 3);
    EXPECT_EQ(mQueue->push(&mItems[2]), 3) << "closed all the same";

    std::vector<std::string> own;
    for (const std::string& text : mLog.texts()) {
        if (text.starts_with("[q]")) {
            own.push_back(text);
        }
    }
    EXPECT_THAT(own,
                ElementsAre("[q] pop: error: 2", "[q] pop: error: 4", "[q] push: error: 2", "[q] pop: error: 4",
                            "[q] push: error: 4", "[q] close: error: 2", "[q] close: error: 3", "[q] push: error: 3"));
    EXPECT_TRUE(mLog.contains("[BlockingQueue] lock : result 3")) << "the parts keep their own name";
}

TEST_F(BlockingQueueTest, DeadlineFormConvertsAndWarns) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const timespec future{now.tv_sec + 1000, 0};
    const timespec past{now.tv_sec - 1000, 0};
    void* item = this;
    bool closed = true;
    EXPECT_EQ(mQueue->pop(&item, &past, &closed), 0);
    EXPECT_EQ(item, nullptr);
    std::optional<TimeDiff> waited;
    base_test::timed_wait = [&](pthread_mutex_t*, const timespec& until) {
        waited = Timestamp::at(CLOCK_REALTIME, until.tv_sec, until.tv_nsec) - Timestamp::now(CLOCK_REALTIME);
        return ETIMEDOUT;
    };
    EXPECT_EQ(mQueue->pop(&item, &future, &closed), 0);
    ASSERT_TRUE(waited.has_value());
    EXPECT_GT(waited->seconds(), 500);
    EXPECT_LE(waited->seconds(), 1000);
    ASSERT_EQ(mQueue->push(&mItems[0]), 0);
    EXPECT_EQ(mQueue->pop(&item, nullptr, &closed), 0);
    EXPECT_EQ(item, &mItems[0]);
    EXPECT_EQ(mQueue->pop(nullptr, &past, &closed), 2);
    base_test::timed_wait = nullptr;
    const Fault fault("pthread_cond_timedwait", EINVAL);
    EXPECT_EQ(mQueue->pop(&item, &past, &closed), 10);
    EXPECT_EQ(mLog.count("[q] pop 0: deprecated."), 5U);
    EXPECT_THAT(mLog.texts(), Contains("[q] pop 0: error: 2"));
    EXPECT_EQ(mLog.texts().back(), "[q] pop 0: error: 10");
    EXPECT_FALSE(mLog.contains("rollover"));
}

TEST_F(BlockingQueueTest, LeftItemsAreReportedNotFreed) {
    mQueue.reset(BlockingQueue::createInstance(nullptr, false));
    ASSERT_EQ(mQueue->push(&mItems[0]), 0);
    mQueue.reset();
    EXPECT_THAT(mLog.texts(), ElementsAre("[BlockingQueue] ~BlockingQueueImpl: memory leak"));
    EXPECT_EQ(mLog.lines()[0].priority, 5);
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
            for (bool closed = false;;) {
                void* item = nullptr;
                EXPECT_EQ(mQueue->pop(&item, TimeDiff(), &closed), 0);
                if (item == nullptr) {
                    EXPECT_TRUE(closed);
                    return;
                }
                ++*static_cast<std::atomic<int>*>(item);
            }
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
