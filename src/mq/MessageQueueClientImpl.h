#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "base/MutexImpl.h"
#include "mq/Envelope.h"
#include "platform/posutil/PosIpc.h"

namespace zv_loc_fw {

class InPostcard;
class MemoryStreamBase;
class MessageQueueServiceCallback;
class MqClientIpcListener;

/// A participant's side of the message queue. Every participant receives on a socket file of its own,
/// "/dev/socket/location/mq/NAME"; messages go straight into the destination's file, no process stands between. The
/// hub's duties (register a name, add an alias, announce both) are requests to "SERVER" that the sender's own transport
/// carries out: they never leave the process.
///
///   send(REGISTER to SERVER) -> the socket file exists, everybody heard a REGISTER-EVENT
///   run_block(callback)      -> listens until shutdown()
///
/// send: any thread. run_block: one thread. shutdown: any thread, any number of times, also before run_block, which
/// then returns at once. Lines go the second road under "MessageQ_Client".
class MessageQueueClientImpl {
public:
    MessageQueueClientImpl();
    virtual ~MessageQueueClientImpl();
    MessageQueueClientImpl(const MessageQueueClientImpl&) = delete;
    MessageQueueClientImpl& operator=(const MessageQueueClientImpl&) = delete;

    /// Does nothing. @return 0
    virtual int setServerNameDup(const char* name);
    /// Does nothing: there is nobody to connect to. @return 0
    virtual int connect(int flag);

    /// Delivers one encoded postcard, or carries it out when it is for "SERVER". May block for
    /// pos_util::kPosIpcSendTimeoutMs, once, for a receiver that does not read.
    /// @return 0, also when the destination does not exist or does not take it; 2
    /// no stream; 3 no memory; 4 no postcard;
    ///         5, 6 no "TO"; 7, 8 no "REQ" for "SERVER"; 9 not registered; 10 alias not added; 11, 12 no "FROM" to
    ///         announce; 13 not announced
    virtual int send(const MemoryStreamBase* stream);

    /// Hands every message to the callback, on this thread, until shutdown(). @return 0, at once when not registered
    virtual int run_block(MessageQueueServiceCallback* callback);

    /// Makes run_block return. @return 0
    virtual int shutdown();

    /// Writes bytes to a participant's socket file; one that does not exist loses them silently.
    void sendMessage(const char* name, const MemoryStreamBase* stream);

    /// Forgets cached senders whose socket file has gone. Any thread.
    void cleanupIpcSenders();

private:
    int deliver(const MemoryStreamBase* stream);
    int processRegisterMessage(InPostcard& request);
    int processAddAliasMessage(InPostcard& request);
    int announce(InPostcard& request);

    std::shared_ptr<MqClientIpcListener> mListener;
    char mOwnPath[envelope::kSocketPathSize] = {};
    std::unique_ptr<pos_util::PosIpcRecver> mReceiver;
    /// mReceiver for other threads' shutdown(); set once.
    std::atomic<pos_util::PosIpcRecver*> mStoppable{nullptr};

    std::map<std::string, std::shared_ptr<pos_util::PosIpcSender>, std::less<>> mIpcSendersMap GUARDED_BY(mMutex);
    MutexImpl mMutex;
};

}  // namespace zv_loc_fw
