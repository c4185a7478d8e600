#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>

/// The framework's log: five calls, one per severity, each with the tag of a component. A line passes when the
/// threshold in force (the global level, or a tag's own) is at least its severity. Lines go to the Android log under
/// the process's global tag as "[component] text", or to standard output, or both; text is cut at 511 characters.
///
/// Any thread may call any of these. One global lock serialises the lines; nothing called under it takes another lock,
/// so it is the innermost lock of the process. No heap is used on the way.
namespace zv_loc_fw {

/// Severities, and thresholds of the same scale: 0 passes nothing, 5 and above everything.
enum ERROR_LEVEL : int32_t {
    EL_ERROR = 1,
    EL_WARNING = 2,
    EL_INFO = 3,
    EL_DEBUG = 4,
    EL_VERBOSE = 5,
};

#define ZV_PRINTF(format_index, first_argument) __attribute__((format(printf, format_index, first_argument)))

namespace log_detail {

/// What no line of any tag may exceed to pass; kept with the thresholds.
extern std::atomic<int32_t> highest_threshold;

[[nodiscard]] inline bool mayPass(ERROR_LEVEL level) {
    return highest_threshold.load(std::memory_order_relaxed) >= level;
}

}  // namespace log_detail

// The calls that are filtered as a rule test in their callers whether any line of the kind may pass, where the compiler
// can hand a call's arguments on: what is not called saves no registers. Elsewhere they are functions like the others.
// The call itself goes unchecked, as its format was checked a line above.
#if defined(__GNUC__) && !defined(__clang__) && !defined(ZV_LOG_FUNCTIONS)
#define ZV_DECLARE_LOG(name, level)                                                           \
    void name##_called(const char* tag, const char* format, ...);                             \
    extern inline __attribute__((always_inline, gnu_inline, format(printf, 2, 3))) void name( \
        const char* tag, const char* format, ...) {                                           \
        if (log_detail::mayPass(level)) {                                                     \
            name##_called(tag, format, __builtin_va_arg_pack());                              \
        }                                                                                     \
    }
#else
#define ZV_DECLARE_LOG(name, level)                                               \
    void name##_called(const char* tag, const char* format, ...) ZV_PRINTF(2, 3); \
    void name(const char* tag, const char* format, ...) ZV_PRINTF(2, 3);
#endif

/// @param tag the component; may be null, the line then carries no brackets
void log_error(const char* tag, const char* format, ...) ZV_PRINTF(2, 3);
void log_warning(const char* tag, const char* format, ...) ZV_PRINTF(2, 3);
ZV_DECLARE_LOG(log_info, EL_INFO)
ZV_DECLARE_LOG(log_debug, EL_DEBUG)
ZV_DECLARE_LOG(log_verbose, EL_VERBOSE)

#undef ZV_DECLARE_LOG

/// As log_error, without taking the global lock: for reports about locks themselves.
void log_error_no_lock(const char* tag, const char* format, ...) ZV_PRINTF(2, 3);
/// The same for the traces of locks, off by default.
void log_verbose_no_lock(const char* tag, const char* format, ...) ZV_PRINTF(2, 3);

/// The worker of them all; the caller holds the global lock, or knows why not.
void vlog(const char* tag, ERROR_LEVEL level, const char* format, va_list args) ZV_PRINTF(3, 0);

/// Sets the threshold of every tag that has none of its own. 0 (nothing passes) until the first call.
void log_set_global_level(ERROR_LEVEL level);

/// Sets the Android tag of every line, "ZVALOG" until then. Longer than 63 characters: cut, and reported.
void log_set_global_tag(const char* tag);

/// Gives one tag a threshold and outputs of its own; a later entry for the same tag wins. Nothing in the agent does.
/// For start-up and tests: the list is read without a lock.
/// @param output_mask bit 0 Android log, bit 1 standard output
/// @return 0; 2 no list; 3 no memory
int log_add_local_level(const char* tag, ERROR_LEVEL level, uint32_t output_mask);

/// Forgets every tag's own threshold.
void log_clear_local_levels();

}  // namespace zv_loc_fw
