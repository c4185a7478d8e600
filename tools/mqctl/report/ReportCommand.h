#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace mqctl {

struct ReportOptions {
    std::vector<std::string> logs;  ///< "-": standard input, as when there are none
    std::string htmlFile;           ///< "-": standard output, in the table's place
    std::string harFile;            ///< likewise
    // The tool's global options:
    std::string json;  ///< "short" or "pretty"; empty: a table
    std::string client;
    std::string since;
    double slowSec = 0;
    bool summary = false;
    bool urls = false;
    bool noQuery = false;
    bool noLegend = false;
    bool quiet = false;
};

/// Adds "report" to the tool's commands.
CLI::App* addReportCommand(CLI::App& app, ReportOptions* options);

/// Reads the agent's log and says what became of each request. @return an ExitCode
int runReport(const ReportOptions& options);

}  // namespace mqctl
