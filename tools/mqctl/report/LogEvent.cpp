#include "report/LogEvent.h"

#include <charconv>
#include <string_view>

namespace mqctl::report {

namespace {

constexpr std::string_view kFrameworkTag = "KVIA";
constexpr std::string_view kSendingTag = "PosIpc";
constexpr std::string_view kReceiverTag = "MqClientIpcReciver";
constexpr std::string_view kTimeoutTag = "calculateTimeout";
constexpr std::string_view kMainTag = "main";
constexpr std::string_view kWorkerSuffix = "-worker";

enum class Scope { kReceiver, kTimeout, kMain, kWorker, kController };
/// What follows the fixed part of a line.
enum class Argument { kNothing, kAnything, kText, kNumber, kNumberAndText, kTimes, kErrorReply };

struct Pattern {
    Scope scope;
    std::string_view begin;
    LogEvent::Kind kind;
    Argument argument;
};

constexpr Pattern kPatterns[] = {
    {Scope::kReceiver, "FROM: ", LogEvent::kArrivalFrom, Argument::kText},
    {Scope::kReceiver, "REQ:  ", LogEvent::kArrivalReq, Argument::kText},
    {Scope::kReceiver, "RESP:  ", LogEvent::kArrivalOther, Argument::kAnything},
    {Scope::kReceiver, "INFO:  ", LogEvent::kArrivalOther, Argument::kAnything},
    {Scope::kReceiver, "TX-ID:  ", LogEvent::kArrivalTxId, Argument::kNumber},
    {Scope::kTimeout, "timeout adjusted to ", LogEvent::kWaitingChecked, Argument::kAnything},
    {Scope::kTimeout, "already timed out", LogEvent::kWaitingExpired, Argument::kNothing},
    {Scope::kTimeout, "calculateTimeout failed ", LogEvent::kWaitingUntimed, Argument::kAnything},
    {Scope::kMain, "config loaded ", LogEvent::kProcessStarted, Argument::kAnything},
    {Scope::kMain, "signal ", LogEvent::kProcessStopping, Argument::kAnything},
    {Scope::kMain, "failed ", LogEvent::kProcessFailed, Argument::kNumber},
    {Scope::kWorker, "entering event loop", LogEvent::kWorkerStarted, Argument::kNothing},
    {Scope::kWorker, "KILL command to download thread", LogEvent::kWorkerStopped, Argument::kNothing},
    {Scope::kWorker, "FROM: ", LogEvent::kJobFrom, Argument::kText},
    {Scope::kWorker, "REQ:  ", LogEvent::kJobReq, Argument::kText},
    {Scope::kWorker, "TX-ID:  ", LogEvent::kJobTxId, Argument::kNumber},
    {Scope::kWorker, "URL:  ", LogEvent::kJobUrl, Argument::kText},
    {Scope::kWorker, "post header [", LogEvent::kPostHeader, Argument::kText},
    {Scope::kWorker, "inet begin", LogEvent::kTransferBegin, Argument::kNothing},
    {Scope::kWorker, "inet end", LogEvent::kTransferEnd, Argument::kNothing},
    {Scope::kWorker, "HTTP response code: ", LogEvent::kHttpStatus, Argument::kNumber},
    {Scope::kWorker, "HTTP header Retry-After: ", LogEvent::kRetryAfter, Argument::kNumber},
    {Scope::kWorker, "curl error ", LogEvent::kCurlError, Argument::kNumberAndText},
    {Scope::kWorker, "inet time report: ", LogEvent::kTimes, Argument::kTimes},
    {Scope::kWorker, "request rejected ", LogEvent::kRejection, Argument::kNumber},
    {Scope::kWorker, "perform failed ", LogEvent::kPerformFailed, Argument::kNumber},
    {Scope::kController, "Client controller entering event loop", LogEvent::kLoopStarted, Argument::kNothing},
    {Scope::kController, "Client controller leaving event loop", LogEvent::kLoopEnded, Argument::kNothing},
    {Scope::kController, "time out ", LogEvent::kTimer, Argument::kNumber},
    {Scope::kController, "reset queued job timer to ", LogEvent::kQueueTimerReset, Argument::kAnything},
    {Scope::kController, "setActiveJobTimer: it seems the active job is already timed out!", LogEvent::kStartsExpired,
     Argument::kNothing},
    {Scope::kController, "active job timed out", LogEvent::kActiveExpired, Argument::kNothing},
    {Scope::kController, "still no result of a job that timed out", LogEvent::kStillNoResult, Argument::kAnything},
    {Scope::kController, "_process not ready", LogEvent::kNotReady, Argument::kNothing},
    {Scope::kController, "setActiveJob failed ", LogEvent::kStartFailed, Argument::kNumber},
    {Scope::kController, "timerCallback failed ", LogEvent::kTimerFailed, Argument::kNumber},
    {Scope::kController, "error response for [", LogEvent::kErrorReply, Argument::kErrorReply},
};

bool startsWith(std::string_view text, std::string_view begin) {
    return text.substr(0, begin.size()) == begin;
}

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

template <typename Number>
bool takeNumber(std::string_view* text, Number* value) {
    const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), *value);
    text->remove_prefix(static_cast<size_t>(end - text->data()));
    return error == std::errc{};
}

/// "name 0.0021, connect 0.0130, app 0.0410, tx 0.0800, total 0.0920, dl 18342"
bool readTimes(std::string_view rest, Timing* timing) {
    const struct {
        std::string_view name;
        double* value;
    } kParts[] = {{"name ", &timing->name},
                  {", connect ", &timing->connect},
                  {", app ", &timing->app},
                  {", tx ", &timing->firstByte},
                  {", total ", &timing->total}};
    for (const auto& part : kParts) {
        if (!startsWith(rest, part.name)) {
            return false;
        }
        rest.remove_prefix(part.name.size());
        if (!takeNumber(&rest, part.value) || !(*part.value >= 0 && *part.value < 1e9)) {
            return false;
        }
    }
    constexpr std::string_view kBytes = ", dl ";
    if (!startsWith(rest, kBytes)) {
        return false;
    }
    rest.remove_prefix(kBytes.size());
    return takeNumber(&rest, &timing->bytes);
}

/// "FROM][REQ][TX-ID][TEXT]": read from the end, for the texts before it are the client's and may hold brackets.
bool readErrorReply(std::string_view rest, LogEvent::ErrorReply* reply) {
    constexpr std::string_view kBetween = "][";
    if (!endsWith(rest, "]")) {
        return false;  // the line was cut
    }
    rest.remove_suffix(1);
    std::string_view parts[3];
    for (auto& part : parts) {
        const size_t at = rest.rfind(kBetween);
        if (at == std::string_view::npos) {
            return false;
        }
        part = rest.substr(at + kBetween.size());
        rest = rest.substr(0, at);
    }
    reply->text = parts[0];
    reply->method = parts[2];
    reply->client = rest;
    return takeNumber(&parts[1], &reply->txId) && parts[1].empty();
}

bool readArgument(const Pattern& pattern, std::string_view rest, LogEvent* event) {
    switch (pattern.argument) {
        case Argument::kNothing:
            return rest.empty();
        case Argument::kAnything:
            return true;
        case Argument::kText:
            event->text = rest;
            if (pattern.kind == LogEvent::kPostHeader && endsWith(event->text, "]")) {
                event->text.pop_back();
            }
            return true;
        case Argument::kNumber:
            return takeNumber(&rest, &event->number) && rest.empty();
        case Argument::kNumberAndText: {
            constexpr std::string_view kOpen = ": [";
            if (!takeNumber(&rest, &event->number) || !startsWith(rest, kOpen)) {
                return false;
            }
            event->text = rest.substr(kOpen.size());
            if (endsWith(event->text, "]")) {
                event->text.pop_back();
            }
            return true;
        }
        case Argument::kTimes:
            return readTimes(rest, &event->timing);
        case Argument::kErrorReply:
            return readErrorReply(rest, &event->reply);
    }
    return false;
}

/// "send:34] message of 118 bytes to /dev/socket/location/mq/KV-CS dropped: nobody listens"
std::optional<LogEvent> readSendingLine(std::string_view text) {
    constexpr std::string_view kTo = " bytes to ";
    constexpr std::string_view kDropped = " dropped: ";
    const size_t to = text.find(kTo);
    const size_t end = text.rfind(kDropped);
    if (text.find("] message of ") == std::string_view::npos || to == std::string_view::npos ||
        end == std::string_view::npos || end < to + kTo.size()) {
        return std::nullopt;
    }
    LogEvent event;
    event.kind = LogEvent::kReplyDropped;
    event.text = text.substr(to + kTo.size(), end - to - kTo.size());
    return event;
}

Scope scopeOf(std::string_view component) {
    if (component == kReceiverTag) {
        return Scope::kReceiver;
    }
    if (component == kTimeoutTag) {
        return Scope::kTimeout;
    }
    if (component == kMainTag) {
        return Scope::kMain;
    }
    return endsWith(component, kWorkerSuffix) ? Scope::kWorker : Scope::kController;
}

}  // namespace

std::optional<LogEvent> readLogEvent(const LogLine& line) {
    if (line.tag == kSendingTag) {
        return readSendingLine(line.text);
    }
    const std::string_view text = line.text;
    const size_t close = text.find("] ");
    if (line.tag != kFrameworkTag || text.empty() || text.front() != '[' || close == std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view component = text.substr(1, close - 1);
    const std::string_view message = text.substr(close + 2);
    const Scope scope = scopeOf(component);
    if (scope == Scope::kWorker) {
        component.remove_suffix(kWorkerSuffix.size());
    }
    for (const Pattern& pattern : kPatterns) {
        if (pattern.scope != scope || !startsWith(message, pattern.begin)) {
            continue;
        }
        LogEvent event;
        event.kind = pattern.kind;
        if (scope == Scope::kWorker || scope == Scope::kController) {
            event.controller = component;
        }
        if (readArgument(pattern, message.substr(pattern.begin.size()), &event)) {
            return event;
        }
    }
    return std::nullopt;
}

}  // namespace mqctl::report
