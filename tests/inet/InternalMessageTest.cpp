#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "inet/InetTest.h"
#include "mq/MqMsgWrapper.h"

/// A controller whose loop does not run: what it does with one message, in each of its states.
namespace inet_test {
namespace {

using namespace zv_loc_fw;

constexpr int32_t kNotReady = InetControllerBase::kNotReady;
constexpr int32_t kIdle = InetControllerBase::kIdle;
constexpr int32_t kActive = InetControllerBase::kActive;
constexpr int32_t kActiveTimedOut = InetControllerBase::kActiveTimedOut;

Card internal(const std::string& req) {
    Card card;
    return card.string("TO", "agent").string("FROM", "agent").string("REQ", req);
}

Card result(const std::string& to, int32_t tx_id) {
    return internal("HTTP-RESULT")
        .card("RESULT", Card().string("FROM", "agent").string("TO", to).int32("TX-ID", tx_id).string("RESP", "GET"));
}

class InternalMessageTest : public InetTest {
protected:
    int process(TestController& controller, const Card& card) { return controller._process(messageOf(card).release()); }

    /// Brings a controller into a state. The worker turns the job down, so no result comes between.
    void bringInto(int32_t state, TestController& controller) {
        ASSERT_EQ(controller.init(), 0);
        if (state >= kActive) {
            const Card request = without(client.get("agent", server.url("/hello"), 7), "REQ").string("REQ", "PUT");
            ASSERT_EQ(process(controller, request), 0);
        }
        if (state == kActiveTimedOut) {
            ASSERT_EQ(controller.expireActiveJob(), 0);
            EXPECT_EQ(reply(), errorReply(7, "active job timed out", "PUT"));
        }
        ASSERT_EQ(controller.state(), state);
    }
};

TEST_F(InternalMessageTest, EachStateTakesItsOwn) {
    const Card alias = internal("HTTP-RESULT")
                           .card("RESULT", Card()
                                               .string("TO", "SERVER")
                                               .string("FROM", "agent")
                                               .int32("TX-ID", 7)
                                               .string("REQ", "ADD-ALIAS")
                                               .string("ALIAS", "planted"));
    const struct {
        const char* what;
        int32_t state;
        Card message;
        int code;
        int32_t then;
        bool forwarded = false;
    } cases[] = {
        {"no FROM", kIdle, Card().string("REQ", "GET"), 3, kIdle},
        {"no REQ", kIdle, Card().string("FROM", "x"), 0, kIdle},
        {"KILL", kIdle, Card().string("FROM", "x").string("REQ", "KILL"), 0, kIdle},
        {"own KILL", kActive, internal("KILL"), 0, kActive},
        {"own name, another REQ", kActive, internal("GET"), 9, kActive},
        {"result for nobody", kIdle, result("client", 7), 8, kIdle},
        {"result", kActive, result("client", 7), 0, kIdle, true},
        {"no RESULT", kActive, internal("HTTP-RESULT"), 4, kIdle},
        {"RESULT as text", kActive, internal("HTTP-RESULT").string("RESULT", "x"), 4, kIdle},
        {"another TX-ID", kActive, result("client", 8), 8, kActive},
        {"another client", kActive, result("else", 7), 8, kActive},
        {"to the hub", kActive, alias, 8, kActive},
        {"RESULT without address", kActive, internal("HTTP-RESULT").card("RESULT", Card().int32("X", 1)), 5, kIdle},
        {"late result", kActiveTimedOut, result("client", 7), 0, kIdle},
        {"late, whatever it holds", kActiveTimedOut, alias, 0, kIdle},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.what);
        TestController controller;
        bringInto(test.state, controller);
        while (client.receive(std::chrono::milliseconds(0)).has_value()) {
        }
        log.clear();
        EXPECT_EQ(process(controller, test.message), test.code);
        EXPECT_EQ(controller.state(), test.then);
        EXPECT_EQ(log.count("[agent] _process failed "), test.code == 0 ? 0U : 1U);
        const auto sent = client.receive(std::chrono::milliseconds(0));
        EXPECT_EQ(sent.has_value(), test.forwarded);
        EXPECT_FALSE(std::filesystem::is_symlink("/dev/socket/location/mq/planted"));
    }
    TestController controller;
    EXPECT_EQ(controller._process(static_cast<MqMsgWrapper*>(nullptr)), 2);
}

TEST_F(InternalMessageTest, ResultsAreForwardedByteForByte) {
    TestController controller;
    bringInto(kActive, controller);
    const Card odd =
        Card().int32("TX-ID", 7).string("TO", "client").blob("X", std::string(100000, '\x80')).boolean("Y", true);
    while (client.receiveBytes(std::chrono::milliseconds(0)).has_value()) {
    }
    EXPECT_EQ(process(controller, internal("HTTP-RESULT").card("RESULT", odd)), 0);
    EXPECT_EQ(client.receiveBytes(std::chrono::milliseconds(0)), odd.encode());
    EXPECT_TRUE(log.contains("[agent] sending back response to client"));
}

TEST_F(InternalMessageTest, RequestsBeforeTheWorkerRunsAreTurnedAway) {
    class NotReady : public TestController {
    protected:
        int _init() override { return 0; }
    };
    NotReady controller;
    EXPECT_EQ(controller.state(), kNotReady);
    const Card request = client.post("agent", server.url("/echo"), "x", 3);
    EXPECT_EQ(process(controller, request), 20) << "no transport yet";
    ASSERT_EQ(controller.init(), 0);
    EXPECT_EQ(process(controller, request), 21);
    EXPECT_EQ(reply(), errorReply(3, "Inet agent not ready", "POST"));
    EXPECT_EQ(process(controller, without(request, "TX-ID")), 20);
    EXPECT_EQ(log.count("[agent] _process not ready"), 3U);
    EXPECT_EQ(log.count("[agent] _process failed 21"), 1U) << "though the client was told";
    EXPECT_EQ(log.count("[agent] sendErrorResponse failed 7"), 1U);
}

/// Keeps what timers are armed with instead of arming them.
class Timers : public TestController {
public:
    using TestController::setLocalTimer;
    int setLocalTimer(const TimeDiff& delay, MqClientFunctionalModuleBase* module,
                      const TimerDataInterface* data) override {
        jobQueue = module;
        delays.push_back(delay.get_total_sec());
        (data == nullptr || *data == InetControllerTimer(2) ? queuedJobs : activeJob) = data;
        return 0;
    }
    MqClientFunctionalModuleBase* jobQueue = nullptr;
    const TimerDataInterface* activeJob = nullptr;
    const TimerDataInterface* queuedJobs = nullptr;
    std::vector<float> delays;
};

TEST_F(InternalMessageTest, AJobWhoseTurnComesTooLateExpiresAsTheActiveOne) {
    Timers controller;
    bringInto(kActive, controller);
    for (const int32_t tx_id : {8, 9}) {
        ASSERT_EQ(process(controller, client.get("agent", server.url("/hello"), tx_id, 20)), 0);
    }
    clock.advance(2);
    controller.delays.clear();
    EXPECT_EQ(controller.jobQueue->timerCallback(controller.queuedJobs), 0);
    EXPECT_THAT(controller.delays, testing::ElementsAre(18)) << "every job has time left";
    clock.advance(18.5);
    controller.delays.clear();
    ASSERT_EQ(process(controller, result("client", 7)), 0);
    EXPECT_EQ(controller.state(), kActive);
    EXPECT_THAT(controller.delays, testing::ElementsAre(0)) << "fires at once";
    EXPECT_TRUE(log.contains("[agent] setActiveJobTimer: it seems the active job is already timed out!"));
    EXPECT_TRUE(log.waitFor("[agent-worker] perform: already timed out"));
    EXPECT_EQ(client.receive()->getInt32("TX-ID"), 7);
    EXPECT_EQ(reply(), queuedTimedOut(9)) << "found among those that wait";
    EXPECT_EQ(controller.jobQueue->timerCallback(controller.activeJob), 0);
    EXPECT_EQ(reply(), activeTimedOut(8));
    EXPECT_EQ(controller.state(), kActiveTimedOut);
    EXPECT_EQ(server.requestCount(), 0U);

    EXPECT_EQ(controller.jobQueue->timerCallback(controller.activeJob), 0);
    EXPECT_TRUE(log.contains("[agent] active job timed out but we are not in active state (3)"));
    EXPECT_FALSE(client.receive(std::chrono::milliseconds(0)).has_value()) << "answered once";
    const InetControllerTimer stranger(3);
    EXPECT_EQ(controller.jobQueue->timerCallback(&stranger), 300);
    EXPECT_EQ(controller.jobQueue->timerCallback(nullptr), 2);
}

TEST_F(InternalMessageTest, ErrorRepliesNeedAnAddress) {
    TestController controller;
    const Card request = client.get("agent", "http://x", -2);
    EXPECT_EQ(controller.sendErrorResponse(messageOf(request)->card(), nullptr), 4);
    for (const auto& [name, code] : {std::pair{"FROM", 5}, {"REQ", 6}, {"TX-ID", 7}}) {
        EXPECT_EQ(controller.sendErrorResponse(messageOf(without(request, name))->card(), "text"), code);
    }
}

}  // namespace
}  // namespace inet_test
