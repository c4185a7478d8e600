#include "client/InFlight.h"

#include <limits>

namespace inet_agent {

std::int32_t InFlight::add(Pending pending) {
    do {
        mLastTxId = mLastTxId == std::numeric_limits<std::int32_t>::max() ? 1 : mLastTxId + 1;
    } while (mRequests.count(mLastTxId) != 0);
    mDeadlines.emplace(pending.deadline, mLastTxId);
    mRequests.emplace(mLastTxId, std::move(pending));
    return mLastTxId;
}

std::optional<Pending> InFlight::take(std::int32_t txId) {
    const auto found = mRequests.find(txId);
    if (found == mRequests.end()) {
        return std::nullopt;
    }
    std::optional<Pending> taken = std::move(found->second);
    mDeadlines.erase({taken->deadline, txId});
    mRequests.erase(found);
    return taken;
}

std::optional<Pending> InFlight::takeAnswered(std::int32_t txId, const std::string& from, const std::string& resp) {
    const auto found = mRequests.find(txId);
    if (found == mRequests.end() || found->second.controller != from || found->second.method != resp) {
        return std::nullopt;
    }
    return take(txId);
}

std::optional<InFlight::Entry> InFlight::takeExpired(Clock::time_point now) {
    if (mDeadlines.empty() || mDeadlines.begin()->first > now) {
        return std::nullopt;
    }
    const std::int32_t tx_id = mDeadlines.begin()->second;
    return Entry(tx_id, *take(tx_id));
}

std::vector<InFlight::Entry> InFlight::takeAll() {
    std::vector<Entry> all;
    all.reserve(mRequests.size());
    for (auto& [tx_id, pending] : mRequests) {
        all.emplace_back(tx_id, std::move(pending));
    }
    mRequests.clear();
    mDeadlines.clear();
    return all;
}

std::optional<Clock::time_point> InFlight::nextDeadline() const {
    return mDeadlines.empty() ? std::nullopt : std::optional(mDeadlines.begin()->first);
}

}  // namespace inet_agent
