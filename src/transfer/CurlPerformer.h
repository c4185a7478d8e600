#pragma once

#include <curl/curl.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "base/BlockingQueue.h"
#include "base/Runnable.h"
#include "mq/MqMsgWrapper.h"
#include "transfer/CurlHandle.h"
#include "transfer/OpenSockets.h"
#include "transfer/ResponseCapture.h"

namespace zv_loc_fw {

class CardBuilder;
class MqClientControllerBase;
class OutPostcard;
struct TransferRequest;
struct WorkerCommand;

/// A controller's transfer worker: takes commands from its queue, performs one HTTP(S) exchange at a time, and hands
/// the result card to its controller as a local message. It never answers the client itself; a request that fails
/// before its result card is posted yields no result at all, only the line "perform failed %d", unless the settings
/// want an answer to those as well. A transfer that libcurl fails is a normal result.
///
/// The controller constructs it, pushes commands, and at the end pushes a kill record, closes the queue, joins the
/// worker's thread and deletes it. run and the callbacks: worker's thread. interrupt: any thread. The handle is reset
/// for every request, never made anew, so connections and looked-up names are used again.
class CurlPerformer : public Runnable {
public:
    /// A failure is logged as "constructor failed %d" (2 no queue, 3 no transfer handle); the worker is usable all the
    /// same and fails every job with 2.
    /// @param name log tag, not copied
    /// @param controller gets the results; outlives the worker
    CurlPerformer(const char* name, MqClientControllerBase* controller);
    /// The thread has been joined, or never ran: what is left in the queue is freed.
    ~CurlPerformer() override;
    CurlPerformer(const CurlPerformer&) = delete;
    CurlPerformer& operator=(const CurlPerformer&) = delete;

    /// Until the queue is closed and empty; after a kill record the rest is only discarded.
    int run() override;

    /// Null when it could not be made.
    [[nodiscard]] BlockingQueue* commandQueue() const { return mCommandQueue.get(); }

    /// Ends the running transfer, and every later one, for shutting down: its result could not be delivered any more.
    void interrupt();

    /// libcurl's body and header callbacks; the user pointer is the worker. @return bytes taken, 0 without a worker
    static size_t curl_data_handler(char* data, size_t size, size_t count, void* worker);
    static size_t curl_header_handler(char* line, size_t size, size_t count, void* worker);

private:
    static int curl_progress_handler(void* worker, curl_off_t, curl_off_t, curl_off_t, curl_off_t);

    size_t takeBody(const char* data, size_t size, size_t count);
    void perform(MqMsgWrapper* job);
    int performSteps(MqMsgWrapper* job);
    void transfer(const TransferRequest& request, CardBuilder* result_card);
    void addFailure(CURLcode error, CardBuilder* result_card);
    void addResponse(const TransferRequest& request, CardBuilder* result_card);
    void notifyRejection(MqMsgWrapper* job, int code);
    int notifyHttpResult(const OutPostcard* result_card);
    int reportTimes();

    const char* const mName;
    MqClientControllerBase* const mController;

    // Self-synchronising
    std::unique_ptr<BlockingQueue> mCommandQueue;
    std::atomic<bool> mInterrupted{false};
    OpenSockets mSockets;

    // Worker's thread
    CurlEasyPtr mHandle;  // after mSockets: closing it closes its sockets there
    ResponseCapture mResponse;
    char mErrorBuffer[CURL_ERROR_SIZE] = {};
    bool mReady = false;
};

}  // namespace zv_loc_fw
