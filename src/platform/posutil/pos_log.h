#pragma once

#include <cstddef>
#include <cstdint>

/// The platform's log back end: what the modules' second road of log lines needs (base/ModuleLog.h). Any thread.

/// The level of a module, 0 (nothing) to 5: "DEBUG_LEVEL" of the GNSS configuration
/// file, 2 when absent or out of range.
/// @param tag the module; null is the default tag. Every tag has the same level here.
int32_t get_tag_log_level(const char* tag);

/// Writes the local time of day, "HH:MM:SS.mmm", cut to the buffer.
void get_timestamp(char* buffer, size_t size);

/// Keeps a line in the log buffer, as far as there is one (there is none on a workstation).
/// @param code of the severity: 0 error, 1 warning, 3 debug
void log_buffer_insert(char* text, size_t size, int code);

struct pos_logger_settings {
    /// lines go to log_buffer_insert too
    bool buffer_enabled;
    /// lines go here too, may be null; code: 3 error and warning, 1 debug
    void (*output)(int code, const char* text);
};

/// Off on a workstation. Set before any thread exists.
extern pos_logger_settings pos_logger;
