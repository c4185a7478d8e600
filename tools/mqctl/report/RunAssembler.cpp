#include "report/RunAssembler.h"

#include <utility>

#include "mq/Envelope.h"

namespace mqctl::report {

namespace {

namespace envelope = zv_loc_fw::envelope;

bool isSettled(const Request& request) {
    return request.outcome != Outcome::kUnknown;
}

}  // namespace

RunAssembler::RunAssembler(int pid, int64_t fromUs) {
    mRun.pid = pid;
    mRun.fromUs = fromUs;
    mRun.toUs = fromUs;
}

bool RunAssembler::startsAnew(const LogEvent& event) const {
    if (event.kind == LogEvent::kProcessStarted) {
        return mIsAgent;
    }
    if (event.kind != LogEvent::kWorkerStarted) {
        return false;
    }
    const auto known = mControllers.find(event.controller);
    return known != mControllers.end() && (known->second.workerStarted || known->second.latest);
}

void RunAssembler::take(const LogEvent& event, const LogLine& line) {
    mRun.toUs = line.timeUs;
    switch (event.kind) {
        case LogEvent::kArrivalFrom:
        case LogEvent::kArrivalReq:
        case LogEvent::kArrivalOther:
        case LogEvent::kArrivalTxId:
            takeArrival(event, line);
            return;
        case LogEvent::kProcessStarted:
        case LogEvent::kProcessStopping:
        case LogEvent::kProcessFailed:
        case LogEvent::kReplyDropped:
            takeProcess(event, line);
            return;
        case LogEvent::kWaitingChecked:
        case LogEvent::kWaitingExpired:
        case LogEvent::kWaitingUntimed: {
            Controller* controller = controllerOfThread(line.tid);
            Expiry expiry{line.timeUs, event.kind == LogEvent::kWaitingUntimed, std::nullopt};
            if (controller == nullptr) {
                if (event.kind != LogEvent::kWaitingChecked && line.tid != 0) {
                    mUnplacedExpiries[line.tid].push_back(expiry);
                }
                return;
            }
            if (expiry.untimed) {
                endWalk(*controller, false);  // such a job goes when it comes, and is in no walk of the timer
            }
            Receiver* receiver = receiverOf(*controller);
            size_t arrived = 0;
            if (receiver != nullptr) {
                nameOnly(*controller, *receiver);
                arrived = std::exchange(receiver->arrivedSinceLook, 0);
            }
            if (event.kind == LogEvent::kWaitingChecked) {
                controller->expiries.passed();
                return;
            }
            if (receiver != nullptr && receiver->waiting.size() == 1) {
                expiry.only = receiver->waiting.front();
            } else if (expiry.untimed && arrived == 1 && !receiver->waiting.empty()) {
                expiry.only = receiver->waiting.back();
            }
            controller->expiries.expired(expiry);
            return;
        }
        default:
            break;
    }
    Controller& controller = controllerOf(event.controller);
    if (event.kind >= LogEvent::kWorkerStarted && event.kind <= LogEvent::kPerformFailed) {
        mIsAgent = true;
        takeJob(controller, event, line.timeUs);
        return;
    }
    if (line.tid != 0 && event.kind != LogEvent::kLoopEnded && mLoops.emplace(line.tid, controller.name).second) {
        for (const Expiry& expiry : mUnplacedExpiries[line.tid]) {
            controller.expiries.expired(expiry);
        }
        mUnplacedExpiries.erase(line.tid);
    }
    takeQueue(controller, event, line.timeUs);
}

void RunAssembler::takeArrival(const LogEvent& event, const LogLine& line) {
    Receiver& receiver = mReceivers[line.tid];
    switch (event.kind) {
        case LogEvent::kArrivalFrom:
            receiver.from = event.text;
            receiver.fromUs = line.timeUs;
            receiver.fromSeen = true;
            receiver.latest.reset();
            return;
        case LogEvent::kArrivalReq: {
            if (!receiver.fromSeen) {
                return;  // the log begins in the middle
            }
            receiver.fromSeen = false;
            // No requests: a stop that stops nothing, and a message that names the controller itself as its sender.
            if (event.text == envelope::kKill || mControllers.count(receiver.from) != 0) {
                return;
            }
            mRun.sawArrivals = true;
            const size_t index = addRequest(receiver.controller);
            mRequests[index].client = receiver.from;
            mRequests[index].method = event.text;
            mRequests[index].arrivedUs = receiver.fromUs;
            receiver.waiting.push_back(index);
            ++receiver.arrivedSinceLook;
            receiver.latest = index;
            return;
        }
        case LogEvent::kArrivalTxId:
            if (receiver.latest) {
                mRequests[*receiver.latest].txId = event.number;
                receiver.latest.reset();
            }
            return;
        default:
            receiver.fromSeen = false;
            receiver.latest.reset();
            return;
    }
}

void RunAssembler::takeJob(Controller& controller, const LogEvent& event, int64_t us) {
    const auto number = static_cast<int>(event.number);
    switch (event.kind) {
        case LogEvent::kWorkerStarted:
            controller.workerStarted = true;
            return;
        case LogEvent::kWorkerStopped:
            mStopping = true;
            return;
        case LogEvent::kJobFrom:
            mRun.sawJobs = true;
            controller.running.reset();
            controller.from = event.text;
            controller.method.clear();
            controller.fromUs = us;
            if (controller.wedge) {
                mWedges[*controller.wedge].untilUs = us;
                mWedges[*controller.wedge].freed = true;
                controller.wedge.reset();
            }
            return;
        case LogEvent::kJobReq:
            controller.method = event.text;
            return;
        case LogEvent::kJobTxId:
            startJob(controller, event.number, us);
            return;
        case LogEvent::kJobUrl:
            job(controller, us).url = event.text;
            return;
        case LogEvent::kPostHeader:
            job(controller, us).postHeaders.push_back(event.text);
            return;
        case LogEvent::kTransferBegin:
            job(controller, us).transferUs = us;
            return;
        case LogEvent::kRetryAfter:
            job(controller, us).retryAfterSec = number;
            return;
        case LogEvent::kTransferEnd:
            job(controller, us).endedUs = us;
            return;
        case LogEvent::kHttpStatus: {
            Request& request = job(controller, us);
            request.httpStatus = number;
            request.endedUs = us;
            if (!isSettled(request)) {
                request.outcome = Outcome::kResult;
            }
            return;
        }
        case LogEvent::kCurlError: {
            constexpr int kTimedOut = 28;
            constexpr int kAborted = 42;
            Request& request = job(controller, us);
            request.curlError = number;
            request.curlText = event.text;
            request.endedUs = us;
            if (!isSettled(request)) {
                request.outcome = number == kTimedOut               ? Outcome::kTransferTimeout
                                  : number == kAborted && mStopping ? Outcome::kStopped
                                                                    : Outcome::kTransferFailed;
            }
            return;
        }
        default:
            endJob(controller, event, us);
    }
}

/// The last line of a job: its times, or why there are none.
void RunAssembler::endJob(Controller& controller, const LogEvent& event, int64_t us) {
    if (event.kind != LogEvent::kTimes && event.kind != LogEvent::kRejection &&
        event.kind != LogEvent::kPerformFailed) {
        return;
    }
    Request& request = job(controller, us);
    request.endedUs = us;
    if (event.kind == LogEvent::kRejection) {
        request.rejectionTold = true;
        return;
    }
    if (event.kind == LogEvent::kTimes) {
        request.timing = event.timing;
    } else {
        request.performFailed = static_cast<int>(event.number);
        if (request.rejectionTold) {
            if (!isSettled(request)) {
                request.outcome = Outcome::kRejected;
            }
        } else if (request.withoutResult()) {
            if (mStopping) {
                request.outcome = Outcome::kStopped;
            } else if (request.outcome == Outcome::kExpiredRunning) {
                openWedge(controller, *controller.running, us);
            } else {
                request.outcome = Outcome::kRejected;
            }
        }
    }
    controller.running.reset();
}

void RunAssembler::takeQueue(Controller& controller, const LogEvent& event, int64_t us) {
    switch (event.kind) {
        case LogEvent::kTimer: {
            constexpr int64_t kQueuedJobs = 2;
            endWalk(controller, false);
            if (event.number == kQueuedJobs) {
                Receiver* receiver = receiverOf(controller);
                if (receiver != nullptr) {
                    nameOnly(controller, *receiver);
                }
                controller.expiries.beginWalk(
                    receiver == nullptr ? std::vector<size_t>()
                                        : std::vector<size_t>(receiver->waiting.begin(), receiver->waiting.end()));
            }
            return;
        }
        case LogEvent::kQueueTimerReset:
            endWalk(controller, true);
            return;
        case LogEvent::kTimerFailed:
            controller.expiries.forgetLatest();  // it stays waiting, and is looked at again
            endWalk(controller, false);
            return;
        case LogEvent::kStartsExpired:
            controller.expiries.forgetLatest();
            controller.startsExpired = true;
            return;
        case LogEvent::kActiveExpired:
            expireActive(controller, us);
            return;
        case LogEvent::kStillNoResult:
            if (!controller.wedge && controller.latest && mRequests[*controller.latest].withoutResult()) {
                openWedge(controller, *controller.latest, us);
            }
            return;
        case LogEvent::kErrorReply:
            nameReply(controller, event.reply, us);
            return;
        case LogEvent::kNotReady: {
            Receiver* receiver = receiverOf(controller);
            const bool known = receiver != nullptr && !receiver->waiting.empty();
            const size_t index = known ? receiver->waiting.front() : addRequest(controller.name);
            if (known) {
                receiver->waiting.pop_front();
            }
            mRequests[index].outcome = Outcome::kNotReady;
            mRequests[index].endedUs = us;
            return;
        }
        case LogEvent::kStartFailed:
            discard(controller, event.number, us);
            return;
        case LogEvent::kLoopEnded:
            mStopping = true;
            mRun.sawStop = true;
            return;
        default:
            return;
    }
}

void RunAssembler::takeProcess(const LogEvent& event, const LogLine& line) {
    switch (event.kind) {
        case LogEvent::kProcessStarted:
            mRun.sawStart = true;
            return;
        case LogEvent::kProcessStopping:
            mStopping = true;
            mRun.sawStop = true;
            return;
        case LogEvent::kProcessFailed:
            mRun.exitStatus = static_cast<int>(event.number);
            mRun.sawStop = true;
            return;
        default:
            break;
    }
    // A reply goes out on the controller's own thread, right after the lines that say what it is.
    constexpr int64_t kSoonUs = 2000000;
    constexpr size_t kRecent = 1000;  // a log of nothing but these must not take for ever
    const Controller* controller = controllerOfThread(line.tid);
    if (controller == nullptr) {
        return;
    }
    const std::string client = event.text.substr(event.text.rfind('/') + 1);
    size_t looked_at = 0;
    for (auto request = mRequests.rbegin(); request != mRequests.rend() && looked_at < kRecent;
         ++request, ++looked_at) {
        if (request->controller == controller->name && request->client == client && request->endedUs) {
            request->replyDropped = line.timeUs - *request->endedUs <= kSoonUs;
            return;
        }
    }
}

}  // namespace mqctl::report
