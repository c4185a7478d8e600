#include "inet/InetControllerJobQueue.h"

#include <cstdint>

#include "base/log.h"
#include "inet/AgentProtocol.h"
#include "inet/InetControllerBase.h"
#include "mq/MqMsgWrapper.h"
#include "postcard/InPostcard.h"

namespace zv_loc_fw {

namespace {

constexpr const char* kTimeoutTag = "calculateTimeout";

int remainingTime(const MqMsgWrapper* job, TimeDiff* remaining) {
    if (job == nullptr) {
        return 2;
    }
    if (job->card() == nullptr) {
        return 3;
    }
    if (remaining == nullptr) {
        return 4;
    }
    int32_t timeout_sec = 0;
    if (job->card()->getInt32(agent_protocol::kTimeoutSec, timeout_sec) != 0) {
        return 10;
    }
    const Timestamp deadline = job->time() + TimeDiff(timeout_sec);
    const Timestamp now;  // read once: a second look could find the deadline passed in between
    if (!(deadline >= now)) {
        *remaining = TimeDiff();
        log_info(kTimeoutTag, "already timed out");
        return 0;
    }
    *remaining = deadline - now;
    if (!remaining->isValid()) {
        return 6;
    }
    log_info(kTimeoutTag, "timeout adjusted to %f sec", static_cast<double>(remaining->get_total_sec()));
    return 0;
}

}  // namespace

int calculateTimeout(const MqMsgWrapper* job, TimeDiff* remaining) {
    const int result = remainingTime(job, remaining);
    if (result != 0) {
        log_error(kTimeoutTag, "calculateTimeout failed %d", result);
    }
    return result;
}

void InetControllerJobQueue::Nearest::offer(const TimeDiff& remaining) {
    if (!mSmallest.isValid() || remaining.get_total_sec() < mSmallest.get_total_sec()) {
        mSmallest = remaining;
    }
}

InetControllerJobQueue::~InetControllerJobQueue() {
    dropAll();
}

int InetControllerJobQueue::deinit() {
    dropAll();
    return 0;
}

void InetControllerJobQueue::dropAll() {
    Node* node = mJobs.head();
    while (node != nullptr) {
        node = drop(node);
    }
}

/// Deletes a waiting job and its entry. @return the entry that followed
InetControllerJobQueue::Node* InetControllerJobQueue::drop(Node* node) {
    const std::unique_ptr<MqMsgWrapper> job(node->value);
    return mJobs.erase(node);
}

void InetControllerJobQueue::insertJob(MqMsgWrapper* job) {
    if (job != nullptr) {
        mJobs.push(job);
    }
    if (mOwner->removeLocalTimer(this, &mQueuedJobsTimer) != 0) {
        log_error(mName, "insertJob failed to remove running timer");
    }
    if (mJobs.empty()) {
        return;
    }
    Nearest nearest;
    Node* node = mJobs.head();
    while (node != nullptr) {
        if (node->value == nullptr) {
            node = mJobs.erase(node);
            continue;
        }
        TimeDiff remaining;
        if (calculateTimeout(node->value, &remaining) != 0 || !remaining.isValid()) {
            log_verbose(mName, "insertJob: deleting timed out job");
            (void)notifyQueuedJobTimeout(node->value);  // the job goes either way
            node = drop(node);
            continue;
        }
        nearest.offer(remaining);
        node = node->next;
    }
    if (!nearest.found()) {
        log_error(mName, "insertJob: all jobs are already timedout");
        return;
    }
    if (armQueuedJobsTimer(nearest.span()) != 0) {
        log_error(mName, "insertJob failed to set timer for queued job");
    }
}

int InetControllerJobQueue::timerCallback(const TimerDataInterface* timer) {
    const auto* job_timer = dynamic_cast<const InetControllerTimer*>(timer);
    int result = 0;
    if (job_timer == nullptr) {
        result = 2;
    } else {
        log_info(mName, "time out %d", job_timer->identity());
        switch (job_timer->identity()) {
            case InetControllerTimer::kQueuedJobs:
                result = queuedJobsTimeout();
                break;
            case InetControllerTimer::kActiveJob:
                result = activeJobTimeout();
                break;
            default:
                result = 300;
        }
    }
    if (result != 0) {
        log_error(mName, "timerCallback failed %d", result);
    }
    return result;
}

/// Answers and drops what has expired, and watches the rest. Starts no job. @return 0, 21, 101 or 102
int InetControllerJobQueue::queuedJobsTimeout() {
    Nearest nearest;
    Node* node = mJobs.head();
    while (node != nullptr) {
        TimeDiff remaining;
        if (calculateTimeout(node->value, &remaining) != 0) {
            return 101;
        }
        if (remaining.isValid()) {
            nearest.offer(remaining);
            node = node->next;
            continue;
        }
        log_verbose(mName, "timerCallback: deleting timed out job");
        if (notifyQueuedJobTimeout(node->value) != 0) {
            return 102;  // the job stays in the list, and nothing watches it until the next message: deliberate
        }
        node = drop(node);
    }
    if (!nearest.found()) {
        return 0;
    }
    log_info(mName, "reset queued job timer to %f sec", static_cast<double>(nearest.span().get_total_sec()));
    return armQueuedJobsTimer(nearest.span()) == 0 ? 0 : 21;
}

/// Gives up on the job that runs, without interrupting it: its result is dropped when it comes. @return 0 or 3
int InetControllerJobQueue::activeJobTimeout() {
    if (mOwner->state() != InetControllerBase::kActive) {
        log_info(mName, "active job timed out but we are not in active state (%d)", mOwner->state());
        return 0;
    }
    log_info(mName, "active job timed out");
    const int result = mOwner->expireActiveJob();
    if (result != 0) {
        log_error(mName, "notifyActiveJobTimeout failed %d", result);
        return 3;
    }
    return 0;
}

/// @return 0; 2 no job; 3 no card; 4 not sent; all logged
int InetControllerJobQueue::notifyQueuedJobTimeout(MqMsgWrapper* job) {
    int result = 0;
    if (job == nullptr) {
        result = 2;
    } else if (job->card() == nullptr) {
        result = 3;
    } else if (mOwner->sendErrorResponse(job->card(), agent_protocol::kErrorQueuedJobTimedOut) != 0) {
        result = 4;
    }
    if (result != 0) {
        log_error(mName, "notifyQueuedJobTimeout failed %d", result);
    }
    return result;
}

int InetControllerJobQueue::armQueuedJobsTimer(const TimeDiff& delay) {
    return mOwner->setLocalTimer(delay, this, &mQueuedJobsTimer);
}

int InetControllerJobQueue::getNextJob(std::unique_ptr<MqMsgWrapper>* job) {
    MqMsgWrapper* oldest = nullptr;
    if (mJobs.pop(&oldest) != 0) {
        log_error(mName, "getNextJob failed %d", 3);
        return 3;
    }
    job->reset(oldest);
    return 0;
}

int InetControllerJobQueue::clearActiveJobTimer() {
    if (mOwner->removeLocalTimer(this, &mActiveJobTimer) != 0) {
        log_error(mName, "clearActiveJobTimer failed %d", 2);
        return 2;
    }
    return 0;
}

int InetControllerJobQueue::setActiveJobTimer(const MqMsgWrapper* job) {
    if (clearActiveJobTimer() != 0) {
        return 3;
    }
    TimeDiff remaining;
    if (calculateTimeout(job, &remaining) != 0) {
        return 4;
    }
    if (!remaining.isValid()) {
        log_warning(mName, "setActiveJobTimer: it seems the active job is already timed out!");
        remaining = TimeDiff(0);
    }
    return mOwner->setLocalTimer(remaining, this, &mActiveJobTimer) == 0 ? 0 : 5;
}

}  // namespace zv_loc_fw
