#include "support/DeviceFiles.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "support/files.h"

namespace test_support::device_files {
namespace {

void writeSettings(const char* path, const Settings& settings) {
    std::string text;
    for (const auto& [key, value] : settings) {
        text += key + " = " + value + "\n";
    }
    writeRaw(path, text);
}

}  // namespace

void requireDevice() {
    if (!std::filesystem::is_directory(kSocketDirectory)) {
        std::fprintf(stderr, "%s is missing: run this test under script/device --temp\n", kSocketDirectory);
        std::exit(EXIT_FAILURE);
    }
}

void writeRaw(const std::string& path, const std::string& content) {
    requireDevice();
    writeFile(path, content);
}

void writeMarlowConf(const Settings& settings) {
    writeSettings(kMarlowConf, settings);
}

void writeGpsConf(const Settings& settings) {
    writeSettings(kGpsConf, settings);
}

void writeCaFile(const std::string& pem) {
    writeRaw(kCaFile, pem);
}

void writeDeviceCertificate(const Certificate& certificate) {
    writeRaw(kDeviceCertificate, certificate.certificatePem);
    writeRaw(kDeviceKey, certificate.keyPem);
}

void reset() {
    requireDevice();
    for (const char* path : {kMarlowConf, kGpsConf, kCaFile, kBackupCaFile, kDeviceKey, kDeviceCertificate}) {
        std::filesystem::remove(path);
    }
    for (const auto& entry : std::filesystem::directory_iterator(kSocketDirectory)) {
        std::filesystem::remove(entry.path());
    }
}

}  // namespace test_support::device_files
