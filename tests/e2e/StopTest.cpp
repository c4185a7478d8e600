#include <atomic>
#include <csignal>
#include <thread>

#include "e2e/E2eTest.h"
#include "support/HttpServer.h"

namespace test_support {
namespace {

class StopTest : public E2eTest {
protected:
    RawServer mStalled{misbehaviour()};
};

TEST_F(StopTest, SignalAtAnyMomentOfTheStartEndsItInTheOrderlyWay) {
    for (int i = 0; i < 20; ++i) {
        SCOPED_TRACE(i);
        launch({"--launch-trigger-mask", "1"});
        // From the first line, with no controller yet, on to the first message.
        static constexpr const char* kMoments[] = {"config loaded", "process shutdown", "entering event loop",
                                                   "waiting for msg"};
        EXPECT_TRUE(agent().waitForLine(kMoments[i % 4]));
        agent().signal(i % 8 < 4 ? SIGTERM : SIGINT);
        expectEnd(ProcessEnd::exit(0));
        expectNoSockets();
        EXPECT_EQ(agent().count("[main] Bye Bye"), 1U);
    }
}

TEST_F(StopTest, StalledTransfersAndWaitingRequestsDoNotHoldIt) {
    for (int round = 0; round < 3; ++round) {
        start();
        TestClient client("client");
        for (const char* controller : {kCs, kTdpDl}) {
            for (int32_t tx_id = 0; tx_id < 3; ++tx_id) {
                ASSERT_EQ(client.send(client.get(controller, mStalled.url("/stall"), tx_id, 1000)), 0);
            }
        }
        ASSERT_TRUE(mStalled.waitForConnections(2 * (static_cast<size_t>(round) + 1)));
        stop();
        // Nobody gets an answer.
        EXPECT_FALSE(client.receive(std::chrono::milliseconds(0)).has_value());
    }
}

TEST_F(StopTest, StopAmidTrafficIsOrderly) {
    const HttpServer server;
    for (int round = 0; round < 5; ++round) {
        SCOPED_TRACE(round);
        start();
        std::atomic<bool> done{false};
        std::thread traffic([&] {
            TestClient client("busy");
            for (int32_t tx_id = 0; !done; ++tx_id) {
                // Fails once the sockets have gone. Some wait at any time, but no flood.
                (void)client.send(client.get(tx_id % 2 == 0 ? kCs : kTdpDl, server.url("/hello"), tx_id));
                (void)client.receive(std::chrono::milliseconds(tx_id < 10 ? 0 : 100));
            }
        });
        EXPECT_TRUE(agent().waitForLine("inet time report", 10));
        stop();
        done = true;
        traffic.join();
    }
}

TEST_F(StopTest, SecondSignalEndsItAtOnceOrComesTooLate) {
    for (int i = 0; i < 10; ++i) {
        start();
        TestClient client("client");
        ASSERT_EQ(client.send(client.get(kCs, mStalled.url("/stall"), i, 1000)), 0);
        ASSERT_TRUE(mStalled.waitForConnections(static_cast<size_t>(i) + 1));
        agent().signal(SIGTERM);
        agent().signal(SIGINT);
        const auto end = agent().wait();
        ASSERT_TRUE(end.has_value());
        EXPECT_THAT(*end, testing::AnyOf(ProcessEnd::exit(0), ProcessEnd::signal(SIGTERM), ProcessEnd::signal(SIGINT)));
    }
}

}  // namespace
}  // namespace test_support
