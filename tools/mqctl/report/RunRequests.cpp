// RunAssembler: how it finds the request that a line is about.
#include <algorithm>
#include <string>

#include "inet/AgentProtocol.h"
#include "report/RunAssembler.h"

namespace mqctl::report {

namespace {

namespace protocol = zv_loc_fw::agent_protocol;

bool sameText(const std::string& a, const std::string& b) {
    // The log cuts lines at some 500 characters, and a worker's a little earlier than a receiver's.
    constexpr size_t kNeverCut = 400;
    return a == b || (a.size() > kNeverCut && b.size() > kNeverCut && a.compare(0, kNeverCut, b, 0, kNeverCut) == 0);
}

}  // namespace

RunAssembler::Controller& RunAssembler::controllerOf(const std::string& name) {
    Controller& controller = mControllers[name];
    controller.name = name;
    return controller;
}

RunAssembler::Controller* RunAssembler::controllerOfThread(int tid) {
    const auto loop = mLoops.find(tid);
    return loop == mLoops.end() ? nullptr : &controllerOf(loop->second);
}

/// Its receiving thread; when only one of each is left, they belong together.
RunAssembler::Receiver* RunAssembler::receiverOf(const Controller& controller) {
    Receiver* free_receiver = nullptr;
    size_t free_receivers = 0;
    for (auto& [tid, receiver] : mReceivers) {
        if (receiver.controller == controller.name) {
            return &receiver;
        }
        if (receiver.controller.empty()) {
            free_receiver = &receiver;
            ++free_receivers;
        }
    }
    const size_t taken = mReceivers.size() - free_receivers;
    const bool last_pair = free_receivers == 1 && taken > 0 && mControllers.size() == mReceivers.size();
    return last_pair ? free_receiver : nullptr;
}

size_t RunAssembler::addRequest(const std::string& controller) {
    Request request;
    request.controller = controller;
    request.pid = mRun.pid;
    mRequests.push_back(std::move(request));
    return mRequests.size() - 1;
}

/// Finds an arrival among those that wait and takes it out. With a start time, all that wait before it on the same
/// thread have left the queue by then, for it is a queue.
std::optional<size_t> RunAssembler::takeWaiting(Controller& controller, const std::string& client,
                                                const std::string& method, std::optional<int64_t> txId,
                                                std::optional<int64_t> startUs) {
    const auto find = [&](Receiver& receiver) {
        return std::find_if(receiver.waiting.begin(), receiver.waiting.end(), [&](size_t index) {
            const Request& request = mRequests[index];
            return request.txId == txId && sameText(request.client, client) && sameText(request.method, method);
        });
    };
    Receiver* found = receiverOf(controller);
    if (found == nullptr) {
        size_t candidates = 0;
        for (auto& [tid, receiver] : mReceivers) {
            if (receiver.controller.empty() && find(receiver) != receiver.waiting.end()) {
                found = &receiver;
                ++candidates;
            }
        }
        if (candidates != 1) {
            return std::nullopt;  // two threads took the same: to join the wrong ones would spoil what follows
        }
    }
    const auto at = find(*found);
    if (at == found->waiting.end()) {
        return std::nullopt;
    }
    if (found->controller.empty()) {
        found->controller = controller.name;
        for (const size_t index : found->waiting) {
            mRequests[index].controller = controller.name;
        }
    }
    const size_t index = *at;
    if (startUs) {
        settleOlder(controller, *found, static_cast<size_t>(at - found->waiting.begin()));
    }
    if (const auto left = std::find(found->waiting.begin(), found->waiting.end(), index);
        left != found->waiting.end()) {
        found->waiting.erase(left);
    }
    return index;
}

/// The request that a worker's line is about; a new one when the log does not have its first lines.
Request& RunAssembler::job(Controller& controller, int64_t us) {
    if (!controller.running) {
        startJob(controller, std::nullopt, us);
    }
    return mRequests[*controller.running];
}

void RunAssembler::startJob(Controller& controller, std::optional<int64_t> txId, int64_t us) {
    std::optional<size_t> index;
    if (controller.fromUs && txId) {
        index = takeWaiting(controller, controller.from, controller.method, txId, controller.fromUs);
    }
    if (!index) {
        index = addRequest(controller.name);
    }
    Request& request = mRequests[*index];
    if (controller.fromUs) {
        request.client = controller.from;
        request.method = controller.method;
        request.startedUs = controller.fromUs;
    }
    request.txId = txId;
    request.endedUs = us;
    controller.running = index;
    controller.latest = index;
    controller.fromUs.reset();
    controller.startsExpired = false;
    if (controller.nextExpiredUs) {
        request.outcome = Outcome::kExpiredRunning;
        controller.nextExpiredUs.reset();
    }
}

void RunAssembler::expireActive(Controller& controller, int64_t us) {
    if (controller.startsExpired && !controller.running) {
        controller.startsExpired = false;
        controller.nextExpiredUs = us;
        return;
    }
    if (!controller.latest) {
        const size_t index = addRequest(controller.name);
        mRequests[index].outcome = Outcome::kExpiredRunning;
        mRequests[index].endedUs = us;
        return;
    }
    Request& request = mRequests[*controller.latest];
    request.outcome = Outcome::kExpiredRunning;
    request.endedUs = us;
    if (request.withoutResult()) {
        openWedge(controller, *controller.latest, us);
    }
}

void RunAssembler::openWedge(Controller& controller, size_t request, int64_t us) {
    Wedge wedge;
    wedge.controller = controller.name;
    wedge.pid = mRun.pid;
    wedge.request = request;
    wedge.fromUs = us;
    controller.wedge = mWedges.size();
    mRequests[request].wedge = mWedges.size();
    mRequests[request].outcome = Outcome::kExpiredRunning;
    mWedges.push_back(wedge);
}

/// Level 5 names the client of an error reply; the line about the expiry itself came just before.
void RunAssembler::nameReply(Controller& controller, const LogEvent::ErrorReply& reply, int64_t us) {
    if (reply.text != protocol::kErrorQueuedJobTimedOut) {
        return;  // the other two have lines of their own
    }
    const Expiry expiry = controller.expiries.takeLatest().value_or(Expiry{us, false, std::nullopt});
    std::optional<size_t> index = takeWaiting(controller, reply.client, reply.method, reply.txId, std::nullopt);
    if (!index) {
        index = addRequest(controller.name);
        mRequests[*index].client = reply.client;
        mRequests[*index].method = reply.method;
        mRequests[*index].txId = reply.txId;
    }
    mRequests[*index].outcome = Outcome::kExpiredWaiting;
    mRequests[*index].untimed = expiry.untimed;
    mRequests[*index].endedUs = expiry.us;
}

/// The oldest waiting request could not be started; mostly because it has no TX-ID.
void RunAssembler::discard(Controller& controller, int64_t code, int64_t us) {
    constexpr int64_t kNoTxId = 12;
    Receiver* receiver = receiverOf(controller);
    std::optional<size_t> index;
    if (receiver != nullptr) {
        const auto at = std::find_if(receiver->waiting.begin(), receiver->waiting.end(),
                                     [&](size_t candidate) { return code != kNoTxId || !mRequests[candidate].txId; });
        if (at != receiver->waiting.end()) {
            index = *at;
            receiver->waiting.erase(at);
        }
    }
    if (!index) {
        index = addRequest(controller.name);
    }
    mRequests[*index].outcome = Outcome::kDiscarded;
    mRequests[*index].endedUs = us;
}

void RunAssembler::expire(size_t index, const Controller& controller, const Expiry& expiry) {
    Request& request = mRequests[index];
    request.controller = controller.name;
    request.outcome = Outcome::kExpiredWaiting;
    request.untimed = expiry.untimed;
    request.endedUs = expiry.us;
}

void RunAssembler::endWalk(Controller& controller, bool complete) {
    const ExpiryTracker::Named named = controller.expiries.endWalk(complete);
    Receiver* receiver = receiverOf(controller);
    for (const auto& [index, expiry] : named) {
        const auto at = receiver == nullptr ? std::deque<size_t>::iterator()
                                            : std::find(receiver->waiting.begin(), receiver->waiting.end(), index);
        if (receiver == nullptr || at == receiver->waiting.end()) {
            controller.expiries.unnamed().push_back(expiry);
            continue;
        }
        receiver->waiting.erase(at);
        expire(index, controller, expiry);
    }
}

/// Expiries that can be of one request only: no other waited, or had just come.
void RunAssembler::nameOnly(Controller& controller, Receiver& receiver) {
    std::vector<Expiry>& unnamed = controller.expiries.unnamed();
    for (auto expiry = unnamed.begin(); expiry != unnamed.end();) {
        const auto at = expiry->only ? std::find(receiver.waiting.begin(), receiver.waiting.end(), *expiry->only)
                                     : receiver.waiting.end();
        if (at == receiver.waiting.end()) {
            ++expiry;
            continue;
        }
        expire(*at, controller, *expiry);
        receiver.waiting.erase(at);
        expiry = unnamed.erase(expiry);
    }
}

/// A request starts: whatever arrived before it on the same thread and still counts as waiting has expired.
void RunAssembler::settleOlder(Controller& controller, Receiver& receiver, size_t position) {
    const size_t starting = receiver.waiting[position];
    endWalk(controller, false);
    nameOnly(controller, receiver);
    std::vector<Expiry>& unnamed = controller.expiries.unnamed();
    size_t older = static_cast<size_t>(std::find(receiver.waiting.begin(), receiver.waiting.end(), starting) -
                                       receiver.waiting.begin());
    const bool all_expired = unnamed.size() >= older;
    for (; older > 0; --older) {
        if (all_expired) {
            expire(receiver.waiting.front(), controller, unnamed.front());
            unnamed.erase(unnamed.begin());
        }
        receiver.waiting.pop_front();  // stays unknown else
    }
}

/// At the end of a run: what still waits, and expiries without a name.
void RunAssembler::settleRest(Controller& controller, bool ended) {
    endWalk(controller, false);
    std::vector<Expiry>& unnamed = controller.expiries.unnamed();
    Receiver* receiver = receiverOf(controller);
    if (receiver != nullptr) {
        nameOnly(controller, *receiver);
        if (!unnamed.empty() && unnamed.size() < receiver->waiting.size()) {
            mUndecided += unnamed.size();
            receiver->waiting.clear();
            unnamed.clear();
            return;
        }
        for (const size_t index : receiver->waiting) {
            if (unnamed.empty()) {
                mRequests[index].outcome = ended ? Outcome::kStopped : Outcome::kUnfinished;
                continue;
            }
            expire(index, controller, unnamed.front());
            unnamed.erase(unnamed.begin());
        }
        receiver->waiting.clear();
    }
    for (const Expiry& expiry : unnamed) {
        expire(addRequest(controller.name), controller, expiry);
    }
    unnamed.clear();
}

void RunAssembler::finish(bool replaced) {
    const bool ended = replaced || mRun.sawStop || mStopping;
    for (auto& [name, controller] : mControllers) {
        settleRest(controller, ended);
        if (controller.running && mRequests[*controller.running].outcome == Outcome::kUnknown) {
            mRequests[*controller.running].outcome = ended ? Outcome::kStopped : Outcome::kUnfinished;
        }
        if (controller.wedge && ended) {
            mWedges[*controller.wedge].untilUs = mRun.toUs;
        }
    }
    for (auto& [tid, receiver] : mReceivers) {
        for (const size_t index : receiver.waiting) {
            mRequests[index].outcome = ended ? Outcome::kStopped : Outcome::kUnfinished;
        }
    }
    mRun.requests = mRequests.size();
    for (Request& request : mRequests) {
        if (request.outcome == Outcome::kUnfinished || (request.outcome == Outcome::kStopped && !request.startedUs)) {
            request.endedUs = mRun.toUs;
        }
    }
    for (Wedge& wedge : mWedges) {
        wedge.expired = static_cast<size_t>(std::count_if(mRequests.begin(), mRequests.end(), [&](const Request& r) {
            return r.controller == wedge.controller && r.outcome == Outcome::kExpiredWaiting &&
                   r.endedUs >= wedge.fromUs && (!wedge.untilUs || r.endedUs <= wedge.untilUs);
        }));
    }
}

}  // namespace mqctl::report
