#define ZV_LOG_FUNCTIONS  // for callers that do not test themselves
#include "base/log.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <new>

#include "base/AutoLock.h"
#include "base/MutexImpl.h"
#include "base/log_state.h"
#include "platform/AndroidLog.h"

namespace zv_loc_fw {

namespace log_detail {

// Before the initialiser below has run, the level is 0 and no line passes: other static objects may log at will.
constinit State state;
constinit std::atomic<int32_t> highest_threshold{0};

}  // namespace log_detail

namespace {

using log_detail::FreeDeleter;
using log_detail::GlobalTag;
using log_detail::kToAndroidLog;
using log_detail::kToStandardOutput;
using log_detail::LocalLogLevelItem;
using log_detail::state;

constexpr char kUtilTag[] = "LOG_UTIL";
constexpr char kFormatError[] = "Internal error in log subsystem: format error";
constexpr char kUnknownLevel[] = "Internal error in log subsystem: unknown log level";
constexpr char kMessageError[] = "log subsystem message format error";

constexpr size_t kLineSize = 512;
constexpr size_t kTimeSize = 39;

bool initialise() {
    platform::prepareAndroidLog();
    state.lock = new (std::nothrow) MutexImpl("LOG_UTIL", false);
    state.local_levels = new (std::nothrow) List<LocalLogLevelItem>;
    state.tag.publish("ZVALOG");
    return true;
}

[[maybe_unused]] const bool kInitialised = initialise();

struct Route {
    int32_t threshold;
    uint32_t output_mask;
};

/// To be called after every change of a threshold, by whoever makes it.
void publishHighestThreshold() {
    int32_t highest = state.level.load(std::memory_order_relaxed);
    if (state.local_levels != nullptr) {
        for (auto* node = state.local_levels->head(); node != nullptr; node = node->next) {
            highest = std::max(highest, node->value.level);
        }
    }
    log_detail::highest_threshold.store(highest, std::memory_order_relaxed);
}

Route routeOf(const char* tag) {
    if (tag != nullptr && state.local_levels != nullptr) {
        for (auto* node = state.local_levels->head(); node != nullptr; node = node->next) {
            const LocalLogLevelItem& item = node->value;
            if (item.tag != nullptr && std::strcmp(item.tag.get(), tag) == 0) {
                return {item.level, item.output_mask};
            }
        }
    }
    return {state.level.load(std::memory_order_relaxed), kToAndroidLog};
}

bool passes(const char* tag, ERROR_LEVEL level) {
    return log_detail::mayPass(level) && routeOf(tag).threshold >= level;
}

void lockedVlog(const char* tag, ERROR_LEVEL level, const char* format, va_list args) ZV_PRINTF(3, 0);

void lockedVlog(const char* tag, ERROR_LEVEL level, const char* format, va_list args) {
    const AutoLock guard(state.lock);
    vlog(tag, level, format, args);
}

void printToAndroidLog(const char* tag, ERROR_LEVEL level, const char* message, const char* global_tag) {
    char line[kLineSize];
    const int length = tag != nullptr ? std::snprintf(line, sizeof(line), "[%s] %s", tag, message)
                                      : std::snprintf(line, sizeof(line), "%s", message);
    if (length < 1) {
        __android_log_print(ANDROID_LOG_ERROR, global_tag, kFormatError);
        return;
    }
    int priority = 0;
    switch (level) {
        case EL_ERROR:
            priority = ANDROID_LOG_ERROR;
            break;
        case EL_WARNING:
            priority = ANDROID_LOG_WARN;
            break;
        case EL_INFO:
            priority = ANDROID_LOG_INFO;
            break;
        case EL_DEBUG:
            priority = ANDROID_LOG_DEBUG;
            break;
        case EL_VERBOSE:
            priority = ANDROID_LOG_VERBOSE;
            break;
        default:
            __android_log_print(ANDROID_LOG_ERROR, global_tag, kUnknownLevel);
            return;
    }
    __android_log_print(priority, global_tag, "%s", line);
}

void printToStandardOutput(const char* tag, const char* message, const char* global_tag) {
    const time_t now = time(nullptr);
    tm local{};
    if (localtime_r(&now, &local) == nullptr) {
        local = tm{};
    }
    char when[kTimeSize] = "";
    // The milliseconds are a literal: one second is the resolution.
    (void)strftime(when, sizeof(when), "%m-%d %H:%M:%S.000", &local);

    char line[kLineSize];
    const int length = tag != nullptr
                           ? std::snprintf(line, sizeof(line), "%s %s:[%s] %s", when, global_tag, tag, message)
                           : std::snprintf(line, sizeof(line), "%s %s: %s", when, global_tag, message);
    std::puts(length < 1 ? kFormatError : line);
}

}  // namespace

void vlog(const char* tag, ERROR_LEVEL level, const char* format, va_list args) {
    const Route route = routeOf(tag);
    if (route.threshold < level) {
        return;
    }
    char message[kLineSize];
    // An empty message counts as an error too, so that no line is ever empty: deliberate.
    if (std::vsnprintf(message, sizeof(message), format, args) < 1) {
        copyText(message, kMessageError, sizeof(message));
    }
    GlobalTag::Text global_tag;
    state.tag.read(global_tag);
    if ((route.output_mask & kToAndroidLog) != 0) {
        printToAndroidLog(tag, level, message, global_tag);
    }
    if ((route.output_mask & kToStandardOutput) != 0) {
        printToStandardOutput(tag, message, global_tag);
    }
}

// A line that does not pass costs the threshold test alone: no lock, no argument is looked at.
#define ZV_LOG_BODY(level, worker)        \
    if (passes(tag, level)) {             \
        va_list args;                     \
        va_start(args, format);           \
        worker(tag, level, format, args); \
        va_end(args);                     \
    }

void log_error(const char* tag, const char* format, ...) {
    ZV_LOG_BODY(EL_ERROR, lockedVlog)
}
void log_warning(const char* tag, const char* format, ...){ZV_LOG_BODY(EL_WARNING, lockedVlog)}
#define ZV_DEFINE_LOG(name, level)                                 \
    void name(const char* tag, const char* format, ...) {          \
        ZV_LOG_BODY(level, lockedVlog)                             \
    }                                                              \
    void name##_called(const char* tag, const char* format, ...) { \
        ZV_LOG_BODY(level, lockedVlog)                             \
    }
ZV_DEFINE_LOG(log_info, EL_INFO) ZV_DEFINE_LOG(log_debug, EL_DEBUG) ZV_DEFINE_LOG(log_verbose, EL_VERBOSE)
#undef ZV_DEFINE_LOG

    void log_error_no_lock(const char* tag, const char* format, ...) {
    ZV_LOG_BODY(EL_ERROR, vlog)
}
void log_verbose_no_lock(const char* tag, const char* format, ...) {
    ZV_LOG_BODY(EL_VERBOSE, vlog)
}

#undef ZV_LOG_BODY

void log_set_global_level(ERROR_LEVEL level) {
    int result = 0;
    if (state.lock == nullptr) {
        result = 2;  // no lock; the guard of the line below tells of it
    } else {
        const AutoLock guard(state.lock);
        if (guard.holds()) {
            state.level.store(level, std::memory_order_relaxed);
            publishHighestThreshold();
        } else {
            result = 3;  // lock failed
        }
    }
    if (result != 0) {
        log_error(kUtilTag, "log_set_global_level failed %d", result);
    }
}

void log_set_global_tag(const char* tag) {
    int result = 0;
    if (state.lock == nullptr) {
        result = 2;  // no lock
    } else {
        const AutoLock guard(state.lock);
        if (!guard.holds()) {
            result = 3;  // lock failed
        } else if (state.tag.publish(tag) >= GlobalTag::kSize) {
            result = 4;  // cut; what is left of it stays
        }
    }
    // Only now that the lock is free again: the line takes it too.
    if (result != 0) {
        log_error(kUtilTag, "log_set_global_tag failed %d", result);
    }
}

int log_add_local_level(const char* tag, ERROR_LEVEL level, uint32_t output_mask) {
    if (state.local_levels == nullptr) {
        return 2;  // no list
    }
    std::unique_ptr<char, FreeDeleter> copy(tag != nullptr ? strdup(tag) : nullptr);
    if (tag != nullptr && copy == nullptr) {
        return 3;  // no memory
    }
    if (!state.local_levels->tryPush({std::move(copy), level, output_mask})) {
        return 3;  // no memory
    }
    publishHighestThreshold();
    return 0;
}

void log_clear_local_levels() {
    if (state.local_levels != nullptr) {
        state.local_levels->clear();
        publishHighestThreshold();
    }
}

}  // namespace zv_loc_fw
