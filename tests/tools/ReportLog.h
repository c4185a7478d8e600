#pragma once

#include <ctime>
#include <string>

#include "report/LogStamp.h"
#include "report/RequestAssembler.h"

namespace mqctl::report {

/// 2024-06-15 12:00:00 local time: what the logs of the tests are read at.
inline std::time_t june2024() {
    std::tm broken{};
    broken.tm_year = 124;
    broken.tm_mon = 5;
    broken.tm_mday = 15;
    broken.tm_hour = 12;
    broken.tm_isdst = -1;
    return std::mktime(&broken);
}

inline Report reportOf(const std::string& log, std::time_t now = june2024()) {
    RequestAssembler assembler(now);
    for (size_t at = 0; at < log.size();) {
        const size_t end = std::min(log.find('\n', at), log.size());
        assembler.addLine(std::string_view(log).substr(at, end - at));
        at = end + 1;
    }
    return assembler.finish();
}

/// Writes a log as logcat prints it: who says what, a millisecond apart unless told otherwise.
class LogWriter {
public:
    LogWriter& at(const std::string& time) {
        mTime = time;
        return *this;
    }
    LogWriter& line(int tid, char priority, const std::string& text) {
        mLog += "06-14 " + mTime + " " + std::to_string(mPid) + " " + std::to_string(tid) + " " + priority +
                " KVIA    : " + text + "\n";
        return *this;
    }
    LogWriter& pid(int pid) {
        mPid = pid;
        return *this;
    }
    /// A receiving thread takes a request; level 4.
    LogWriter& arrival(int tid, const std::string& client, int txId, const std::string& method = "GET") {
        return line(tid, 'D', "[MqClientIpcReciver] FROM: " + client)
            .line(tid, 'D', "[MqClientIpcReciver] REQ:  " + method)
            .line(tid, 'D', "[MqClientIpcReciver] TX-ID:  " + std::to_string(txId));
    }
    /// A worker takes a job.
    LogWriter& job(const std::string& controller, const std::string& client, int txId,
                   const std::string& method = "GET", const std::string& url = "http://h/a") {
        const std::string tag = "[" + controller + "-worker] ";
        line(50, 'I', tag + "FROM: " + client).line(50, 'I', tag + "REQ:  " + method);
        line(50, 'I', tag + "TX-ID:  " + std::to_string(txId));
        return method == "GET" || method == "POST" ? line(50, 'I', tag + "URL:  " + url) : *this;
    }
    LogWriter& result(const std::string& controller, int status) {
        const std::string tag = "[" + controller + "-worker] ";
        return line(50, 'I', tag + "HTTP response code: " + std::to_string(status))
            .line(50, 'I',
                  tag + "inet time report: name 0.0020, connect 0.0130, app 0.0410, tx 0.0800, total 0.0920, dl 42");
    }
    [[nodiscard]] const std::string& text() const { return mLog; }
    [[nodiscard]] Report report() const { return reportOf(mLog); }

private:
    std::string mTime = "12:03:01.000";
    int mPid = 40;
    std::string mLog;
};

}  // namespace mqctl::report
