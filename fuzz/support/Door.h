#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "base/BlockingQueue.h"
#include "mq/MessageQueueClientImpl.h"
#include "mq/MqClientIpcListener.h"
#include "mq/MqClientIpcReciver.h"
#include "platform/posutil/PosIpc.h"

namespace fuzz {

/// A controller's way in, from the socket file to the incoming queue, on one thread: what was sent is received in
/// receive(), which returns when all of it has been. Ends the process when a message comes out otherwise than it went
/// in, or a descriptor stays open.
class Door {
public:
    /// The kernel queues about ten datagrams, and nobody reads while they are sent.
    static constexpr size_t kMaxMessages = 8;

    Door();
    ~Door();
    Door(const Door&) = delete;
    Door& operator=(const Door&) = delete;

    /// One datagram with these descriptors, which are closed. @return whether it was sent
    bool send(const std::string& payload, const std::vector<int>& files = {});
    /// What the agent is to make of what was sent: this message and no other is next.
    void expect(std::string message) { mExpected.push_back(std::move(message)); }
    /// Receives everything that was sent.
    void receive();

private:
    class Listener;

    void checkQueue();

    const int mLowestFree;
    std::vector<std::string> mExpected;
    size_t mDelivered = 0;
    zv_loc_fw::MessageQueueClientImpl mTransport;
    std::unique_ptr<zv_loc_fw::BlockingQueue> mQueue;
    zv_loc_fw::MqClientIpcReciver mCallback;
    std::shared_ptr<Listener> mListener;
    std::unique_ptr<pos_util::PosIpcRecver> mReceiver;
    int mSocket = -1;
};

}  // namespace fuzz
