#pragma once

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

/// @param tag the component; may be null, the line then carries no brackets
void log_error(const char* tag, const char* format, ...) ZV_PRINTF(2, 3);
void log_warning(const char* tag, const char* format, ...) ZV_PRINTF(2, 3);
void log_info(const char* tag, const char* format, ...) ZV_PRINTF(2, 3);
void log_debug(const char* tag, const char* format, ...) ZV_PRINTF(2, 3);
void log_verbose(const char* tag, const char* format, ...) ZV_PRINTF(2, 3);

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
