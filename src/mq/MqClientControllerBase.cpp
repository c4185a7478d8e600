#include "mq/MqClientControllerBase.h"

#include <unistd.h>

#include <ctime>
#include <new>
#include <optional>
#include <vector>

#include "base/AutoLock.h"
#include "base/checked.h"
#include "base/log.h"
#include "mq/MessageQueueClientImpl.h"
#include "mq/MqClientIpcReciver.h"
#include "mq/MqMsgWrapper.h"
#include "postcard/InPostcard.h"
#include "postcard/OutPostcard.h"

namespace zv_loc_fw {

namespace {

constexpr const char* kDefaultTag = "MqClientControllerBase";
constexpr int kConnectAttempts = 10;
constexpr unsigned kConnectPauseSec = 5;
constexpr int32_t kLastTxId = 10000000;

// Results of the loop, logged as "run failed: %d".
constexpr int kNoBootTimeDeadline = 2;
constexpr int kNegativeWait = 3;
constexpr int kPopFailed = 4;
constexpr int kNotInitialised = 10;

}  // namespace

MqClientControllerBase::MqClientControllerBase(const char* name, const char* ipc_name, const char* hub_socket_path,
                                               const char* config_path)
    : mName(name != nullptr ? name : kDefaultTag),
      mIpcName(ipc_name),
      mHubSocketPath(hub_socket_path),
      mConfigPath(config_path),
      mPeersMutex("MqClientControllerBase", false) {
    const int result = name == nullptr ? 2 : ipc_name == nullptr ? 3 : 0;
    if (result != 0) {
        log_error(kDefaultTag, "MqClientControllerBase failed %d", result);
        return;
    }
    mBaseState = kConstructed;
}

MqClientControllerBase::~MqClientControllerBase() {
    (void)mHubSocketPath;  // kept for the interface's sake
    {
        const AutoLock guard(&mPeersMutex);
        mPeers.clear();
    }
    mTimers.clear();
    releaseParts();
}

/// In this order: the receiver uses queue and transport. No thread of this controller runs.
void MqClientControllerBase::releaseParts() {
    mReceiverThread.reset();
    mHandlerThread.reset();
    drainQueue();
    mIncomingQueue.reset();
    mKillable = nullptr;
    mTransport.reset();
    mConfig.reset();
}

int MqClientControllerBase::init() {
    const int result = initSteps();
    if (result != 0) {
        log_error(mName, "init failed %d", result);
    }
    return result;
}

int MqClientControllerBase::initSteps() {
    if (mBaseState != kConstructed) {
        return 2;
    }
    releaseParts();  // of an earlier init that failed
    if (mConfigPath != nullptr) {
        mConfig.reset(ConfigFile::createInstance(mConfigPath, 0, false));
        if (mConfig == nullptr) {
            return 3;
        }
        log_debug(mName, "m_config loaded %d", mConfig->loaded() ? 1 : 0);
    }
    if (const int result = connectTransport(); result != 0) {
        return result;
    }
    mIncomingQueue.reset(BlockingQueue::createInstance("LMSQ", false));
    if (mIncomingQueue == nullptr) {
        return 10;
    }
    // Registers the name; a failure is the receiver's to log and does not stop init.
    std::unique_ptr<MqClientIpcReciver> receiver(
        new (std::nothrow) MqClientIpcReciver(mName, mIncomingQueue.get(), mTransport.get(), mIpcName));
    if (receiver == nullptr) {
        return 11;
    }
    mReceiverThread.reset(new (std::nothrow) ThreadImpl(mName, receiver.get(), true));
    if (mReceiverThread == nullptr) {
        return 12;
    }
    (void)receiver.release();  // the thread's
    mHandlerThread.reset(new (std::nothrow) ThreadImpl(mName, this, false));
    if (mHandlerThread == nullptr) {
        return 13;
    }
    mBaseState = kInitialised;
    if (_init() != 0) {
        mBaseState = kConstructed;
        return 20;
    }
    return 0;
}

int MqClientControllerBase::connectTransport() {
    mTransport.reset(new (std::nothrow) MessageQueueClientImpl());
    if (mTransport == nullptr) {
        return 5;
    }
    mKillable = mTransport.get();
    for (int attempt = 1; mTransport->connect(1) != 0; ++attempt) {
        if (attempt == kConnectAttempts) {
            log_warning(mName, "retry count exceeded limit, abort");
            return 101;
        }
        log_warning(mName, "retry count %d", attempt);
        (void)::sleep(kConnectPauseSec);
    }
    return 0;
}

int MqClientControllerBase::launch() {
    int result = 0;
    if (mBaseState != kInitialised) {
        result = 2;
    } else if (mReceiverThread->launch() != 0) {
        result = 3;
    } else if (mHandlerThread->launch() != 0) {
        result = 4;
    }
    if (result != 0) {
        log_error(mName, "launch failed %d", result);
    }
    return result;
}

int MqClientControllerBase::kill() {
    if (MessageQueueClientImpl* transport = mKillable.load(); transport != nullptr) {
        (void)transport->shutdown();
    }
    return 0;
}

int MqClientControllerBase::join() {
    if (mReceiverThread == nullptr) {
        log_warning(mName, "IPC receiver thread is null");
    } else if (mReceiverThread->join() != 0) {
        log_warning(mName, "IPC receiver thread not terminated properly");
    }
    if (mHandlerThread == nullptr) {
        log_warning(mName, "IPC handler thread is null");
    } else if (mHandlerThread->join() != 0) {
        log_warning(mName, "IPC handler thread not terminated properly");
    }
    return 0;
}

const char* MqClientControllerBase::getSelfIpcName() const {
    return mIpcName;
}

int32_t MqClientControllerBase::getNextTxId() {
    mTxIdCounter = checkedAdd(mTxIdCounter, 1);
    if (mTxIdCounter > kLastTxId) {
        mTxIdCounter = 0;  // given out once per turn: deliberate
        log_info(mName, "getNextTxId rollback");
    }
    return mTxIdCounter;
}

int MqClientControllerBase::addPeer(MqClientControllerBase* peer) {
    if (peer == nullptr) {
        log_error(mName, "addPeer failed %d", 2);
        return 2;
    }
    bool loop_ended = false;
    {
        const AutoLock guard(&mPeersMutex);
        mPeers.push(peer);
        loop_ended = mLoopEnded;
    }
    if (loop_ended) {
        peer->kill();  // the loop's own walk over its peers is over; without this the peer would never hear of the end
    }
    return 0;
}

void MqClientControllerBase::killPeers() {
    std::vector<MqClientControllerBase*> peers;
    {
        const AutoLock guard(&mPeersMutex);
        for (const auto* node = mPeers.head(); node != nullptr; node = node->next) {
            peers.push_back(node->value);
        }
    }
    for (MqClientControllerBase* peer : peers) {  // without the lock: a peer may call back
        if (peer == nullptr) {
            log_error(mName, "peer is null");
        } else {
            peer->kill();
        }
    }
}

int MqClientControllerBase::sendIpcMessage(const MemoryStreamBase* stream) {
    int result = 0;
    if (mBaseState != kInitialised) {
        result = 2;
    } else if (stream == nullptr) {
        result = 3;
    } else if (mTransport->send(stream) != 0) {
        result = 4;
    }
    if (result != 0) {
        log_error(mName, "sendIpcMessage failed %d", result);
    }
    return result;
}

int MqClientControllerBase::sendLocalMessage(OutPostcard* card) {
    int result = 0;
    if (card == nullptr) {
        result = 2;
    } else {
        std::unique_ptr<InPostcard> reader(InPostcard::createInstance(card));
        std::unique_ptr<MqMsgWrapper> message(reader != nullptr ? new (std::nothrow) MqMsgWrapper(reader.get())
                                                                : nullptr);
        if (message == nullptr) {
            result = 3;
        } else {
            (void)reader.release();  // the message's
            if (queueMessage(message.get())) {
                (void)message.release();  // the loop's
            } else {
                result = 4;
            }
        }
    }
    if (result != 0) {
        log_error(mName, "sendLocalMessage failed %d", result);
    }
    return result;
}

bool MqClientControllerBase::queueMessage(MqMsgWrapper* message) {
    return mIncomingQueue != nullptr && !pushKeptItemOut(mIncomingQueue->push(message));
}

int MqClientControllerBase::_process(InPostcard* card) {
    const std::unique_ptr<InPostcard> owner(card);
    log_error(mName, "_process without timestamp. inherit this one to handle incoming IPC messages");
    return 0;
}

int MqClientControllerBase::_process(MqMsgWrapper* message) {
    const std::unique_ptr<MqMsgWrapper> owner(message);
    return _process(owner->takeCard().release());
}

int MqClientControllerBase::run() {
    bool queue_closed = false;
    int result = kNotInitialised;
    if (mBaseState == kInitialised) {
        log_info(mName, "Client controller entering event loop");
        result = loop(&queue_closed);
        log_info(mName, "Client controller leaving event loop");
    }
    if (!queue_closed && mIncomingQueue != nullptr) {
        (void)mIncomingQueue->close();  // logged there
    }
    (void)kill();  // a loop that failed must not leave its receiving thread listening
    (void)_shutdown();
    mBaseState = kStopped;
    drainQueue();
    {
        const AutoLock guard(&mPeersMutex);
        mLoopEnded = true;
    }
    killPeers();
    if (result != 0) {
        log_error(mName, "run failed: %d", result);
    }
    return result;
}

/// @return 0 when the queue is closed and empty; the loop's code otherwise
int MqClientControllerBase::loop(bool* queue_closed) {
    while (true) {
        int result = 0;
        switch (turn(&result)) {
            case Turn::kGoOn:
                break;
            case Turn::kClosed:
                *queue_closed = true;
                return 0;
            case Turn::kFailed:
                return result;
        }
    }
}

MqClientControllerBase::Turn MqClientControllerBase::turn(int* result) {
    TimeDiff wait;
    *result = nextWait(&wait);
    if (*result != 0) {
        return Turn::kFailed;
    }
    void* item = nullptr;
    bool closed = false;
    if (mIncomingQueue->pop(&item, wait, &closed) != 0) {
        // An item that came with the failure is ours, too.
        const std::unique_ptr<MqMsgWrapper> lost(static_cast<MqMsgWrapper*>(item));
        *result = kPopFailed;
        return Turn::kFailed;
    }
    if (item != nullptr) {
        (void)_process(static_cast<MqMsgWrapper*>(item));
        return Turn::kGoOn;
    }
    if (closed) {
        return Turn::kClosed;
    }
    if (!wait.isValid()) {
        log_warning(mName, "Client controller waken up without timeout or new message");
    }
    return Turn::kGoOn;  // a time-out: the next turn fires the timer
}

/// Fires what is due. @param wait out: until the nearest deadline; invalid (no limit) without one. @return 0, 2 or 3
int MqClientControllerBase::nextWait(TimeDiff* wait) {
    std::optional<Timestamp> deadline;
    if (mBaseState != kInitialised) {
        log_verbose(mName, "run: skipping deadline checking. state %d", mBaseState.load());
    } else if (mTimers.count() > 0) {
        deadline = mTimers.fireExpired();
    }
    if (!deadline) {
        log_verbose(mName, "run: waiting for msg");
        return 0;
    }
    if (!deadline->isValid() || deadline->clockId() != CLOCK_BOOTTIME) {
        log_error(mName, "getNearestDeadline failed %d", 10);
        return kNoBootTimeDeadline;
    }
    const Timestamp now;
    *wait = now >= *deadline ? TimeDiff(0) : *deadline - now;
    if (!wait->isValid() || wait->seconds() < 0) {
        return kNegativeWait;
    }
    log_verbose(mName, "run: waiting for %f sec", static_cast<double>(wait->get_total_sec()));
    return 0;
}

/// Frees the messages that no loop will see any more; closing comes first.
void MqClientControllerBase::drainQueue() {
    if (mIncomingQueue == nullptr) {
        return;
    }
    void* item = nullptr;
    bool closed = false;
    while (mIncomingQueue->pop(&item, TimeDiff(0), &closed) == 0 && item != nullptr) {
        const std::unique_ptr<MqMsgWrapper> owner(static_cast<MqMsgWrapper*>(item));
    }
}

int MqClientControllerBase::setLocalTimer(unsigned int seconds, MqClientFunctionalModuleBase* module,
                                          const TimerDataInterface* data) {
    const TimeDiff delay(static_cast<int32_t>(seconds));
    if (setLocalTimer(delay, module, data) != 0) {
        log_error(mName, "setLocalTimer rel failed %d", 2);
    }
    return 0;
}

int MqClientControllerBase::setLocalTimer(const TimeDiff& delay, MqClientFunctionalModuleBase* module,
                                          const TimerDataInterface* data) {
    const int result = armTimer(delay, module, data);
    if (result != 0) {
        log_error(mName, "setLocalTimer abs failed %d", result);
        return 0;  // callers learn of it only from the log: deliberate
    }
    log_verbose(mName, "setLocalTimer : [%f] sec, %d timers in queue after insertion",
                static_cast<double>(delay.get_total_sec()), static_cast<int>(mTimers.count()));
    return 0;
}

int MqClientControllerBase::armTimer(const TimeDiff& delay, MqClientFunctionalModuleBase* module,
                                     const TimerDataInterface* data) {
    if (mBaseState != kInitialised) {
        return 2;
    }
    if (module == nullptr) {
        return 3;
    }
    const Timestamp deadline = Timestamp() + delay;
    if (deadline.clockId() != CLOCK_BOOTTIME) {
        return 4;
    }
    mTimers.add(deadline, module, data);
    return 0;
}

int MqClientControllerBase::removeLocalTimer(const MqClientFunctionalModuleBase* module, TimerDataInterface* data) {
    if (module == nullptr) {
        log_error(mName, "removeLocalTimer failed %d", 2);
        return 0;
    }
    mTimers.remove(module, data);
    log_verbose(mName, "removeLocalTimer : %d timers in queue after removal", static_cast<int>(mTimers.count()));
    return 0;
}

}  // namespace zv_loc_fw
