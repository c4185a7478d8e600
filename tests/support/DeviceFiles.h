#pragma once

#include <map>
#include <string>

#include "support/CertificateAuthority.h"

/// The device's directories, as script/device gives them to a test.
namespace test_support::device_files {

inline constexpr const char* kSocketDirectory = "/dev/socket/location/mq";
inline constexpr const char* kMarlowConf = "/vendor/etc/marlow.conf";
inline constexpr const char* kGpsConf = "/vendor/etc/gps.conf";
/// Where the agent looks for its authorities, and for its device's key and certificate.
inline constexpr const char* kCaFile = "/vendor/etc/cacert_location.pem";
inline constexpr const char* kBackupCaFile = "/vendor/etc/orla_root_cert.pem";
inline constexpr const char* kDeviceKey = "/vendor/etc/myprivatekey.pem";
inline constexpr const char* kDeviceCertificate = "/vendor/etc/mycert.pem";
inline constexpr const char* kDataDirectory = "/data/vendor/location/marlow";

/// Keys and values, written as "KEY = VALUE" lines in the map's order.
using Settings = std::map<std::string, std::string>;

/// Ends the process with an explanation unless it runs in a device's private view: the tests write below /vendor and
/// /data, which must never be the machine's own.
void requireDevice();

void writeMarlowConf(const Settings& settings);
void writeGpsConf(const Settings& settings);
void writeCaFile(const std::string& pem);
/// Any other file: damaged configurations, the backup authorities.
void writeRaw(const std::string& path, const std::string& content);
/// The device's own key and certificate, for client authentication.
void writeDeviceCertificate(const Certificate& certificate);
/// Removes every file named above, and every socket file.
void reset();

}  // namespace test_support::device_files
