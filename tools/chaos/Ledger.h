#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "support/Card.h"

namespace chaos {

using Clock = std::chrono::steady_clock;

/// What a reply says; also used as a set of those that a request may get.
enum Outcome : unsigned {
    kServed = 1,
    kFailed = 2,           // the transfer failed
    kTimedOut = 4,         // the transfer timed out
    kQueuedTimedOut = 8,   // it never got its turn
    kActiveTimedOut = 16,  // the controller gave up on it: no result came, or came too late
    kRejected = 32,        // the agent says that it rejected it
    kOdd = 64,             // nothing that the agent may say
};

/// What a request may come to. No outcome at all: it must stay without a reply.
struct Expectation {
    unsigned outcomes = 0;
    // When it is served:
    int32_t status = 0;
    uint64_t bodyHash = 0;
    size_t bodySize = 0;
    std::optional<int32_t> retryAfter = {};
    /// The worker's code when it rejects the request by what stands in it; 0 for one that it performs.
    int rejection = 0;
    /// It does so before it has read who asks.
    bool nameless = false;

    [[nodiscard]] bool mustSucceed() const { return outcomes == kServed; }
};

[[nodiscard]] uint64_t hashOf(const std::string& bytes);

/// One message that was sent to a controller.
struct Request {
    std::string kind;
    std::string controller;
    std::string from;       // who gets the reply
    std::string replyFrom;  // who it says it is from: the request's TO; the controller itself in its own error replies
    std::string req;
    int32_t timeoutSec = 0;
    Expectation expected;
    /// A live client waits for the reply: it must come. Otherwise it may, once.
    bool owed = true;
    /// Called once, when the reply is here.
    std::function<void(Outcome)> settled = {};

    Clock::time_point sentAt = {};
    int replies = 0;
    Outcome outcome = kOdd;
};

/// Every request of the run and every reply: the checker. Any thread may call.
class Ledger {
public:
    explicit Ledger(uint64_t seed) : mSeed(seed) {}

    /// A number that no other request of the run has, to be put into the message.
    [[nodiscard]] int32_t nextTxId();
    /// Before the message is sent.
    void add(int32_t txId, Request request);
    /// Whether enough of the requests so far must succeed that others may be sent. On a busy machine the good ones are
    /// fewer, because each waits for its reply.
    [[nodiscard]] bool hasRoomForOthers() const;
    /// It could not be sent.
    void withdraw(int32_t txId);
    /// A message that came to the socket of `receiver`.
    void receive(const std::string& receiver, const std::string& bytes);

    /// Waits until nothing is owed, at the latest until `until`, calling `nudge` once a second.
    void waitSettled(Clock::time_point until, const std::function<void()>& nudge);
    /// When the last deadline of those still owed passes.
    [[nodiscard]] Clock::time_point lastDeadline() const;
    /// Whatever is still owed is lost; it must not come any more.
    void close();

    void violation(const std::string& text);
    /// "worker rejected TX-ID with code": whether a request explains it. Without TX-ID: whether one of no readable one
    /// can, each once.
    void explainRejection(std::optional<int32_t> txId, int code);

    [[nodiscard]] size_t violationCount() const;
    [[nodiscard]] std::vector<std::string> violations() const;
    /// Requests by kind and outcome, with the totals.
    [[nodiscard]] std::string table() const;
    struct Totals {
        size_t sent = 0;
        size_t mustSucceed = 0;
        size_t succeeded = 0;
    };
    [[nodiscard]] Totals totals() const;

private:
    void judge(const std::string& receiver, const test_support::Card& card, std::function<void()>* after);
    void condemnOvertaken();
    void complain(int32_t txId, const Request& request, const std::string& came);

    const uint64_t mSeed;
    mutable std::mutex mMutex;
    std::condition_variable mChanged;
    int32_t mLastTxId = 1000;
    std::map<int32_t, Request> mRequests;
    size_t mOwed = 0;
    size_t mSent = 0;
    size_t mMustSucceed = 0;
    size_t mNamelessRejections = 0;
    std::vector<std::string> mViolations;
};

}  // namespace chaos
