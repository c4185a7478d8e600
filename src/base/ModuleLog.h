#pragma once

#include <atomic>
#include <cstdint>

/// The second road of log lines, through the platform's log back end: used by the message-queue transport, its
/// listener, the device-state handling and the process shutdown timer. A line carries the module's own Android tag and
/// "function:line] " before its text. Any thread.
namespace zv_loc_fw {

class ModuleLog {
public:
    /// @param module_tag tag by which the platform knows the level, and Android tag of the lines; not copied
    /// @param level_tag what the level is asked for; null is the platform's default tag
    constexpr ModuleLog(const char* module_tag, const char* level_tag) : mTag(module_tag), mLevelTag(level_tag) {}

    void error(const char* function, int line, const char* format, ...) __attribute__((format(printf, 4, 5)));
    void warning(const char* function, int line, const char* format, ...) __attribute__((format(printf, 4, 5)));
    void debug(const char* function, int line, const char* format, ...) __attribute__((format(printf, 4, 5)));

    /// Asks the platform again at the next line; for tests.
    void forgetLevel() { mLevel.store(kUnknown, std::memory_order_relaxed); }

private:
    static constexpr int32_t kUnknown = -1;

    bool passes(int32_t severity);

    const char* const mTag;
    const char* const mLevelTag;
    std::atomic<int32_t> mLevel{kUnknown};
};

#define MODULE_LOG_ERROR(log, ...) (log).error(__func__, __LINE__, __VA_ARGS__)
#define MODULE_LOG_WARNING(log, ...) (log).warning(__func__, __LINE__, __VA_ARGS__)
#define MODULE_LOG_DEBUG(log, ...) (log).debug(__func__, __LINE__, __VA_ARGS__)

}  // namespace zv_loc_fw
