#include "support/LogCapture.h"

#include <android/log.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace test_support {

struct LogCapture::State {
    mutable std::mutex mutex;
    mutable std::condition_variable arrived;
    std::vector<LogLine> lines;

    [[nodiscard]] size_t countLocked(const std::string& part) const {
        return static_cast<size_t>(std::count_if(lines.begin(), lines.end(), [&](const LogLine& line) {
            return line.text.find(part) != std::string::npos;
        }));
    }
};

namespace {

// Never destroyed: threads of a test may log until the very end of the process.
std::mutex& registryMutex() {
    static auto* mutex = new std::mutex;
    return *mutex;
}

std::vector<std::shared_ptr<LogCapture::State>>& registry() {
    static auto* captures = new std::vector<std::shared_ptr<LogCapture::State>>;
    return *captures;
}

}  // namespace

LogCapture::LogCapture() : mState(std::make_shared<State>()) {
    const std::lock_guard guard(registryMutex());
    registry().push_back(mState);
}

LogCapture::~LogCapture() {
    const std::lock_guard guard(registryMutex());
    std::erase(registry(), mState);
}

std::vector<LogLine> LogCapture::lines() const {
    const std::lock_guard guard(mState->mutex);
    return mState->lines;
}

std::vector<std::string> LogCapture::texts() const {
    std::vector<std::string> result;
    for (LogLine& line : lines()) {
        result.push_back(std::move(line.text));
    }
    return result;
}

size_t LogCapture::count(const std::string& part) const {
    const std::lock_guard guard(mState->mutex);
    return mState->countLocked(part);
}

bool LogCapture::waitFor(const std::string& part, size_t times) const {
    std::unique_lock lock(mState->mutex);
    return mState->arrived.wait_for(lock, std::chrono::seconds(30), [&] { return mState->countLocked(part) >= times; });
}

void LogCapture::clear() {
    const std::lock_guard guard(mState->mutex);
    mState->lines.clear();
}

}  // namespace test_support

extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...) {
    char text[2048];
    va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    const std::lock_guard guard(test_support::registryMutex());
    for (const auto& capture : test_support::registry()) {
        const std::lock_guard state_guard(capture->mutex);
        capture->lines.push_back({priority, tag != nullptr ? tag : "", text});
        capture->arrived.notify_all();
    }
    return length;
}
