#include "Vitals.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <system_error>
#include <thread>

#include "Catalogue.h"

namespace chaos {

namespace {

/// libcurl keeps up to five idle connections for each of the two workers; one more may be closing.
constexpr size_t kMostConnections = 12;

/// What the heap may hold at the end beyond what it held after the warm-up, though it gives back what is free: pages on
/// which a small block lives on, buffers of open connections. A kilobyte lost by each of the thousands of requests is
/// more. The sanitizer's allocator keeps freed blocks; its own leak check is the better measure there.
constexpr size_t kMemoryKiB = size_t{1024} * (kSanitized ? 32 : 3);

/// The unix sockets of the machine, as descriptors name them. TCP's own table does not do to tell connections apart: one
/// that has been reset is in it no more, though libcurl keeps it until it wants to use it again.
std::set<std::string> unixSockets() {
    std::set<std::string> sockets;
    std::ifstream table("/proc/net/unix");
    std::string line;
    std::getline(table, line);
    while (std::getline(table, line)) {
        std::istringstream words(line);
        std::string word;
        for (int i = 0; i < 7; ++i) {
            words >> word;
        }
        sockets.insert("socket:[" + word + "]");
    }
    return sockets;
}

/// "123" of "... [NAME-worker] TX-ID:  123"; the part after `what`, if the line has it.
std::optional<std::string> after(const std::string& line, const std::string& what) {
    const size_t at = line.find(what);
    return at == std::string::npos ? std::nullopt : std::optional(line.substr(at + what.size()));
}

/// The transfer was performed: a result that a stopping controller did not take, and a missing timing report.
bool hadResult(int code) {
    return code == 91 || (code >= 101 && code <= 106);
}

}  // namespace

Vitals Vitals::of(pid_t process) {
    Vitals vitals;
    const std::string directory = "/proc/" + std::to_string(process);
    std::ifstream status(directory + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.starts_with("RssAnon:")) {
            vitals.anonymousKiB = std::strtoul(line.c_str() + 8, nullptr, 10);
        }
    }
    const std::set<std::string> local = unixSockets();
    std::error_code gone;
    for (const auto& entry : std::filesystem::directory_iterator(directory + "/fd", gone)) {
        const std::string target = std::filesystem::read_symlink(entry.path(), gone).string();
        const bool connection = target.starts_with("socket:") && !local.contains(target);
        ++(connection ? vitals.connections : vitals.files);
    }
    return vitals;
}

Vitals Vitals::settled(pid_t process) {
    Vitals least = of(process);
    for (int i = 0; i < 60; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        const Vitals now = of(process);
        least.anonymousKiB = std::min(least.anonymousKiB, now.anonymousKiB);
        least.files = std::min(least.files, now.files);
        least.connections = std::min(least.connections, now.connections);
    }
    return least;
}

std::string Vitals::text() const {
    return std::to_string(anonymousKiB) + " KiB anonymous, " + std::to_string(files) + " files, " +
           std::to_string(connections) + " connections";
}

void compareVitals(const Vitals& before, const Vitals& after, Ledger& ledger) {
    if (after.anonymousKiB > before.anonymousKiB + kMemoryKiB) {
        ledger.violation("the agent's memory grew from " + std::to_string(before.anonymousKiB) + " to " +
                         std::to_string(after.anonymousKiB) + " KiB");
    }
    if (after.files > before.files || after.connections > kMostConnections) {
        ledger.violation("the agent's descriptors: " + before.text() + "; then " + after.text());
    }
}

size_t readLog(const std::string& log, Ledger& ledger) {
    size_t rejections = 0;
    std::map<std::string, std::optional<int32_t>> current;  // the TX-ID of each worker's job
    std::istringstream lines(log);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.find("Sanitizer") != std::string::npos || line.find("runtime error") != std::string::npos) {
            ledger.violation("the agent's log: " + line);
        }
        for (const std::string& controller : kControllers) {
            const std::optional<std::string> text = after(line, "[" + controller + "-worker] ");
            if (!text.has_value()) {
                continue;
            }
            std::optional<int32_t>& job = current[controller];
            if (const std::optional<std::string> number = after(*text, "TX-ID:  ")) {
                job = static_cast<int32_t>(std::strtol(number->c_str(), nullptr, 10));
            } else if (text->starts_with("inet time report")) {
                job.reset();
            } else if (const std::optional<std::string> code = after(*text, "perform failed ")) {
                const int value = static_cast<int>(std::strtol(code->c_str(), nullptr, 10));
                if (!hadResult(value)) {
                    ++rejections;
                    ledger.explainRejection(job, value);
                }
                job.reset();
            }
        }
    }
    return rejections;
}

}  // namespace chaos
