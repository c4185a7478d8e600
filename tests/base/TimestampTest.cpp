#include "base/Timestamp.h"

#include <cerrno>
#include <climits>

#include "base/BaseTest.h"
#include "base/Faults.h"

namespace {

using namespace zv_loc_fw;
using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::IsEmpty;
using testing::KilledBySignal;

constexpr int kClock = CLOCK_BOOTTIME;
constexpr int64_t kSecond = 1'000'000'000;

class TimestampTest : public base_test::BaseTest {};
using TimestampDeathTest = TimestampTest;

Timestamp at(int64_t seconds, int64_t nanoseconds) {
    return Timestamp::at(kClock, seconds, nanoseconds);
}

Timestamp invalidStamp() {
    const base_test::Fault fault("clock_gettime", EINVAL);
    return Timestamp(true);
}

TEST_F(TimestampTest, ReadsBoottimeOrStaysInvalid) {
    const Timestamp first(false);
    const Timestamp second;
    EXPECT_TRUE(first.isValid());
    EXPECT_EQ(first.clockId(), 7);
    EXPECT_TRUE(second >= first);
    EXPECT_EQ(Timestamp::now(CLOCK_REALTIME).clockId(), 0);
    EXPECT_THAT(mLog.texts(), IsEmpty());

    const Timestamp invalid = invalidStamp();
    EXPECT_FALSE(invalid.isValid());
    EXPECT_EQ(invalid.clockId(), -1);
    EXPECT_EQ(invalid.getTimestampPtr().tv_sec, 0);
    EXPECT_THAT(mLog.texts(), ElementsAre("[Timestamp] reset_to_clock_id failed: id(7) errno(33)"
                                          "(Numerical argument out of domain)",
                                          "[Timestamp] getTimestampPtr timestamp is invalid"));
    EXPECT_EQ(mLog.lines()[1].priority, 5);
}

TEST_F(TimestampTest, SumsCarry) {
    const struct {
        int64_t seconds, nanoseconds, add_seconds, add_nanoseconds, sum_seconds, sum_nanoseconds;
    } cases[] = {
        {5, 700'000'000, 0, 600'000'000, 6, 300'000'000},
        {5, 0, 0, 999'999'999, 5, 999'999'999},
        {5, 1, 0, 999'999'999, 6, 0},
        {0, 0, 0, -1, -1, 999'999'999},
        {5, 0, -7, 0, -2, 0},
        {0, 0, 0, INT64_MAX, INT64_MAX / kSecond, INT64_MAX % kSecond},
        {0, 0, 0, INT64_MIN, INT64_MIN / kSecond - 1, INT64_MIN % kSecond + kSecond},
    };
    for (const auto& c : cases) {
        TimeDiff span(c.add_seconds);
        span.add(0, c.add_nanoseconds);
        const Timestamp sum = at(c.seconds, c.nanoseconds) + span;
        EXPECT_EQ(sum.clockId(), kClock);
        EXPECT_EQ(sum.seconds(), c.sum_seconds);
        EXPECT_EQ(sum.nanoseconds(), c.sum_nanoseconds);
    }
    EXPECT_THAT(mLog.texts(), IsEmpty());
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
        {at(INT32_MAX, 0), at(0, 0), INT32_MAX, 0, true},
        {at(int64_t{1} << 31, 7), at(0, 0), INT32_MIN, 7, true},  // narrowed in the difference, not in the comparison
        {at(int64_t{1} << 32, 7), at(0, 0), 0, 7, true},
    };
    for (const auto& c : cases) {
        const TimeDiff difference = c.a - c.b;
        EXPECT_TRUE(difference.isValid());
        EXPECT_EQ(difference.seconds(), c.seconds);
        EXPECT_EQ(difference.nanoseconds(), c.nanoseconds);
    }
    EXPECT_THAT(mLog.texts(), ElementsAre("[Timestamp] operator - ts returning -ve value probable time rollover: "
                                          "sec:9/9/-1, nsec:5/6/999999999"));
    mLog.clear();
    for (const auto& c : cases) {
        EXPECT_EQ(c.a >= c.b, c.not_earlier);
    }
    EXPECT_THAT(mLog.texts(), IsEmpty()) << "comparing never logs";
}

TEST_F(TimestampTest, TotalIsInSecondsOrMinusOne) {
    EXPECT_EQ(TimeDiff(2).add(0, 500'000'000).get_total_sec(), 2.5F);
    EXPECT_EQ(TimeDiff(0).add(0, -500'000'000).get_total_sec(), -0.5F);
    EXPECT_THAT(mLog.texts(), IsEmpty());
    EXPECT_EQ(TimeDiff().get_total_sec(), -1.0F);
    EXPECT_THAT(mLog.texts(), ElementsAre("[TimerDiff] get_total_sec failed 2"));
}

TEST_F(TimestampDeathTest, MisuseEndsTheProcess) {
    const Timestamp valid = at(1, 0);
    const Timestamp invalid = invalidStamp();
    const Timestamp real_time = Timestamp::now(CLOCK_REALTIME);
    EXPECT_EXIT((void)(invalid + TimeDiff(1)), ExitedWithCode(255), "");
    EXPECT_EXIT((void)(valid + TimeDiff()), ExitedWithCode(255), "");
    EXPECT_EXIT((void)(valid - invalid), ExitedWithCode(255), "");
    EXPECT_EXIT((void)(invalid >= valid), ExitedWithCode(255), "");
    EXPECT_EXIT((void)(valid - real_time), ExitedWithCode(255), "");
    EXPECT_EXIT((void)(valid >= real_time), ExitedWithCode(255), "");
}

TEST_F(TimestampDeathTest, OverflowAborts) {
    EXPECT_EXIT((void)(at(INT64_MAX, 0) + TimeDiff(1)), KilledBySignal(SIGABRT), "");
    EXPECT_EXIT((void)(at(INT64_MAX, 999'999'999) + TimeDiff(0).add(0, 1)), KilledBySignal(SIGABRT), "");
    EXPECT_EXIT((void)(at(INT64_MIN, 0) - at(1, 0)), KilledBySignal(SIGABRT), "");
}

}  // namespace
