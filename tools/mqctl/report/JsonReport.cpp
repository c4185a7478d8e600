#include "report/JsonReport.h"

#include <nlohmann/json.hpp>

#include "report/LogStamp.h"
#include "report/ReportText.h"
#include "report/Summary.h"

namespace mqctl::report {

namespace {

using Json = nlohmann::ordered_json;

Json requestJson(const Report& report, const Request& request) {
    Json out;
    const auto text = [&out](const char* name, const std::string& value) {
        if (!value.empty()) {
            out[name] = printable(value);
        }
    };
    const auto time = [&out](const char* name, const std::optional<int64_t>& us) {
        if (us) {
            out[name] = isoTime(*us);
        }
    };
    text("controller", request.controller);
    text("client", request.client);
    if (request.txId) {
        out["tx_id"] = *request.txId;
    }
    text("req", request.method);
    text("url", request.url);
    out["pid"] = request.pid;
    time("arrived", request.arrivedUs);
    time("started", request.startedUs);
    time("ended", request.endedUs);
    if (const auto wait = request.waitSec()) {
        out["wait_s"] = *wait;
    }
    if (request.timing) {
        const Timing& timing = *request.timing;
        out["name_s"] = timing.name;
        out["connect_s"] = timing.connect;
        out["tls_s"] = timing.app;
        out["first_byte_s"] = timing.firstByte;
        out["total_s"] = timing.total;
        out["bytes"] = timing.bytes;
    }
    out["outcome"] = outcomeName(request.outcome);
    out["text"] = printable(report.outcomeText(request));
    if (request.httpStatus) {
        out["http_status"] = *request.httpStatus;
    }
    if (request.retryAfterSec) {
        out["retry_after_s"] = *request.retryAfterSec;
    }
    if (request.curlError) {
        out["curl_error"] = *request.curlError;
        text("curl_text", request.curlText);
    }
    if (request.performFailed) {
        out["perform_failed"] = *request.performFailed;
    }
    if (request.wedge) {
        out["wedged_from"] = isoTime(report.wedges[*request.wedge].fromUs);
    }
    if (request.replyDropped) {
        out["reply_dropped"] = true;
    }
    return out;
}

Json wedgeJson(const Report& report, const Wedge& wedge) {
    const Request& cause = report.requests[wedge.request];
    Json out = {{"controller", printable(wedge.controller)}, {"from", isoTime(wedge.fromUs)}};
    if (wedge.untilUs) {
        out["until"] = isoTime(*wedge.untilUs);
        out["ended_by"] = wedge.freed ? "a result from outside" : "the agent's end";
    }
    out["expired_meanwhile"] = wedge.expired;
    out["client"] = printable(cause.client);
    if (cause.txId) {
        out["tx_id"] = *cause.txId;
    }
    return out;
}

Json summaryJson(const Summary& summary) {
    Json outcomes = Json::object();
    for (size_t i = 0; i < kOutcomes; ++i) {
        if (summary.outcomes[i] > 0) {
            outcomes[outcomeName(static_cast<Outcome>(i))] = summary.outcomes[i];
        }
    }
    Json seconds = Json::object();
    for (const auto& figure : summary.figures) {
        const Percentiles& p = figure.seconds;
        seconds[figure.name] = {{"count", p.count}, {"p50", p.p50}, {"p90", p.p90}, {"p99", p.p99}, {"max", p.max}};
    }
    return {{"outcomes", outcomes}, {"bytes", summary.bytes}, {"seconds", seconds}};
}

}  // namespace

Json jsonReport(const Report& report) {
    Json out = {{"from", isoTime(report.fromUs)},
                {"to", isoTime(report.toUs)},
                {"whole_seconds", report.wholeSeconds},
                {"requests", Json::array()},
                {"wedges", Json::array()},
                {"runs", Json::array()},
                {"notes", report.notes},
                {"summary", summaryJson(summaryOf(report))}};
    for (const Request& request : report.requests) {
        out["requests"].push_back(requestJson(report, request));
    }
    for (const Wedge& wedge : report.wedges) {
        out["wedges"].push_back(wedgeJson(report, wedge));
    }
    for (const Run& run : report.runs) {
        out["runs"].push_back({{"pid", run.pid},
                               {"from", isoTime(run.fromUs)},
                               {"to", isoTime(run.toUs)},
                               {"start_seen", run.sawStart},
                               {"stop_seen", run.sawStop},
                               {"requests", run.requests}});
    }
    return out;
}

std::string dumpJson(const Json& json, bool pretty) {
    return json.dump(pretty ? 2 : -1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace mqctl::report
