#pragma once

#include <memory>

#include "base/List.h"
#include "base/Timestamp.h"
#include "inet/InetControllerTimer.h"
#include "mq/LocalTimer.h"

namespace zv_loc_fw {

class InetControllerBase;
class MqMsgWrapper;

/// How long a job has until its deadline, which is its arrival plus its TIMEOUT-SEC.
/// @param remaining out: a valid span; or an invalid zero one when the deadline has passed (which is a success, too)
/// @return 0; 2 no job, 3 no card, 4 no output, 6 no valid span, 10 no TIMEOUT-SEC
[[nodiscard]] int calculateTimeout(const MqMsgWrapper* job, TimeDiff* remaining);

/// The requests that a controller has accepted and not yet started, and the two timers that enforce deadlines: one for
/// the earliest deadline among those that wait, one for the job that runs. Jobs start in the order of their arrival,
/// not of their deadlines; those that expire are answered newest first. Event-loop thread.
class InetControllerJobQueue : public MqClientFunctionalModuleBase {
public:
    /// @param name log tag, not copied
    /// @param owner provides timers, state and error replies; outlives the queue
    InetControllerJobQueue(const char* name, InetControllerBase* owner) : mName(name), mOwner(owner) {}
    ~InetControllerJobQueue() override;
    InetControllerJobQueue(const InetControllerJobQueue&) = delete;
    InetControllerJobQueue& operator=(const InetControllerJobQueue&) = delete;

    int init() override { return 0; }
    /// Deletes every waiting job, without replies. @return 0
    int deinit() override;
    /// Either timer has fired. @return 0 or the code of "timerCallback failed %d":
    /// 2 no timer; 3 active job not answered;
    ///         21 timer not armed; 101 no deadline, 102 waiting job not answered (the
    ///         timer then stays unarmed); 300 which?
    int timerCallback(const TimerDataInterface* timer) override;

    /// Adds a job, answers and drops those that have expired, and arms the timer for the rest.
    /// @param job owned from now on; null only looks through what is there
    void insertJob(MqMsgWrapper* job);

    /// Takes the job that arrived first. @return 0; 3 the list is inconsistent, nothing is taken
    [[nodiscard]] int getNextJob(std::unique_ptr<MqMsgWrapper>* job);
    [[nodiscard]] bool empty() const { return mJobs.count() == 0; }

    /// @return 0; 2 not removed
    int clearActiveJobTimer();
    /// Arms the active job's timer; for one that has expired it fires at once.
    /// @return 0; 3 old timer not cleared; 4 no deadline; 5 not armed
    [[nodiscard]] int setActiveJobTimer(const MqMsgWrapper* job);

private:
    using Node = List<MqMsgWrapper*>::Node;

    /// The smallest of the spans shown to it; of equal ones the first.
    class Nearest {
    public:
        void offer(const TimeDiff& remaining);
        [[nodiscard]] bool found() const { return mSmallest.isValid(); }
        [[nodiscard]] const TimeDiff& span() const { return mSmallest; }

    private:
        TimeDiff mSmallest;
    };

    Node* drop(Node* node);
    void dropAll();
    int queuedJobsTimeout();
    int activeJobTimeout();
    int notifyQueuedJobTimeout(MqMsgWrapper* job);
    int armQueuedJobsTimer(const TimeDiff& delay);

    const char* const mName;
    Queue<MqMsgWrapper*> mJobs;  // owns what it points to
    InetControllerBase* const mOwner;
    InetControllerTimer mActiveJobTimer{InetControllerTimer::kActiveJob};
    InetControllerTimer mQueuedJobsTimer{InetControllerTimer::kQueuedJobs};
};

}  // namespace zv_loc_fw
