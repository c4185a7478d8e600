#include "report/Summary.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "report/LogStamp.h"
#include "report/ReportText.h"
#include "report/TextTable.h"

namespace mqctl::report {

Percentiles percentilesOf(std::vector<double> values) {
    Percentiles result;
    result.count = values.size();
    if (values.empty()) {
        return result;
    }
    std::sort(values.begin(), values.end());
    const auto rank = [&values](double part) {
        const auto at = static_cast<size_t>(std::ceil(part * static_cast<double>(values.size())));
        return values[std::max<size_t>(at, 1) - 1];
    };
    result.p50 = rank(0.50);
    result.p90 = rank(0.90);
    result.p99 = rank(0.99);
    result.max = values.back();
    return result;
}

Summary summaryOf(const Report& report) {
    constexpr std::array kFigures = {"wait", "name", "connect", "TLS", "first byte", "receive", "total"};
    std::array<std::vector<double>, kFigures.size()> values;
    const auto add = [&values](size_t figure, std::optional<double> value) {
        if (value) {
            values[figure].push_back(*value);
        }
    };
    Summary summary;
    std::map<int, size_t> statuses;
    for (const std::string& name : report.controllers()) {
        Summary::Controller controller;
        controller.name = name;
        summary.controllers.push_back(controller);
    }
    for (const Request& request : report.requests) {
        auto& controller = *std::find_if(summary.controllers.begin(), summary.controllers.end(),
                                         [&request](const auto& entry) { return entry.name == request.controller; });
        const auto outcome = static_cast<size_t>(request.outcome);
        ++summary.outcomes[outcome];
        ++controller.outcomes[outcome];
        ++controller.requests;
        if (request.outcome == Outcome::kResult && request.httpStatus) {
            ++statuses[*request.httpStatus];
        }
        add(0, request.waitSec());
        if (!request.timing) {
            continue;
        }
        const Phases phases = phasesOf(*request.timing);
        add(1, phases.name);
        add(2, phases.connect);
        add(3, phases.tls);
        add(4, phases.firstByte);
        add(5, phases.receive);
        add(6, request.timing->total);
        summary.bytes += request.timing->bytes;
        controller.bytes += request.timing->bytes;
        controller.busySec += request.timing->total;
    }
    summary.statuses.assign(statuses.begin(), statuses.end());
    for (size_t i = 0; i < kFigures.size(); ++i) {
        if (!values[i].empty()) {
            summary.figures.push_back({kFigures[i], percentilesOf(std::move(values[i]))});
        }
    }
    return summary;
}

std::string summaryText(const Report& report) {
    const Summary summary = summaryOf(report);
    const double span = static_cast<double>(report.toUs - report.fromUs) / 1e6;
    std::string out = timeText(report.fromUs, 0, true) + " to " + timeText(report.toUs, 0, true) + " (" +
                      duration(span) + "), " + std::to_string(report.requests.size()) + " requests, " +
                      std::to_string(summary.bytes) + " bytes, " + std::to_string(report.runs.size()) +
                      (report.runs.size() == 1 ? " run of the agent\n\n" : " runs of the agent\n\n");

    TextTable outcomes;
    outcomes.addColumn("OUTCOME", TextTable::Align::kLeft);
    outcomes.addColumn("ALL", TextTable::Align::kRight);
    for (const auto& controller : summary.controllers) {
        outcomes.addColumn(controller.name.empty() ? "unknown" : shortened(printable(controller.name), 24),
                           TextTable::Align::kRight);
    }
    for (size_t i = 0; i < kOutcomes; ++i) {
        if (summary.outcomes[i] == 0) {
            continue;
        }
        std::vector<std::string> row = {outcomeName(static_cast<Outcome>(i)), std::to_string(summary.outcomes[i])};
        for (const auto& controller : summary.controllers) {
            row.push_back(std::to_string(controller.outcomes[i]));
        }
        outcomes.addRow(std::move(row));
    }
    out += outcomes.text(true, 0);
    for (size_t i = 0; i < summary.statuses.size(); ++i) {
        out += (i == 0 ? "\nHTTP status: " : ", ") + std::to_string(summary.statuses[i].first) + " " +
               std::to_string(summary.statuses[i].second) + "x";
    }
    out += summary.statuses.empty() ? "\n" : "\n\n";

    TextTable figures;
    figures.addColumn("SECONDS", TextTable::Align::kLeft);
    for (const char* heading : {"COUNT", "P50", "P90", "P99", "MAX"}) {
        figures.addColumn(heading, TextTable::Align::kRight);
    }
    for (const auto& figure : summary.figures) {
        const Percentiles& p = figure.seconds;
        figures.addRow(
            {figure.name, std::to_string(p.count), fixed(p.p50, 3), fixed(p.p90, 3), fixed(p.p99, 3), fixed(p.max, 3)});
    }
    return out + figures.text(true, 0);
}

}  // namespace mqctl::report
