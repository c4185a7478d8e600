#pragma once

#include <curl/curl.h>

#include "transfer/CurlHandle.h"

namespace zv_loc_fw {

class MqMsgWrapper;
class OpenSockets;
struct TransferRequest;

/// The worker's side of a transfer: what libcurl calls and writes to.
struct TransferHooks {
    void* worker;  ///< user pointer of the three callbacks
    curl_write_callback takeData;
    curl_write_callback takeHeader;
    curl_xferinfo_callback askWhetherToStop;
    OpenSockets* sockets;
    char* errorBuffer;  ///< CURL_ERROR_SIZE bytes; zeroed here
};

/// Sets a freshly reset libcurl handle up for one request, option by option in a fixed order. Owns the header list, to
/// which the handle points: it lives until the transfer is over, and then nothing but
/// a reset may follow. Worker's thread.
class TransferSetup {
public:
    /// @param tag of the log lines
    TransferSetup(CURL* handle, const char* tag) : mHandle(handle), mTag(tag) {}

    /// Reads the body of a POST on the way, and archives it.
    /// @return 0, or the step that failed: 18, 19 trace; 20 to 25 callbacks; 26
    /// "TIMEOUT-SEC" not readable; 27 a second or
    ///         less left; 28 time-out; 29 URL; 30 CA file; 31 "FORCE_NEW_CONNECTION" not readable; 32 to 34 connection;
    ///         39 device key or certificate missing; 40 to 43 client certificate; 50 to 55 body; 56, 60 header fields
    ///         not readable; 61 headers; 62 to 64 redirects. 35 to 38, 44 to 46 and 57 are steps of our own that the
    ///         others' numbering leaves free: CA directory, schemes, quick exit, interruption, no memory for a header
    [[nodiscard]] int apply(const MqMsgWrapper& job, TransferRequest* request, const TransferHooks& hooks);

private:
    int setTrace();
    int setCallbacks(const TransferHooks& hooks);
    int setTimeout(const MqMsgWrapper& job, const TransferRequest& request);
    int setDestination(const TransferRequest& request);
    int setClientCertificate(const TransferRequest& request);
    int setPost(TransferRequest* request);
    int addPostHeaders(const TransferRequest& request);
    int addPostHeader(const char* line);
    int setRedirects();

    CURL* const mHandle;
    const char* const mTag;
    CurlListPtr mHeaders;
};

}  // namespace zv_loc_fw
