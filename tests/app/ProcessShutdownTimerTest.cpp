#include "app/ProcessShutdownTimer.h"

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <future>

#include "support/LogCapture.h"

namespace {

using test_support::LogCapture;
using zv_loc_fw::ProcessShutdownTimer;

TEST(ProcessShutdownTimer, WithoutAMaskItNeverRuns) {
    const LogCapture log;
    ProcessShutdownTimer timer({}, "P");  // an expiry would end the process
    timer.setTimeoutMs(0);
    timer.start();
    EXPECT_FALSE(timer.started());
    timer.stop();
    EXPECT_THAT(log.texts(), testing::IsEmpty());
}

TEST(ProcessShutdownTimer, ExpiryCallsBackAndLeavesTheTimerStarted) {
    std::promise<void> expired;
    ProcessShutdownTimer timer([&] { expired.set_value(); }, "P");
    timer.setLaunchTriggerMask(0x8000);
    timer.setTimeoutMs(1);
    timer.start();
    EXPECT_EQ(expired.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
    EXPECT_TRUE(timer.started());
    timer.stop();
    EXPECT_FALSE(timer.started());
}

TEST(ProcessShutdownTimerDeathTest, AnEmptyCallbackEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            ProcessShutdownTimer timer({}, "P");
            timer.setLaunchTriggerMask(1);
            timer.setTimeoutMs(0);
            timer.start();
            std::promise<void> never;
            never.get_future().wait();
        },
        testing::KilledBySignal(SIGABRT), "");
}

}  // namespace
