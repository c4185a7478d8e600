#include "base/MutexImpl.h"

#include <cerrno>
#include <list>

#include "base/BaseTest.h"
#include "base/Faults.h"
#include "base/log.h"
#include "base/log_state.h"

namespace {

using namespace zv_loc_fw;
using base_test::Fault;
using testing::ElementsAre;
using testing::IsEmpty;

class MutexTest : public base_test::BaseTest {};

TEST_F(MutexTest, LockingTwiceFailsWithTheCallsResult) NO_THREAD_SAFETY_ANALYSIS {
    MutexImpl mutex(nullptr, true);
    ASSERT_EQ(mutex.lock(), 0);
    errno = 0;
    EXPECT_EQ(mutex.lock(), 1);
    EXPECT_EQ(mutex.unlock(), 0);
    EXPECT_THAT(mLog.texts(),
                ElementsAre("[Mutex] lock: pthread_mutex_lock return code: 35, [Resource deadlock avoided]"));
}

TEST_F(MutexTest, UnlockingWhatIsNotHeldFailsWithErrno) NO_THREAD_SAFETY_ANALYSIS {
#ifdef UNDER_TSAN
    GTEST_SKIP() << "itself a report";
#endif
    MutexImpl mutex("m", false);
    errno = base_test::kFaultErrno;
    EXPECT_EQ(mutex.unlock(), 1);
    EXPECT_THAT(mLog.texts(),
                ElementsAre(std::string("[m] unlock: pthread_mutex_unlock error: ") + base_test::kFaultText));
}

TEST_F(MutexTest, FailedConstructionIsLoggedAndStillLocks) NO_THREAD_SAFETY_ANALYSIS {
    const base_test::FaultCase cases[] = {
        {{"pthread_mutexattr_init"}, 2},
        {{"pthread_mutexattr_settype"}, 3},
        {{"pthread_mutexattr_settype", "pthread_mutexattr_destroy"}, 5},
        {{"pthread_mutex_init"}, 4},
        {{"pthread_mutexattr_destroy"}, 5},
    };
    for (const auto& [functions, code] : cases) {
        mLog.clear();
        std::list<Fault> faults;
        for (const char* function : functions) {
            faults.emplace_back(function, ENOMEM);
        }
        MutexImpl mutex("m", false);
        EXPECT_THAT(mLog.texts(), ElementsAre("[m] MutexImpl: result: " + std::to_string(code) +
                                              ", error: " + base_test::kFaultText));
        EXPECT_EQ(mutex.lock(), 0);
        EXPECT_EQ(mutex.unlock(), 0);
    }
}

TEST_F(MutexTest, FailedDestructionIsLogged) {
    const Fault fault("pthread_mutex_destroy", EBUSY);
    { const MutexImpl mutex("m", false); }
    EXPECT_THAT(mLog.texts(), ElementsAre("[m] ~MutexImpl: pthread_mutex_destroy rc: 16, [Device or resource busy]"));
}

TEST_F(MutexTest, GlobalLockCanBeTraced) {
    MutexImpl* const lock = log_detail::state.lock;
    lock->setVerbose(true);
    log_error("T", "text");
    lock->setVerbose(false);
    EXPECT_THAT(mLog.texts(), ElementsAre("[LOG_UTIL] lock: about to lock", "[LOG_UTIL] lock: just acquired",
                                          "[T] text", "[LOG_UTIL] lock: just released"));
}

}  // namespace
