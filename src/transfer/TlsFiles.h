#pragma once

namespace zv_loc_fw {

/// Chooses the CA file, once per process and for good: "/vendor/etc/cacert_location.pem", or its backup
/// "/vendor/etc/orla_root_cert.pem", or the first all the same when neither can be read (TLS then fails). Any thread;
/// start-up makes the first call, before any worker.
void getCertName();

/// The choice; empty before the first getCertName().
const char* caFilePath();

/// Whether a URL belongs to the positioning service, whose POSTs present the device's certificate: its first 13
/// characters, compared as they stand (a build option).
bool isServiceUrl(const char* url);

/// Looks whether the device's key and certificate can be read; looked up anew on every call, so files that are added
/// later are found. What is missing is logged under "KVIA". Any thread.
bool deviceCertificatePresent();

/// "/vendor/etc/myprivatekey.pem" and "/vendor/etc/mycert.pem".
const char* deviceKeyPath();
const char* deviceCertificatePath();

}  // namespace zv_loc_fw
