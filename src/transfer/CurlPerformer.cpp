#include "transfer/CurlPerformer.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <new>
#include <thread>

#include "base/Timestamp.h"
#include "base/log.h"
#include "inet/AgentProtocol.h"
#include "mq/Envelope.h"
#include "mq/MqClientControllerBase.h"
#include "postcard/CardBuilder.h"
#include "postcard/InPostcard.h"
#include "transfer/ExchangeArchive.h"
#include "transfer/Rejection.h"
#include "transfer/TransferRequest.h"
#include "transfer/TransferSettings.h"
#include "transfer/TransferSetup.h"
#include "transfer/WorkerCommand.h"

namespace zv_loc_fw {

namespace {

using namespace agent_protocol;

constexpr const char* kStaticTag = "InetAgentService-Static";
/// From here on a code of "perform failed %d" means that the result has been posted.
constexpr int kFirstCodeAfterResult = 101;
/// Of notifyHttpResult: the controller takes no more.
constexpr int kNotQueued = 12;
/// The next try comes after it.
constexpr std::chrono::milliseconds kMemoryShortage{100};

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
    // In this order: an aborted transfer's worker closes sockets, perhaps behind mSockets' back (OpenSockets.cpp).
    mSockets.shutDownAll();
    mInterrupted = true;
}

size_t CurlPerformer::curl_data_handler(char* data, size_t size, size_t count, void* worker) {
    if (worker == nullptr) {
        log_error(kStaticTag, "curl_data_handler null pointer");
        return 0;
    }
    return static_cast<CurlPerformer*>(worker)->takeBody(data, size, count);
}

size_t CurlPerformer::curl_header_handler(char* line, size_t size, size_t count, void* worker) {
    if (worker == nullptr) {
        log_error(kStaticTag, "curl_header_handler null pointer");
        return 0;
    }
    return static_cast<CurlPerformer*>(worker)->mResponse.takeHeader(line, size, count);
}

size_t CurlPerformer::takeBody(const char* data, size_t size, size_t count) {
    curl_off_t length = 0;
    if (mResponse.body() != nullptr && mResponse.body()->getSize() == 0 &&
        curl_easy_getinfo(mHandle.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length) == CURLE_OK) {
        mResponse.expectBody(length);
    }
    return mResponse.takeBody(data, size, count);
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
    // While it stops, nobody would hear.
    const bool is_answered =
        result != 0 && result < kFirstCodeAfterResult && transferSettings().replyToRejected && !mInterrupted;
    if (is_answered) {
        log_warning(mName, kErrorRejectedFormat, result);  // what the client hears
    }
    if (result != 0) {
        log_error(mName, "perform failed %d", result);
    }
    if (is_answered) {
        notifyRejection(job, result);
    }
}

int CurlPerformer::performSteps(MqMsgWrapper* job) {
    if (!mReady) {
        return 2;
    }
    TransferRequest request;
    if (const int result = readTransferRequest(mName, job, &request); result != 0) {
        return result;
    }
    if (!mResponse.begin()) {
        return 11;
    }
    curl_easy_reset(mHandle.get());  // keeps connections and looked-up names
    TransferSetup setup(mHandle.get(), mName);
    const TransferHooks hooks = {this,      &curl_data_handler, &curl_header_handler, &curl_progress_handler,
                                 &mSockets, mErrorBuffer};
    if (const int result = setup.apply(*job, &request, hooks); result != 0) {
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
    if (const int result = notifyHttpResult(result_card.card()); result != 0) {
        log_error(mController->getSelfIpcName(), "notifyHttpResult failed %d", result);
        return 91;
    }
    return reportTimes();
}

void CurlPerformer::transfer(const TransferRequest& request, CardBuilder* result_card) {
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

void CurlPerformer::addResponse(const TransferRequest& request, CardBuilder* result_card) {
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

/// Lets the client of a request that ended without a result hear at once, and the controller go on. Until then that
/// serves nobody: so what fails, which only memory can, is tried again.
void CurlPerformer::notifyRejection(MqMsgWrapper* job, int code) {
    if (job == nullptr || job->card() == nullptr) {
        return;
    }
    const char* controller_name = mController->getSelfIpcName();
    for (bool again = false; !mInterrupted; again = true) {
        const std::unique_ptr<OutPostcard> rejection = rejectionOf(*job->card(), controller_name, code);
        const int result = rejection == nullptr ? 2 : notifyHttpResult(rejection.get());
        if (result != 0 && !again) {
            log_error(controller_name, "notifyHttpResult failed %d", result);
        }
        if (result == 0 || result == kNotQueued || !isAnswerable(*job->card())) {
            return;
        }
        std::this_thread::sleep_for(kMemoryShortage);
    }
}

/// @return 0; 3 no memory for the message; 4 to 9 not built; 10, 11 no memory for
/// the reader, the wrapper; 12 not queued
int CurlPerformer::notifyHttpResult(const OutPostcard* result_card) {
    const char* controller_name = mController->getSelfIpcName();
    CardBuilder builder(3, 4);
    builder.addString(5, envelope::kTo, controller_name);
    builder.addString(6, envelope::kFrom, controller_name);
    builder.addString(7, envelope::kReq, kHttpResult);
    builder.addCard(8, kResult, result_card);
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
        return kNotQueued;
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
            return kFirstCodeAfterResult + static_cast<int>(i);
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
