#pragma once

#include <cstddef>

#include "base/Runnable.h"
#include "mq/MessageQueueServiceCallback.h"

namespace zv_loc_fw {

class BlockingQueue;
class InPostcard;
class MessageQueueClientImpl;

/// The receiving side of a controller: registers its name, and as a thread's body listens until the transport is shut
/// down, checks the envelope of what arrives and queues it with its time of arrival. Its end closes the queue, which is
/// how the controller's loop learns of it. Constructed by the controller's init;
/// run and newMsg on the receiving thread.
class MqClientIpcReciver : public MessageQueueServiceCallback, public Runnable {
public:
    /// newMsg's answer for a "KILL" request, which is queued like any other message.
    static constexpr int kKillRequested = 10000;

    /// Registers `ipc_name` with the hub. A failure is only logged, as "MqClientIpcReciver constructor failed %d": 3 no
    /// controller name, 4 no client, 5 no memory, 6 to 10 card not built, 11 not sent.
    /// @param queue, client outlive the receiver
    MqClientIpcReciver(const char* controller_name, BlockingQueue* queue, MessageQueueClientImpl* client,
                       const char* ipc_name);

    /// @return 0, or kKillRequested. A message that cannot be used is dropped and logged
    /// as "newMsg error %d" (answer 0):
    ///         2 no stream; 3 no memory; 4 no "FROM"; 5 "TX-ID" of another type; 6 none of "REQ", "RESP", "INFO"
    int newMsg(InMemoryStream* stream) override;

    int run() override;

private:
    int registerName(const char* controller_name, const char* ipc_name);
    int readMessage(InMemoryStream* stream, InPostcard** card, bool* kill) const;

    BlockingQueue* const mQueue;
    const char* mName = nullptr;
    MessageQueueClientImpl* const mClient;
    std::size_t mRefusedBytes = 0;  // since their memory was given back
};

}  // namespace zv_loc_fw
