#include "platform/posutil/PosTimer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace pos_util {
namespace {

constexpr auto kGenerous = std::chrono::seconds(30);
constexpr uint32_t kLong = 3600 * 1000;

/// A state that one thread waits for and another reaches.
class Counter {
public:
    void add() {
        const std::lock_guard guard(mMutex);
        ++mCount;
        mChanged.notify_all();
    }
    bool reaches(int count) {
        std::unique_lock lock(mMutex);
        return mChanged.wait_for(lock, kGenerous, [&] { return mCount >= count; });
    }
    int get() {
        const std::lock_guard guard(mMutex);
        return mCount;
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    int mCount = 0;
};

class TestTimer : public PosTimer {
public:
    explicit TestTimer(std::function<void(TestTimer&)> callback = {}) : mCallback(std::move(callback)) {}
    ~TestTimer() override { shutDown(); }
    void end() { shutDown(); }

    Counter fired;

protected:
    void timeOutCallback() override {
        if (mCallback) {
            mCallback(*this);
        }
        fired.add();
    }

private:
    const std::function<void(TestTimer&)> mCallback;
};

TEST(PosTimer, FiresOnceForEachArmingAndNeverEarly) {
    TestTimer timer;
    for (int i = 1; i <= 3; ++i) {
        EXPECT_TRUE(timer.start(kLong, false));
        EXPECT_TRUE(timer.start(0, false)) << "instead of the earlier arming";
        EXPECT_TRUE(timer.fired.reaches(i));
    }
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(timer.start(60, true));
    EXPECT_TRUE(timer.fired.reaches(4));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(60));
    timer.end();
    EXPECT_EQ(timer.fired.get(), 4);
}

TEST(PosTimer, StoppedArmingNeverFires) {
    constexpr uint32_t kTimeoutMs = 50;
    TestTimer stopped;
    TestTimer witness;
    const auto begin = std::chrono::steady_clock::now();
    stopped.start(kTimeoutMs, false);
    stopped.stop();
    const bool in_time = std::chrono::steady_clock::now() - begin < std::chrono::milliseconds(kTimeoutMs);
    witness.start(2 * kTimeoutMs, false);
    ASSERT_TRUE(witness.fired.reaches(1));
    stopped.end();
    EXPECT_TRUE(stopped.fired.get() == 0 || !in_time);
}

TEST(PosTimer, CallbackMayRestartAndStopItsTimer) {
    TestTimer timer([](TestTimer& self) {
        self.start(0, false);
        if (self.fired.get() == 3) {
            self.stop();
        }
    });
    timer.start(0, false);
    EXPECT_TRUE(timer.fired.reaches(4));
    timer.end();
    EXPECT_EQ(timer.fired.get(), 4);
}

TEST(PosTimer, OnlyDestructionWaitsForARunningCallback) {
    for (int i = 0; i < 20; ++i) {
        Counter entered;
        Counter leave;
        std::atomic<bool> left = false;
        auto timer = std::make_unique<TestTimer>([&](TestTimer& self) {
            entered.add();
            EXPECT_TRUE(leave.reaches(1));
            if (self.fired.get() == 1) {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
                left = true;
            }
        });
        timer->start(0, false);
        ASSERT_TRUE(entered.reaches(1));
        timer->stop();
        timer->start(0, false);
        timer->stop();
        timer->start(0, false);
        leave.add();
        ASSERT_TRUE(entered.reaches(2));
        timer.reset();
        EXPECT_TRUE(left);
    }
}

TEST(PosTimer, CallbackMayDeleteItsTimer) {
    struct SelfDeleting : PosTimer {
        explicit SelfDeleting(Counter& gone) : mGone(gone) {}
        ~SelfDeleting() override {
            shutDown();
            mGone.add();
        }
        void timeOutCallback() override { delete this; }
        Counter& mGone;
    };
    Counter gone;
    (new SelfDeleting(gone))->start(0, false);
    EXPECT_TRUE(gone.reaches(1));
}

TEST(PosTimer, EndedTimerIsNotArmed) {
    TestTimer timer;
    EXPECT_TRUE(timer.start(kLong, false));
    std::thread other([&] { timer.end(); });
    timer.end();
    other.join();
    EXPECT_FALSE(timer.start(0, false));
    timer.stop();
    EXPECT_EQ(timer.fired.get(), 0);
}

}  // namespace
}  // namespace pos_util
