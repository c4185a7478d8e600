#pragma once

#include <ctime>
#include <deque>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

#include "report/LogEvent.h"
#include "report/Report.h"
#include "report/RunAssembler.h"

namespace mqctl::report {

/// Reads a log line by line and makes the report of it.
class RequestAssembler {
public:
    /// @param now what the years of stamps without one are reckoned from
    explicit RequestAssembler(std::time_t now) : mNow(now) {}

    void addLine(std::string_view raw);
    /// The whole log, in the order in which it was written.
    [[nodiscard]] Report finish();

private:
    [[nodiscard]] std::vector<RunAssembler> assembleRuns();
    void takeRun(RunAssembler& run, Report* report) const;
    void addNotes(Report* report, size_t undecided) const;

    std::time_t mNow;
    size_t mLines = 0;
    std::vector<std::pair<LogLine, LogEvent>> mEvents;
};

}  // namespace mqctl::report
