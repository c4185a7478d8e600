#include <csignal>

#include "e2e/E2eTest.h"

namespace test_support {
namespace {

class ShutdownTimerTest : public E2eTest {
protected:
    void expectUnsubscribed() { expectCard(mOsAgent.receive(), subscription("UNSUBSCRIBE")); }
    void tell(const Card& state) { ASSERT_EQ(mOsAgent.send(kCs, state), 0); }
    /// The agent has subscribed.
    void startSubscribed(const std::string& mask) {
        launch({"--launch-trigger-mask", mask});
        expectCard(mOsAgent.receive(), subscription("SUBSCRIBE"));
    }

    TestClient mOsAgent{"OS-Agent"};
};

TEST_F(ShutdownTimerTest, IdleDeviceEndsTheProcess) {
    // From at once, perhaps before the controllers know of each other, to a while after the start.
    for (const char* milliseconds : {"0", "0", "1", "1", "5", "20", "100", "1000"}) {
        SCOPED_TRACE(milliseconds);
        configure({}, {{"PROCESS_SHUTDOWN_TIMER_IN_MS", milliseconds}});
        startSubscribed("1");
        tell(deviceState(false, false));
        expectUnsubscribed();
        expectEnd(ProcessEnd::exit(0));
        expectNoSockets();
        EXPECT_EQ(agent().count("Started shutdown timer for process INET-AGENT"), 1U);
        EXPECT_EQ(agent().count("[inet-agent-cs] Shutting down process..."), 1U);
    }
}

TEST_F(ShutdownTimerTest, SignalAtTheSameTimeChangesNothing) {
    configure({}, {{"PROCESS_SHUTDOWN_TIMER_IN_MS", "0"}});
    for (int i = 0; i < 20; ++i) {
        SCOPED_TRACE(i);
        startSubscribed("1");
        ASSERT_TRUE(waitForSocket(kTdpDl));
        tell(deviceState(false, false));
        agent().signal(SIGTERM);
        expectEnd(ProcessEnd::exit(0));
        expectNoSockets();
        while (mOsAgent.receive(std::chrono::milliseconds(0)).has_value()) {  // unsubscribed, or not
        }
    }
}

TEST_F(ShutdownTimerTest, ProcessEndsWithATransferAndWaitingRequests) {
    configure({}, {{"PROCESS_SHUTDOWN_TIMER_IN_MS", "1"}});
    RawServer server(misbehaviour());
    TestClient client("client");
    startSubscribed("1");
    ASSERT_TRUE(waitForSocket(kTdpDl));
    for (const char* controller : {kCs, kTdpDl}) {
        for (int32_t tx_id = 0; tx_id < 3; ++tx_id) {
            ASSERT_EQ(client.send(client.get(controller, server.url("/stall"), tx_id)), 0);
        }
    }
    ASSERT_TRUE(server.waitForConnections(2));
    tell(deviceState(false, {}));
    expectUnsubscribed();
    expectEnd(ProcessEnd::exit(0));
    EXPECT_FALSE(client.receive(std::chrono::milliseconds(0)).has_value());
}

TEST_F(ShutdownTimerTest, DeviceStateStartsRestartsAndStopsTheTimer) {
    const std::string started = "start:30] Started shutdown timer for process INET-AGENT\n";
    const std::string stopped = "stop:38] Stopped shutdown timer for process INET-AGENT\n";
    const std::string restarted = "restart:46] Restarted shutdown timer for process INET-AGENT\n";
    struct {
        Card state;
        std::string lines;
    } const events[] = {
        {deviceState({}, {}), ""},  // as assumed at the start: location on, no emergency
        {deviceState({}, true), ""},         {deviceState(false, {}), ""},
        {deviceState({}, false), started},   {deviceState({}, {}), restarted + stopped + started},  // nothing new
        {deviceState(true, false), stopped}, {deviceState(false, false), started},
        {deviceState(false, true), stopped},
    };
    configure({}, {{"PROCESS_SHUTDOWN_TIMER_IN_MS", "600000"}});
    startSubscribed("1");
    std::string expected;
    for (const auto& [state, lines] : events) {
        tell(state);
        expected += lines;
    }
    EXPECT_TRUE(agent().waitForLine("[inet-agent-cs] OS Status Update", std::size(events)));
    stop();
    EXPECT_FALSE(mOsAgent.receive(std::chrono::milliseconds(0)).has_value());
    // Exactly these lines in their order.
    std::string actual;
    const std::string log = agent().log();
    for (size_t at = log.find("shutdown timer"); at != std::string::npos; at = log.find("shutdown timer", at + 1)) {
        const size_t begin = log.rfind(' ', log.rfind(']', at)) + 1;
        actual += log.substr(begin, log.find('\n', at) + 1 - begin);
    }
    EXPECT_EQ(actual, expected);
    EXPECT_EQ(agent().count("Location setting?: false"), 3U);
    EXPECT_EQ(agent().count("Device in emergency: true"), 2U);
}

TEST_F(ShutdownTimerTest, TimerNeverStartsWithoutTheMasksLowBits) {
    configure({}, {{"PROCESS_SHUTDOWN_TIMER_IN_MS", "0"}});
    startSubscribed("10000");
    for (int i = 0; i < 3; ++i) {
        tell(deviceState(false, false));
        tell(deviceState(true, false));
    }
    EXPECT_TRUE(agent().waitForLine("Location setting?: true", 3));
    stop();
    start();  // nor when it is disabled altogether
    tell(deviceState(false, false));
    EXPECT_TRUE(agent().waitForLine("Location setting?: false"));
    stop();
    EXPECT_EQ(agent().count("shutdown timer"), 0U);
}

}  // namespace
}  // namespace test_support
