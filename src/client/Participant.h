#pragma once

#include <sys/types.h>
#include <time.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

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

/// Whether there is a socket of that name, live or stale. Any thread.
[[nodiscard]] bool hasSocket(const std::string& name);

/// Whether a participant can have that name: 1 to 75 characters, so that no path is cut, no "/", not "." or "..", and
/// not the hub's, which never leaves the sender.
[[nodiscard]] bool isParticipantName(const std::string& name);
/// "\"NAME\" is no name ...", for the user.
[[nodiscard]] std::string noParticipantName(const std::string& name);

struct ParticipantOptions {
    /// Takes each message, on the receiving thread; without one the messages wait for receive().
    using Handler = std::function<void(std::unique_ptr<InPostcard>)>;

    std::vector<std::string> aliases = {};  ///< more names for the same socket; they go with the participant
    bool replaceLive = false;        ///< take a name or alias even from a live participant, which hears nothing then
    bool keepAnnouncements = false;  ///< also hand out what the hub says about other participants
    Handler handler = {};
};

/// A participant of the message queue for programs that are not controllers: registers a name and its aliases, sends
/// cards, and keeps what arrives until somebody waits for it, or hands it to a handler. A thread of its own receives.
/// Socket file and aliases go with the object. Any thread may send and wait; messages are handed out in the order of
/// their arrival.
class Participant : private MessageQueueServiceCallback, private Runnable {
public:
    using Clock = std::chrono::steady_clock;

    /// Takes no name or alias under which a live participant listens, unless told to. A failure leaves nothing behind.
    /// @param error out: why null was returned: a name is no name, or taken, or the socket or a link could not be made,
    ///        or no thread
    [[nodiscard]] static std::unique_ptr<Participant> create(const std::string& name, ParticipantOptions options,
                                                             std::string* error);
    ~Participant() override;
    Participant(const Participant&) = delete;
    Participant& operator=(const Participant&) = delete;

    [[nodiscard]] const std::string& name() const { return mName; }

    /// Sends a finished card to the participant in its "TO", or has a card for the hub carried out. @return whether it
    /// was a card to send; delivery is not known
    bool send(OutPostcard& card);
    /// Sends a finished card to one participant, and knows more. Waits at most pos_util::kPosIpcSendTimeoutMs for a
    /// full receiver. @return whether the receiver's socket took it
    [[nodiscard]] bool deliver(const std::string& to, const OutPostcard& card);

    /// Takes the next message out, waiting for it until the deadline. Not for participants with a handler.
    /// @return null when the time is up
    [[nodiscard]] std::unique_ptr<InPostcard> receive(Clock::time_point deadline);

    /// Ends receiving; when it returns, no handler runs and none will. Not from a handler. The destructor does it too.
    void stop();

private:
    /// Tells a file from one that has taken its place, even if that one got the same inode.
    struct FileIdentity {
        std::string path;
        dev_t device;
        ino_t inode;
        timespec made;
    };

    Participant(std::string name, ParticipantOptions options) : mName(std::move(name)), mOptions(std::move(options)) {}

    [[nodiscard]] bool checkNames(std::string* error) const;
    bool start(std::string* error);
    bool registerName(std::string* error);
    bool addAlias(const std::string& alias, std::string* error);
    int newMsg(InMemoryStream* stream) override;
    int run() override;

    const std::string mName;
    const ParticipantOptions mOptions;
    MessageQueueClientImpl mTransport;
    std::unique_ptr<ThreadImpl> mThread;
    /// The links that this participant made.
    std::vector<FileIdentity> mLinks;

    std::mutex mMutex;
    std::condition_variable mArrived;
    std::deque<std::unique_ptr<InPostcard>> mMessages;  // guarded by mMutex
};

}  // namespace zv_loc_fw
