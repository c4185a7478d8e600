#include "report/ReportCommand.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

#include "report/HtmlReport.h"
#include "report/JsonReport.h"
#include "report/LogStamp.h"
#include "report/ReportText.h"
#include "report/RequestAssembler.h"
#include "report/Summary.h"
#include "report/TextTable.h"

namespace mqctl {

namespace {

using report::Report;
using report::Request;

enum : int { kDone = 0, kFailed = 1, kWrongUsage = 2, kMalformed = 3 };  // as everywhere in mqctl

constexpr const char* kStandardStream = "-";

void say(const std::string& text) {
    std::fprintf(stderr, "mqctl: %s\n", report::printable(text).c_str());
}

int fail(const ReportOptions& options, int code, const std::string& text) {
    if (options.json.empty()) {
        say(text);
    } else {
        std::fprintf(stderr, "%s", report::dumpJson({{"error", text}, {"exit", code}}, false).c_str());
    }
    return code;
}

int readLog(const ReportOptions& options, const std::string& path, report::RequestAssembler* assembler) {
    std::ifstream file;
    const bool from_input = path == kStandardStream;
    if (!from_input) {
        errno = 0;
        file.open(path, std::ios::binary);
    }
    std::istream& in = from_input ? std::cin : file;
    std::string line;
    while (std::getline(in, line)) {
        assembler->addLine(line);
    }
    if (!from_input && (!file.is_open() || file.bad())) {
        return fail(options, kWrongUsage, path + ": " + std::strerror(errno != 0 ? errno : EIO));
    }
    return kDone;
}

/// "12:03", "12:03:01" of the log's first day, or with a date: in microseconds.
bool readSince(const std::string& text, int64_t logBeginUs, int64_t* us) {
    const std::string whole = std::count(text.begin(), text.end(), ':') == 1 ? text + ":00" : text;
    std::string_view rest = whole;
    auto stamp = report::takeStamp(&rest);
    if (!stamp || !rest.empty()) {
        return false;
    }
    if (!stamp->epochUs && stamp->month == 0) {
        const std::string day = report::timeText(logBeginUs, 0, true).substr(0, 11);
        const std::string dated = day + whole;
        rest = dated;
        stamp = report::takeStamp(&rest);
    }
    *us = report::resolveStamps({*stamp}, std::time(nullptr)).front();
    return true;
}

/// Leaves what was asked for, and always the requests that wedged a controller.
void filter(const ReportOptions& options, int64_t sinceUs, Report* report) {
    std::vector<Request> kept;
    for (Request& request : report->requests) {
        const double taken = static_cast<double>(request.lastUs() - request.beginUs()) / 1e6;
        const double longest = std::max(taken, request.timing ? request.timing->total : 0);
        const bool wanted = (options.client.empty() || request.client == options.client) &&
                            request.beginUs() >= sinceUs && longest >= options.slowSec;
        if (wanted || request.wedge) {
            if (request.wedge) {
                report->wedges[*request.wedge].request = kept.size();
            }
            kept.push_back(std::move(request));
        }
    }
    report->requests = std::move(kept);
}

int writeTo(const ReportOptions& options, const std::string& path, const std::string& content) {
    errno = 0;
    if (path == kStandardStream) {
        const bool written =
            std::fwrite(content.data(), 1, content.size(), stdout) == content.size() && std::fflush(stdout) == 0;
        return written || errno == EPIPE
                   ? kDone
                   : fail(options, kFailed, std::string("standard output: ") + std::strerror(errno));
    }
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    file.close();
    if (!file) {
        return fail(options, kFailed, path + ": " + std::strerror(errno != 0 ? errno : EIO));
    }
    return kDone;
}

size_t terminalWidth() {
    winsize size{};
    return ::isatty(STDOUT_FILENO) != 0 && ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

std::string wedgeLine(const Report& report, const report::Wedge& wedge) {
    const Request& cause = report.requests[wedge.request];
    std::string out = wedge.controller + ": WEDGED from " + report::timeText(wedge.fromUs, report.timeDigits(), true);
    out += !wedge.untilUs ? " to the end of this log"
           : wedge.freed  ? " until a result from outside freed it"
                          : " until the agent ended";
    out += ", by the request of " + (cause.client.empty() ? "an unknown client" : cause.client) +
           (cause.txId ? " TX-ID " + std::to_string(*cause.txId) : std::string());
    return out + "; " + std::to_string(wedge.expired) + (wedge.expired == 1 ? " request" : " requests") +
           " expired meanwhile";
}

/// What goes to standard output.
std::string mainOutput(const ReportOptions& options, const Report& report) {
    if (!options.json.empty()) {
        return report::dumpJson(report::jsonReport(report), options.json == "pretty");
    }
    if (options.summary) {
        return report::summaryText(report);
    }
    return report::textTable(report, {!options.noLegend, options.urls, terminalWidth()});
}

int write(const ReportOptions& options, const Report& report, const std::string& title) {
    if (!options.htmlFile.empty()) {
        if (const int code = writeTo(options, options.htmlFile, report::htmlReport(report, title)); code != kDone) {
            return code;
        }
    }
    if (!options.harFile.empty()) {
        const std::string har = report::dumpJson(report::harReport(report), true);
        if (const int code = writeTo(options, options.harFile, har); code != kDone) {
            return code;
        }
    }
    if (options.htmlFile != kStandardStream && options.harFile != kStandardStream) {
        if (const int code = writeTo(options, kStandardStream, mainOutput(options, report)); code != kDone) {
            return code;
        }
    }
    if (options.quiet) {
        return kDone;
    }
    for (const report::Wedge& wedge : report.wedges) {
        say(wedgeLine(report, wedge));
    }
    for (const std::string& note : report.notes) {
        std::fprintf(stderr, "note: %s\n", note.c_str());
    }
    return kDone;
}

}  // namespace

CLI::App* addReportCommand(CLI::App& app, ReportOptions* options) {
    CLI::App* command = app.add_subcommand("report", "what became of each request, from the agent's log");
    command->add_option("LOG", options->logs, "the log, oldest file first; - or none: standard input")
        ->type_name("FILE");
    command->add_option("--html", options->htmlFile, "write a page with waterfalls")->type_name("FILE");
    command->add_option("--har", options->harFile, "write HAR 1.2")->type_name("FILE");
    command->add_flag("--summary", options->summary, "counts and percentiles instead of a table");
    command->add_option("--client", options->client, "only this client's requests")->type_name("NAME");
    command->add_option("--since", options->since, "only from this time on")->type_name("TIME");
    command->add_option("--slow", options->slowSec, "only what took as long")->type_name("SEC");
    command->add_flag("--urls", options->urls, "a column with the URLs");
    command->add_flag("--no-query", options->noQuery, "URLs without user, query and fragment");
    return command;
}

int runReport(const ReportOptions& options) {
    if (options.htmlFile == kStandardStream && options.harFile == kStandardStream) {
        return fail(options, kWrongUsage, "--html - and --har - both ask for standard output");
    }
    const std::vector<std::string> logs =
        options.logs.empty() ? std::vector<std::string>{kStandardStream} : options.logs;
    report::RequestAssembler assembler(std::time(nullptr));
    for (const std::string& log : logs) {
        if (const int code = readLog(options, log, &assembler); code != kDone) {
            return code;
        }
    }
    Report report = assembler.finish();
    if (report.understood == 0) {
        return fail(
            options, kMalformed,
            "no line of the agent in " + std::to_string(report.lines) +
                " lines (known forms: logcat -v threadtime, journalctl -o json, ts, and a workstation's plain log)");
    }
    int64_t since_us = INT64_MIN;
    if (!options.since.empty() && !readSince(options.since, report.fromUs, &since_us)) {
        return fail(options, kWrongUsage,
                    "--since " + options.since + ": no time (12:03, 12:03:01, 2024-01-31 12:03:01)");
    }
    filter(options, since_us, &report);
    if (options.noQuery) {
        for (Request& request : report.requests) {
            request.url = report::withoutSecrets(request.url);
        }
    }
    const bool named = options.logs.size() == 1 && options.logs.front() != kStandardStream;
    const std::string file = named ? options.logs.front().substr(options.logs.front().rfind('/') + 1) : "";
    return write(options, report, "Internet agent report" + (file.empty() ? file : ": " + file));
}

}  // namespace mqctl
