#include "base/ThreadImpl.h"

#include <future>
#include <memory>

#include "base/BaseTest.h"
#include "base/MutexImpl.h"
#include "base/Runnable.h"

namespace {

using namespace zv_loc_fw;
using testing::ElementsAre;
using testing::IsEmpty;

class ThreadTest : public base_test::BaseTest {};

/// Runs until released, and tells of its life.
class Waiter : public Runnable {
public:
    explicit Waiter(int& deleted) : mDeleted(deleted) {}
    ~Waiter() override { ++mDeleted; }
    int run() override {
        self = pthread_self();
        char name[16] = "";
        pthread_getname_np(self, name, sizeof(name));
        running.set_value(name);
        release.get_future().wait();
        return 7;
    }

    std::promise<std::string> running;
    std::promise<void> release;
    pthread_t self{};

private:
    int& mDeleted;
};

TEST_F(ThreadTest, RunsOnceUnderTheKernelName) {
    int deleted = 0;
    auto* waiter = new Waiter(deleted);
    {
        ThreadImpl thread(nullptr, waiter, true);
        EXPECT_EQ(thread.join(), 2);
        EXPECT_EQ(thread.launch(), 0);
        EXPECT_EQ(waiter->running.get_future().get(), "loc-mq-thread");
        EXPECT_EQ(thread.launch(), 2);
        waiter->release.set_value();
        EXPECT_EQ(thread.join(), 0);
        EXPECT_EQ(thread.join(), 2);
        EXPECT_EQ(thread.launch(), 2);
        EXPECT_EQ(deleted, 0);
    }
    EXPECT_EQ(deleted, 1);
    EXPECT_EQ(mLog.count("[AutoLock] join: result: 2, errno: 0, [Success]"), 2U);
    EXPECT_EQ(mLog.count("[AutoLock] launch: result: 2, errno: 0, [Success]"), 2U);
}

TEST_F(ThreadTest, RunnableThatReturnsAtOnceIsJoined) {
    class Nothing : public Runnable {
    public:
        int run() override { return ++runs; }
        int runs = 0;
    };
    for (int i = 0; i < 1000; ++i) {
        Nothing nothing;
        ThreadImpl thread("t", &nothing, false);
        ASSERT_EQ(thread.launch(), 0);
        ASSERT_EQ(thread.join(), 0);
        ASSERT_EQ(nothing.runs, 1);
    }
    EXPECT_THAT(mLog.texts(), IsEmpty());
}

TEST_F(ThreadTest, DestroyingRunningThreadLeavesRunnableAlive) {
    int deleted = 0;
    const auto waiter = std::make_unique<Waiter>(deleted);  // the leak is ours to clean up
    {
        ThreadImpl thread("t", waiter.get(), true);
        ASSERT_EQ(thread.launch(), 0);
        waiter->running.get_future().wait();
    }
    EXPECT_EQ(deleted, 0);
    EXPECT_THAT(mLog.texts(), ElementsAre("[t] ~ThreadImpl: thread is probably still running"));
    waiter->release.set_value();
    EXPECT_EQ(pthread_join(waiter->self, nullptr), 0);
}

TEST_F(ThreadTest, LockingAMutexTwiceFailsInsteadOfHanging) NO_THREAD_SAFETY_ANALYSIS {
    MutexImpl mutex(nullptr, true);
    ASSERT_EQ(mutex.lock(), 0);
    EXPECT_EQ(mutex.lock(), 1);
    EXPECT_EQ(mutex.unlock(), 0);
    EXPECT_THAT(mLog.texts(),
                ElementsAre("[Mutex] lock: pthread_mutex_lock return code: 35, [Resource deadlock avoided]"));
}

}  // namespace
