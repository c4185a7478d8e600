#include "base/ThreadImpl.h"

#include <cerrno>
#include <future>
#include <list>
#include <memory>

#include "base/BaseTest.h"
#include "base/Faults.h"
#include "base/Runnable.h"

namespace {

using namespace zv_loc_fw;
using base_test::Fault;
using testing::ElementsAre;
using testing::IsEmpty;

class ThreadTest : public base_test::BaseTest {};

/// Runs until released, and tells of its life.
class Waiter : public Runnable {
public:
    ~Waiter() override { ++deleted; }
    int run() override {
        self = pthread_self();
        char name[16] = "";
        pthread_getname_np(pthread_self(), name, sizeof(name));
        running.set_value(name);
        release.get_future().wait();
        return 7;
    }

    static inline int deleted = 0;
    std::promise<std::string> running;
    std::promise<void> release;
    pthread_t self{};
};

class Nothing : public Runnable {
public:
    int run() override { return ++runs; }
    int runs = 0;
};

TEST_F(ThreadTest, RunsOnceUnderTheKernelName) {
    Waiter::deleted = 0;
    auto* waiter = new Waiter;
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
        EXPECT_EQ(Waiter::deleted, 0);
    }
    EXPECT_EQ(Waiter::deleted, 1);
    EXPECT_THAT(mLog.texts(), ElementsAre("[AutoLock] join: result: 2, errno: 0, [Success]",
                                          "[AutoLock] launch: result: 2, errno: 0, [Success]",
                                          "[AutoLock] join: result: 2, errno: 0, [Success]",
                                          "[AutoLock] launch: result: 2, errno: 0, [Success]"));
}

TEST_F(ThreadTest, RunnableThatReturnsAtOnceIsJoined) {
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
    Waiter::deleted = 0;
    const auto waiter = std::make_unique<Waiter>();  // the leak is ours to clean up
    {
        ThreadImpl thread("t", waiter.get(), true);
        ASSERT_EQ(thread.launch(), 0);
        waiter->running.get_future().wait();
    }
    EXPECT_EQ(Waiter::deleted, 0);
    EXPECT_THAT(mLog.texts(), ElementsAre("[t] ~ThreadImpl: thread is probably still running"));
    waiter->release.set_value();
    EXPECT_EQ(pthread_join(waiter->self, nullptr), 0);
}

TEST_F(ThreadTest, LaunchFailuresHaveTheirCodes) {
    const base_test::FaultCase cases[] = {
        {{"pthread_attr_init"}, 3},
        {{"pthread_attr_setdetachstate"}, 4},
        {{"pthread_attr_setdetachstate", "pthread_attr_destroy"}, 5},
        {{"pthread_create"}, 5},
    };
    for (const auto& [functions, code] : cases) {
        mLog.clear();
        Waiter::deleted = 0;
        {
            ThreadImpl thread("t", new Waiter, true);
            std::list<Fault> faults;
            for (const char* function : functions) {
                faults.emplace_back(function, EAGAIN);
            }
            EXPECT_EQ(thread.launch(), code);
        }
        EXPECT_THAT(mLog.texts(),
                    ElementsAre("[t] launch: result: " + std::to_string(code) + ", errno: " + base_test::kFaultText));
        EXPECT_EQ(Waiter::deleted, 1) << "no thread, so the runnable goes";
    }
}

TEST_F(ThreadTest, ThreadThatRunsInSpiteOfCodeFiveIsJoined) {
    Nothing nothing;
    ThreadImpl thread("t", &nothing, false);
    {
        const Fault fault("pthread_attr_destroy", EINVAL);
        EXPECT_EQ(thread.launch(), 5);
    }
    {
        const Fault fault("pthread_join", EINVAL);
        EXPECT_EQ(thread.join(), 3);
    }
    EXPECT_EQ(thread.join(), 0) << "a failed join can be tried again";
    EXPECT_EQ(nothing.runs, 1);
    EXPECT_THAT(mLog.texts(), ElementsAre(std::string("[t] launch: result: 5, errno: ") + base_test::kFaultText,
                                          std::string("[t] join: result: 3, errno: ") + base_test::kFaultText));
}

}  // namespace
