// What the lines of a log together say about requests.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ReportLog.h"

namespace mqctl::report {
namespace {

constexpr int kCsReceiver = 44;
constexpr int kCsLoop = 45;
constexpr int kTdpReceiver = 46;
constexpr const char* kCs = "inet-agent-cs";
constexpr const char* kTdp = "inet-agent-tdp-dl";
constexpr const char* kChecked = "[calculateTimeout] timeout adjusted to 9.500000 sec";
constexpr const char* kExpired = "[calculateTimeout] already timed out";
constexpr const char* kUntimed = "[calculateTimeout] calculateTimeout failed 10";

/// "CLIENT TX: outcome" of each.
std::vector<std::string> outcomes(const Report& report) {
    std::vector<std::string> out;
    for (const Request& request : report.requests) {
        out.push_back(request.client + (request.txId ? " " + std::to_string(*request.txId) : "") + ": " +
                      report.outcomeText(request));
    }
    return out;
}

/// An agent that has started, with one request served, so that its threads are known.
LogWriter started() {
    LogWriter log;
    log.line(40, 'D', "[main] config loaded 1");
    log.line(kCsLoop, 'I', "[inet-agent-cs] Client controller entering event loop");
    log.arrival(kCsReceiver, "first", 1).job(kCs, "first", 1).result(kCs, 200);
    return log;
}

using testing::ElementsAre;
using testing::HasSubstr;

TEST(ReportRequestsTest, ArrivalJobAndResultAreOneRequest) {
    LogWriter log = started();
    log.at("12:03:02.000").arrival(kCsReceiver, "wifi", 7, "POST");
    log.at("12:03:02.250").job(kCs, "wifi", 7, "POST", "https://h/b?k=v");
    log.line(50, 'D', "[inet-agent-cs-worker] post header [Content-length: 12]");
    log.line(50, 'D', "[inet-agent-cs-worker] HTTP header Retry-After: 120");
    log.at("12:03:02.350").result(kCs, 503);
    const Report report = log.report();
    ASSERT_EQ(report.requests.size(), 2U);
    const Request& request = report.requests[1];
    EXPECT_EQ(request.controller, kCs);
    EXPECT_EQ(request.client, "wifi");
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.url, "https://h/b?k=v");
    EXPECT_DOUBLE_EQ(request.waitSec().value_or(-1), 0.25);
    ASSERT_TRUE(request.timing);
    EXPECT_DOUBLE_EQ(request.timing->app, 0.041);
    EXPECT_EQ(request.timing->bytes, 42U);
    EXPECT_EQ(report.outcomeText(request), "503 retry after 120 s");
    EXPECT_TRUE(report.wedges.empty());
}

TEST(ReportRequestsTest, SameClientAndTxIdOnBothControllersStayApart) {
    LogWriter log = started();
    log.arrival(kCsReceiver, "a", 1).arrival(kTdpReceiver, "a", 1);
    log.at("12:03:03.000").job(kTdp, "a", 1).at("12:03:05.000").job(kCs, "a", 1);
    log.result(kCs, 200).result(kTdp, 404);
    const Report report = log.report();
    ASSERT_EQ(report.requests.size(), 3U);
    EXPECT_EQ(report.requests[1].controller, kCs);
    EXPECT_EQ(report.requests[1].waitSec(), 4.0);
    EXPECT_EQ(report.requests[2].controller, kTdp);
    EXPECT_EQ(report.requests[2].httpStatus, 404);
}

TEST(ReportRequestsTest, TimerWalkNamesWhatExpiredWaiting) {
    LogWriter log = started();
    log.arrival(kCsReceiver, "run", 1).job(kCs, "run", 1);
    log.arrival(kCsReceiver, "old", 2).arrival(kCsReceiver, "middle", 3).arrival(kCsReceiver, "new", 4);
    log.at("12:03:04.000").line(kCsLoop, 'I', "[inet-agent-cs] time out 2");
    log.arrival(kCsReceiver, "later", 5);  // not in the queue yet when it is looked through, newest first
    log.line(kCsLoop, 'I', kExpired).line(kCsLoop, 'I', kChecked).line(kCsLoop, 'I', kExpired);
    log.line(kCsLoop, 'I', "[inet-agent-cs] reset queued job timer to 9.500000 sec");
    EXPECT_THAT(outcomes(log.report()), ElementsAre("first 1: 200", "run 1: not finished while it ran",
                                                    "old 2: expired waiting", "middle 3: not finished while it waited",
                                                    "new 4: expired waiting", "later 5: not finished while it waited"));
    // The next job starts: the walk that emptied the queue had no last line.
    LogWriter emptied = started();
    emptied.arrival(kCsReceiver, "a", 2).arrival(kCsReceiver, "b", 3);
    emptied.line(kCsLoop, 'I', "[inet-agent-cs] time out 2").line(kCsLoop, 'I', kExpired).line(kCsLoop, 'I', kExpired);
    emptied.arrival(kCsReceiver, "c", 4).line(kCsLoop, 'I', kChecked).job(kCs, "c", 4).result(kCs, 200);
    EXPECT_THAT(outcomes(emptied.report()),
                ElementsAre("first 1: 200", "a 2: expired waiting", "b 3: expired waiting", "c 4: 200"));
    // A ping goes when it comes, whoever waits, and is in no walk.
    LogWriter pinged = started();
    pinged.arrival(kCsReceiver, "run", 1).job(kCs, "run", 1);
    pinged.arrival(kCsReceiver, "ping", 2).line(kCsLoop, 'E', kUntimed);
    pinged.arrival(kCsReceiver, "waits", 3).line(kCsLoop, 'I', kChecked);
    pinged.arrival(kCsReceiver, "ping", 4).line(kCsLoop, 'E', kUntimed).line(kCsLoop, 'I', kChecked);
    pinged.arrival(kCsReceiver, "short", 5).line(kCsLoop, 'I', kChecked).line(kCsLoop, 'I', kChecked);
    pinged.line(kCsLoop, 'I', "[inet-agent-cs] time out 2").line(kCsLoop, 'I', kExpired).line(kCsLoop, 'I', kChecked);
    pinged.line(kCsLoop, 'I', "[inet-agent-cs] reset queued job timer to 9.500000 sec");
    EXPECT_THAT(outcomes(pinged.report()),
                ElementsAre("first 1: 200", "run 1: not finished while it ran",
                            "ping 2: expired waiting at once: no TIMEOUT-SEC", "waits 3: not finished while it waited",
                            "ping 4: expired waiting at once: no TIMEOUT-SEC", "short 5: expired waiting"));
}

TEST(ReportRequestsTest, LaterStartSettlesWhatArrivedBefore) {
    LogWriter log = started();
    log.arrival(kCsReceiver, "ping", 2).line(kCsLoop, 'E', kUntimed);
    log.arrival(kCsReceiver, "zero", 3).arrival(kCsReceiver, "good", 4);
    log.line(kCsLoop, 'I', kExpired).line(kCsLoop, 'I', kChecked);
    log.job(kCs, "good", 4).result(kCs, 200);
    EXPECT_THAT(outcomes(log.report()), ElementsAre("first 1: 200", "ping 2: expired waiting at once: no TIMEOUT-SEC",
                                                    "zero 3: expired waiting", "good 4: 200"));
}

TEST(ReportRequestsTest, WhatTheLogDoesNotTellIsNotGuessed) {
    LogWriter log = started();
    log.arrival(kCsReceiver, "a", 2).arrival(kCsReceiver, "b", 3).line(kCsLoop, 'I', kExpired);
    const Report undecided = log.report();
    EXPECT_THAT(outcomes(undecided), ElementsAre("first 1: 200", "a 2: unknown", "b 3: unknown"));
    EXPECT_THAT(undecided.notes, testing::Contains(HasSubstr("1 of the requests with an unknown outcome")));
    // Level 5 names it.
    log.line(kCsLoop, 'V', "[inet-agent-cs] error response for [b][GET][3][queued job timed out before execution]");
    EXPECT_THAT(outcomes(log.report()),
                ElementsAre("first 1: 200", "a 2: not finished while it waited", "b 3: expired waiting"));
    // Level 3 has no arrivals.
    LogWriter coarse;
    coarse.line(kCsLoop, 'I', "[inet-agent-cs] Client controller entering event loop").job(kCs, "a", 1);
    coarse.line(kCsLoop, 'I', "[inet-agent-cs] time out 2").line(kCsLoop, 'I', kExpired).result(kCs, 200);
    const Report report = coarse.report();
    EXPECT_THAT(outcomes(report), ElementsAre("a 1: 200", ": expired waiting"));
    EXPECT_FALSE(report.requests[0].waitSec());
    EXPECT_THAT(report.notes, testing::Contains(HasSubstr("DEBUG_GLOBAL_LOG_LEVEL 4")));
}

TEST(ReportRequestsTest, RejectedRequestWedgesUntilTheAgentEnds) {
    LogWriter log = started();
    log.arrival(kCsReceiver, "bad", 8, "DELETE").job(kCs, "bad", 8, "DELETE");
    log.line(50, 'W', "[inet-agent-cs-worker] ignoring unknown request DELETE");
    log.line(50, 'E', "[inet-agent-cs-worker] perform failed 6");
    EXPECT_THAT(outcomes(log.report()).back(), HasSubstr("no result; its deadline is not in this log"));
    log.at("12:03:12.000").line(kCsLoop, 'I', "[inet-agent-cs] time out 1");
    log.line(kCsLoop, 'I', "[inet-agent-cs] active job timed out");
    log.arrival(kCsReceiver, "victim", 9).at("12:03:20.000");
    log.line(kCsLoop, 'I', "[inet-agent-cs] time out 2").line(kCsLoop, 'I', kExpired);
    const Report open = log.report();
    ASSERT_EQ(open.wedges.size(), 1U);
    EXPECT_EQ(open.wedges[0].expired, 1U);
    EXPECT_FALSE(open.wedges[0].untilUs);
    EXPECT_EQ(open.requests[open.wedges[0].request].client, "bad");
    EXPECT_THAT(outcomes(open)[1], HasSubstr("WEDGED from 12:03:12"));
    // The same pid starts anew, as in a container.
    LogWriter again = log;
    again.at("12:04:00.000").line(40, 'D', "[main] config loaded 1").job(kCs, "x", 1).result(kCs, 200);
    const Report restarted = again.report();
    EXPECT_EQ(restarted.runs.size(), 2U);
    EXPECT_TRUE(restarted.wedges[0].untilUs && !restarted.wedges[0].freed);
    // A result from outside frees it.
    log.job(kCs, "x", 1).result(kCs, 200);
    EXPECT_TRUE(log.report().wedges[0].freed);
}

TEST(ReportRequestsTest, RejectionThatTheClientHearsWedgesNothing) {
    LogWriter log = started();
    const auto reject = [&log](const char* code) {
        log.line(50, 'W', std::string("[inet-agent-cs-worker] request rejected ") + code);
        log.line(50, 'E', std::string("[inet-agent-cs-worker] perform failed ") + code);
    };
    log.job(kCs, "bad", 8, "DELETE");
    reject("6");
    log.job(kCs, "late", 9).line(kCsLoop, 'I', "[inet-agent-cs] active job timed out");
    reject("27");
    const Report report = log.report();
    EXPECT_THAT(outcomes(report), ElementsAre("first 1: 200", "bad 8: rejected 6, REQ is neither GET nor POST",
                                              "late 9: expired running; its rejection 27 came too late"));
    EXPECT_TRUE(report.wedges.empty());
}

TEST(ReportRequestsTest, SlowTransferThatExpiresIsNoWedge) {
    LogWriter log = started();
    log.job(kCs, "slow", 2).line(kCsLoop, 'I', "[inet-agent-cs] active job timed out");
    log.line(kCsLoop, 'W', "[inet-agent-cs] still no result of a job that timed out; until it comes, requests ...");
    log.result(kCs, 200);
    const Report report = log.report();
    EXPECT_THAT(outcomes(report).back(), "slow 2: expired running; late result 200 dropped");
    EXPECT_TRUE(report.wedges.empty());
}

TEST(ReportRequestsTest, JobThatStartsWithoutTimeLeftExpiresItselfNotItsPredecessor) {
    LogWriter log = started();
    log.arrival(kCsReceiver, "late", 2).line(kCsLoop, 'I', kChecked).line(kCsLoop, 'I', kExpired);
    log.line(kCsLoop, 'W', "[inet-agent-cs] setActiveJobTimer: it seems the active job is already timed out!");
    log.line(kCsLoop, 'I', "[inet-agent-cs] active job timed out").job(kCs, "late", 2);
    log.line(50, 'E', "[inet-agent-cs-worker] perform failed 27");
    const Report report = log.report();
    EXPECT_THAT(outcomes(report).front(), "first 1: 200");
    EXPECT_THAT(outcomes(report).back(), HasSubstr("perform failed 27, its turn came with a second or less left: W"));
    EXPECT_EQ(report.wedges.size(), 1U);
}

TEST(ReportRequestsTest, OtherProcessesOfTheFrameworkAreLeftOut) {
    LogWriter log = started();
    log.pid(99).arrival(7, "stranger", 1).line(8, 'I', "[wifi-pe] Client controller entering event loop");
    const Report report = log.report();
    EXPECT_EQ(report.runs.size(), 1U);
    EXPECT_EQ(report.requests.size(), 1U);
}

TEST(ReportRequestsTest, LostBeginningsAndErrorsAloneStillCount) {
    LogWriter log;
    log.line(50, 'I', "[inet-agent-cs-worker] URL:  http://h/x").result(kCs, 200);
    log.line(50, 'W', "[inet-agent-cs-worker] curl error 7: [refused]");
    log.line(50, 'E', "[inet-agent-cs-worker] perform failed 106");
    EXPECT_THAT(outcomes(log.report()), ElementsAre(": 200", ": curl 7: refused"));
}

TEST(ReportRequestsTest, ReplyThatTheClientDidNotTakeIsMarked) {
    LogWriter log = started();
    const std::string drop =
        "06-14 12:03:01.500 40 45 W PosIpc  : send:34] message of 90 bytes to /dev/socket/location/mq/first dropped: "
        "nobody listens\n";
    EXPECT_THAT(outcomes(reportOf(log.text() + drop)), ElementsAre("first 1: 200; the client did not take its reply"));
}

TEST(ReportPhasesTest, AddUpToTheTotalWhateverTheFigures) {
    for (const Timing& timing : {Timing{0.002, 0.013, 0.041, 0.08, 0.092, 1}, Timing{0, 0, 0, 0, 3.0, 0},
                                 Timing{0.5, 0.2, 0.9, 0.1, 0.4, 0}, Timing{0, 0, 0, 0.1, 0.2, 5}}) {
        const Phases p = phasesOf(timing);
        EXPECT_NEAR(p.name.value_or(0) + p.connect.value_or(0) + p.tls.value_or(0) + p.firstByte + p.receive,
                    timing.total, 1e-9);
    }
    EXPECT_FALSE(phasesOf({0, 0, 0, 0.1, 0.2, 5}).connect) << "a connection that was there already";
}

}  // namespace
}  // namespace mqctl::report
