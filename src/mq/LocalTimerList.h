#pragma once

#include <cstddef>
#include <optional>

#include "base/List.h"
#include "mq/LocalTimer.h"

namespace zv_loc_fw {

/// The pending one-shot timers of one controller, newest first, not in the order of their deadlines: meant for a
/// handful, scanned in full. Belongs to the event-loop thread.
class LocalTimerList {
public:
    void add(const Timestamp& deadline, MqClientFunctionalModuleBase* module, const TimerDataInterface* data);

    /// Removes every timer of the module whose data equals the given one; data null matches null alone.
    void remove(const MqClientFunctionalModuleBase* module, const TimerDataInterface* data);

    /// Fires every timer whose deadline has come. Each is removed before its callback runs, and the walk starts again
    /// from the head after it, so callbacks may add and remove timers.
    /// @return the nearest deadline of those that are left; of equal ones the newest timer's
    std::optional<Timestamp> fireExpired();

    [[nodiscard]] size_t count() const { return mTimers.count(); }
    void clear() { mTimers.clear(); }

private:
    List<TimerCallbackEntry> mTimers;
};

}  // namespace zv_loc_fw
