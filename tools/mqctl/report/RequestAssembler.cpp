#include "report/RequestAssembler.h"

#include <algorithm>
#include <numeric>
#include <string>

namespace mqctl::report {

void RequestAssembler::addLine(std::string_view raw) {
    ++mLines;
    auto line = readLogLine(raw);
    if (!line) {
        return;
    }
    auto event = readLogEvent(*line);
    if (event) {
        line->text.clear();
        mEvents.emplace_back(std::move(*line), std::move(*event));
    }
}

std::vector<RunAssembler> RequestAssembler::assembleRuns() {
    std::vector<RunAssembler> runs;
    std::map<int, size_t> current;  // by pid
    for (const auto& [line, event] : mEvents) {
        auto found = current.find(line.pid);
        if (found == current.end() || runs[found->second].startsAnew(event)) {
            runs.emplace_back(line.pid, line.timeUs);
            found = current.insert_or_assign(line.pid, runs.size() - 1).first;
        }
        runs[found->second].take(event, line);
    }
    return runs;
}

Report RequestAssembler::finish() {
    Report report;
    report.lines = mLines;
    std::vector<LogStamp> stamps;
    stamps.reserve(mEvents.size());
    report.wholeSeconds = !mEvents.empty();
    for (const auto& [line, event] : mEvents) {
        stamps.push_back(line.stamp);
        ++report.forms[static_cast<size_t>(line.form)];
        report.wholeSeconds = report.wholeSeconds && line.stamp.wholeSeconds;
        report.zoneless = report.zoneless || (!line.stamp.epochUs && !line.stamp.zoneMinutes);
    }
    const std::vector<int64_t> times = resolveStamps(stamps, mNow);
    for (size_t i = 0; i < mEvents.size(); ++i) {
        mEvents[i].first.timeUs = times[i];
    }
    std::vector<RunAssembler> runs = assembleRuns();
    runs.erase(std::remove_if(runs.begin(), runs.end(), [](const RunAssembler& run) { return !run.isAgent(); }),
               runs.end());
    size_t undecided = 0;
    for (size_t i = 0; i < runs.size(); ++i) {
        runs[i].finish(i + 1 < runs.size());
        undecided += runs[i].undecided();
        takeRun(runs[i], &report);
    }
    if (!runs.empty()) {
        report.understood = mEvents.size();
    }
    // By their beginning; a wedge follows its request.
    std::vector<size_t> order(report.requests.size());
    std::iota(order.begin(), order.end(), size_t{0});
    std::stable_sort(order.begin(), order.end(), [&report](size_t a, size_t b) {
        return report.requests[a].beginUs() < report.requests[b].beginUs();
    });
    std::vector<Request> sorted;
    sorted.reserve(order.size());
    for (const size_t index : order) {
        if (const auto wedge = report.requests[index].wedge) {
            report.wedges[*wedge].request = sorted.size();
        }
        sorted.push_back(std::move(report.requests[index]));
    }
    report.requests = std::move(sorted);
    addNotes(&report, undecided);
    return report;
}

void RequestAssembler::takeRun(RunAssembler& run, Report* report) const {
    if (report->runs.empty()) {
        report->fromUs = run.run().fromUs;
        report->toUs = run.run().toUs;
    }
    report->fromUs = std::min(report->fromUs, run.run().fromUs);
    report->toUs = std::max(report->toUs, run.run().toUs);
    report->runs.push_back(run.run());
    const size_t first_request = report->requests.size();
    const size_t first_wedge = report->wedges.size();
    for (Request& request : run.requests()) {
        if (request.wedge) {
            *request.wedge += first_wedge;
        }
        report->requests.push_back(std::move(request));
    }
    for (Wedge& wedge : run.wedges()) {
        wedge.request += first_request;
        report->wedges.push_back(wedge);
    }
}

void RequestAssembler::addNotes(Report* report, size_t undecided) const {
    const auto any = [report](bool Run::*seen) {
        return std::any_of(report->runs.begin(), report->runs.end(),
                           [seen](const Run& run) { return run.requests > 0 && !(run.*seen); });
    };
    std::vector<std::string>& notes = report->notes;
    if (any(&Run::sawJobs)) {
        notes.emplace_back(
            "No line of a request that was started, at least in one run of the agent: which client, which URL and "
            "what succeeded are logged at DEBUG_GLOBAL_LOG_LEVEL 3 and above.");
    }
    if (any(&Run::sawArrivals)) {
        notes.emplace_back(
            "No arrivals, at least in one run of the agent: how long a request waited, and whose it was when it "
            "expired waiting, are logged at DEBUG_GLOBAL_LOG_LEVEL 4 and above.");
    }
    if (report->wholeSeconds) {
        notes.emplace_back(
            "The log's stamps are whole seconds: when something began, and how long it waited, is right within a "
            "second. The parts of a transfer are the agent's own figures and exact. To have finer stamps, "
            "pipe the agent's log through \"ts '%Y-%m-%dT%H:%M:%.S'\", or take the journal's.");
    }
    if (report->zoneless) {
        notes.emplace_back("The log's stamps have no zone: taken as this machine's local time.");
    }
    if (undecided > 0) {
        notes.push_back(std::to_string(undecided) +
                        " of the requests with an unknown outcome expired waiting; which of them is logged at "
                        "DEBUG_GLOBAL_LOG_LEVEL 5.");
    }
}

}  // namespace mqctl::report
