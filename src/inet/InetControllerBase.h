#pragma once

#include <cstdint>
#include <memory>

#include "inet/HeapTrim.h"
#include "inet/InetControllerJobQueue.h"
#include "mq/MqClientControllerBase.h"

namespace zv_loc_fw {

class CurlPerformer;
class OutPostcard;

/// A request controller: accepts transfer requests on the message queue, keeps them in its job queue, hands one at a
/// time to its own worker, and sends each client exactly one reply: the worker's result, or an error reply when the
/// request's time ran out first.
///
///   not ready --_init--> idle --job handed over--> active --result--> idle
///                                                    | the job's deadline: error reply
///                                                    v
///                                              active timed out --the late result, dropped--> idle
///
/// A request that the worker rejects yields no result, so the controller then stays in "active timed out", where every
/// later request only expires: deliberate; the log warns of it.
///
/// Everything runs on the event-loop thread, but for _init (owner's thread, before launch). The worker has a thread of
/// its own and talks to the controller only through its command queue and messages to the controller's own name.
class InetControllerBase : public MqClientControllerBase {
public:
    enum State : int32_t { kNotReady = 0, kIdle = 1, kActive = 2, kActiveTimedOut = 3 };

    /// @param name log tag. None of the four is copied; all outlive the controller.
    InetControllerBase(const char* name, const char* queue_name, const char* server_socket, const char* config_path);
    ~InetControllerBase() override;

    /// Answers a request with an error text. @return 0; 2 no request; 4 no text; 5, 6, 7 no "FROM", "REQ", "TX-ID";
    ///         10 to 17 not built; 18 not sent; 21 no memory. Logged as "sendErrorResponse failed %d".
    int sendErrorResponse(InPostcard* request, const char* text);

    /// Starts the next job when the controller is idle.
    /// @return 0, also when there is nothing to do; 2 inconsistent list; 3 not started (that job is gone)
    int reevaluateJobQueue();

    /// Gives up on the active job and answers its client. @return 0; 2 no active request header; 3 not answered
    int expireActiveJob();

    [[nodiscard]] int32_t state() const { return mState; }

    /// Stops what init has started, of a controller whose loop never ran (one whose loop ended has done so itself).
    /// Owner's thread.
    void stopWithoutLoop();

    /// Device state; nothing here, the crowd-sourcing controller follows it.
    virtual int subOrUnSubOsStatusUpdate(bool unsubscribe);
    virtual int processOSAgentNotification(InPostcard* event);

protected:
    /// @return 0; 3 no worker name or worker; 4 no thread; 5 thread not started. Logged as "_init failed %d".
    int _init() override;
    using MqClientControllerBase::_process;
    int _process(MqMsgWrapper* message) override;
    int _shutdown() override;

private:
    int initSteps();
    void stopWorker();
    int processSteps(std::unique_ptr<MqMsgWrapper>& message);
    int processRequest(std::unique_ptr<MqMsgWrapper>& message);
    int processResult(InPostcard& message);
    int forwardResult(InPostcard* result);
    bool answersActiveJob(InPostcard& result) const;
    int startNextJob();
    int sendErrorResponseSteps(InPostcard* request, const char* text);
    int setActiveJob(std::unique_ptr<MqMsgWrapper> job);
    int keepActiveRequestHeader(InPostcard& request);
    bool handToWorker(std::unique_ptr<MqMsgWrapper> job);
    void rejectActiveJob(int code);

    const char* const mControllerName;
    int32_t mState = kNotReady;
    bool mWarnedOfMissingResult = false;
    // Destroyed before the name: thread and worker keep it as their tag.
    std::unique_ptr<char[]> mWorkerName;
    std::unique_ptr<CurlPerformer> mWorker;
    std::unique_ptr<ThreadImpl> mWorkerThread;
    InetControllerJobQueue mJobQueue;
    HeapTrim mHeapTrim;
    std::unique_ptr<InPostcard> mActiveRequestHeader;
};

}  // namespace zv_loc_fw
