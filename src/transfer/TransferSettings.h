#pragma once

#include <cstdint>
#include <cstdio>

namespace zv_loc_fw {

/// What start-up decides about transfers. Filled once on the main thread before any other thread exists, and only read
/// afterwards. Start-up owns what the pointers point to and keeps it until the workers have been joined.
struct TransferSettings {
    bool verbose = false;                 ///< CAIRN_CURL_VERBOSE_ENABLED is 1
    std::FILE* verboseFile = nullptr;     ///< where libcurl's trace goes; null: nowhere
    const char* rootDirectory = nullptr;  ///< CAIRN_AP_ROOT_DIR, where exchanges are archived; may be null
    int32_t saveMask = 0;                 ///< ENABLE_SAVE_SERVER_REQ_AND_RESP_MASK: whose exchanges are archived
    bool replyToRejected = false;         ///< REPLY_TO_REJECTED_REQUESTS is 1
};

TransferSettings& transferSettings();

}  // namespace zv_loc_fw
