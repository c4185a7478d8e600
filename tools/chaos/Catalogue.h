#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Dice.h"
#include "Ledger.h"
#include "Servers.h"
#include "support/sanitized.h"

namespace chaos {

using test_support::kSanitized;

inline const std::vector<std::string> kControllers = {"inet-agent-cs", "inet-agent-tdp-dl"};

/// What requests that must succeed grant; see main.cpp for the reckoning.
inline constexpr int32_t kGenerousSec = kSanitized ? 180 : 90;

/// A message to a controller, ready to be sent, and what is to come of it.
struct Plan {
    int32_t txId = 0;
    std::string bytes;
    bool inFile = false;
    Request request;
};

/// Makes messages. Only reads what it stands on, so that any thread may call with dice of its own.
class Catalogue {
public:
    /// @param replies whether the agent answers what its worker rejects
    Catalogue(const Servers& servers, Ledger& ledger, bool replies)
        : mServers(servers), mLedger(ledger), mReplies(replies) {}

    /// Must succeed, and takes milliseconds.
    [[nodiscard]] Plan good(Dice& dice, const std::string& from, const std::string& controller) const;
    /// As small and quick as can be.
    [[nodiscard]] Plan ping(const std::string& from, const std::string& controller) const;
    /// Fails at once, by the network or a server.
    [[nodiscard]] Plan failing(Dice& dice, const std::string& from, const std::string& controller) const;
    /// Keeps its controller busy for some seconds.
    [[nodiscard]] Plan stalling(Dice& dice, const std::string& from, const std::string& controller) const;
    /// Would be quick, but may get its turn too late.
    [[nodiscard]] Plan tight(Dice& dice, const std::string& from, const std::string& controller) const;
    /// Rejected by the worker: takes the controller out of service, or is answered, by the agent's configuration.
    [[nodiscard]] Plan rejected(Dice& dice, const std::string& from, const std::string& controller) const;
    /// Has no time at all.
    [[nodiscard]] Plan expired(Dice& dice, const std::string& from, const std::string& controller) const;
    /// Damaged, or of an envelope that lets nobody answer.
    [[nodiscard]] Plan silent(Dice& dice, const std::string& from, const std::string& controller) const;

private:
    struct Draft;
    [[nodiscard]] Plan finish(Draft draft) const;
    [[nodiscard]] Draft draft(const std::string& kind, const std::string& from, const std::string& controller,
                              const std::string& req, const std::string& url, int32_t timeoutSec) const;
    [[nodiscard]] Draft goodGet(Dice& dice, const std::string& from, const std::string& controller) const;
    [[nodiscard]] Draft goodPost(Dice& dice, const std::string& from, const std::string& controller) const;
    [[nodiscard]] Draft goodRaw(Dice& dice, const std::string& from, const std::string& controller) const;

    const Servers& mServers;
    Ledger& mLedger;
    const bool mReplies;
};

}  // namespace chaos
