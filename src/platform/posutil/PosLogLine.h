#pragma once

#include <android/log.h>

#include "platform/posutil/pos_log.h"

/// Log lines of this library itself, at the level that get_tag_log_level() gives; shaped like all lines of that road.
#define POS_LOG_ERROR(tag, ...) pos_log_line(1, ANDROID_LOG_ERROR, tag, __func__, __LINE__, __VA_ARGS__)
#define POS_LOG_WARNING(tag, ...) pos_log_line(2, ANDROID_LOG_WARN, tag, __func__, __LINE__, __VA_ARGS__)

/// @param lowest level from which on the line is written
/// @param priority liblog's
void pos_log_line(int32_t lowest, int priority, const char* tag, const char* function, int line, const char* format,
                  ...) __attribute__((format(printf, 6, 7)));
