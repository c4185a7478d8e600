#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "report/LogStamp.h"

namespace mqctl::report {

/// Where a line comes from.
enum class LogForm {
    kLogcat,   ///< "logcat -v threadtime", also with year, zone, epoch, uid or microseconds
    kJournal,  ///< "journalctl -o json"
    kStamped,  ///< a workstation's line behind a stamp of its own: "ts", "journalctl -o short-precise"
    kPlain,    ///< a workstation's line: "TAG P MM-DD HH:MM:SS PID TID text", whole seconds
};

constexpr size_t kLogForms = 4;

/// One line of a log, taken apart but not understood.
struct LogLine {
    LogForm form = LogForm::kPlain;
    LogStamp stamp;
    int64_t timeUs = 0;  ///< filled in once the whole log is known
    int pid = 0;
    int tid = 0;          ///< 0: the line does not say
    char priority = ' ';  ///< V D I W E F
    std::string tag;
    std::string text;
};

/// Tells the form of each line by itself, so that a log may mix them.
/// @return nothing for a line of none of the forms
std::optional<LogLine> readLogLine(std::string_view raw);

}  // namespace mqctl::report
