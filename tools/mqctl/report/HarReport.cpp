#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <numeric>
#include <vector>

#include "report/JsonReport.h"
#include "report/LogStamp.h"
#include "report/ReportText.h"

namespace mqctl::report {

namespace {

using Json = nlohmann::ordered_json;

constexpr double kAbsent = -1;
constexpr const char* kUnknownVersion = "unknown";

/// Milliseconds; the agent's figures have a tenth of one.
double ms(double seconds) {
    return std::round(seconds * 1e6) / 1e3;
}

Json header(const std::string& name, const std::string& value) {
    return {{"name", printable(name)}, {"value", printable(value)}};
}

/// The parameters of the URL; a viewer shows them in a list of their own.
Json queryOf(const std::string& url) {
    Json out = Json::array();
    const size_t begin = url.find('?');
    if (begin == std::string::npos) {
        return out;
    }
    const std::string query = url.substr(begin + 1, url.find('#', begin) - begin - 1);
    for (size_t at = 0; at <= query.size();) {
        const size_t end = std::min(query.find('&', at), query.size());
        const std::string pair = query.substr(at, end - at);
        const size_t equals = std::min(pair.find('='), pair.size());
        if (!pair.empty()) {
            out.push_back(header(pair.substr(0, equals), pair.substr(std::min(equals + 1, pair.size()))));
        }
        at = end + 1;
    }
    return out;
}

Json requestOf(const Request& request) {
    Json headers = Json::array();
    Json body_size = request.method == "GET" ? 0 : -1;
    std::string mime_type;
    for (const std::string& line : request.postHeaders) {
        const size_t colon = std::min(line.find(": "), line.size());
        const std::string name = line.substr(0, colon);
        const std::string value = line.substr(std::min(colon + 2, line.size()));
        headers.push_back(header(name, value));
        if (name == "Content-length" && !value.empty() && value.size() < 10 &&
            value.find_first_not_of("0123456789") == std::string::npos) {
            body_size = std::stoi(value);
        } else if (name == "Content-Type") {
            mime_type = value;
        }
    }
    Json out = {{"method", printable(request.method)},
                {"url", printable(request.url)},
                {"httpVersion", kUnknownVersion},
                {"cookies", Json::array()},
                {"headers", headers},
                {"queryString", queryOf(request.url)},
                {"headersSize", -1},
                {"bodySize", body_size}};
    if (!mime_type.empty()) {
        out["postData"] = {{"mimeType", printable(mime_type)},
                           {"params", Json::array()},
                           {"text", ""},
                           {"comment", "the body is not in the log"}};
    }
    return out;
}

Json responseOf(const Request& request, const std::string& outcome) {
    Json headers = Json::array();
    if (request.retryAfterSec) {
        headers.push_back(header("Retry-After", std::to_string(*request.retryAfterSec)));
    }
    const Json size = request.timing ? Json(request.timing->bytes) : Json(-1);
    return {{"status", request.httpStatus.value_or(0)},  // 0 is what browsers write for a failed request
            {"statusText", request.httpStatus ? "" : printable(outcome)},
            {"httpVersion", kUnknownVersion},
            {"cookies", Json::array()},
            {"headers", headers},
            {"content", {{"size", request.timing ? Json(request.timing->bytes) : Json(0)}, {"mimeType", ""}}},
            {"redirectURL", ""},
            {"headersSize", -1},
            {"bodySize", size}};
}

/// connect includes ssl; send is part of the wait, for the log does not part them.
Json timingsOf(const Request& request, double* total) {
    const Phases phases = phasesOf(request.timing.value_or(Timing()));
    const auto wait = request.waitSec();
    const double blocked = wait ? ms(*wait) : kAbsent;
    const double dns = phases.name ? ms(*phases.name) : kAbsent;
    const double ssl = phases.tls ? ms(*phases.tls) : kAbsent;
    const bool connected = phases.connect || phases.tls;
    const double connect = connected ? ms(phases.connect.value_or(0) + phases.tls.value_or(0)) : kAbsent;
    double first_byte = ms(phases.firstByte);
    if (!request.timing && request.startedUs && request.endedUs) {
        first_byte = ms(std::max(0.0, static_cast<double>(*request.endedUs - *request.startedUs) / 1e6));
    }
    const double receive = ms(phases.receive);
    *total = 0;
    for (const double part : {blocked, dns, connect, first_byte, receive}) {
        *total += part > 0 ? part : 0;
    }
    return {{"blocked", blocked}, {"dns", dns},         {"connect", connect}, {"send", 0},
            {"wait", first_byte}, {"receive", receive}, {"ssl", ssl}};
}

Json entryOf(const Report& report, const Request& request) {
    const std::string outcome = report.outcomeText(request);
    double total = 0;
    const Json timings = timingsOf(request, &total);
    std::string comment = request.controller + ", client " + request.client;
    if (request.txId) {
        comment += ", TX-ID " + std::to_string(*request.txId);
    }
    comment += ": " + outcome;
    Json out = {{"startedDateTime", isoTime(request.beginUs())},
                {"time", std::round(total * 1e3) / 1e3},
                {"request", requestOf(request)},
                {"response", responseOf(request, outcome)},
                {"cache", Json::object()},
                {"timings", timings},
                {"comment", printable(comment)}};
    if (!request.controller.empty()) {
        out["pageref"] = printable(request.controller);
    }
    return out;
}

}  // namespace

Json harReport(const Report& report) {
    Json entries = Json::array();
    Json pages = Json::array();
    for (const Request& request : report.requests) {
        if (request.url.empty()) {
            continue;  // viewers insist on a URL, and it never came so far that the log has one
        }
        const std::string controller = printable(request.controller);
        const bool known = std::any_of(pages.begin(), pages.end(), [&controller](const Json& page) {
            return page["id"].get_ref<const std::string&>() == controller;
        });
        if (!known && !controller.empty()) {
            pages.push_back({{"startedDateTime", isoTime(request.beginUs())},
                             {"id", controller},
                             {"title", controller},
                             {"pageTimings", Json::object()}});
        }
        entries.push_back(entryOf(report, request));
    }
    Json log = {{"version", "1.2"}, {"creator", {{"name", "mqctl"}, {"version", MQCTL_VERSION}}}};
    log["pages"] = pages;
    log["entries"] = entries;
    const size_t left_out = report.requests.size() - entries.size();
    if (left_out > 0) {
        log["comment"] = std::to_string(left_out) + " requests without a URL in the agent's log are left out";
    }
    return {{"log", log}};
}

}  // namespace mqctl::report
