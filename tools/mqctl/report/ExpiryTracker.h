#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace mqctl::report {

/// A waiting request that expired. Below level 5 the log does not name it.
struct Expiry {
    int64_t us = 0;
    bool untimed = false;
    std::optional<size_t> only;  ///< the one request that it can be
};

/// Follows one controller's lines about waiting jobs, to tell which of them expired. When the queue's timer fires, the
/// controller looks at every waiting job, the newest first, with one line each: their order then names them.
class ExpiryTracker {
public:
    using Named = std::vector<std::pair<size_t, Expiry>>;

    /// The timer fired. @param waiting the requests that wait, the oldest first
    void beginWalk(std::vector<size_t> waiting);
    /// The next job has time left.
    void passed();
    /// It has none.
    void expired(const Expiry& expiry);
    /// The latest expiry was none of a waiting job's, or the job stays in the queue.
    void forgetLatest();
    /// The latest expiry has got a name.
    std::optional<Expiry> takeLatest();
    /// The walk is over. @param complete whether the log has its last line, else a later line that is none of its own
    Named endWalk(bool complete);
    /// Those that have no name yet.
    std::vector<Expiry>& unnamed() { return mUnnamed; }

private:
    struct Step {
        std::optional<Expiry> expiry;
        bool done = false;  ///< named, or none
    };

    bool mWalking = false;
    std::vector<size_t> mWaiting;
    std::vector<Step> mSteps;
    std::vector<Expiry> mUnnamed;
};

}  // namespace mqctl::report
