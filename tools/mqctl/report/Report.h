#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "report/LogLine.h"

namespace mqctl::report {

/// Seconds from the start of the transfer, as the agent logs them; 0: it did not come that far.
struct Timing {
    double name = 0;
    double connect = 0;
    double app = 0;  ///< TLS is up
    double firstByte = 0;
    double total = 0;
    uint64_t bytes = 0;
};

/// The same as spans that follow one another and add up to the total. Nothing: there was no such step.
struct Phases {
    std::optional<double> name;
    std::optional<double> connect;  ///< without TLS
    std::optional<double> tls;
    double firstByte = 0;  ///< waiting for it
    double receive = 0;
};
Phases phasesOf(const Timing& timing);

enum class Outcome {
    kResult,           ///< an HTTP status, whatever it is
    kTransferFailed,   ///< CURL-ERROR
    kTransferTimeout,  ///< CURL-ERROR with CURL-TIMEOUT
    kExpiredWaiting,   ///< "queued job timed out before execution"
    kExpiredRunning,   ///< "active job timed out"; includes what the worker rejected without telling
    kRejected,         ///< by the worker: "request rejected", or the log does not reach its deadline
    kNotReady,         ///< "Inet agent not ready"
    kDiscarded,        ///< could not be started; no reply
    kStopped,          ///< the agent ended while it waited or ran
    kUnfinished,       ///< the log ends while it waits or runs
    kUnknown,          ///< the log does not say
};
constexpr size_t kOutcomes = 11;

/// One or two words: for counts, and for a result as good as its status.
const char* outcomeName(Outcome outcome);

/// One request, as far as the log tells.
struct Request {
    std::string controller;  ///< empty: unknown, as are the next three
    std::string client;
    std::string method;
    std::string url;
    std::optional<int64_t> txId;
    int pid = 0;

    // microseconds since the epoch
    std::optional<int64_t> arrivedUs;   ///< level 4
    std::optional<int64_t> startedUs;   ///< the worker took it
    std::optional<int64_t> transferUs;  ///< level 4: the transfer began
    std::optional<int64_t> endedUs;     ///< the last line about it

    std::optional<Timing> timing;
    std::optional<int> httpStatus;
    std::optional<int> retryAfterSec;      ///< level 4
    std::vector<std::string> postHeaders;  ///< level 4
    std::optional<int> curlError;
    std::string curlText;
    std::optional<int> performFailed;  ///< the worker's code
    bool rejectionTold = false;        ///< to the client, at once: the agent is configured to

    Outcome outcome = Outcome::kUnknown;
    bool untimed = false;       ///< expired at once, for want of a TIMEOUT-SEC
    bool replyDropped = false;  ///< the client did not take its reply
    std::optional<size_t> wedge;

    [[nodiscard]] int64_t beginUs() const;
    [[nodiscard]] int64_t lastUs() const;
    [[nodiscard]] std::optional<double> waitSec() const;
    /// Only these ever answer: whether the worker rejected it in a way that yields no result.
    [[nodiscard]] bool withoutResult() const;
};

/// What the worker's code means, for the codes that yield no result.
const char* rejectionText(const Request& request);

/// A controller that went on waiting for a result that could not come.
struct Wedge {
    std::string controller;
    int pid = 0;
    size_t request = 0;              ///< the one that caused it
    int64_t fromUs = 0;              ///< from then on nothing was served
    std::optional<int64_t> untilUs;  ///< freed by a result from outside, or the agent ended; else to the end of the log
    bool freed = false;
    size_t expired = 0;  ///< requests that expired meanwhile
};

/// One run of the agent.
struct Run {
    int pid = 0;
    int64_t fromUs = 0;
    int64_t toUs = 0;
    bool sawStart = false;
    bool sawStop = false;
    bool sawArrivals = false;  ///< level 4
    bool sawJobs = false;      ///< level 3
    std::optional<int> exitStatus;
    size_t requests = 0;
};

struct Report {
    std::vector<Request> requests;  ///< by beginUs()
    std::vector<Wedge> wedges;
    std::vector<Run> runs;
    std::vector<std::string> notes;  ///< what the log does not tell, in sentences

    int64_t fromUs = 0;
    int64_t toUs = 0;
    size_t lines = 0;
    size_t understood = 0;  ///< lines that told something about requests
    std::array<size_t, kLogForms> forms{};
    bool wholeSeconds = false;
    bool zoneless = false;  ///< local time was assumed

    [[nodiscard]] int timeDigits() const { return wholeSeconds ? 0 : 3; }
    /// By name, each once; requests without one come last, under "".
    [[nodiscard]] std::vector<std::string> controllers() const;
    /// The outcome in words: the status, or what happened, with the wedge it caused.
    [[nodiscard]] std::string outcomeText(const Request& request) const;
};

}  // namespace mqctl::report
