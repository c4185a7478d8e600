#include "report/Report.h"

#include <algorithm>

#include "report/LogStamp.h"

namespace mqctl::report {

namespace {

constexpr double kUsPerSecond = 1e6;

/// A step's span: from the end of the one before it, which `at` holds, to its own. Figures that run backwards, as
/// those of a followed redirect may, count as no time.
std::optional<double> step(double end, double* at) {
    if (end <= 0) {
        return std::nullopt;
    }
    const double span = std::max(0.0, end - *at);
    *at = std::max(*at, end);
    return span;
}

}  // namespace

Phases phasesOf(const Timing& timing) {
    Phases phases;
    double at = 0;
    phases.name = step(std::min(timing.name, timing.total), &at);
    phases.connect = step(std::min(timing.connect, timing.total), &at);
    phases.tls = step(std::min(timing.app, timing.total), &at);
    phases.firstByte = step(std::min(timing.firstByte, timing.total), &at).value_or(0);
    const double rest = std::max(0.0, timing.total - at);
    if (timing.firstByte > 0) {
        phases.receive = rest;
    } else {
        phases.firstByte = rest;  // nothing ever came
    }
    return phases;
}

const char* outcomeName(Outcome outcome) {
    switch (outcome) {
        case Outcome::kResult:
            return "result";
        case Outcome::kTransferFailed:
            return "transfer failed";
        case Outcome::kTransferTimeout:
            return "transfer timed out";
        case Outcome::kExpiredWaiting:
            return "expired waiting";
        case Outcome::kExpiredRunning:
            return "expired running";
        case Outcome::kRejected:
            return "rejected";
        case Outcome::kNotReady:
            return "agent not ready";
        case Outcome::kDiscarded:
            return "discarded";
        case Outcome::kStopped:
            return "agent stopped";
        case Outcome::kUnfinished:
            return "not finished";
        case Outcome::kUnknown:
            break;
    }
    return "unknown";
}

const char* rejectionText(const Request& request) {
    switch (request.performFailed.value_or(0)) {
        case 6:
            return request.method.empty() ? "no TO, or REQ is neither GET nor POST" : "REQ is neither GET nor POST";
        case 9:
        case 10:
            return "no URL";
        case 26:
            return "no TIMEOUT-SEC";
        case 27:
            return "its turn came with a second or less left";
        case 39:
            return "the device has no key or certificate for the positioning service";
        case 50:
        case 51:
        case 52:
            return "a POST without a body";
        case 91:
            return "the result could not be handed to the controller";
        default:
            return "see \"What failures mean\" in docs/operating.md";
    }
}

int64_t Request::beginUs() const {
    return arrivedUs ? *arrivedUs : startedUs ? *startedUs : endedUs.value_or(0);
}

int64_t Request::lastUs() const {
    return std::max(beginUs(), endedUs.value_or(beginUs()));
}

std::optional<double> Request::waitSec() const {
    if (!arrivedUs) {
        return std::nullopt;
    }
    const bool left_waiting = outcome == Outcome::kExpiredWaiting && endedUs;
    if (!startedUs && !left_waiting) {
        return std::nullopt;
    }
    return std::max(0.0, static_cast<double>((startedUs ? *startedUs : *endedUs) - *arrivedUs) / kUsPerSecond);
}

bool Request::withoutResult() const {
    constexpr int kOnlyTimingMissing = 100;  // and above
    return performFailed && *performFailed < kOnlyTimingMissing && !rejectionTold;
}

std::vector<std::string> Report::controllers() const {
    std::vector<std::string> names;
    for (const Request& request : requests) {
        names.push_back(request.controller);
    }
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    if (!names.empty() && names.front().empty()) {
        std::rotate(names.begin(), names.begin() + 1, names.end());
    }
    return names;
}

std::string Report::outcomeText(const Request& request) const {
    std::string text = outcomeName(request.outcome);
    const auto curl = [&request] {
        return request.curlError ? "curl " + std::to_string(*request.curlError) + ": " + request.curlText
                                 : std::string();
    };
    const auto rejection = [&request] {
        return std::to_string(request.performFailed.value_or(0)) + ", " + rejectionText(request);
    };
    switch (request.outcome) {
        case Outcome::kResult:
            text = request.httpStatus ? std::to_string(*request.httpStatus) : "result of unknown status";
            if (request.retryAfterSec) {
                text += " retry after " + std::to_string(*request.retryAfterSec) + " s";
            }
            break;
        case Outcome::kTransferFailed:
        case Outcome::kTransferTimeout:
            text = curl();
            break;
        case Outcome::kExpiredWaiting:
            if (request.untimed) {
                text += " at once: no TIMEOUT-SEC";
            }
            break;
        case Outcome::kExpiredRunning:
            if (request.httpStatus) {
                text += "; late result " + std::to_string(*request.httpStatus) + " dropped";
            } else if (request.curlError) {
                text += "; late result dropped: " + curl();
            } else if (request.rejectionTold) {
                text += "; its rejection " + std::to_string(request.performFailed.value_or(0)) + " came too late";
            }
            break;
        case Outcome::kRejected:
            text += " " + rejection();
            break;
        case Outcome::kStopped:
        case Outcome::kUnfinished:
            text += request.startedUs ? " while it ran" : " while it waited";
            break;
        default:
            break;
    }
    if (request.withoutResult() && request.outcome != Outcome::kStopped) {
        text = "perform failed " + rejection();
        text += request.wedge ? ": WEDGED from " + timeText(wedges[*request.wedge].fromUs, 0)
                              : ": no result; its deadline is not in this log";
    }
    if (request.replyDropped) {
        text += "; the client did not take its reply";
    }
    return text;
}

}  // namespace mqctl::report
