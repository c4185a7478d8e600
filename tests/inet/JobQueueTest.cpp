#include "inet/InetControllerJobQueue.h"

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "inet/InetTest.h"
#include "mq/MqMsgWrapper.h"

/// A running controller with real clients and servers: order and deadlines.
namespace inet_test {
namespace {

using namespace zv_loc_fw;
using testing::ElementsAre;

class JobQueueTest : public InetTest {
protected:
    JobQueueTest() {
        EXPECT_EQ(mController.init(), 0);
        EXPECT_EQ(mController.launch(), 0);
    }
    ~JobQueueTest() override {
        mController.kill();
        mController.join();
    }

    void send(const Card& card) { EXPECT_EQ(client.send("agent", card), 0); }
    void get(int32_t tx_id, int32_t timeout_sec) {
        send(client.get("agent", server.url("/hello"), tx_id, timeout_sec));
    }
    /// Keeps the worker busy until gate.open().
    void block(int32_t tx_id, int32_t timeout_sec) {
        send(client.get("agent", gate.url(), tx_id, timeout_sec));
        EXPECT_TRUE(gate.waitForRequests(1));
    }

    /// Waits until the loop has taken what was sent before. The timers that are due then fire next.
    void sync() {
        send(Card().string("FROM", "client").string("TO", "agent").string("INFO", "OS-STATUS-UPDATE"));
        EXPECT_TRUE(log.waitFor("[agent] Recived update from OS-AGENT", ++mEvents));
    }
    void advance(double seconds) {
        sync();
        clock.advance(seconds);
        sync();
    }

    /// What timers were armed with, in order.
    std::vector<double> armed() {
        std::vector<double> delays;
        const std::string start = "[agent] setLocalTimer : [";
        for (const std::string& text : log.texts()) {
            if (text.starts_with(start)) {
                delays.push_back(std::stod(text.substr(start.size())));
            }
        }
        return delays;
    }

private:
    TestController mController;
    size_t mEvents = 0;
};

TEST_F(JobQueueTest, JobsStartInOrderOfArrivalWhateverTheirDeadlines) {
    block(1, 60);
    get(2, 30);
    get(3, 10);
    get(4, 20);
    sync();
    EXPECT_EQ(server.requestCount(), 0U) << "one at a time";
    gate.open();
    EXPECT_EQ(reply(), letGo(1));
    EXPECT_EQ(reply(), letGo(2));
    EXPECT_EQ(reply(), letGo(3));
    EXPECT_EQ(reply(), letGo(4));
    EXPECT_TRUE(log.waitFor("[agent] job queue depleted"));
    // 1 arrives and starts; 2, 3, 4 arrive: the nearest deadline; then each starts and the rest is looked through.
    EXPECT_THAT(armed(), ElementsAre(60, 60, 30, 10, 10, 10, 30, 20, 10, 20));
    advance(100);
    sync();
    EXPECT_FALSE(log.contains("[agent] time out ")) << "no timer is left behind";
    EXPECT_FALSE(log.contains("failed"));
}

TEST_F(JobQueueTest, DeadlinesThatOverflowNoClockAreKept) {
    for (const int32_t timeout_sec : {INT_MIN, 2147482, 2147485, INT_MAX}) {
        get(5, timeout_sec);
        EXPECT_EQ(reply(), timeout_sec > 0 ? letGo(5) : queuedTimedOut(5)) << timeout_sec;
    }
    TimeDiff remaining(1);
    EXPECT_EQ(calculateTimeout(nullptr, &remaining), 2);
    EXPECT_EQ(calculateTimeout(std::make_unique<MqMsgWrapper>(nullptr).get(), &remaining), 3);
    EXPECT_EQ(calculateTimeout(messageOf(Card()).get(), nullptr), 4);
    EXPECT_EQ(calculateTimeout(messageOf(Card().string("TIMEOUT-SEC", "5")).get(), &remaining), 10);
    EXPECT_EQ(remaining.seconds(), 1) << "untouched so far";
    EXPECT_EQ(calculateTimeout(messageOf(Card().int32("TIMEOUT-SEC", 0)).get(), &remaining), 0);
    EXPECT_TRUE(remaining.isValid()) << "the deadline itself is in time";
    EXPECT_EQ(calculateTimeout(messageOf(Card().int32("TIMEOUT-SEC", -1)).get(), &remaining), 0);
    EXPECT_FALSE(remaining.isValid());
}

TEST_F(JobQueueTest, ExpiredJobsAreAnsweredNewestFirst) {
    block(1, 1000);
    get(2, 10);
    get(3, 12);
    get(4, 11);
    get(5, 50);
    advance(20);
    EXPECT_EQ(reply(), queuedTimedOut(4));
    EXPECT_EQ(reply(), queuedTimedOut(3));
    EXPECT_EQ(reply(), queuedTimedOut(2));
    EXPECT_TRUE(log.waitFor("[agent] reset queued job timer to 30.000000 sec"));
    EXPECT_TRUE(log.contains("[agent] time out 2"));
    gate.open();
    EXPECT_EQ(reply(), letGo(1));
    EXPECT_EQ(reply(), letGo(5));
    EXPECT_TRUE(log.contains("[agent-worker] perform: timeout changed to 29 sec"));
    EXPECT_EQ(server.requestCount(), 1U);
}

TEST_F(JobQueueTest, AnActiveJobThatExpiresLeavesTheControllerWaitingForItsResult) {
    block(1, 1000);
    get(2, 3000);
    advance(1001);
    EXPECT_EQ(reply(), activeTimedOut(1));
    EXPECT_TRUE(log.contains("[agent] time out 1"));
    get(3, 3000);
    get(4, 10);
    get(5, 3000);
    advance(11);
    EXPECT_EQ(reply(), queuedTimedOut(4)) << "jobs go on expiring";
    EXPECT_EQ(log.count("[agent] still no result of a job that timed out"), 1U);
    EXPECT_EQ(server.requestCount(), 0U);
    gate.open();
    EXPECT_EQ(reply(), letGo(2)) << "the late result is dropped and makes room";
    EXPECT_TRUE(log.contains("[agent] ignoring response for a request that has timed out"));
    EXPECT_EQ(reply(), letGo(3));
    EXPECT_EQ(reply(), letGo(5));
    EXPECT_FALSE(log.contains("failed"));
}

TEST_F(JobQueueTest, JobsThatCannotStartDoNotHoldUpTheNext) {
    const Card good = client.get("agent", server.url("/hello"), 2);
    block(1, 60);
    send(without(good, "TX-ID"));
    send(without(good, "TX-ID"));
    send(good);
    sync();
    gate.open();
    EXPECT_EQ(reply(), letGo(1));
    EXPECT_EQ(reply(), letGo(2));
    EXPECT_EQ(log.count("[agent] setActiveJob failed 12"), 2U);
    EXPECT_EQ(log.count("[agent] reevaluateJobQueue failed 3"), 2U);
    EXPECT_EQ(log.count("[agent] _process failed 6"), 1U);
    send(without(good, "TX-ID"));
    EXPECT_TRUE(log.waitFor("[agent] _process failed 31"));
    send(good);
    EXPECT_EQ(reply(), letGo(2));
}

TEST_F(JobQueueTest, AnUnanswerableExpiryLeavesTheQueueUnwatchedUntilTheNextMessage) {
    block(1, 1000);
    get(2, 30);
    send(without(client.get("agent", server.url("/hello"), 3, 10), "TX-ID"));
    advance(15);
    EXPECT_TRUE(log.waitFor("[agent] timerCallback failed 102"));
    EXPECT_EQ(log.count("[agent] sendErrorResponse failed 7"), 1U);
    EXPECT_EQ(log.count("[agent] notifyQueuedJobTimeout failed 4"), 1U);
    advance(20);
    sync();
    EXPECT_EQ(log.count("[agent] time out 2"), 1U) << "not armed again";
    get(4, 60);
    EXPECT_EQ(reply(), queuedTimedOut(2)) << "a new job's scan";
    EXPECT_EQ(log.count("[agent] notifyQueuedJobTimeout failed 4"), 2U) << "now it is dropped";
    gate.open();
    EXPECT_EQ(reply(), letGo(1));
    EXPECT_EQ(reply(), letGo(4));
}

}  // namespace
}  // namespace inet_test
