#pragma once

#include <cstdint>

#include "platform/posutil/PosIpc.h"

namespace zv_loc_fw {

class MessageQueueClientImpl;
class MessageQueueServiceCallback;

/// What the transport hands to the IPC library: copies each message, keeps the transport's cache of senders clean, and
/// passes the message on. Made by the transport at registration. Runs on the receiving thread.
class MqClientIpcListener : public pos_util::IPosIpcListener {
public:
    /// @param client outlives the listener
    explicit MqClientIpcListener(MessageQueueClientImpl* client) : mClient(client) {}

    /// Before the listen begins; until then messages are dropped.
    void setCallback(MessageQueueServiceCallback* callback) { mCallback = callback; }

    /// Logs "onReceive failed %d": 1 no memory for the stream, 2 for the copy, or the stream refused it, 3 no memory
    /// for the envelope's reader, 4 the callback answered non-zero (it does for
    /// every "KILL"). Never answers the sender.
    void onReceive(const char* data, uint32_t length, const pos_util::PosIpcRecver* recver) override;

private:
    int receive(const char* data, uint32_t length);

    MessageQueueServiceCallback* mCallback = nullptr;
    MessageQueueClientImpl* const mClient;
};

}  // namespace zv_loc_fw
