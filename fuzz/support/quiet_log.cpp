#include <android/log.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "base/log.h"
#include "support/Input.h"

namespace fuzz {

namespace {

std::atomic<const char*> counted_part{nullptr};
std::atomic<int> counted_lines{0};

}  // namespace

void countLogLines(const char* part) {
    counted_part = part;
    counted_lines = 0;
}

int countedLogLines() {
    return counted_lines;
}

void quietLog(int framework_level) {
    zv_loc_fw::log_set_global_level(static_cast<zv_loc_fw::ERROR_LEVEL>(framework_level));
}

}  // namespace fuzz

// Takes precedence over liblog's: it is linked as an object.
extern "C" int __android_log_print(int /*prio*/, const char* /*tag*/, const char* fmt, ...) {
    char text[1024];
    va_list args;
    va_start(args, fmt);
    const int length = std::vsnprintf(text, sizeof(text), fmt, args);
    va_end(args);
    if (const char* part = fuzz::counted_part; part != nullptr && std::strstr(text, part) != nullptr) {
        ++fuzz::counted_lines;
    }
    return length;
}
