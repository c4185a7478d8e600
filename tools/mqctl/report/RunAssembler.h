#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "report/ExpiryTracker.h"
#include "report/LogEvent.h"
#include "report/Report.h"

namespace mqctl::report {

/// Joins the lines of one run of the agent into requests. A worker's lines are joined by the controller they name; an
/// arrival names no controller, so the receiving thread is learned from the first request that can only be its.
class RunAssembler {
public:
    RunAssembler(int pid, int64_t fromUs);

    void take(const LogEvent& event, const LogLine& line);
    /// The run's end, or the log's. @param replaced another run followed
    void finish(bool replaced);

    /// Whether this is the agent at all: other processes of the framework log arrivals, too.
    [[nodiscard]] bool isAgent() const { return mIsAgent; }
    /// Whether the event can only be a new process that got the same pid.
    [[nodiscard]] bool startsAnew(const LogEvent& event) const;

    [[nodiscard]] Run& run() { return mRun; }
    [[nodiscard]] std::vector<Request>& requests() { return mRequests; }
    [[nodiscard]] std::vector<Wedge>& wedges() { return mWedges; }  ///< by indices into requests()
    [[nodiscard]] size_t undecided() const { return mUndecided; }

private:
    struct Receiver {
        std::string from;
        int64_t fromUs = 0;
        bool fromSeen = false;
        std::optional<size_t> latest;  ///< whose TX-ID may still come
        std::deque<size_t> waiting;    ///< the oldest first
        size_t arrivedSinceLook = 0;   ///< arrivals since the controller last looked at a waiting request
        std::string controller;        ///< empty: not known yet
    };
    struct Controller {
        std::string name;
        bool workerStarted = false;
        std::string from;  ///< of the job whose first lines have come
        std::string method;
        std::optional<int64_t> fromUs;
        std::optional<size_t> running;
        std::optional<size_t> latest;  ///< the last one that ran or runs
        bool startsExpired = false;
        std::optional<int64_t> nextExpiredUs;  ///< the deadline came before the worker's first line
        std::optional<size_t> wedge;
        ExpiryTracker expiries;
    };

    void takeArrival(const LogEvent& event, const LogLine& line);
    void takeJob(Controller& controller, const LogEvent& event, int64_t us);
    void takeQueue(Controller& controller, const LogEvent& event, int64_t us);
    void takeProcess(const LogEvent& event, const LogLine& line);

    Controller& controllerOf(const std::string& name);
    Controller* controllerOfThread(int tid);
    Receiver* receiverOf(const Controller& controller);
    std::optional<size_t> takeWaiting(Controller& controller, const std::string& client, const std::string& method,
                                      std::optional<int64_t> txId, std::optional<int64_t> startUs);
    size_t addRequest(const std::string& controller);
    Request& job(Controller& controller, int64_t us);
    void startJob(Controller& controller, std::optional<int64_t> txId, int64_t us);
    void endJob(Controller& controller, const LogEvent& event, int64_t us);
    void expireActive(Controller& controller, int64_t us);
    void openWedge(Controller& controller, size_t request, int64_t us);
    void nameReply(Controller& controller, const LogEvent::ErrorReply& reply, int64_t us);
    void discard(Controller& controller, int64_t code, int64_t us);
    void expire(size_t index, const Controller& controller, const Expiry& expiry);
    void endWalk(Controller& controller, bool complete);
    void settleOlder(Controller& controller, Receiver& receiver, size_t position);
    void settleRest(Controller& controller, bool ended);
    void nameOnly(Controller& controller, Receiver& receiver);

    Run mRun;
    bool mIsAgent = false;
    bool mStopping = false;
    std::vector<Request> mRequests;
    std::vector<Wedge> mWedges;
    size_t mUndecided = 0;  ///< expiries that cannot be told apart
    std::map<int, Receiver> mReceivers;
    std::map<std::string, Controller> mControllers;
    std::map<int, std::string> mLoops;                     ///< threads of controllers
    std::map<int, std::vector<Expiry>> mUnplacedExpiries;  ///< of threads that are not known yet
};

}  // namespace mqctl::report
