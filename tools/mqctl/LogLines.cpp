#include "LogLines.h"

#include <android/log.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace mqctl {

namespace {

std::atomic<bool> shown{false};
std::mutex mutex;
std::string last;  // guarded by mutex

}  // namespace

void showLogLines(bool show) {
    shown.store(show);
}

std::string lastLogLine() {
    const std::lock_guard lock(mutex);
    const size_t place = last.find("] ");
    return place == std::string::npos ? last : last.substr(place + 2);
}

}  // namespace mqctl

/// Takes precedence over the log library's: no line of this process goes anywhere but here.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): liblog's names are its own
extern "C" int __android_log_print(int /*priority*/, const char* tag, const char* format, ...) {
    char line[1024];
    va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(line, sizeof(line), format, args);
    va_end(args);
    if (length < 0) {
        return length;
    }
    if (mqctl::shown.load()) {
        std::fprintf(stderr, "* log %s: %s\n", tag, line);
    }
    const std::lock_guard lock(mqctl::mutex);
    mqctl::last = line;
    return length;
}
