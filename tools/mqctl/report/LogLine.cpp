#include "report/LogLine.h"

#include <charconv>
#include <nlohmann/json.hpp>

namespace mqctl::report {

namespace {

using nlohmann::json;

constexpr std::string_view kPriorities = "VDIWEFS";

void skipBlanks(std::string_view* text) {
    while (!text->empty() && (text->front() == ' ' || text->front() == '\t')) {
        text->remove_prefix(1);
    }
}

bool takeNumber(std::string_view* text, int* value) {
    skipBlanks(text);
    const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), *value);
    const auto length = static_cast<size_t>(end - text->data());
    if (error != std::errc{} || *value < 0 || (length < text->size() && (*text)[length] != ' ')) {
        return false;
    }
    text->remove_prefix(length);
    return true;
}

bool takePriority(std::string_view* text, char* priority) {
    if (text->size() < 2 || (*text)[1] != ' ' || kPriorities.find(text->front()) == std::string_view::npos) {
        return false;
    }
    *priority = text->front();
    text->remove_prefix(2);
    return true;
}

/// One blank separates the text from what stands before it; further ones are its own.
std::string textOf(std::string_view rest) {
    if (!rest.empty() && rest.front() == ' ') {
        rest.remove_prefix(1);
    }
    return std::string(rest);
}

/// "TAG P MM-DD HH:MM:SS PID TID text"
std::optional<LogLine> readPlain(std::string_view raw) {
    LogLine line;
    const size_t tag_end = raw.find(' ');
    if (tag_end == std::string_view::npos || tag_end == 0) {
        return std::nullopt;
    }
    line.tag = raw.substr(0, tag_end);
    std::string_view rest = raw.substr(tag_end + 1);
    if (!takePriority(&rest, &line.priority)) {
        return std::nullopt;
    }
    const auto stamp = takeStamp(&rest);
    if (!stamp || stamp->month == 0 || !takeNumber(&rest, &line.pid) || !takeNumber(&rest, &line.tid)) {
        return std::nullopt;
    }
    line.stamp = *stamp;
    line.text = textOf(rest);
    return line;
}

/// Behind the stamp: "PID TID P TAG: text", with a user before PID when "-v uid" was given.
std::optional<LogLine> readLogcat(std::string_view rest) {
    LogLine line;
    line.form = LogForm::kLogcat;
    std::string_view user = rest;
    int ignored = 0;
    const bool two = takeNumber(&rest, &line.pid) && takeNumber(&rest, &line.tid);
    skipBlanks(&rest);
    if (!two || !takePriority(&rest, &line.priority)) {
        skipBlanks(&user);
        const size_t end = user.find(' ');
        rest = end == std::string_view::npos ? std::string_view() : user.substr(end);
        if (!takeNumber(&rest, &line.pid) || !takeNumber(&rest, &line.tid)) {
            return std::nullopt;
        }
        std::string_view third = rest;
        if (takeNumber(&third, &ignored)) {
            line.pid = line.tid;
            line.tid = ignored;
            rest = third;
        }
        skipBlanks(&rest);
        if (!takePriority(&rest, &line.priority)) {
            return std::nullopt;
        }
    }
    const size_t colon = rest.find(": ");
    const size_t tag_end = colon != std::string_view::npos ? colon : rest.find(':');
    if (tag_end == std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view tag = rest.substr(0, tag_end);
    while (!tag.empty() && tag.back() == ' ') {
        tag.remove_suffix(1);
    }
    line.tag = tag;
    line.text = textOf(rest.substr(tag_end + 1));
    return line;
}

/// A time of day alone refines the workstation's own stamp when it is the same moment.
LogStamp betterStamp(const LogStamp& outer, const LogStamp& inner) {
    if (outer.epochUs || outer.month != 0) {
        return outer;
    }
    constexpr int kSameMoment = 2;
    const int apart = outer.secondOfDay() - inner.secondOfDay();
    if (outer.wholeSeconds || apart < -kSameMoment || apart > kSameMoment) {
        return inner;  // such as the seconds since the start, which "ts -s" gives
    }
    LogStamp refined = inner;
    refined.hour = outer.hour;
    refined.minute = outer.minute;
    refined.second = outer.second;
    refined.microsecond = outer.microsecond;
    refined.wholeSeconds = false;
    return refined;
}

/// A line that begins with a stamp: logcat's, or a workstation's line behind a foreign one.
std::optional<LogLine> readStamped(std::string_view raw) {
    std::string_view rest = raw;
    const auto stamp = takeStamp(&rest);
    if (!stamp || rest.empty() || rest.front() != ' ') {
        return std::nullopt;
    }
    if (stamp->epochUs || stamp->month != 0) {
        if (auto line = readLogcat(rest)) {
            line->stamp = *stamp;
            return line;
        }
    }
    skipBlanks(&rest);
    auto line = readPlain(rest);
    if (const size_t host = rest.find("]: "); !line && host != std::string_view::npos) {
        line = readPlain(rest.substr(host + 3));  // "HOST inet-agent[PID]: ", as journalctl prints it
    }
    if (line) {
        line->form = LogForm::kStamped;
        line->stamp = betterStamp(*stamp, line->stamp);
    }
    return line;
}

/// The journal writes what is no UTF-8 as an array of byte values.
std::string bytesOf(const json& value) {
    if (value.is_string()) {
        return value.get<std::string>();
    }
    std::string bytes;
    if (value.is_array()) {
        for (const json& byte : value) {
            if (byte.is_number_unsigned()) {
                bytes.push_back(static_cast<char>(byte.get<unsigned>() & 0xffU));
            }
        }
    }
    return bytes;
}

bool numberOf(const json& entry, const char* name, int64_t* value) {
    const auto field = entry.find(name);
    if (field == entry.end() || !field->is_string()) {
        return false;
    }
    const auto& text = field->get_ref<const std::string&>();
    return std::from_chars(text.data(), text.data() + text.size(), *value).ec == std::errc{};
}

std::optional<LogLine> readJournal(std::string_view raw) {
    const json entry = json::parse(raw, nullptr, false);
    if (!entry.is_object()) {
        return std::nullopt;
    }
    const auto message = entry.find("MESSAGE");
    int64_t time = 0;
    if (message == entry.end() ||
        (!numberOf(entry, "_SOURCE_REALTIME_TIMESTAMP", &time) && !numberOf(entry, "__REALTIME_TIMESTAMP", &time))) {
        return std::nullopt;
    }
    constexpr int64_t kYear5000 = 95617584000000000;  // so that no difference of times overflows
    if (time < 0 || time > kYear5000) {
        return std::nullopt;
    }
    const std::string text = bytesOf(*message);
    std::optional<LogLine> line = readPlain(text);
    if (!line) {
        // Not written by liblog's workstation side: the journal's own fields must do.
        constexpr std::string_view kBySeverity = "FFFEWIID";
        line.emplace();
        int64_t pid = 0;
        int64_t tid = 0;
        int64_t severity = 0;
        (void)(numberOf(entry, "_PID", &pid) || numberOf(entry, "SYSLOG_PID", &pid));
        (void)numberOf(entry, "TID", &tid);
        if (numberOf(entry, "PRIORITY", &severity) && severity >= 0 && severity < 8) {
            line->priority = kBySeverity[static_cast<size_t>(severity)];
        }
        line->pid = static_cast<int>(pid);
        line->tid = static_cast<int>(tid);
        if (const auto tag = entry.find("SYSLOG_IDENTIFIER"); tag != entry.end()) {
            line->tag = bytesOf(*tag);
        }
        line->text = text;
    }
    line->form = LogForm::kJournal;
    line->stamp = LogStamp();
    line->stamp.epochUs = time;
    line->stamp.wholeSeconds = false;
    return line;
}

}  // namespace

std::optional<LogLine> readLogLine(std::string_view raw) {
    while (!raw.empty() && (raw.back() == '\r' || raw.back() == '\n')) {
        raw.remove_suffix(1);
    }
    if (raw.empty()) {
        return std::nullopt;
    }
    if (raw.front() == '{') {
        return readJournal(raw);
    }
    if (auto line = readStamped(raw)) {
        return line;
    }
    return readPlain(raw);
}

}  // namespace mqctl::report
