#include "Ledger.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace chaos {

using test_support::Card;

namespace {

constexpr const char* kNames[] = {"served", "failed", "timeout", "queued", "active", "rejected", "odd"};
/// A turn with a second or less left is none of a request's fault, but only short time-outs are excused by it.
constexpr int kTooLateCode = 27;
constexpr int32_t kShortTimeoutSec = 6;

/// What is lost already needs no waiting for the rest: that may be everything.
constexpr auto kPatienceAfterViolation = std::chrono::seconds(20);

/// More than a sender ever waits for room, and a reply for its reader.
constexpr auto kOvertaken = std::chrono::seconds(15);

size_t indexOf(Outcome outcome) {
    size_t index = 0;
    for (unsigned bit = outcome; bit > 1; bit >>= 1) {
        ++index;
    }
    return index;
}

std::string namesOf(unsigned outcomes) {
    std::string text;
    for (size_t i = 0; i < std::size(kNames); ++i) {
        if ((outcomes & (1U << i)) != 0) {
            text += (text.empty() ? "" : " or ") + std::string(kNames[i]);
        }
    }
    return text.empty() ? "no reply" : text;
}

std::optional<bool> boolOf(const Card& card, const std::string& name) {
    for (const test_support::Field& field : card.fields()) {
        if (field.name == name) {
            return field.type == test_support::Type::Bool ? std::optional(field.value == std::string(1, '\1'))
                                                          : std::nullopt;
        }
    }
    return std::nullopt;
}

using Names = std::vector<std::string>;

/// The fields after the envelope, exactly as the three kinds of replies have them.
Outcome shapeOf(const Card& card) {
    static const Names kEnvelope = {"FROM", "TO", "TX-ID", "RESP"};
    Names names = card.names();
    if (names.size() < kEnvelope.size() || !std::equal(kEnvelope.begin(), kEnvelope.end(), names.begin())) {
        return kOdd;
    }
    names.erase(names.begin(), names.begin() + 4);
    if (names == Names{"CURL-ERROR", "HTTP-RESP-CODE"}) {
        const std::string error = card.getString("CURL-ERROR").value_or("");
        return card.getInt32("HTTP-RESP-CODE") != 0               ? kOdd
               : error == "queued job timed out before execution" ? kQueuedTimedOut
               : error == "active job timed out"                  ? kActiveTimedOut
                                                                  : kOdd;
    }
    if (!names.empty() && names.back() == "HTTP-RETRY-AFTER") {
        names.pop_back();
    }
    if (names == Names{"CURL-TIMEOUT", "CURL-ERROR", "HTTP-RESP-DATA-SIZE"}) {
        const std::optional<bool> timeout = boolOf(card, "CURL-TIMEOUT");
        const std::string error = card.getString("CURL-ERROR").value_or("");
        return !timeout.has_value()                     ? kOdd
               : error.starts_with("request rejected ") ? kRejected
               : *timeout                               ? kTimedOut
                                                        : kFailed;
    }
    if (!names.empty() && names.front() == "HTTP-RESP-DATA") {
        names.erase(names.begin());
    }
    return names == Names{"HTTP-RESP-CODE", "HTTP-RESP-DATA-SIZE"} ? kServed : kOdd;
}

bool servedAsExpected(const Card& card, const Expectation& expected) {
    const std::string body = card.getBlob("HTTP-RESP-DATA").value_or("");
    return card.getInt32("HTTP-RESP-CODE") == expected.status && body.size() == expected.bodySize &&
           hashOf(body) == expected.bodyHash &&
           card.getInt32("HTTP-RESP-DATA-SIZE") == static_cast<int32_t>(expected.bodySize) &&
           card.getInt32("HTTP-RETRY-AFTER") == expected.retryAfter;
}

bool rejectedAsExpected(const Card& card, const Request& request) {
    // Whatever stands in it: with two seconds left the turn of a request may have come with one.
    const bool late = Clock::now() - request.sentAt > std::chrono::seconds(request.timeoutSec - 2);
    const std::string error = card.getString("CURL-ERROR").value_or("");
    const auto says = [&](int code) { return error == "request rejected " + std::to_string(code); };
    return ((request.expected.rejection != 0 && says(request.expected.rejection)) || (late && says(kTooLateCode))) &&
           boolOf(card, "CURL-TIMEOUT") == false && card.getInt32("HTTP-RESP-DATA-SIZE") == 0;
}

}  // namespace

uint64_t hashOf(const std::string& bytes) {
    uint64_t hash = 0xcbf29ce484222325ULL;
    for (const char byte : bytes) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3ULL;
    }
    return hash;
}

int32_t Ledger::nextTxId() {
    const std::lock_guard guard(mMutex);
    return ++mLastTxId;
}

void Ledger::add(int32_t txId, Request request) {
    const std::lock_guard guard(mMutex);
    request.sentAt = Clock::now();
    request.owed = request.owed && request.expected.outcomes != 0;
    mOwed += request.owed ? 1 : 0;
    ++mSent;
    mMustSucceed += request.owed && request.expected.mustSucceed() ? 1 : 0;
    mRequests.emplace(txId, std::move(request));
}

bool Ledger::hasRoomForOthers() const {
    constexpr size_t kPercent = 66;
    const std::lock_guard guard(mMutex);
    return mMustSucceed * 100 >= mSent * kPercent;
}

void Ledger::withdraw(int32_t txId) {
    const std::lock_guard guard(mMutex);
    const auto found = mRequests.find(txId);
    mOwed -= found->second.owed && found->second.replies == 0 ? 1 : 0;
    mRequests.erase(found);
    mChanged.notify_all();
}

void Ledger::receive(const std::string& receiver, const std::string& bytes) {
    std::function<void()> after;
    {
        const std::lock_guard guard(mMutex);
        const std::optional<Card> card = Card::decode(bytes);
        if (!card.has_value()) {
            mViolations.push_back("seed " + std::to_string(mSeed) + ", client " + receiver + ": " +
                                  std::to_string(bytes.size()) + " bytes came that are no card");
        } else if (card->getString("INFO") != "REGISTER-EVENT") {
            judge(receiver, *card, &after);
        }
    }
    if (after) {
        after();
    }
}

void Ledger::judge(const std::string& receiver, const Card& card, std::function<void()>* after) {
    const std::optional<int32_t> tx_id = card.getInt32("TX-ID");
    const auto found = mRequests.find(tx_id.value_or(0));
    if (found == mRequests.end()) {
        mViolations.push_back("seed " + std::to_string(mSeed) + ", client " + receiver +
                              ": nobody asked for: " + card.describe());
        return;
    }
    Request& request = found->second;
    const Outcome outcome = shapeOf(card);
    const std::string text = card.describe();
    const std::string& from =
        outcome == kQueuedTimedOut || outcome == kActiveTimedOut ? request.controller : request.replyFrom;
    if (++request.replies > 1) {
        complain(found->first, request, "one more reply: " + text);
        return;
    }
    request.outcome = outcome;
    if (request.owed) {
        --mOwed;
        mChanged.notify_all();
    }
    if (request.from != receiver) {
        complain(found->first, request, "a reply at " + receiver + ": " + text);
    } else if (card.getString("TO") != request.from || card.getString("FROM") != from ||
               card.getString("RESP") != request.req) {
        complain(found->first, request, "a wrong envelope: " + text);
    } else if ((request.expected.outcomes & outcome) == 0 ||
               (outcome == kServed && !servedAsExpected(card, request.expected)) ||
               (outcome == kRejected && !rejectedAsExpected(card, request))) {
        complain(found->first, request, text);
    }
    if (request.settled) {
        *after = [settled = std::move(request.settled), outcome] { settled(outcome); };
        request.settled = {};
    }
}

void Ledger::complain(int32_t txId, const Request& request, const std::string& came) {
    const auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - request.sentAt).count();
    std::string sent = request.kind + ", REQ " + request.req + ", " + std::to_string(request.timeoutSec) + " s, to " +
                       request.controller + ", expected " + namesOf(request.expected.outcomes);
    if ((request.expected.outcomes & kServed) != 0) {
        sent += " (status " + std::to_string(request.expected.status) + ", " +
                std::to_string(request.expected.bodySize) + " bytes)";
    }
    mViolations.push_back("seed " + std::to_string(mSeed) + ", client " + request.from.substr(0, 60) + ", TX-ID " +
                          std::to_string(txId) + "\n    sent: " + sent + "\n    came after " + std::to_string(waited) +
                          " ms: " + came);
}

void Ledger::waitSettled(Clock::time_point until, const std::function<void()>& nudge) {
    bool hurried = false;
    std::unique_lock lock(mMutex);
    while (mOwed > 0 && Clock::now() < until) {
        condemnOvertaken();
        if (!mViolations.empty() && !hurried) {
            until = std::min(until, Clock::now() + kPatienceAfterViolation);
            hurried = true;
        }
        if (!mChanged.wait_for(lock, std::chrono::seconds(1), [&] { return mOwed == 0; }) && nudge) {
            lock.unlock();
            nudge();
            lock.lock();
        }
    }
}

/// A controller serves in the order of arrival: what it has not answered before a request that came long after is lost,
/// and need not be waited for.
void Ledger::condemnOvertaken() {
    std::map<std::string, Clock::time_point> served;
    for (const auto& [txId, request] : mRequests) {
        if (request.replies > 0 && request.outcome == kServed) {
            served[request.controller] = std::max(served[request.controller], request.sentAt);
        }
    }
    for (auto& [txId, request] : mRequests) {
        if (request.owed && request.replies == 0 && served[request.controller] > request.sentAt + kOvertaken) {
            complain(txId, request, "nothing, but later ones were served");
            request.owed = false;
            --mOwed;
        }
    }
}

Clock::time_point Ledger::lastDeadline() const {
    const std::lock_guard guard(mMutex);
    Clock::time_point last = Clock::now();
    for (const auto& [txId, request] : mRequests) {
        if (request.owed && request.replies == 0) {
            // A deadline of years is that of a request which must succeed: as good as the others of its kind.
            last = std::max(last, request.sentAt + std::chrono::seconds(std::clamp(request.timeoutSec, 0, 120)));
        }
    }
    return last;
}

void Ledger::close() {
    const std::lock_guard guard(mMutex);
    for (auto& [txId, request] : mRequests) {
        if (request.owed && request.replies == 0) {
            complain(txId, request, "nothing: the reply is lost");
            request.owed = false;
        }
    }
    mOwed = 0;
}

void Ledger::violation(const std::string& text) {
    const std::lock_guard guard(mMutex);
    mViolations.push_back("seed " + std::to_string(mSeed) + ": " + text);
}

void Ledger::explainRejection(std::optional<int32_t> txId, int code) {
    const std::lock_guard guard(mMutex);
    if (!txId.has_value()) {
        // The worker did not get as far as to name it.
        ++mNamelessRejections;
        const auto could = std::count_if(mRequests.begin(), mRequests.end(),
                                         [](const auto& entry) { return entry.second.expected.nameless; });
        if (code != 6 || mNamelessRejections > static_cast<size_t>(could)) {
            mViolations.push_back("seed " + std::to_string(mSeed) + ": a rejection with code " + std::to_string(code) +
                                  " that no request explains");
        }
        return;
    }
    const auto found = mRequests.find(*txId);
    const bool explained =
        found != mRequests.end() && (found->second.expected.rejection == code ||
                                     (code == kTooLateCode && found->second.timeoutSec <= kShortTimeoutSec));
    if (!explained) {
        mViolations.push_back("seed " + std::to_string(mSeed) + ", TX-ID " + std::to_string(*txId) +
                              ": rejected with code " + std::to_string(code) + ", which " +
                              (found == mRequests.end() ? "nobody sent" : found->second.kind + " does not explain"));
    }
}

size_t Ledger::violationCount() const {
    const std::lock_guard guard(mMutex);
    return mViolations.size();
}

std::vector<std::string> Ledger::violations() const {
    const std::lock_guard guard(mMutex);
    return mViolations;
}

Ledger::Totals Ledger::totals() const {
    const std::lock_guard guard(mMutex);
    Totals totals;
    totals.sent = mRequests.size();
    for (const auto& [txId, request] : mRequests) {
        const bool must = request.expected.mustSucceed() && request.owed;
        totals.mustSucceed += must ? 1 : 0;
        totals.succeeded += must && request.replies == 1 && request.outcome == kServed ? 1 : 0;
    }
    return totals;
}

std::string Ledger::table() const {
    const std::lock_guard guard(mMutex);
    using Row = std::array<size_t, std::size(kNames) + 2>;  // sent, outcomes, none
    std::map<std::string, Row> rows;
    Row sum{};
    for (const auto& [txId, request] : mRequests) {
        const size_t column = request.replies == 0 ? std::size(kNames) + 1 : indexOf(request.outcome) + 1;
        for (Row* row : {&rows[request.kind], &sum}) {
            ++row->front();
            ++(*row)[column];
        }
    }
    std::string text;
    char line[200];
    const auto add = [&](const std::string& kind, const Row& row) {
        std::snprintf(line, sizeof(line), "%-32s%8zu", kind.c_str(), row.front());
        text += line;
        for (size_t i = 1; i < row.size(); ++i) {
            std::snprintf(line, sizeof(line), "%9zu", row[i]);
            text += row[i] == 0 ? "        ." : line;
        }
        text += "\n";
    };
    std::snprintf(line, sizeof(line), "%-32s%8s", "request", "sent");
    text += line;
    for (const char* name : kNames) {
        std::snprintf(line, sizeof(line), "%9s", name);
        text += line;
    }
    text += "     none\n";
    for (const auto& [kind, row] : rows) {
        add(kind, row);
    }
    add("all", sum);
    return text;
}

}  // namespace chaos
