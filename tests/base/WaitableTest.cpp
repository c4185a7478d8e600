#include "base/WaitableBase.h"

#include <cerrno>
#include <list>
#include <optional>
#include <thread>

#include "base/BaseTest.h"
#include "base/Faults.h"
#include "base/Timestamp.h"

namespace {

using namespace zv_loc_fw;
using base_test::Fault;
using base_test::kFaultText;
using testing::ElementsAre;
using testing::IsEmpty;

class Gate : public WaitableBase {
public:
    Gate() : WaitableBase("gate") {}

    int unlock() override NO_THREAD_SAFETY_ANALYSIS {
        const int result = WaitableBase::unlock();
        return unlock_fails ? 3 : result;
    }

    bool open = false;
    bool unlock_fails = false;
    int looks = 0;

protected:
    int ZeroIfShouldWaitAgain_locked() override {
        ++looks;
        return open ? 1 : 0;
    }
};

class WaitableTest : public base_test::BaseTest {
protected:
    ~WaitableTest() override { base_test::timed_wait = nullptr; }

    Gate mGate;
};

TEST_F(WaitableTest, ZeroAndNegativeSpansLookOnce) NO_THREAD_SAFETY_ANALYSIS {
    for (const int64_t seconds : {0, -1, -1000}) {
        mGate.looks = 0;
        EXPECT_EQ(mGate.lock_and_wait(TimeDiff(seconds)), 0);
        EXPECT_EQ(mGate.looks, 1);
        EXPECT_EQ(mGate.unlock(), 0) << "held";
    }
    EXPECT_THAT(mLog.texts(), IsEmpty());
}

TEST_F(WaitableTest, WithoutLimitOnlyTheStateEndsTheWait) NO_THREAD_SAFETY_ANALYSIS {
    std::thread opener([this]() NO_THREAD_SAFETY_ANALYSIS {
        for (const bool open : {false, true}) {
            ASSERT_EQ(mGate.lock(), 0);
            mGate.open = open;
            EXPECT_EQ(mGate.signal_all_and_then_unlock(), 0);
        }
    });
    EXPECT_EQ(mGate.lock_and_wait(TimeDiff()), 0);
    EXPECT_TRUE(mGate.open);
    EXPECT_EQ(mGate.unlock(), 0);
    opener.join();
}

TEST_F(WaitableTest, EveryWakeRestartsTheFullTimeout) NO_THREAD_SAFETY_ANALYSIS {
    std::vector<timespec> deadlines;
    base_test::timed_wait = [&](pthread_mutex_t*, const timespec& until) {
        deadlines.push_back(until);
        return deadlines.size() < 3 ? 0 : ETIMEDOUT;
    };
    const Timestamp before = Timestamp::now(CLOCK_REALTIME);
    EXPECT_EQ(mGate.lock_and_wait(TimeDiff(1000)), 0);
    EXPECT_EQ(mGate.unlock(), 0) << "held";
    EXPECT_EQ(mGate.looks, 3);
    ASSERT_EQ(deadlines.size(), 3U);
    Timestamp last = before + TimeDiff(1000);
    for (const timespec& deadline : deadlines) {
        const Timestamp next = Timestamp::at(CLOCK_REALTIME, deadline.tv_sec, deadline.tv_nsec);
        EXPECT_FALSE(last >= next);
        last = next;
    }
}

TEST_F(WaitableTest, RealTimeoutEndsTheWaitWithoutError) NO_THREAD_SAFETY_ANALYSIS {
    const Timestamp deadline = Timestamp::now(CLOCK_REALTIME) + TimeDiff(0).add(0, 20'000'000);
    EXPECT_EQ(mGate.lock_and_wait(TimeDiff(0).add(0, 20'000'000)), 0);
    EXPECT_EQ(mGate.unlock(), 0);
    EXPECT_TRUE(Timestamp::now(CLOCK_REALTIME) >= deadline);
    EXPECT_THAT(mLog.texts(), IsEmpty());
}

TEST_F(WaitableTest, FailedWaitIsFifteenWithTheMutexHeld) NO_THREAD_SAFETY_ANALYSIS {
    for (const bool limited : {true, false}) {
        mLog.clear();
        const Fault fault(limited ? "pthread_cond_timedwait" : "pthread_cond_wait", EINVAL);
        EXPECT_EQ(mGate.lock_and_wait(limited ? TimeDiff(1000) : TimeDiff()), 15);
        EXPECT_EQ(mGate.unlock(), 0);
        EXPECT_THAT(mLog.texts(),
                    ElementsAre(std::string("[gate] lock_and_wait: pthread_cond_wait error: ") + kFaultText,
                                "[gate] WaitableBase: lock_and_wait error: 15"));
    }
}

TEST_F(WaitableTest, FailedLockIsReportedByBoth) NO_THREAD_SAFETY_ANALYSIS {
    std::optional<Fault> fault(std::in_place, "pthread_mutex_lock", EINVAL);
    EXPECT_EQ(mGate.lock(), 3);
    fault.emplace("pthread_mutex_lock", EINVAL);
    EXPECT_EQ(mGate.lock_and_wait(TimeDiff()), 2);
    const char* const mutex_line = "[gate] lock: pthread_mutex_lock return code: 22, [Invalid argument]";
    EXPECT_THAT(mLog.texts(), ElementsAre(mutex_line, "[gate] lock : result 3", mutex_line,
                                          "[gate] WaitableBase: lock_and_wait error: 2"));
}

TEST_F(WaitableTest, UnlockOfWhatIsNotHeldIsThree) NO_THREAD_SAFETY_ANALYSIS {
#ifdef UNDER_TSAN
    GTEST_SKIP() << "itself a report";
#endif
    errno = base_test::kFaultErrno;
    EXPECT_EQ(mGate.unlock(), 3);
    EXPECT_THAT(mLog.texts(), ElementsAre(std::string("[gate] unlock: pthread_mutex_unlock error: ") + kFaultText,
                                          "[gate] unlock : result 3"));
}

TEST_F(WaitableTest, FailedSignalStillUnlocks) NO_THREAD_SAFETY_ANALYSIS {
    std::optional<Fault> fault(std::in_place, "pthread_cond_signal", EINVAL);
    ASSERT_EQ(mGate.lock(), 0);
    EXPECT_EQ(mGate.signal_one_and_then_unlock(), 101);
    fault.emplace("pthread_cond_broadcast", EINVAL);
    ASSERT_EQ(mGate.lock(), 0) << "free again";
    EXPECT_EQ(mGate.signal_all_and_then_unlock(), 101);
    fault.emplace("pthread_cond_signal", EINVAL);
    mGate.unlock_fails = true;
    ASSERT_EQ(mGate.lock(), 0);
    EXPECT_EQ(mGate.signal_one_and_then_unlock(), 4) << "an unlock that fails goes first";
    EXPECT_THAT(
        mLog.texts(),
        ElementsAre(std::string("[gate] WaitableBase: signal_one_and_then_unlock result: 101, errno ") + kFaultText,
                    std::string("[gate] WaitableBase: signal_all_and_then_unlock result: 101, errno: ") + kFaultText,
                    std::string("[gate] WaitableBase: signal_one_and_then_unlock result: 4, errno ") + kFaultText));
}

TEST_F(WaitableTest, FailedConstructionAndDestructionAreLogged) {
    const base_test::FaultCase cases[] = {
        {{"pthread_condattr_init"}, 2},
        {{"pthread_condattr_setclock"}, 3},
        {{"pthread_condattr_setclock", "pthread_condattr_destroy"}, 5},
        {{"pthread_cond_init"}, 4},
        {{"pthread_condattr_destroy"}, 5},
    };
    for (const auto& [functions, code] : cases) {
        mLog.clear();
        std::list<Fault> faults;
        for (const char* function : functions) {
            faults.emplace_back(function, ENOMEM);
        }
        const Gate gate;
        EXPECT_THAT(mLog.texts(), ElementsAre("[gate] WaitableBase: pthread conditional variable error: " +
                                              std::to_string(code) + ", errno=33, [Numerical argument out of domain]"));
    }
    mLog.clear();
    const Fault fault("pthread_cond_destroy", EBUSY);
    { const Gate gate; }
    EXPECT_THAT(mLog.texts(),
                ElementsAre(std::string("[gate] ~WaitableBase: pthread_cond_destroy error: ") + kFaultText));
}

TEST_F(WaitableTest, TraceTellsTheSteps) NO_THREAD_SAFETY_ANALYSIS {
    mGate.setVerbose(true);
    ASSERT_EQ(mGate.lock(), 0);
    EXPECT_EQ(mGate.signal_one_and_then_unlock(), 0);
    ASSERT_EQ(mGate.lock_and_wait(TimeDiff(0)), 0);
    EXPECT_EQ(mGate.unlock(), 0);
    EXPECT_THAT(mLog.texts(), ElementsAre("[gate] about to lock for state modification",
                                          "[gate] just acquired lock for state modification", "[gate] about to signal",
                                          "[gate] about to unlock", "[gate] unlocked", "[gate] about to lock for wait",
                                          "[gate] about to wait", "[gate] just waken up from wait",
                                          "[gate] about to unlock", "[gate] unlocked"));
}

TEST_F(WaitableTest, ClockThatFailsEndsTheProcess) {
    const auto wait_without_clock = [this] {
        const Fault fault("clock_gettime", EINVAL);
        (void)mGate.lock_and_wait(TimeDiff(1));
    };
    EXPECT_EXIT(wait_without_clock(), testing::ExitedWithCode(255), "");
}

}  // namespace
