#include "app/AgentSettings.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "base/log.h"
#include "transfer/TransferSettings.h"

namespace zv_loc_fw {

namespace {

constexpr const char* kTag = "main";

constexpr const char* kLogLevelKey = "DEBUG_GLOBAL_LOG_LEVEL";
constexpr const char* kVerboseKey = "CAIRN_CURL_VERBOSE_ENABLED";
constexpr const char* kRootDirectoryKey = "CAIRN_AP_ROOT_DIR";
constexpr const char* kSaveMaskKey = "ENABLE_SAVE_SERVER_REQ_AND_RESP_MASK";
constexpr const char* kReplyToRejectedKey = "REPLY_TO_REJECTED_REQUESTS";

constexpr int32_t kDefaultLogLevel = 2;
constexpr const char* kDefaultRootDirectory = "/data/vendor/location/marlow/";
constexpr const char* kTraceName = "curl_verbose.log";

}  // namespace

AgentSettings::~AgentSettings() {
    release();
    closeTrace();
}

int AgentSettings::read(const char* config_path) {
    mConfig.reset(ConfigFile::createInstance(config_path, 0, false));
    if (mConfig == nullptr) {
        return 2;
    }
    log_debug(kTag, "config loaded %d", mConfig->loaded() ? 1 : 0);

    int32_t level = kDefaultLogLevel;
    if (mConfig->get_PZ_Int32Default(kLogLevelKey, level, kDefaultLogLevel) != 0) {
        return 4;
    }
    log_set_global_level(static_cast<ERROR_LEVEL>(level));

    int32_t verbose = 0;
    if (mConfig->getInt32Default(kVerboseKey, verbose, 0) != 0) {
        return 5;
    }
    transferSettings().verbose = verbose == 1;

    const char* root_directory = nullptr;
    const int result = mConfig->getStringDup(kRootDirectoryKey, &root_directory, kDefaultRootDirectory);
    mRootDirectory.reset(root_directory);
    if (result != 0 || root_directory == nullptr || root_directory[0] == '\0') {
        return 6;
    }
    transferSettings().rootDirectory = root_directory;
    if (formatTracePath() != 0) {
        return 6;
    }

    int32_t save_mask = 0;
    if (mConfig->getInt32Default(kSaveMaskKey, save_mask, 0) != 0) {
        return 7;
    }
    transferSettings().saveMask = save_mask;

    int32_t reply_to_rejected = 0;
    if (mConfig->getInt32Default(kReplyToRejectedKey, reply_to_rejected, 0) != 0) {
        log_warning(kTag, "%s cannot be read, counts as 0", kReplyToRejectedKey);
        reply_to_rejected = 0;
    }
    transferSettings().replyToRejected = reply_to_rejected == 1;
    return 0;
}

int AgentSettings::formatTracePath() {
    std::memset(mTracePath, 0, sizeof(mTracePath));
    // No separator: the directory brings its own.
    const int length = std::snprintf(mTracePath, sizeof(mTracePath), "%s%s", mRootDirectory.get(), kTraceName);
    if (length < 0 || static_cast<size_t>(length) >= sizeof(mTracePath)) {
        log_error(kTag, "%s/%s too long", mRootDirectory.get(), kTraceName);  // the slash is only here: deliberate
        return -1;
    }
    return 0;
}

void AgentSettings::prepareTrace() {
    TransferSettings& settings = transferSettings();
    if (!settings.verbose) {
        (void)::unlink(mTracePath);  // mostly there is none
        return;
    }
    if (settings.verboseFile != nullptr) {
        return;
    }
    settings.verboseFile = std::fopen(mTracePath, "a+e");
    if (settings.verboseFile == nullptr) {
        const int error = errno;
        log_error("InetAgentService-Static", "fopen retval = %d, error: %s", error, std::strerror(error));
        return;
    }
    // One of an earlier run keeps its mode otherwise.
    (void)::fchmod(::fileno(settings.verboseFile), S_IRUSR | S_IWUSR);
}

void AgentSettings::release() {
    mConfig.reset();
    transferSettings().rootDirectory = nullptr;
    mRootDirectory.reset();
}

void AgentSettings::closeTrace() {
    if (std::FILE* trace = transferSettings().verboseFile; trace != nullptr) {
        transferSettings().verboseFile = nullptr;
        (void)std::fclose(trace);  // the process ends; nothing is left to do about a trace that was not written
    }
}

}  // namespace zv_loc_fw
