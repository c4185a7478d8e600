#include "base/Timestamp.h"

#include <csignal>
#include <cstdint>

#include "base/BaseTest.h"

namespace {

using namespace zv_loc_fw;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::KilledBySignal;

constexpr int64_t kSecond = 1'000'000'000;

class TimestampTest : public base_test::BaseTest {
protected:
    static Timestamp at(int64_t seconds, int64_t nanoseconds) {
        return Timestamp::at(CLOCK_BOOTTIME, seconds, nanoseconds);
    }
};
using TimestampDeathTest = TimestampTest;

TEST_F(TimestampTest, SumsCarry) {
    const struct {
        int64_t seconds, nanoseconds, add_seconds, add_nanoseconds, sum_seconds, sum_nanoseconds;
    } cases[] = {
        {5, 700'000'000, 0, 600'000'000, 6, 300'000'000},
        {5, 1, 0, 999'999'999, 6, 0},
        {0, 0, 0, -1, -1, 999'999'999},
        {5, 0, -7, 0, -2, 0},
        {0, 0, 0, INT64_MAX, INT64_MAX / kSecond, INT64_MAX % kSecond},
        {0, 0, 0, INT64_MIN, INT64_MIN / kSecond - 1, INT64_MIN % kSecond + kSecond},
    };
    for (const auto& c : cases) {
        const Timestamp sum = at(c.seconds, c.nanoseconds) + TimeDiff(c.add_seconds).add(0, c.add_nanoseconds);
        EXPECT_EQ(sum.seconds(), c.sum_seconds);
        EXPECT_EQ(sum.nanoseconds(), c.sum_nanoseconds);
    }
    EXPECT_EQ(TimeDiff(2).add(0, 500'000'000).get_total_sec(), 2.5F);
    EXPECT_EQ(TimeDiff(0).add(0, -500'000'000).get_total_sec(), -0.5F);
    EXPECT_THAT(mLog.texts(), IsEmpty());
    EXPECT_EQ(TimeDiff().get_total_sec(), -1.0F);
    EXPECT_THAT(mLog.texts(), ElementsAre("[TimerDiff] get_total_sec failed 2"));
}

TEST_F(TimestampTest, DifferencesCarryAndWrapAt32Bits) {
    const struct {
        Timestamp a, b;
        int64_t seconds, nanoseconds;
        bool not_earlier;
    } cases[] = {
        {at(1, 100), at(0, 200), 0, 999'999'900, true},
        {at(9, 5), at(9, 5), 0, 0, true},
        {at(9, 5), at(9, 6), -1, 999'999'999, false},
        {at(int64_t{1} << 31, 7), at(0, 0), INT32_MIN, 7, true},  // narrowed in the difference, not in the comparison
        {at(int64_t{1} << 32, 7), at(0, 0), 0, 7, true},
    };
    for (const auto& c : cases) {
        EXPECT_EQ((c.a - c.b).seconds(), c.seconds);
        EXPECT_EQ((c.a - c.b).nanoseconds(), c.nanoseconds);
        EXPECT_EQ(c.a >= c.b, c.not_earlier);
    }
    EXPECT_EQ(mLog.count("[Timestamp] operator - ts returning -ve value probable time rollover: "
                         "sec:9/9/-1, nsec:5/6/999999999"),
              2U);
    EXPECT_EQ(mLog.lines().size(), 2U);
}

TEST_F(TimestampDeathTest, MisuseAndOverflowEndTheProcess) {
    const Timestamp real_time = Timestamp::now(CLOCK_REALTIME);
    const Timestamp invalid = Timestamp::now(12345);
    EXPECT_FALSE(invalid.isValid());
    EXPECT_EQ(invalid.getTimestampPtr().tv_sec, 0);
    EXPECT_THAT(mLog.texts(), ElementsAre("[Timestamp] reset_to_clock_id failed: id(12345) errno(22)(Invalid argument)",
                                          "[Timestamp] getTimestampPtr timestamp is invalid"));
    EXPECT_EXIT((void)(at(1, 0) + TimeDiff()), testing::ExitedWithCode(255), "");
    EXPECT_EXIT((void)(at(1, 0) - real_time), testing::ExitedWithCode(255), "");
    EXPECT_EXIT((void)(at(1, 0) >= real_time), testing::ExitedWithCode(255), "");
    EXPECT_EXIT((void)(at(INT64_MAX, 0) + TimeDiff(1)), KilledBySignal(SIGABRT), "");
    EXPECT_EXIT((void)(at(INT64_MAX, 999'999'999) + TimeDiff(0).add(0, 1)), KilledBySignal(SIGABRT), "");
    EXPECT_EXIT((void)(at(INT64_MIN, 0) - at(1, 0)), KilledBySignal(SIGABRT), "");
}

}  // namespace
