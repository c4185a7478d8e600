#include "transfer/TlsFiles.h"

#include <cstdio>
#include <cstring>
#include <mutex>

#include "base/log.h"
#include "base/text.h"

namespace zv_loc_fw {

namespace {

constexpr const char* kTag = "KVIA";
constexpr const char* kCaFile = "/vendor/etc/cacert_location.pem";
constexpr const char* kBackupCaFile = "/vendor/etc/orla_root_cert.pem";
constexpr const char* kDeviceKey = "/vendor/etc/myprivatekey.pem";
constexpr const char* kDeviceCertificate = "/vendor/etc/mycert.pem";

constexpr char kServiceHostPrefix[] = INET_AGENT_SERVICE_HOST_PREFIX;
constexpr size_t kServiceHostPrefixLength = 13;
static_assert(sizeof(kServiceHostPrefix) - 1 == kServiceHostPrefixLength, "the service host prefix has 13 characters");

char caFile[256];
constinit std::once_flag caFileChosen;

bool canBeRead(const char* path) {
    std::FILE* file = std::fopen(path, "re");
    if (file == nullptr) {
        return false;
    }
    (void)std::fclose(file);  // only read
    return true;
}

}  // namespace

void getCertName() {
    std::call_once(caFileChosen, [] {
        const char* choice = kCaFile;
        if (!canBeRead(kCaFile)) {
            if (canBeRead(kBackupCaFile)) {
                choice = kBackupCaFile;
                log_info(kTag, "Couldn't open main cert file, use backup");
            } else {
                log_info(kTag, "Couldn't find cert files");
            }
        }
        (void)copyText(caFile, choice, sizeof(caFile));
    });
}

const char* caFilePath() {
    return caFile;
}

bool isServiceUrl(const char* url) {
    return std::strncmp(url, kServiceHostPrefix, kServiceHostPrefixLength) == 0;
}

bool deviceCertificatePresent() {
    const bool key_present = canBeRead(kDeviceKey);
    if (!key_present) {
        log_info(kTag, "Couldn't find device key file");
    }
    // Looked at even without a key, so that the log names everything that is missing.
    const bool certificate_present = canBeRead(kDeviceCertificate);
    if (!certificate_present) {
        log_info(kTag, "Couldn't find device cert file");
    }
    return key_present && certificate_present;
}

const char* deviceKeyPath() {
    return kDeviceKey;
}

const char* deviceCertificatePath() {
    return kDeviceCertificate;
}

}  // namespace zv_loc_fw
