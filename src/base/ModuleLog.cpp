#include "base/ModuleLog.h"

#include <android/log.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>

#include "platform/posutil/pos_log.h"

namespace zv_loc_fw {

namespace {

constexpr size_t kLineSize = 1024;
constexpr size_t kTimeSize = 32;
constexpr int32_t kHighestLevel = 5;

struct Severity {
    int32_t lowest_level;
    int priority;
    int buffer_code;
    int callback_code;
};

constexpr Severity kError{1, ANDROID_LOG_ERROR, 0, 3};
constexpr Severity kWarning{2, ANDROID_LOG_WARN, 1, 3};
constexpr Severity kDebug{4, ANDROID_LOG_DEBUG, 3, 1};

/// Copies the same line to wherever the platform wants it. Text beyond a buffer is cut.
void write(const Severity& severity, const char* tag, const char* function, int line, const char* format, va_list args)
    __attribute__((format(printf, 5, 0)));

void write(const Severity& severity, const char* tag, const char* function, int line, const char* format,
           va_list args) {
    char message[kLineSize] = "";
    // The callers have started the list; the analyser loses sight of that across va_copy on some platforms.
    if (std::vsnprintf(message, sizeof(message), format, args) < 0) {  // NOLINT(clang-analyzer-valist.Uninitialized)
        message[0] = '\0';
    }
    __android_log_print(severity.priority, tag, "%s:%d] %s", function, line, message);

    if (pos_logger.buffer_enabled) {
        char when[kTimeSize] = "";
        get_timestamp(when, sizeof(when));
        char text[kLineSize] = "";
        // By system call: older C libraries of the device have no gettid().
        const long thread = syscall(SYS_gettid);
        if (std::snprintf(text, sizeof(text), "%s %d %ld %s :%s:%d] %s\n", when, getpid(), thread, tag, function, line,
                          message) > 0) {
            log_buffer_insert(text, sizeof(text), severity.buffer_code);
        }
    }
    if (pos_logger.output != nullptr) {
        char text[kLineSize] = "";
        if (std::snprintf(text, sizeof(text), "%s:%d] %s", function, line, message) > 0) {
            pos_logger.output(severity.callback_code, text);
        }
    }
}

}  // namespace

bool ModuleLog::passes(int32_t severity) {
    int32_t level = mLevel.load(std::memory_order_relaxed);
    if (level == kUnknown) {
        // Two threads may both ask; they get the same answer.
        level = get_tag_log_level(mLevelTag);
        mLevel.store(level, std::memory_order_relaxed);
    }
    return level >= severity && level <= kHighestLevel;
}

#define ZV_MODULE_LOG_BODY(severity)                         \
    if (passes((severity).lowest_level)) {                   \
        va_list args;                                        \
        va_start(args, format);                              \
        write(severity, mTag, function, line, format, args); \
        va_end(args);                                        \
    }

void ModuleLog::error(const char* function, int line, const char* format, ...) {
    ZV_MODULE_LOG_BODY(kError)
}
void ModuleLog::warning(const char* function, int line, const char* format, ...) {
    ZV_MODULE_LOG_BODY(kWarning)
}
void ModuleLog::debug(const char* function, int line, const char* format, ...) {
    ZV_MODULE_LOG_BODY(kDebug)
}

#undef ZV_MODULE_LOG_BODY

}  // namespace zv_loc_fw
