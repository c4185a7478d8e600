#include "base/ThreadImpl.h"

#include <future>
#include <memory>

#include "base/BaseTest.h"
#include "base/Runnable.h"
#include "base/Timestamp.h"
#include "base/WaitableBase.h"

namespace {

using namespace zv_loc_fw;
using testing::ElementsAre;
using testing::IsEmpty;

class ThreadTest : public base_test::BaseTest {};

TEST_F(ThreadTest, RunsOnceUnderTheKernelNameAndOwnsItsRunnable) {
    class Waiter : public Runnable {
    public:
        explicit Waiter(bool& deleted) : mDeleted(deleted) {}
        ~Waiter() override { mDeleted = true; }
        int run() override {
            char name[16] = "";
            pthread_getname_np(pthread_self(), name, sizeof(name));
            running.set_value(name);
            release.get_future().wait();
            return 7;
        }
        std::promise<std::string> running;
        std::promise<void> release;

    private:
        bool& mDeleted;
    };
    bool deleted = false;
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
        EXPECT_FALSE(deleted);
    }
    EXPECT_TRUE(deleted);
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

TEST_F(ThreadTest, LockingTwiceFailsInsteadOfHanging) NO_THREAD_SAFETY_ANALYSIS {
    class Gate : public WaitableBase {
    public:
        Gate() : WaitableBase("gate") {}

    protected:
        int ZeroIfShouldWaitAgain_locked() override { return 1; }
    };
    Gate gate;
    ASSERT_EQ(gate.lock(), 0);
    EXPECT_EQ(gate.lock(), 3);
    EXPECT_EQ(gate.lock_and_wait(TimeDiff()), 2);
    const std::string mutex_line = "[gate] lock: pthread_mutex_lock return code: 35, [Resource deadlock avoided]";
    EXPECT_THAT(mLog.texts(), ElementsAre(mutex_line, "[gate] lock : result 3", mutex_line,
                                          "[gate] WaitableBase: lock_and_wait error: 2"));
    EXPECT_EQ(gate.unlock(), 0);
}

}  // namespace
