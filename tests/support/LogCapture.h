#pragma once

#include <string>
#include <vector>

/// Stands in for the Android log of the test program: its own __android_log_print takes precedence over liblog's, so
/// every line of the process passes here. Lines of the framework look like "[component] text" under the tag "KVIA" (or
/// "ZVALOG"); lines of the second road carry their module's tag and "function:line] text".
namespace test_support {

struct LogLine {
    int priority;
    std::string tag;
    std::string text;
};

/// Collects the lines of every thread from construction to destruction; captures nest, each sees the lines of its own
/// time. Any thread may ask.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    [[nodiscard]] std::vector<LogLine> lines() const;
    /// The texts alone, in order.
    [[nodiscard]] std::vector<std::string> texts() const;
    /// Lines whose text contains the given one.
    [[nodiscard]] size_t count(const std::string& part) const;
    [[nodiscard]] bool contains(const std::string& part) const { return count(part) > 0; }
    /// Waits until count(part) is at least `times`; false after 30 seconds.
    [[nodiscard]] bool waitFor(const std::string& part, size_t times = 1) const;
    void clear();

private:
    std::vector<LogLine> mLines;
};

}  // namespace test_support
