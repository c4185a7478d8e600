#include "support/LogCapture.h"

#include <android/log.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace test_support {
namespace {

struct Registry {
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<std::vector<LogLine>*> captures;
};

/// Never destroyed: threads of a test may log until the very end of the process.
Registry& registry() {
    static auto* instance = new Registry;
    return *instance;
}

size_t occurrences(const std::vector<LogLine>& lines, const std::string& part) {
    return static_cast<size_t>(std::count_if(
        lines.begin(), lines.end(), [&](const LogLine& line) { return line.text.find(part) != std::string::npos; }));
}

}  // namespace

LogCapture::LogCapture() {
    const std::lock_guard guard(registry().mutex);
    registry().captures.push_back(&mLines);
}

LogCapture::~LogCapture() {
    const std::lock_guard guard(registry().mutex);
    std::erase(registry().captures, &mLines);
}

std::vector<LogLine> LogCapture::lines() const {
    const std::lock_guard guard(registry().mutex);
    return mLines;
}

std::vector<std::string> LogCapture::texts() const {
    std::vector<std::string> result;
    for (const LogLine& line : lines()) {
        result.push_back(line.text);
    }
    return result;
}

size_t LogCapture::count(const std::string& part) const {
    return occurrences(lines(), part);
}

bool LogCapture::waitFor(const std::string& part, size_t times) const {
    std::unique_lock lock(registry().mutex);
    return registry().arrived.wait_for(lock, std::chrono::seconds(30),
                                       [&] { return occurrences(mLines, part) >= times; });
}

void LogCapture::clear() {
    const std::lock_guard guard(registry().mutex);
    mLines.clear();
}

}  // namespace test_support

extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...) {
    char text[2048];
    va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    test_support::Registry& registry = test_support::registry();
    const std::lock_guard guard(registry.mutex);
    for (std::vector<test_support::LogLine>* lines : registry.captures) {
        lines->push_back({priority, tag != nullptr ? tag : "", text});
    }
    registry.arrived.notify_all();
    return length;
}
