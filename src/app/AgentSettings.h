#pragma once

#include <memory>

#include "base/ConfigFile.h"

namespace zv_loc_fw {

/// What start-up reads from the agent's configuration file: the log level, and the transfer settings that the workers
/// read. Owns what transferSettings() points to; destroyed after the workers have been joined. Main thread.
class AgentSettings {
public:
    AgentSettings() = default;
    ~AgentSettings();
    AgentSettings(const AgentSettings&) = delete;
    AgentSettings& operator=(const AgentSettings&) = delete;

    /// Reads the configuration file and applies the log level.
    /// @return 0; 2 no configuration object; 4 "DEBUG_GLOBAL_LOG_LEVEL", 5 "CAIRN_CURL_VERBOSE_ENABLED",
    ///         6 "CAIRN_AP_ROOT_DIR" or the trace file's path, 7 "ENABLE_SAVE_SERVER_REQ_AND_RESP_MASK"
    [[nodiscard]] int read(const char* config_path);

    /// Opens the transfer trace, or deletes one of an earlier run when it is switched off.
    void prepareTrace();

    /// Releases configuration and root directory.
    void release();
    /// Closes the trace, if it is open.
    void closeTrace();

private:
    [[nodiscard]] int formatTracePath();

    std::unique_ptr<ConfigFile> mConfig;
    std::unique_ptr<const char[]> mRootDirectory;
    char mTracePath[256] = {};
};

}  // namespace zv_loc_fw
