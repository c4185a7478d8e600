#include "transfer/CurlPerformer.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "base/Timestamp.h"
#include "base/checked.h"
#include "base/log.h"
#include "inet/AgentProtocol.h"
#include "mq/Envelope.h"
#include "mq/MqClientControllerBase.h"
#include "postcard/CardBuilder.h"
#include "postcard/InPostcard.h"
#include "transfer/ExchangeArchive.h"
#include "transfer/TlsFiles.h"
#include "transfer/TransferSettings.h"
#include "transfer/WorkerCommand.h"

namespace zv_loc_fw {

namespace {

using namespace agent_protocol;

constexpr const char* kStaticTag = "InetAgentService-Static";
constexpr size_t kHeaderLineSize = 256;
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

bool isTimeout(CURLcode error) {
    return error == CURLE_OPERATION_TIMEDOUT;
}

}  // namespace

CurlPerformer::CurlPerformer(const char* name, MqClientControllerBase* controller)
    : mName(name),
      mController(controller),
      mCommandQueue(BlockingQueue::createInstance(name, false)),
      mHandle(mCommandQueue != nullptr ? curl_easy_init() : nullptr),
      mResponse(name) {
    mReady = mCommandQueue != nullptr && mHandle != nullptr;
    if (!mReady) {
        log_error(mName, "constructor failed %d", mCommandQueue == nullptr ? 2 : 3);
    }
}

CurlPerformer::~CurlPerformer() {
    void* item = nullptr;
    bool closed = false;
    while (mCommandQueue != nullptr && mCommandQueue->pop(&item, TimeDiff(0), &closed) == 0 && item != nullptr) {
        const std::unique_ptr<WorkerCommand> never_run(static_cast<WorkerCommand*>(item));
    }
    mCommandQueue.reset();
    mHandle.reset();
}

int CurlPerformer::run() {
    log_info(mName, "entering event loop");
    if (mCommandQueue == nullptr) {
        return 0;  // nobody can ever hand anything over
    }
    bool killed = false;
    while (true) {
        void* item = nullptr;
        bool closed = false;
        const int result = mCommandQueue->pop(&item, TimeDiff(), &closed);
        const std::unique_ptr<WorkerCommand> command(static_cast<WorkerCommand*>(item));
        if (result != 0) {
            continue;
        }
        if (command == nullptr) {
            if (closed) {
                log_info(mName, "download thread command queue closed");
                return 0;
            }
            continue;
        }
        if (killed) {
            continue;  // discarded
        }
        if (command->kind != WorkerCommand::kPerform) {
            log_info(mName, "KILL command to download thread");
            killed = true;
            continue;
        }
        perform(command->job.get());
    }
}

void CurlPerformer::interrupt() {
    mInterrupted = true;
    mSockets.shutDownAll();
}

size_t CurlPerformer::curl_data_handler(char* data, size_t size, size_t count, void* worker) {
    if (worker == nullptr) {
        log_error(kStaticTag, "curl_data_handler null pointer");
        return 0;
    }
    return static_cast<CurlPerformer*>(worker)->mResponse.takeBody(data, size, count);
}

size_t CurlPerformer::curl_header_handler(char* line, size_t size, size_t count, void* worker) {
    if (worker == nullptr) {
        log_error(kStaticTag, "curl_header_handler null pointer");
        return 0;
    }
    return static_cast<CurlPerformer*>(worker)->mResponse.takeHeader(line, size, count);
}

int CurlPerformer::curl_progress_handler(void* worker, curl_off_t /*dl_total*/, curl_off_t /*dl_now*/,
                                         curl_off_t /*ul_total*/, curl_off_t /*ul_now*/) {
    return static_cast<CurlPerformer*>(worker)->mInterrupted.load() ? 1 : 0;
}

void CurlPerformer::perform(MqMsgWrapper* job) {
    const int result = performSteps(job);
    if (transferSettings().verboseFile != nullptr) {
        (void)std::fflush(transferSettings().verboseFile);  // a trace that cannot be written harms no transfer
    }
    mResponse.end();
    if (result != 0) {
        log_error(mName, "perform failed %d", result);
    }
}

/// The codes of "perform failed %d" are steps of this road; 35 to 38, 44 to 46 and 57 are steps of our own that the
/// others' numbering leaves free.
int CurlPerformer::performSteps(MqMsgWrapper* job) {
    Request request;
    if (const int result = readRequest(job, &request); result != 0) {
        return result;
    }
    if (!mResponse.begin()) {
        return 11;
    }
    curl_easy_reset(mHandle.get());  // keeps connections and looked-up names
    if (const int result = prepareTransfer(*job, request); result != 0) {
        return result;
    }
    // Lives until the transfer is over; the handle still points to it then, and only a reset may follow.
    CurlListPtr headers;
    if (request.isPost) {
        if (const int result = preparePost(&request, &headers); result != 0) {
            return result;
        }
    }
    if (const int result = setRedirects(); result != 0) {
        return result;
    }

    CardBuilder result_card(50, 71);  // 50 is POST-DATA's code, too: deliberate
    result_card.addString(72, envelope::kFrom, request.to);
    result_card.addString(73, envelope::kTo, request.from);
    result_card.addInt32(74, envelope::kTxId, request.txId);
    result_card.addString(75, envelope::kResp, request.req);
    if (result_card.result() != 0) {
        return result_card.result();
    }
    transfer(request, &result_card);
    if (result_card.result() != 0) {
        return result_card.result();
    }
    if (const int result = notifyHttpResult(result_card); result != 0) {
        log_error(mController->getSelfIpcName(), "notifyHttpResult failed %d", result);
        return 91;
    }
    return reportTimes();
}

int CurlPerformer::readRequest(MqMsgWrapper* job, Request* request) {
    if (!mReady) {
        return 2;
    }
    if (job == nullptr) {
        return 3;
    }
    InPostcard* card = job->card();
    if (card == nullptr) {
        return 4;
    }
    request->card = card;
    if (card->getString(envelope::kFrom, &request->from) != 0) {
        return 5;
    }
    if (card->getString(envelope::kTo, &request->to) != 0) {
        return 6;
    }
    if (card->getString(envelope::kReq, &request->req) != 0) {
        return 7;
    }
    if (card->getInt32(envelope::kTxId, request->txId) != 0) {
        return 8;
    }
    log_info(mName, "FROM: %s", request->from);
    log_info(mName, "REQ:  %s", request->req);
    log_info(mName, "TX-ID:  %d", request->txId);

    request->isPost = std::strcmp(request->req, kPost) == 0;
    if (!request->isPost && std::strcmp(request->req, kGet) != 0) {
        log_warning(mName, "ignoring unknown request %s", request->req);
        return 6;
    }
    if (card->getString(kUrl, &request->url) != 0) {
        return 9;
    }
    if (request->url == nullptr || request->url[0] == '\0') {
        return 10;
    }
    log_info(mName, "URL:  %s", request->url);
    return 0;
}

int CurlPerformer::prepareTransfer(const MqMsgWrapper& job, const Request& request) {
    if (const int result = setTrace(); result != 0) {
        return result;
    }
    if (const int result = setCallbacks(); result != 0) {
        return result;
    }
    if (const int result = setTimeout(job, request); result != 0) {
        return result;
    }
    if (const int result = setDestination(request); result != 0) {
        return result;
    }
    return setClientCertificate(request);
}

int CurlPerformer::setTrace() {
    const TransferSettings& settings = transferSettings();
    if (!settings.verbose || settings.verboseFile == nullptr) {
        return 0;
    }
    log_verbose(mName, "setting CURLOPT_VERBOSE");
    CurlOptions options(mHandle.get());
    options.set(18, CURLOPT_VERBOSE, 1L);
    options.set(19, CURLOPT_STDERR, static_cast<void*>(settings.verboseFile));
    return options.result();
}

int CurlPerformer::setCallbacks() {
    CurlOptions options(mHandle.get());
    options.set(20, CURLOPT_NOSIGNAL, 1L);  // several workers share the process
    options.set(21, CURLOPT_WRITEFUNCTION, &curl_data_handler);
    options.set(22, CURLOPT_WRITEDATA, static_cast<void*>(this));
    options.set(23, CURLOPT_HEADERFUNCTION, &curl_header_handler);
    options.set(24, CURLOPT_HEADERDATA, static_cast<void*>(this));
    std::memset(mErrorBuffer, 0, sizeof(mErrorBuffer));
    options.set(25, CURLOPT_ERRORBUFFER, static_cast<void*>(mErrorBuffer));

    // What interrupt() needs.
    options.set(44, CURLOPT_NOPROGRESS, 0L);
    options.set(44, CURLOPT_XFERINFOFUNCTION, &curl_progress_handler);
    options.set(44, CURLOPT_XFERINFODATA, static_cast<void*>(this));
    options.set(45, CURLOPT_OPENSOCKETFUNCTION, &OpenSockets::open);
    options.set(45, CURLOPT_OPENSOCKETDATA, static_cast<void*>(&mSockets));
    options.set(46, CURLOPT_CLOSESOCKETFUNCTION, &OpenSockets::close);
    options.set(46, CURLOPT_CLOSESOCKETDATA, static_cast<void*>(&mSockets));
#if LIBCURL_VERSION_NUM >= 0x075700
    // A name server that does not answer must not hold the worker beyond its time-out, or hold a stop.
    options.setIfKnown(38, CURLOPT_QUICK_EXIT, 1L);
#endif
    return options.result();
}

int CurlPerformer::setTimeout(const MqMsgWrapper& job, const Request& request) {
    int32_t timeout_sec = 0;
    if (request.card->getInt32Default(kTimeoutSec, timeout_sec) != 0) {
        return 26;
    }
    const int32_t remaining = checkedSub(timeout_sec, secondsSince(job.time()));
    if (remaining <= kMarginSec) {
        log_warning(mName, "perform: already timed out");
        return 27;
    }
    const int32_t transfer_sec = remaining - kMarginSec;
    log_verbose(mName, "perform: timeout changed to %d sec", transfer_sec);
    CurlOptions options(mHandle.get());
    options.set(28, CURLOPT_TIMEOUT, static_cast<long>(transfer_sec < kMaxTimeoutSec ? transfer_sec : kMaxTimeoutSec));
    return options.result();
}

int CurlPerformer::setDestination(const Request& request) {
    CurlOptions options(mHandle.get());
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
        log_verbose(mName, "force new connection");
        options.set(32, CURLOPT_FRESH_CONNECT, 1L);
    }
    options.set(33, CURLOPT_IPRESOLVE, static_cast<long>(CURL_IPRESOLVE_WHATEVER));
    options.set(34, CURLOPT_DNS_CACHE_TIMEOUT, kDnsCacheSec);
    return options.result();
}

int CurlPerformer::setClientCertificate(const Request& request) {
    if (!request.isPost || !isServiceUrl(request.url)) {
        return 0;
    }
    if (!deviceCertificatePresent()) {
        return 39;
    }
    CurlOptions options(mHandle.get());
    options.set(40, CURLOPT_SSLCERTTYPE, "PEM");
    options.set(41, CURLOPT_SSLCERT, deviceCertificatePath());
    options.set(42, CURLOPT_SSLKEYTYPE, "PEM");
    options.set(43, CURLOPT_SSLKEY, deviceKeyPath());
    return options.result();
}

int CurlPerformer::preparePost(Request* request, CurlListPtr* headers) {
    constexpr int kEmptyBlob = 7;  // the reader refuses a blob of no bytes with this code
    const int read = request->card->getBlob(kPostData, &request->postData, &request->postSize);
    if (read != 0 && read != kEmptyBlob) {
        return 50;
    }
    if (read == 0 && request->postData == nullptr) {
        return 51;
    }
    if (request->postSize == 0) {
        return 52;
    }
    CurlOptions options(mHandle.get());
    options.set(53, CURLOPT_POST, 1L);
    // Not copied: the request card lives until the transfer is over.
    options.set(54, CURLOPT_POSTFIELDS, static_cast<const char*>(request->postData));
    options.set(55, CURLOPT_POSTFIELDSIZE, static_cast<long>(request->postSize));
    if (options.result() != 0) {
        return options.result();
    }

    char line[kHeaderLineSize] = {};
    const char* content_type = nullptr;
    if (request->card->getStringOptional(kContentType, &content_type) != 0) {
        return 56;
    }
    if (content_type != nullptr) {
        (void)std::snprintf(line, sizeof(line), "Content-Type: %s", content_type);  // longer lines are cut by design
        if (const int result = addPostHeader(headers, line); result != 0) {
            return result;
        }
    }
    const char* protocol_version = nullptr;
    if (request->card->getStringOptional(kProtocolVersion, &protocol_version) != 0) {
        return 60;
    }
    if (protocol_version != nullptr) {
        (void)std::snprintf(line, sizeof(line), "Protocol-Version: %s", protocol_version);
        if (const int result = addPostHeader(headers, line); result != 0) {
            return result;
        }
    }
    (void)std::snprintf(line, sizeof(line), "Content-length: %d", static_cast<int>(request->postSize));
    if (const int result = addPostHeader(headers, line); result != 0) {
        return result;
    }
    options.set(61, CURLOPT_HTTPHEADER, headers->get());
    if (options.result() != 0) {
        return options.result();
    }
    saveBlobToFile("req", request->from, request->txId, request->postData, static_cast<uint32_t>(request->postSize));
    return 0;
}

/// @return 0; 57 no memory, the list stays as it is
int CurlPerformer::addPostHeader(CurlListPtr* headers, const char* line) {
    curl_slist* longer = curl_slist_append(headers->get(), line);
    if (longer == nullptr) {
        return 57;
    }
    (void)headers->release();  // part of the longer list
    headers->reset(longer);
    log_debug(mName, "post header [%s]", line);
    return 0;
}

int CurlPerformer::setRedirects() {
    CurlOptions options(mHandle.get());
    options.set(62, CURLOPT_FOLLOWLOCATION, 1L);
    options.set(63, CURLOPT_MAXREDIRS, 1L);
    options.set(64, CURLOPT_POSTREDIR, static_cast<long>(CURL_REDIR_POST_ALL));  // a POST stays a POST
    return options.result();
}

void CurlPerformer::transfer(const Request& request, CardBuilder* result_card) {
    std::memset(mErrorBuffer, 0, sizeof(mErrorBuffer));
    log_debug(mName, "inet begin");
    const CURLcode error = curl_easy_perform(mHandle.get());
    log_debug(mName, "inet end");
    if (error != CURLE_OK) {
        addFailure(error, result_card);
    } else {
        addResponse(request, result_card);
    }
    if (result_card->result() != 0) {
        return;
    }
    if (mResponse.body() != nullptr) {
        // 81 is the body's code, too: deliberate.
        result_card->addInt32(81, kHttpRespDataSize, static_cast<int32_t>(mResponse.body()->getSize()));
    }
    if (mResponse.retryAfterSeen()) {
        result_card->addInt32(83, kHttpRetryAfter, mResponse.retryAfterSeconds());
        log_debug(mName, "HTTP header Retry-After: %d", mResponse.retryAfterSeconds());
    }
    result_card->finalize(90);
}

void CurlPerformer::addFailure(CURLcode error, CardBuilder* result_card) {
    log_warning(mName, "curl error %d: [%s]", static_cast<int>(error), mErrorBuffer);
    result_card->addBool(isTimeout(error) ? 78 : 79, kCurlTimeout, isTimeout(error));
    result_card->addString(80, kCurlError, mErrorBuffer);
}

void CurlPerformer::addResponse(const Request& request, CardBuilder* result_card) {
    const OutMemoryStream* body = mResponse.body();
    if (body != nullptr && body->getBuffer() != nullptr) {
        if (request.isPost) {
            saveBlobToFile("resp", request.from, request.txId, body->getBuffer(),
                           static_cast<uint32_t>(body->getSize()));
        }
        result_card->addBlob(81, kHttpRespData, body->getBuffer(), body->getSize());
        if (result_card->result() != 0) {
            return;
        }
    }
    long response_code = 0;
    const CURLcode asked = curl_easy_getinfo(mHandle.get(), CURLINFO_RESPONSE_CODE, &response_code);
    if (asked != CURLE_OK) {
        log_warning(mName, "curl_easy_getinfo failed: %s", curl_easy_strerror(asked));
        return;  // goes on without the code
    }
    result_card->addInt32(82, kHttpRespCode, static_cast<int32_t>(response_code));
    log_info(mName, "HTTP response code: %d", static_cast<int>(response_code));
}

/// @return 0; 3 no memory for the message; 4 to 9 not built; 10, 11 no memory for the reader, the wrapper; 12 not
/// queued
int CurlPerformer::notifyHttpResult(const CardBuilder& result_card) {
    const char* controller_name = mController->getSelfIpcName();
    CardBuilder builder(3, 4);
    builder.addString(5, envelope::kTo, controller_name);
    builder.addString(6, envelope::kFrom, controller_name);
    builder.addString(7, envelope::kReq, kHttpResult);
    builder.addCard(8, kResult, result_card.card());
    builder.finalize(9);
    if (builder.result() != 0) {
        return builder.result();
    }
    std::unique_ptr<InPostcard> reader(InPostcard::createInstance(builder.card()));
    if (reader == nullptr || reader->getBuffer() == nullptr) {
        return 10;
    }
    std::unique_ptr<MqMsgWrapper> message(new (std::nothrow) MqMsgWrapper(reader.get()));
    if (message == nullptr) {
        return 11;
    }
    (void)reader.release();  // the message's
    if (!mController->queueMessage(message.get())) {
        return 12;
    }
    (void)message.release();  // the controller's loop has it
    return 0;
}

/// The answer is on its way already: a failure costs only this line.
int CurlPerformer::reportTimes() {
    constexpr CURLINFO kTimes[] = {CURLINFO_NAMELOOKUP_TIME, CURLINFO_CONNECT_TIME, CURLINFO_APPCONNECT_TIME,
                                   CURLINFO_STARTTRANSFER_TIME, CURLINFO_TOTAL_TIME};
    double seconds[std::size(kTimes)] = {};
    for (size_t i = 0; i < std::size(kTimes); ++i) {
        const CURLcode asked = curl_easy_getinfo(mHandle.get(), kTimes[i], &seconds[i]);
        if (asked != CURLE_OK) {
            log_warning(mName, "curl_easy_getinfo failed: %s", curl_easy_strerror(asked));
            return 101 + static_cast<int>(i);
        }
    }
    if (mResponse.body() == nullptr) {
        return 106;
    }
    log_info(mName, "inet time report: name %.4f, connect %.4f, app %.4f, tx %.4f, total %.4f, dl %u", seconds[0],
             seconds[1], seconds[2], seconds[3], seconds[4], static_cast<unsigned>(mResponse.body()->getSize()));
    return 0;
}

}  // namespace zv_loc_fw
