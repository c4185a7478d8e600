#include "mq/LocalTimerList.h"

#include <gtest/gtest.h>

#include <ctime>
#include <functional>
#include <vector>

namespace {

using namespace zv_loc_fw;

class Data : public TimerDataInterface {
public:
    explicit Data(int number) : id(number) {}
    bool operator==(const TimerDataInterface& other) const override {
        const auto* data = dynamic_cast<const Data*>(&other);
        return data != nullptr && data->id == id;
    }
    int id;
};

class Module : public MqClientFunctionalModuleBase {
public:
    int init() override { return 0; }
    int deinit() override { return 0; }
    int timerCallback(const TimerDataInterface* data) override {
        const auto* own = static_cast<const Data*>(data);
        fired.push_back(own != nullptr ? own->id : 0);
        if (onFire) {
            onFire(fired.back());
        }
        return 0;
    }
    std::vector<int> fired;
    std::function<void(int)> onFire;
};

class LocalTimers : public testing::Test {
protected:
    static Timestamp in(int64_t seconds) { return Timestamp() + TimeDiff(seconds); }
    LocalTimerList timers;
    Module module;
    Module other;
    Data one{1};
    Data two{2};
    Data three{3};
};

TEST_F(LocalTimers, ExpiredOnesFireNewestFirstAndTheNearestOfTheRestIsReported) {
    EXPECT_FALSE(timers.fireExpired().has_value());
    timers.add(in(-1), &module, nullptr);
    EXPECT_FALSE(timers.fireExpired().has_value());
    timers.add(in(-1), &module, &one);
    timers.add(in(100), &module, &two);
    timers.add(in(0), &module, &three);
    const Timestamp nearest = in(50);
    timers.add(nearest, &other, &two);
    const auto deadline = timers.fireExpired();
    EXPECT_EQ(module.fired, (std::vector<int>{0, 3, 1}));
    EXPECT_TRUE(other.fired.empty());
    ASSERT_TRUE(deadline.has_value());
    EXPECT_TRUE(*deadline >= nearest && nearest >= *deadline);
    EXPECT_EQ(timers.count(), 2U);
}

TEST_F(LocalTimers, CallbacksMayArmAndRemove) {
    timers.add(in(-1), &module, &one);
    timers.add(in(-1), &module, &two);
    module.onFire = [&](int id) {
        if (id == 2) {
            timers.remove(&module, &one);         // another that has expired, too: never fires
            timers.add(in(-1), &module, &three);  // fires in the same pass
            timers.add(in(60), &module, &two);    // its own data again: an entry of its own
        }
    };
    EXPECT_TRUE(timers.fireExpired().has_value());
    EXPECT_EQ(module.fired, (std::vector<int>{2, 3}));
    EXPECT_EQ(timers.count(), 1U);
}

TEST_F(LocalTimers, RemovalTakesEveryEqualOneOfTheModuleAndNoOther) {
    const Data equal_one(1);
    timers.add(in(10), &module, &one);
    timers.add(in(10), &module, &equal_one);
    timers.add(in(10), &module, &two);
    timers.add(in(10), &module, nullptr);
    timers.add(in(10), &other, &one);
    timers.remove(&module, &one);
    EXPECT_EQ(timers.count(), 3U);
    timers.remove(&module, nullptr);  // null data matches null alone
    EXPECT_EQ(timers.count(), 2U);
    timers.remove(&other, &two);
    EXPECT_EQ(timers.count(), 2U);
}

}  // namespace
