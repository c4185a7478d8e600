#pragma once

#include "base/Timestamp.h"

namespace zv_loc_fw {

/// What a local timer carries: handed back when it fires, and what it is known by for removal. Owned by whoever arms
/// the timer, and alive until it fires or is removed.
class TimerDataInterface {
public:
    virtual ~TimerDataInterface() = default;
    /// Whether both denote the same timer.
    virtual bool operator==(const TimerDataInterface& other) const = 0;
};

/// Whoever arms local timers. All on the controller's event-loop thread.
class MqClientFunctionalModuleBase {
public:
    virtual ~MqClientFunctionalModuleBase() = default;
    virtual int init() = 0;
    virtual int deinit() = 0;
    /// The timer has fired and is gone; it may be armed again from here. The result is not used.
    /// @param data as given when the timer was armed, may be null
    virtual int timerCallback(const TimerDataInterface* data) = 0;
};

/// One pending timer. Neither module nor data is owned.
struct TimerCallbackEntry {
    Timestamp deadline;
    MqClientFunctionalModuleBase* module;
    const TimerDataInterface* data;
};

}  // namespace zv_loc_fw
