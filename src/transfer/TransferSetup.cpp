#include "transfer/TransferSetup.h"

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "base/Timestamp.h"
#include "base/checked.h"
#include "base/log.h"
#include "inet/AgentProtocol.h"
#include "mq/MqMsgWrapper.h"
#include "postcard/InPostcard.h"
#include "transfer/ExchangeArchive.h"
#include "transfer/OpenSockets.h"
#include "transfer/TlsFiles.h"
#include "transfer/TransferRequest.h"
#include "transfer/TransferSettings.h"

namespace zv_loc_fw {

namespace {

using namespace agent_protocol;

constexpr size_t kHeaderLineSize = 256;
constexpr long kReadSize = 256L * 1024;
constexpr long kDnsCacheSec = 86400;
/// libcurl keeps time-outs in milliseconds in an int and refuses more seconds than this.
constexpr int32_t kMaxTimeoutSec = INT_MAX / 1000;
/// The answer's way back to the client.
constexpr int32_t kMarginSec = 1;

/// Whole seconds a job has waited, truncated.
int32_t secondsSince(const Timestamp& arrival) {
    const float spent = (Timestamp() - arrival).get_total_sec();
    // The span is 32 bits wide, but its single-precision value may round up to one more.
    if (spent >= -static_cast<float>(std::numeric_limits<int32_t>::min())) {
        std::abort();
    }
    return static_cast<int32_t>(spent);
}

}  // namespace

int TransferSetup::apply(const MqMsgWrapper& job, TransferRequest* request, const TransferHooks& hooks) {
    if (const int result = setTrace(); result != 0) {
        return result;
    }
    if (const int result = setCallbacks(hooks); result != 0) {
        return result;
    }
    if (const int result = setTimeout(job, *request); result != 0) {
        return result;
    }
    if (const int result = setDestination(*request); result != 0) {
        return result;
    }
    if (const int result = setClientCertificate(*request); result != 0) {
        return result;
    }
    if (request->isPost) {
        if (const int result = setPost(request); result != 0) {
            return result;
        }
    }
    return setRedirects();
}

int TransferSetup::setTrace() {
    const TransferSettings& settings = transferSettings();
    if (!settings.verbose || settings.verboseFile == nullptr) {
        return 0;
    }
    log_verbose(mTag, "setting CURLOPT_VERBOSE");
    CurlOptions options(mHandle);
    options.set(18, CURLOPT_VERBOSE, 1L);
    options.set(19, CURLOPT_STDERR, static_cast<void*>(settings.verboseFile));
    return options.result();
}

int TransferSetup::setCallbacks(const TransferHooks& hooks) {
    CurlOptions options(mHandle);
    options.set(20, CURLOPT_NOSIGNAL, 1L);  // several workers share the process
    options.set(21, CURLOPT_WRITEFUNCTION, hooks.takeData);
    options.set(22, CURLOPT_WRITEDATA, hooks.worker);
    options.set(23, CURLOPT_HEADERFUNCTION, hooks.takeHeader);
    options.set(24, CURLOPT_HEADERDATA, hooks.worker);
    std::memset(hooks.errorBuffer, 0, CURL_ERROR_SIZE);
    options.set(25, CURLOPT_ERRORBUFFER, static_cast<void*>(hooks.errorBuffer));

    // A large body is worth few large reads. Refused after a malformed URL, whose transfer keeps its buffer: no matter.
    (void)curl_easy_setopt(mHandle, CURLOPT_BUFFERSIZE, kReadSize);

    // What an interruption needs.
    options.set(44, CURLOPT_NOPROGRESS, 0L);
    options.set(44, CURLOPT_XFERINFOFUNCTION, hooks.askWhetherToStop);
    options.set(44, CURLOPT_XFERINFODATA, hooks.worker);
    options.set(45, CURLOPT_OPENSOCKETFUNCTION, &OpenSockets::open);
    options.set(45, CURLOPT_OPENSOCKETDATA, static_cast<void*>(hooks.sockets));
    options.set(46, CURLOPT_CLOSESOCKETFUNCTION, &OpenSockets::close);
    options.set(46, CURLOPT_CLOSESOCKETDATA, static_cast<void*>(hooks.sockets));
#if LIBCURL_VERSION_NUM >= 0x075700
    // A name server that does not answer must not hold the worker beyond its time-out, or hold a stop.
    options.setIfKnown(38, CURLOPT_QUICK_EXIT, 1L);
#endif
    return options.result();
}

int TransferSetup::setTimeout(const MqMsgWrapper& job, const TransferRequest& request) {
    int32_t timeout_sec = 0;
    if (request.card->getInt32Default(kTimeoutSec, timeout_sec) != 0) {
        return 26;
    }
    const int32_t remaining = checkedSub(timeout_sec, secondsSince(job.time()));
    if (remaining <= kMarginSec) {
        log_warning(mTag, "perform: already timed out");
        return 27;
    }
    const int32_t transfer_sec = remaining - kMarginSec;
    log_verbose(mTag, "perform: timeout changed to %d sec", transfer_sec);
    CurlOptions options(mHandle);
    options.set(28, CURLOPT_TIMEOUT, static_cast<long>(transfer_sec < kMaxTimeoutSec ? transfer_sec : kMaxTimeoutSec));
    return options.result();
}

int TransferSetup::setDestination(const TransferRequest& request) {
    CurlOptions options(mHandle);
    options.set(29, CURLOPT_URL, request.url);
    // A client must not read the device's files through us, or reach other kinds of servers, by a redirect either.
    options.set(36, CURLOPT_PROTOCOLS_STR, "http,https");
    options.set(37, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");

    getCertName();
    options.set(30, CURLOPT_CAINFO, caFilePath());
    // A directory built into libcurl would be trusted beside the file, and loaded again for every connection.
    options.setIfKnown(35, CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    if (options.result() != 0) {
        return options.result();
    }

    bool force_new_connection = false;
    if (request.card->getBoolDefault(kForceNewConnection, force_new_connection) != 0) {
        return 31;
    }
    if (force_new_connection) {
        log_verbose(mTag, "force new connection");
        options.set(32, CURLOPT_FRESH_CONNECT, 1L);
    }
    options.set(33, CURLOPT_IPRESOLVE, static_cast<long>(CURL_IPRESOLVE_WHATEVER));
    options.set(34, CURLOPT_DNS_CACHE_TIMEOUT, kDnsCacheSec);
    return options.result();
}

int TransferSetup::setClientCertificate(const TransferRequest& request) {
    if (!request.isPost || !isServiceUrl(request.url)) {
        return 0;
    }
    if (!deviceCertificatePresent()) {
        return 39;
    }
    CurlOptions options(mHandle);
    options.set(40, CURLOPT_SSLCERTTYPE, "PEM");
    options.set(41, CURLOPT_SSLCERT, deviceCertificatePath());
    options.set(42, CURLOPT_SSLKEYTYPE, "PEM");
    options.set(43, CURLOPT_SSLKEY, deviceKeyPath());
    return options.result();
}

int TransferSetup::setPost(TransferRequest* request) {
    if (const int result = readPostBody(request); result != 0) {
        return result;
    }
    CurlOptions options(mHandle);
    options.set(53, CURLOPT_POST, 1L);
    // Not copied: the request card lives until the transfer is over.
    options.set(54, CURLOPT_POSTFIELDS, static_cast<const char*>(request->postData));
    options.set(55, CURLOPT_POSTFIELDSIZE, static_cast<long>(request->postSize));
    if (options.result() != 0) {
        return options.result();
    }
    if (const int result = addPostHeaders(*request); result != 0) {
        return result;
    }
    options.set(61, CURLOPT_HTTPHEADER, mHeaders.get());
    if (options.result() != 0) {
        return options.result();
    }
    saveBlobToFile("req", request->from, request->txId, request->postData, static_cast<uint32_t>(request->postSize));
    return 0;
}

int TransferSetup::addPostHeaders(const TransferRequest& request) {
    struct OptionalHeader {
        const char* field;
        const char* name;
        int unreadable;
    };
    constexpr OptionalHeader kOptionalHeaders[] = {
        {kContentType, "Content-Type", 56},
        {kProtocolVersion, "Protocol-Version", 60},
    };
    char line[kHeaderLineSize] = {};  // longer lines are cut by design
    for (const OptionalHeader& header : kOptionalHeaders) {
        const char* value = nullptr;
        if (request.card->getStringOptional(header.field, &value) != 0) {
            return header.unreadable;
        }
        if (value == nullptr) {
            continue;
        }
        (void)std::snprintf(line, sizeof(line), "%s: %s", header.name, value);
        if (const int result = addPostHeader(line); result != 0) {
            return result;
        }
    }
    (void)std::snprintf(line, sizeof(line), "Content-length: %d", static_cast<int>(request.postSize));
    return addPostHeader(line);
}

/// @return 0; 57 no memory, the list stays as it is
int TransferSetup::addPostHeader(const char* line) {
    curl_slist* longer = curl_slist_append(mHeaders.get(), line);
    if (longer == nullptr) {
        return 57;
    }
    (void)mHeaders.release();  // part of the longer list
    mHeaders.reset(longer);
    log_debug(mTag, "post header [%s]", line);
    return 0;
}

int TransferSetup::setRedirects() {
    CurlOptions options(mHandle);
    options.set(62, CURLOPT_FOLLOWLOCATION, 1L);
    options.set(63, CURLOPT_MAXREDIRS, 1L);
    options.set(64, CURLOPT_POSTREDIR, static_cast<long>(CURL_REDIR_POST_ALL));  // a POST stays a POST
    return options.result();
}

}  // namespace zv_loc_fw
