#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "client/inet_agent_client.h"

namespace inet_agent {

using Clock = std::chrono::steady_clock;

/// A request that waits for its reply.
struct Pending {
    std::string controller;
    std::string method;
    std::int32_t timeoutSec = 0;
    Clock::time_point start;
    Clock::time_point deadline;
    Client::Callback callback;
};

/// The requests in flight by their TX-ID. Whoever takes one out ends it: that makes every ending happen once. One
/// thread at a time.
class InFlight {
public:
    using Entry = std::pair<std::int32_t, Pending>;

    /// @param lastTxId the first request gets the number after it
    explicit InFlight(std::int32_t lastTxId = 0) : mLastTxId(lastTxId) {}

    /// @return its TX-ID: 1 to 2^31 - 1 over and over, none that is in flight
    std::int32_t add(Pending pending);
    [[nodiscard]] std::optional<Pending> take(std::int32_t txId);
    /// Only if it is the reply that this request waits for: from the controller that was asked, to what it was asked.
    [[nodiscard]] std::optional<Pending> takeAnswered(std::int32_t txId, const std::string& from,
                                                      const std::string& resp);
    [[nodiscard]] std::optional<Entry> takeExpired(Clock::time_point now);
    [[nodiscard]] std::vector<Entry> takeAll();

    /// Nothing without requests.
    [[nodiscard]] std::optional<Clock::time_point> nextDeadline() const;

private:
    std::int32_t mLastTxId;
    std::map<std::int32_t, Pending> mRequests;
    std::set<std::pair<Clock::time_point, std::int32_t>> mDeadlines;
};

}  // namespace inet_agent
