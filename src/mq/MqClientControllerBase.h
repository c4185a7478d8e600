#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "base/BlockingQueue.h"
#include "base/ConfigFile.h"
#include "base/List.h"
#include "base/MutexImpl.h"
#include "base/Runnable.h"
#include "base/ThreadImpl.h"
#include "base/Timestamp.h"
#include "mq/LocalTimerList.h"

namespace zv_loc_fw {

class InPostcard;
class MemoryStreamBase;
class MessageQueueClientImpl;
class MqMsgWrapper;
class OutPostcard;

/// One named participant of the message queue with its own event loop: the base of every controller.
///
///   construct -> init() -> launch() -> addPeer() ... -> join() -> delete
///
/// init makes transport, incoming queue and threads, registers the name and calls _init(); launch starts two threads:
/// the receiving thread (socket -> incoming queue) and the handler thread, which runs the loop: timers, _process for
/// each message, _shutdown at the end. kill() ends it: the transport stops listening, the receiving thread closes the
/// queue, the loop drains it, leaves, and kills its peers. Only kill() ends the loop; a "KILL" message does not.
///
/// A launched controller must be killed and joined before it is deleted: its loop calls virtual operations.
/// Every operation returns 0 or the code of its failure, which it has logged under the controller's name.
class MqClientControllerBase : public Runnable {
public:
    /// @param name log tag; "MqClientControllerBase" when null, and the controller cannot be initialised (2 logged)
    /// @param ipc_name name on the message queue; null: likewise (3 logged)
    /// @param hub_socket_path kept, nothing is sent there
    /// @param config_path may be null: no configuration. All four outlive the controller, none is copied.
    MqClientControllerBase(const char* name, const char* ipc_name, const char* hub_socket_path,
                           const char* config_path);
    ~MqClientControllerBase() override = 0;
    MqClientControllerBase(const MqClientControllerBase&) = delete;
    MqClientControllerBase& operator=(const MqClientControllerBase&) = delete;

    /// The event loop, on the handler thread; not called by others.
    int run() override;

    /// Sends one encoded postcard. Any thread. @return 0, delivered or not; 2 not initialised; 3 no stream; 4 not sent
    virtual int sendIpcMessage(const MemoryStreamBase* stream);
    /// The next transaction id: 1 to 10000000, then 0 once, then 1 again. Handler thread.
    virtual int32_t getNextTxId();

    /// Arms a one-shot timer. Handler thread, also from _init. Always 0: a failure is only logged.
    /// @param seconds 2^31 and above count as negative and fire at once
    /// @param module called back; not owned
    /// @param data may be null; not owned, alive until the timer fires or is removed
    virtual int setLocalTimer(unsigned int seconds, MqClientFunctionalModuleBase* module,
                              const TimerDataInterface* data);
    /// @param delay an invalid one ends the process (Timestamp)
    virtual int setLocalTimer(const TimeDiff& delay, MqClientFunctionalModuleBase* module,
                              const TimerDataInterface* data);
    /// Removes every timer of the module with equal data. Handler thread. Always 0.
    virtual int removeLocalTimer(const MqClientFunctionalModuleBase* module, TimerDataInterface* data);

    /// Owner's thread; nobody kills the controller meanwhile. @return 0; 2 not in its first state; 3 no configuration
    /// reader; 5 no transport; 10 no queue;
    ///         11 no receiver; 12, 13 no threads; 20 _init failed; 101 no connection after 10 attempts, 5 s apart
    [[nodiscard]] virtual int init();
    /// Any thread; a peer added after this loop has ended is killed at once. @return 0; 2 no peer
    virtual int addPeer(MqClientControllerBase* peer);
    /// Owner's thread. @return 0; 2 not initialised; 3 receiving thread, 4 handler thread not started
    [[nodiscard]] virtual int launch();
    /// Asks the controller to end; does not wait. Any thread, any number of times. @return 0
    virtual int kill();
    /// Waits until both threads have ended. Owner's thread. @return 0
    virtual int join();
    [[nodiscard]] virtual const char* getSelfIpcName() const;
    /// Queues a finished card for this controller's own loop, taking its bytes over. Any thread, also for a peer.
    /// @return 0; 2 no card; 3 no memory; 4 queue refused it
    virtual int sendLocalMessage(OutPostcard* card);

    /// Kills every peer, newest first. Any thread.
    void killPeers();
    /// Queues a message for the loop. Any thread. @return whether the queue took it; otherwise it stays the caller's
    [[nodiscard]] bool queueMessage(MqMsgWrapper* message);

protected:
    enum State : int32_t { kConstructed = 0, kInitialised = 1, kStopped = 2 };

    /// The derived controller's part of init, at its end; the state is kInitialised already. Owner's thread.
    virtual int _init() = 0;
    /// One message; the callee owns it. Handler thread. The results are not used.
    virtual int _process(InPostcard* card);
    virtual int _process(MqMsgWrapper* message);
    /// The loop has ended. Handler thread, or the derived destructor's.
    virtual int _shutdown() = 0;

    [[nodiscard]] int32_t baseState() const { return mBaseState.load(); }

private:
    /// What one turn of the loop does next.
    enum class Turn { kGoOn, kClosed, kFailed };

    int initSteps();
    int connectTransport();
    int loop(bool* queue_closed);
    Turn turn(int* result);
    int nextWait(TimeDiff* wait);
    int armTimer(const TimeDiff& delay, MqClientFunctionalModuleBase* module, const TimerDataInterface* data);
    void drainQueue();
    void releaseParts();

    // Constant after construction
    const char* const mName;
    const char* const mIpcName;
    const char* const mHubSocketPath;
    const char* const mConfigPath;

    // Handler thread
    int32_t mTxIdCounter = 0;

    // Any thread
    std::atomic<int32_t> mBaseState{kStopped};
    MutexImpl mPeersMutex;
    List<MqClientControllerBase*> mPeers GUARDED_BY(mPeersMutex);
    bool mLoopEnded GUARDED_BY(mPeersMutex) = false;
    /// mTransport for kill(), published by init.
    std::atomic<MessageQueueClientImpl*> mKillable{nullptr};

    // Handler thread
    LocalTimerList mTimers;

    // Made by init, constant afterwards. Destroyed bottom up but for the order that the destructor spells out.
    std::unique_ptr<ThreadImpl> mReceiverThread;
    std::unique_ptr<ThreadImpl> mHandlerThread;
    std::unique_ptr<BlockingQueue> mIncomingQueue;
    std::unique_ptr<MessageQueueClientImpl> mTransport;
    std::unique_ptr<ConfigFile> mConfig;
};

}  // namespace zv_loc_fw
