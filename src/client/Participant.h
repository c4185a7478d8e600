#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

#include "base/Runnable.h"
#include "base/ThreadImpl.h"
#include "mq/MessageQueueClientImpl.h"
#include "mq/MessageQueueServiceCallback.h"
#include "postcard/InPostcard.h"
#include "postcard/OutPostcard.h"

namespace zv_loc_fw {

/// What stands behind a participant's name.
enum class ParticipantState {
    kLive,    ///< somebody listens on the socket
    kStale,   ///< a socket file that nobody listens on
    kAbsent,  ///< no socket
};

/// Looks by connecting, which sends nothing. Any thread.
[[nodiscard]] ParticipantState lookUpParticipant(const std::string& name);

/// A participant of the message queue for programs that are not controllers: registers a name, sends cards, and keeps
/// what arrives until somebody waits for it. A thread of its own receives. The socket file goes with the object.
/// Any thread may send and wait; messages are handed out in the order of their arrival.
class Participant : private MessageQueueServiceCallback, private Runnable {
public:
    using Clock = std::chrono::steady_clock;

    /// @param error out: why null was returned: the name is no name, or taken by a live participant, or its socket
    ///        could not be made, or no thread
    [[nodiscard]] static std::unique_ptr<Participant> create(const std::string& name, std::string* error);
    ~Participant() override;
    Participant(const Participant&) = delete;
    Participant& operator=(const Participant&) = delete;

    [[nodiscard]] const std::string& name() const { return mName; }

    /// Sends a finished card to the participant in its "TO". @return whether it was a card to send; delivery is not
    /// known
    bool send(OutPostcard& card);

    /// Takes the next message out, waiting for it until the deadline. Announcements of other participants are left out.
    /// @return null when the time is up
    [[nodiscard]] std::unique_ptr<InPostcard> receive(Clock::time_point deadline);

private:
    explicit Participant(std::string name) : mName(std::move(name)) {}

    bool start(std::string* error);
    int newMsg(InMemoryStream* stream) override;
    int run() override;

    const std::string mName;
    MessageQueueClientImpl mTransport;
    std::unique_ptr<ThreadImpl> mThread;

    std::mutex mMutex;
    std::condition_variable mArrived;
    std::deque<std::unique_ptr<InPostcard>> mMessages;  // guarded by mMutex
};

}  // namespace zv_loc_fw
