#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

#include "base/Runnable.h"
#include "base/ThreadImpl.h"
#include "client/InFlight.h"
#include "client/Participant.h"
#include "client/inet_agent_client.h"

namespace inet_agent {

/// The inside of a Client. Two threads of its own: the participant's, which takes replies, and one that sleeps until
/// the next deadline. Callbacks are called without the lock.
class Client::Impl : private zv_loc_fw::Runnable {
public:
    static std::unique_ptr<Impl> create(const std::string& name, const Options& options, std::string* error);
    ~Impl() override;
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    [[nodiscard]] const std::string& name() const { return mName; }
    /// Whether this is one of its threads, so that waiting for a reply would be waiting for oneself.
    [[nodiscard]] bool isOwnThread() const;
    void request(const Request& request, Callback callback);

private:
    explicit Impl(std::string name) : mName(std::move(name)) {}

    bool start(const Options& options, std::string* error);
    void send(const Request& request, std::int32_t txId);
    void takeReply(zv_loc_fw::InPostcard& card);
    /// The deadlines' thread.
    int run() override;
    void endUnsent(std::int32_t txId, ReplyKind kind, std::string text);

    const std::string mName;
    std::unique_ptr<zv_loc_fw::Participant> mParticipant;
    std::unique_ptr<zv_loc_fw::ThreadImpl> mDeadlineThread;

    std::mutex mMutex;
    std::condition_variable mChanged;  // an earlier deadline than before, or the end
    // Guarded by mMutex.
    InFlight mInFlight;
    /// When the deadlines' thread looks again by itself, at the latest at the next deadline. It need not be woken for
    /// requests with later ones: mostly for none.
    Clock::time_point mDeadlineThreadWakes = Clock::time_point::max();
    bool mClosed = false;
};

}  // namespace inet_agent
