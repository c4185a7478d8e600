#pragma once

#include <cstdint>
#include <memory>

namespace pos_util {

/// A one-shot timer with a thread of its own, on the monotonic clock.
///
/// A derived class implements timeOutCallback() and calls shutDown() first thing in the destructor of the most derived
/// class: from then on no callback runs and none will (shutDown waits for one that is running, unless it is called from
/// that very callback). Any thread may call start and stop, the callback included; neither
/// waits for a callback that is running.
class PosTimer {
public:
    PosTimer();
    virtual ~PosTimer();
    PosTimer(const PosTimer&) = delete;
    PosTimer& operator=(const PosTimer&) = delete;

    /// Arms the timer, replacing an earlier arming. 0 fires at once. The thread is made by the first start.
    /// @param wake_up whether to wake a suspended device; not supported here, no effect
    /// @return whether the timer is armed (false: no thread could be made, or after shutDown)
    bool start(uint32_t timeout_ms, bool wake_up);
    /// Disarms: an arming that was stopped never fires, though a callback that has begun goes on.
    void stop();

protected:
    /// Runs on the timer's thread, once for each arming that comes to its end.
    virtual void timeOutCallback() = 0;

    /// Ends the timer for good; see the class comment. Any number of times.
    void shutDown();

private:
    struct State;
    std::shared_ptr<State> mState;
};

}  // namespace pos_util
