#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "platform/posutil/PosTimer.h"

namespace zv_loc_fw {

/// Ends the process after a period in which nobody needs it. The timer thread of PosTimer runs the callback.
/// start, stop and restart: event-loop thread. The setters: before the controller is launched. Lines go the second road
/// of the log.
class ProcessShutdownTimer : public pos_util::PosTimer {
public:
    static constexpr uint32_t kDefaultTimeoutMs = 300000;

    /// @param callback what expiry does; an empty one aborts the process at expiry
    /// @param process_name for the log lines
    ProcessShutdownTimer(std::function<void()> callback, std::string process_name);
    ~ProcessShutdownTimer() override;

    /// Arms the timer; nothing, not even a line, when the launch-trigger mask is 0.
    void start();
    /// Disarms it; likewise.
    void stop();
    /// Begins the idle period anew: says so, stops and starts.
    void restart();

    /// Changed by start and stop alone, not by expiry.
    [[nodiscard]] bool started() const { return mStarted.load(); }

    void setTimeoutMs(uint32_t timeout_ms) { mTimeoutMs = timeout_ms; }
    /// 0 switches the timer off.
    void setLaunchTriggerMask(uint16_t mask) { mLaunchTriggerMask = mask; }
    [[nodiscard]] uint16_t launchTriggerMask() const { return mLaunchTriggerMask; }

protected:
    void timeOutCallback() override;

private:
    const std::function<void()> mCallback;
    std::atomic<bool> mStarted{false};
    const std::string mProcessName;
    uint32_t mTimeoutMs = kDefaultTimeoutMs;
    uint16_t mLaunchTriggerMask = 0;
};

}  // namespace zv_loc_fw
