#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Session.h"

namespace mqctl {

/// Looks at controllers: first whether their event loops answer, then whether their workers serve.
class Health {
public:
    enum class State : uint8_t { kHealthy, kBusy, kWedged, kNotReady, kSilent, kStale, kAbsent };

    struct Finding {
        std::string name;
        State state = State::kAbsent;
        std::string detail;
        std::optional<double> eventLoop;  ///< seconds that its answer took
        std::optional<double> worker;
    };

    struct Settings {
        Duration patience = std::chrono::seconds(30);  ///< with the worker
        std::optional<int> longestSec;                 ///< no request in use has a longer time-out
        std::string probeUrl;
    };

    /// All at the same time.
    static std::vector<Finding> look(Session& session, zv_loc_fw::Participant& participant,
                                     const std::vector<std::string>& names, const Settings& settings);

    /// A line for each, or a JSON array. @return kOk when all are healthy; kNoParticipant when those that are not, are
    /// not there; kErrorReply
    static int report(Session& session, const std::vector<Finding>& findings);
};

}  // namespace mqctl
