#pragma once

#include <android/log.h>

#include "platform/posutil/pos_log.h"

/// Log lines of this library itself, at the level that get_tag_log_level() gives; shaped like all lines of that road.
#define POS_LOG_ERROR(tag, format, ...) POS_LOG_LINE(1, ANDROID_LOG_ERROR, tag, format, __VA_ARGS__)
#define POS_LOG_WARNING(tag, format, ...) POS_LOG_LINE(2, ANDROID_LOG_WARN, tag, format, __VA_ARGS__)

#define POS_LOG_LINE(lowest, priority, tag, format, ...)                                                         \
    do {                                                                                                         \
        if (get_tag_log_level(tag) >= (lowest)) {                                                                \
            __android_log_print(priority, tag, "%s:%d] " format, __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__); \
        }                                                                                                        \
    } while (false)
