#pragma once

#include <cstdint>

#include "mq/LocalTimer.h"

namespace zv_loc_fw {

/// One of a job queue's two timers, known by its identity.
class InetControllerTimer : public TimerDataInterface {
public:
    static constexpr int32_t kActiveJob = 1;
    static constexpr int32_t kQueuedJobs = 2;

    explicit InetControllerTimer(int32_t identity) : mIdentity(identity) {}

    bool operator==(const TimerDataInterface& other) const override {
        const auto* timer = dynamic_cast<const InetControllerTimer*>(&other);
        return timer != nullptr && timer->mIdentity == mIdentity;
    }

    [[nodiscard]] int32_t identity() const { return mIdentity; }

private:
    int32_t mIdentity;
};

}  // namespace zv_loc_fw
