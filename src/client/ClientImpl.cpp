#include "client/ClientImpl.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <new>
#include <optional>
#include <utility>

#include "client/RequestCard.h"
#include "mq/Envelope.h"

namespace inet_agent {

namespace {

using zv_loc_fw::Participant;
using zv_loc_fw::ParticipantState;

/// Which client's thread this is.
thread_local const void* servedClient = nullptr;

constexpr std::chrono::milliseconds kLongestPatience = std::chrono::hours(24);

Reply makeReply(ReplyKind kind, std::string text) {
    Reply reply;
    reply.kind = kind;
    reply.text = std::move(text);
    return reply;
}

void end(std::int32_t txId, const Pending& pending, Reply reply) {
    if (!pending.callback) {
        return;
    }
    reply.txId = txId;
    reply.elapsed = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - pending.start);
    pending.callback(std::move(reply));
}

Reply absentReply(const std::string& controller) {
    return makeReply(ReplyKind::noSuchParticipant, "there is no participant \"" + controller + "\"");
}

/// Nothing when somebody listens.
std::optional<Reply> absence(const std::string& controller) {
    switch (zv_loc_fw::lookUpParticipant(controller)) {
        case ParticipantState::kAbsent:
            return absentReply(controller);
        case ParticipantState::kStale:
            return makeReply(ReplyKind::staleSocket, "nobody listens on the socket of \"" + controller + "\"");
        case ParticipantState::kLive:
            break;
    }
    return std::nullopt;
}

Reply noReply(const Pending& pending) {
    const std::optional<Reply> gone = absence(pending.controller);
    return makeReply(ReplyKind::noReplyInTime,
                     gone.has_value()
                         ? gone->text + " any more; its time-out was " + std::to_string(pending.timeoutSec) + " s"
                         : "\"" + pending.controller + "\" sent no reply within " + std::to_string(pending.timeoutSec) +
                               " s and the patience after them");
}

}  // namespace

std::unique_ptr<Client::Impl> Client::Impl::create(const std::string& name, const Options& options,
                                                   std::string* error) {
    std::unique_ptr<Impl> impl(new (std::nothrow) Impl(name));
    if (impl == nullptr) {
        *error = "no memory";
        return nullptr;
    }
    return impl->start(options, error) ? std::move(impl) : nullptr;
}

bool Client::Impl::start(const Options& options, std::string* error) {
    zv_loc_fw::ParticipantOptions participant;
    participant.aliases = options.aliases;
    participant.replaceLive = options.replaceLive;
    participant.handler = [this](std::unique_ptr<zv_loc_fw::InPostcard> card) { takeReply(*card); };
    mParticipant = Participant::create(mName, std::move(participant), error);
    if (mParticipant == nullptr) {
        return false;
    }
    mDeadlineThread.reset(new (std::nothrow) zv_loc_fw::ThreadImpl(mName.c_str(), this, false));
    if (mDeadlineThread == nullptr || mDeadlineThread->launch() != 0) {
        mDeadlineThread.reset();
        *error = "cannot start a thread";
        return false;
    }
    return true;
}

Client::Impl::~Impl() {
    if (isOwnThread()) {
        std::abort();  // a callback that destroys its client: there is no thread left to go on with
    }
    {
        const std::lock_guard lock(mMutex);
        mClosed = true;
    }
    mChanged.notify_one();
    // Callbacks may still run in both threads, and send: the participant stays until both have ended.
    if (mParticipant != nullptr) {
        mParticipant->stop();
    }
    if (mDeadlineThread != nullptr) {
        (void)mDeadlineThread->join();
    }
    for (auto& [tx_id, pending] : mInFlight.takeAll()) {
        end(tx_id, pending, makeReply(ReplyKind::closed, "the client was closed"));
    }
}

bool Client::Impl::isOwnThread() const {
    return servedClient == this;
}

void Client::Impl::request(const Request& request, Callback callback) {
    Pending pending;
    pending.controller = request.controller;
    pending.method = request.method;
    pending.timeoutSec = request.timeoutSec;
    pending.start = Clock::now();
    pending.deadline = pending.start + std::chrono::seconds(std::max(request.timeoutSec, 0)) +
                       std::clamp(request.patience, std::chrono::milliseconds(0), kLongestPatience);
    pending.callback = std::move(callback);

    if (std::string reason = whyRefused(request, mName); !reason.empty()) {
        end(0, pending, makeReply(ReplyKind::refused, std::move(reason)));
        return;
    }
    // Whether anybody listens on the socket is looked into when it does not take the message.
    if (!zv_loc_fw::hasSocket(request.controller)) {
        end(0, pending, absentReply(request.controller));
        return;
    }
    std::unique_lock lock(mMutex);
    if (mClosed) {
        lock.unlock();
        end(0, pending, makeReply(ReplyKind::closed, "the client is being closed"));
        return;
    }
    const bool wakes = pending.deadline < mDeadlineThreadWakes;
    const std::int32_t tx_id = mInFlight.add(std::move(pending));
    lock.unlock();
    if (wakes) {
        mChanged.notify_one();
    }
    send(request, tx_id);
}

void Client::Impl::send(const Request& request, std::int32_t txId) {
    constexpr int kNoCard = 1;
    zv_loc_fw::CardBuilder card(kNoCard, kNoCard);
    buildCard(request, mName, txId, &card);
    if (card.result() != 0) {
        endUnsent(txId, ReplyKind::refused, "no memory for the message");
    } else if (card.card()->getEncodedBuffer()->getSize() > pos_util::kPosIpcMaxMessage) {
        endUnsent(txId, ReplyKind::refused,
                  "the message has more than " + std::to_string(pos_util::kPosIpcMaxMessage) + " bytes");
    } else if (!mParticipant->deliver(request.controller, *card.card())) {
        const std::optional<Reply> absent = absence(request.controller);
        endUnsent(txId, absent.has_value() ? absent->kind : ReplyKind::notDelivered,
                  absent.has_value()
                      ? absent->text
                      : "the socket of \"" + request.controller +
                            "\" did not take the message (it does not read or is ending, or this user may not write)");
    }
}

/// Unless its deadline was faster.
void Client::Impl::endUnsent(std::int32_t txId, ReplyKind kind, std::string text) {
    std::optional<Pending> pending;
    {
        const std::lock_guard lock(mMutex);
        pending = mInFlight.take(txId);
    }
    if (pending.has_value()) {
        end(0, *pending, makeReply(kind, std::move(text)));
    }
}

void Client::Impl::takeReply(zv_loc_fw::InPostcard& card) {
    servedClient = this;
    std::int32_t tx_id = 0;
    const char* from = nullptr;
    const char* resp = nullptr;
    if (card.getInt32(zv_loc_fw::envelope::kTxId, tx_id) != 0 ||
        card.getString(zv_loc_fw::envelope::kFrom, &from) != 0 ||
        card.getString(zv_loc_fw::envelope::kResp, &resp) != 0) {
        return;
    }
    std::optional<Pending> pending;
    {
        const std::lock_guard lock(mMutex);
        pending = mInFlight.takeAnswered(tx_id, from, resp);
    }
    if (pending.has_value()) {
        end(tx_id, *pending, readReply(card));
    }
}

int Client::Impl::run() {
    servedClient = this;
    std::unique_lock lock(mMutex);
    while (!mClosed) {
        if (std::optional<InFlight::Entry> expired = mInFlight.takeExpired(Clock::now()); expired.has_value()) {
            lock.unlock();
            end(expired->first, expired->second, noReply(expired->second));
            expired.reset();  // what the callback holds may come back to this client
            lock.lock();
            continue;
        }
        mDeadlineThreadWakes = mInFlight.nextDeadline().value_or(Clock::time_point::max());
        if (mDeadlineThreadWakes == Clock::time_point::max()) {
            mChanged.wait(lock);
        } else {
            mChanged.wait_until(lock, mDeadlineThreadWakes);
        }
    }
    return 0;
}

}  // namespace inet_agent
