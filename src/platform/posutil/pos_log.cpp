#include "platform/posutil/pos_log.h"

#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "platform/posutil/PosLogLine.h"
#include "platform/posutil/pos_conf.h"

namespace {

constexpr int32_t kDefaultLevel = 2;
constexpr int32_t kHighestLevel = 5;

int32_t readLevel() {
    long level = kDefaultLevel;
    const pos_conf_entry entry = {"DEBUG_LEVEL", &level, 'n', nullptr};
    pos_read_conf_long(POS_PATH_GPS_CONF, &entry, 1, 0);
    return level >= 0 && level <= kHighestLevel ? static_cast<int32_t>(level) : kDefaultLevel;
}

}  // namespace

pos_logger_settings pos_logger = {false, nullptr};

int32_t get_tag_log_level(const char* /*tag*/) {
    static const int32_t level = readLevel();
    return level;
}

void get_timestamp(char* buffer, size_t size) {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local = {};
    localtime_r(&now.tv_sec, &local);
    snprintf(buffer, size, "%02d:%02d:%02d.%03d", local.tm_hour, local.tm_min, local.tm_sec,
             static_cast<int>(now.tv_nsec / 1000000));
}

void log_buffer_insert(char* /*text*/, size_t /*size*/, int /*code*/) {
    // A device keeps its last lines in memory for a crash report; there is no such thing here.
}

void pos_log_line(int32_t lowest, int priority, const char* tag, const char* function, int line, const char* format,
                  ...) {
    if (get_tag_log_level(tag) < lowest) {
        return;
    }
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    __android_log_print(priority, tag, "%s:%d] %s", function, line, text);
}
