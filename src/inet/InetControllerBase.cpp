#include "inet/InetControllerBase.h"

#include <cstdio>
#include <cstring>
#include <new>

#include "base/log.h"
#include "inet/AgentProtocol.h"
#include "mq/Envelope.h"
#include "mq/MqMsgWrapper.h"
#include "postcard/CardBuilder.h"
#include "postcard/InPostcard.h"
#include "transfer/CurlPerformer.h"
#include "transfer/Rejection.h"
#include "transfer/TransferSettings.h"
#include "transfer/WorkerCommand.h"

namespace zv_loc_fw {

namespace {

using namespace agent_protocol;

constexpr const char* kWorkerNameFormat = "%s-worker";
constexpr size_t kWorkerNameExtra = 8;  // "-worker" and the terminating zero

/// What stands in a request and comes back in its reply; texts point into the card.
struct ReplyAddress {
    const char* from = nullptr;
    const char* req = nullptr;
    int32_t txId = envelope::kNoTxId;
};

/// @return 0; first_code when "FROM", first_code + 1 when "REQ", first_code + 2 when "TX-ID" cannot be read
int readReplyAddress(InPostcard& request, int first_code, ReplyAddress* address) {
    if (request.getString(envelope::kFrom, &address->from) != 0) {
        return first_code;
    }
    if (request.getString(envelope::kReq, &address->req) != 0) {
        return first_code + 1;
    }
    if (request.getInt32(envelope::kTxId, address->txId) != 0) {
        return first_code + 2;
    }
    return 0;
}

}  // namespace

InetControllerBase::InetControllerBase(const char* name, const char* queue_name, const char* server_socket,
                                       const char* config_path)
    : MqClientControllerBase(name, queue_name, server_socket, config_path),
      mControllerName(name),
      mJobQueue(name, this),
      mHeapTrim(this) {}

InetControllerBase::~InetControllerBase() {
    (void)InetControllerBase::_shutdown();
}

int InetControllerBase::_init() {
    const int result = initSteps();
    if (result != 0) {
        log_error(mControllerName, "_init failed %d", result);
    }
    return result;
}

int InetControllerBase::initSteps() {
    stopWorker();  // of an earlier init that failed
    const size_t size = std::strlen(mControllerName) + kWorkerNameExtra;
    mWorkerName.reset(new (std::nothrow) char[size]);
    if (mWorkerName == nullptr) {
        return 3;
    }
    (void)std::snprintf(mWorkerName.get(), size, kWorkerNameFormat, mControllerName);
    mWorker.reset(new (std::nothrow) CurlPerformer(mWorkerName.get(), this));
    if (mWorker == nullptr) {
        return 3;  // the name's code, too: deliberate
    }
    mWorkerThread.reset(new (std::nothrow) ThreadImpl(mWorkerName.get(), mWorker.get(), false));
    if (mWorkerThread == nullptr) {
        return 4;
    }
    if (mWorkerThread->launch() != 0) {
        return 5;
    }
    mState = kIdle;
    return 0;
}

int InetControllerBase::_process(MqMsgWrapper* message) {
    std::unique_ptr<MqMsgWrapper> owner(message);
    const int result = processSteps(owner);
    if (result != 0) {
        log_error(mControllerName, "_process failed %d", result);
    }
    return result;
}

/// The message is taken out of `message` when it becomes a job.
int InetControllerBase::processSteps(std::unique_ptr<MqMsgWrapper>& message) {
    if (message == nullptr || message->card() == nullptr) {
        return 2;
    }
    InPostcard& card = *message->card();
    if (const InMemoryStream* bytes = card.getBuffer(); bytes != nullptr) {
        mHeapTrim.notice(bytes->getCapacity());
    }
    const char* from = nullptr;
    if (card.getString(envelope::kFrom, &from) != 0) {
        return 3;
    }
    const char* info = nullptr;
    if (card.getString(envelope::kInfo, &info) == 0 && std::strcmp(info, kOsStatusUpdate) == 0) {
        log_verbose(mControllerName, "Recived update from OS-AGENT");
        (void)processOSAgentNotification(&card);  // and on with the rest, whatever it says
    }
    const char* req = nullptr;
    if (card.getString(envelope::kReq, &req) != 0) {
        return 0;  // not a request
    }
    if (std::strcmp(req, envelope::kKill) == 0) {
        log_verbose(mControllerName, "received KILL command");  // only kill() ends the loop
        return 0;
    }
    if (std::strcmp(from, getSelfIpcName()) != 0) {
        return processRequest(message);
    }
    return std::strcmp(req, kHttpResult) == 0 ? processResult(card) : 9;
}

int InetControllerBase::processRequest(std::unique_ptr<MqMsgWrapper>& message) {
    if (mState == kNotReady) {
        log_warning(mControllerName, "_process not ready");
        // A failure either way: deliberate.
        return sendErrorResponse(message->card(), kErrorNotReady) == 0 ? 21 : 20;
    }
    if (mState == kActiveTimedOut && !mWarnedOfMissingResult) {
        log_warning(mControllerName, "still no result of a job that timed out; until it comes, requests only expire");
        mWarnedOfMissingResult = true;
    }
    mJobQueue.insertJob(message.release());
    return startNextJob() == 0 ? 0 : 31;
}

int InetControllerBase::processResult(InPostcard& message) {
    if (mState == kActiveTimedOut) {
        log_verbose(mControllerName, "ignoring response for a request that has timed out");
        mState = kIdle;
        mHeapTrim.jobEnds();
        return startNextJob() == 0 ? 0 : 7;
    }
    if (mState != kActive) {
        return 8;
    }
    // Read before anything changes, so that a foreign result changes nothing.
    InPostcard* raw_result = nullptr;
    const int read = message.getCard(kResult, &raw_result, 0);
    const std::unique_ptr<InPostcard> result(raw_result);  // reads the message's bytes: gone before it
    // A genuine result agrees with the active job. One that does not is none of it, and must not free the controller.
    if (read == 0 && !answersActiveJob(*result)) {
        return 8;
    }
    log_verbose(mControllerName, "sending back response to client");
    mState = kIdle;
    mHeapTrim.jobEnds();
    if (int32_t received = 0; result != nullptr && result->getInt32(kHttpRespDataSize, received) == 0 && received > 0) {
        mHeapTrim.notice(static_cast<size_t>(received));  // of a transfer that failed, too: its body is in no message
    }
    const int forwarded = forwardResult(result.get());
    // Whatever became of the reply: no idle controller keeps jobs waiting.
    const int started = startNextJob();
    return forwarded != 0 ? forwarded : started == 0 ? 0 : 6;
}

/// @return 0; 3 timer not cleared; 4 no result card; 5 not sent
int InetControllerBase::forwardResult(InPostcard* result) {
    if (mJobQueue.clearActiveJobTimer() != 0) {
        return 3;
    }
    if (result == nullptr) {
        return 4;
    }
    const char* to = nullptr;
    if (result->getString(envelope::kTo, &to) == 0 && std::strcmp(to, envelope::kHub) == 0) {
        return 5;  // a client's card never gets to act as the hub with this process's rights
    }
    return sendIpcMessage(result->getBuffer()) == 0 ? 0 : 5;
}

/// Whether "TO" and "TX-ID", as far as they are there, are those of the active request.
bool InetControllerBase::answersActiveJob(InPostcard& result) const {
    ReplyAddress active;
    if (mActiveRequestHeader == nullptr || readReplyAddress(*mActiveRequestHeader, 1, &active) != 0) {
        return true;  // nothing to compare with
    }
    const char* to = nullptr;
    if (result.getString(envelope::kTo, &to) == 0 && std::strcmp(to, active.from) != 0) {
        return false;
    }
    int32_t tx_id = active.txId;
    return result.getInt32Default(envelope::kTxId, tx_id) != 0 || tx_id == active.txId;
}

/// reevaluateJobQueue, and again while jobs that cannot be started are the only thing between an idle controller and
/// the next good one. Each turn takes one job, so it ends. @return the first failure's code
int InetControllerBase::startNextJob() {
    int first_failure = 0;
    int result = 0;
    do {
        result = reevaluateJobQueue();
        if (first_failure == 0) {
            first_failure = result;
        }
    } while (result == 3 && mState == kIdle && !mJobQueue.empty());
    return first_failure;
}

int InetControllerBase::reevaluateJobQueue() {
    if (mState != kIdle) {
        return 0;
    }
    if (mJobQueue.empty()) {
        log_verbose(mControllerName, "job queue depleted");
        return 0;
    }
    int result = 0;
    std::unique_ptr<MqMsgWrapper> job;
    if (mJobQueue.getNextJob(&job) != 0) {
        result = 2;
    } else {
        mJobQueue.insertJob(nullptr);  // looks through those that go on waiting
        if (job == nullptr) {
            return 0;
        }
        const int started = setActiveJob(std::move(job));
        if (started != 0) {
            log_error(mControllerName, "setActiveJob failed %d", started);
            result = 3;
        }
    }
    if (result != 0) {
        log_error(mControllerName, "reevaluateJobQueue failed %d", result);
    }
    return result;
}

/// @return 0; 3 no card; 4 not idle; 5, 10 to 12, 20 to 25, 30 no header kept; 31 no timer; 32 not handed over
int InetControllerBase::setActiveJob(std::unique_ptr<MqMsgWrapper> job) {
    if (job->card() == nullptr) {
        return 3;
    }
    if (mState != kIdle) {
        log_warning(mControllerName, "current state %d", mState);
        return 4;
    }
    if (const int result = keepActiveRequestHeader(*job->card()); result != 0) {
        return result;
    }
    if (const int result = mJobQueue.setActiveJobTimer(job.get()); result != 0) {
        log_error(mControllerName, "setActiveJobTimer failed %d", result);
        return 31;
    }
    mState = kActive;
    // From the hand-over on the job is the worker's alone. If it fails, the state and the timer stay, so that the
    // client still hears at its deadline.
    if (!handToWorker(std::move(job))) {
        if (transferSettings().replyToRejected) {
            rejectActiveJob(32);
        }
        return 32;
    }
    return 0;
}

/// Keeps what an error reply needs: the request itself will be the worker's, and readers are not shared.
int InetControllerBase::keepActiveRequestHeader(InPostcard& request) {
    mActiveRequestHeader.reset();
    ReplyAddress address;
    if (const int result = readReplyAddress(request, 10, &address); result != 0) {
        return result;
    }
    CardBuilder header(5, 20);
    header.addString(21, envelope::kFrom, address.from);
    header.addString(22, envelope::kTo, getSelfIpcName());
    header.addString(23, envelope::kReq, address.req);
    header.addInt32(24, envelope::kTxId, address.txId);
    header.finalize(25);
    if (header.result() != 0) {
        return header.result();
    }
    mActiveRequestHeader.reset(InPostcard::createInstance(header.card()));
    return mActiveRequestHeader != nullptr && mActiveRequestHeader->getBuffer() != nullptr ? 0 : 30;
}

bool InetControllerBase::handToWorker(std::unique_ptr<MqMsgWrapper> job) {
    if (mWorker == nullptr || mWorker->commandQueue() == nullptr) {
        return false;
    }
    std::unique_ptr<WorkerCommand> command(new (std::nothrow) WorkerCommand{WorkerCommand::kPerform, std::move(job)});
    if (command == nullptr || pushKeptItemOut(mWorker->commandQueue()->push(command.get()))) {
        return false;
    }
    (void)command.release();  // the worker's
    return true;
}

/// Answers a job that never reached the worker, in the worker's stead, so that the next one can be served.
void InetControllerBase::rejectActiveJob(int code) {
    mState = kIdle;
    mHeapTrim.jobEnds();
    (void)mJobQueue.clearActiveJobTimer();  // logged there; if it fires all the same, no job is active
    const std::unique_ptr<OutPostcard> rejection = rejectionOf(*mActiveRequestHeader, getSelfIpcName(), code);
    mActiveRequestHeader.reset();
    if (rejection != nullptr) {
        (void)sendIpcMessage(rejection->getEncodedBuffer());  // logged there
    }
}

int InetControllerBase::expireActiveJob() {
    mState = kActiveTimedOut;
    mWarnedOfMissingResult = false;
    if (mActiveRequestHeader == nullptr) {
        return 2;
    }
    if (sendErrorResponse(mActiveRequestHeader.get(), kErrorActiveJobTimedOut) != 0) {
        return 3;
    }
    mActiveRequestHeader.reset();
    return 0;
}

int InetControllerBase::sendErrorResponse(InPostcard* request, const char* text) {
    const int result = sendErrorResponseSteps(request, text);
    if (result != 0) {
        log_error(mControllerName, "sendErrorResponse failed %d", result);
    }
    return result;
}

int InetControllerBase::sendErrorResponseSteps(InPostcard* request, const char* text) {
    if (request == nullptr) {
        return 2;
    }
    if (text == nullptr) {
        return 4;
    }
    ReplyAddress address;
    if (const int result = readReplyAddress(*request, 5, &address); result != 0) {
        return result;
    }
    log_verbose(mControllerName, "error response for [%s][%s][%d][%s]", address.from, address.req, address.txId, text);

    CardBuilder reply(21, 10);
    reply.addString(11, envelope::kFrom, getSelfIpcName());
    reply.addString(12, envelope::kTo, address.from);
    reply.addInt32(13, envelope::kTxId, address.txId);
    reply.addString(14, envelope::kResp, address.req);
    reply.addString(15, kCurlError, text);
    reply.addInt32(16, kHttpRespCode, 0);
    reply.finalize(17);
    if (reply.result() != 0) {
        return reply.result();
    }
    return sendIpcMessage(reply.card()->getEncodedBuffer()) == 0 ? 0 : 18;
}

void InetControllerBase::stopWithoutLoop() {
    (void)_shutdown();
}

int InetControllerBase::_shutdown() {
    if (baseState() == kStopped) {
        log_info(mControllerName, "shutdown: already in DESTROYED state, skip");
        return 0;
    }
    (void)mJobQueue.deinit();
    stopWorker();
    mActiveRequestHeader.reset();
    return 0;
}

/// Ends the worker and its thread, and forgets both.
void InetControllerBase::stopWorker() {
    if (mWorker != nullptr) {
        mWorker->interrupt();  // nobody is left to take the running transfer's result
        if (BlockingQueue* commands = mWorker->commandQueue(); commands != nullptr) {
            std::unique_ptr<WorkerCommand> kill(new (std::nothrow) WorkerCommand{WorkerCommand::kKill, nullptr});
            if (kill != nullptr && !pushKeptItemOut(commands->push(kill.get()))) {
                (void)kill.release();  // the worker's
            }
            (void)commands->close();  // also without a kill record, or the worker would never end
        }
    }
    if (mWorkerThread != nullptr) {
        (void)mWorkerThread->join();  // logged there
        mWorkerThread.reset();
    }
    mWorker.reset();
    mWorkerName.reset();  // last: the others keep it as their tag
}

int InetControllerBase::subOrUnSubOsStatusUpdate(bool /*unsubscribe*/) {
    return 0;
}

int InetControllerBase::processOSAgentNotification(InPostcard* /*event*/) {
    return 0;
}

}  // namespace zv_loc_fw
