#include "client/InFlight.h"

#include <gmock/gmock.h>

#include <limits>

namespace inet_agent {
namespace {

using std::chrono::seconds;

Pending waiting(int deadline) {
    Pending pending;
    pending.controller = "c";
    pending.method = "GET";
    pending.deadline = Clock::time_point() + seconds(deadline);
    return pending;
}

TEST(InFlightTest, NumbersWrapAroundThoseInFlight) {
    InFlight requests;
    EXPECT_EQ(requests.add(waiting(1)), 1);
    EXPECT_EQ(requests.add(waiting(1)), 2);

    InFlight late(std::numeric_limits<std::int32_t>::max() - 1);
    EXPECT_EQ(late.add(waiting(1)), std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(late.add(waiting(1)), 1);

    InFlight crowded(std::numeric_limits<std::int32_t>::max() - 2);
    const std::int32_t first = crowded.add(waiting(1));
    const std::int32_t second = crowded.add(waiting(1));
    EXPECT_EQ(crowded.add(waiting(1)), 1);
    EXPECT_TRUE(crowded.take(first).has_value());
    EXPECT_FALSE(crowded.take(first).has_value());
    EXPECT_TRUE(crowded.take(second).has_value());
}

TEST(InFlightTest, EarliestDeadlineComesFirst) {
    InFlight requests;
    const std::int32_t last = requests.add(waiting(30));
    const std::int32_t first = requests.add(waiting(10));
    const std::int32_t twin = requests.add(waiting(10));
    EXPECT_EQ(requests.nextDeadline(), Clock::time_point() + seconds(10));
    EXPECT_FALSE(requests.takeExpired(Clock::time_point() + seconds(9)).has_value());
    EXPECT_EQ(requests.takeExpired(Clock::time_point() + seconds(10))->first, first);
    EXPECT_EQ(requests.takeExpired(Clock::time_point() + seconds(10))->first, twin);
    EXPECT_FALSE(requests.takeExpired(Clock::time_point() + seconds(29)).has_value());
    EXPECT_EQ(requests.takeAll().at(0).first, last);
    EXPECT_TRUE(requests.takeAll().empty());
}

}  // namespace
}  // namespace inet_agent
