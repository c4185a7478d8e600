#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "report/LogLine.h"
#include "report/Report.h"

namespace mqctl::report {

/// What one line of the agent says. `text` and `number` hold the line's argument, if it has one.
struct LogEvent {
    enum Kind {
        // the receiving threads, level 4; they do not say whose they are
        kArrivalFrom,   ///< text
        kArrivalReq,    ///< text
        kArrivalOther,  ///< a RESP or an INFO
        kArrivalTxId,   ///< number
        // a worker; `controller` is its controller's name
        kWorkerStarted,
        kWorkerStopped,
        kJobFrom,     ///< text; the first line of a job
        kJobReq,      ///< text
        kJobTxId,     ///< number
        kJobUrl,      ///< text
        kPostHeader,  ///< text
        kTransferBegin,
        kTransferEnd,
        kHttpStatus,     ///< number
        kRetryAfter,     ///< number
        kCurlError,      ///< number, text
        kTimes,          ///< timing
        kRejection,      ///< number: of the next line; the client hears it
        kPerformFailed,  ///< number
        // a controller's loop; the first three do not say whose it is
        kWaitingChecked,  ///< a waiting or starting job has time left
        kWaitingExpired,  ///< it has none
        kWaitingUntimed,  ///< it has no TIMEOUT-SEC
        kLoopStarted,
        kLoopEnded,
        kTimer,  ///< number: InetControllerTimer's identity
        kQueueTimerReset,
        kStartsExpired,  ///< the job that starts has no time left; its line before was no waiting job's
        kActiveExpired,
        kStillNoResult,
        kNotReady,
        kStartFailed,  ///< number: of setActiveJob
        kTimerFailed,  ///< number: of timerCallback
        kErrorReply,   ///< reply
        // the process
        kProcessStarted,
        kProcessStopping,
        kProcessFailed,  ///< number: its exit status
        kReplyDropped,   ///< text: the path of the client's socket
    };

    struct ErrorReply {
        std::string client;
        std::string method;
        std::string text;
        int32_t txId = 0;
    };

    Kind kind = kArrivalFrom;
    std::string controller;  ///< empty where the line does not say
    std::string text;
    int64_t number = 0;
    Timing timing;
    ErrorReply reply;
};

/// @return nothing for a line that is not the agent's, or says nothing about requests
std::optional<LogEvent> readLogEvent(const LogLine& line);

}  // namespace mqctl::report
