#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "inet/CsReqController.h"
#include "inet/InetTest.h"

/// Both controllers as the process has them, started and stopped over and over: the end comes from anywhere, at any time.
namespace fault_test {
namespace {

using namespace zv_loc_fw;
using test_support::Card;

/// More where somebody has the time: ROUNDS in the environment.
long rounds() {
    const char* const text = std::getenv("ROUNDS");
    return text != nullptr ? std::strtol(text, nullptr, 10) : 200;
}

size_t openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

TEST(LifeCycle, TheEndComesFromAnywhereAtAnyTime) {
    test_support::device_files::reset();
    const auto stall = [](test_support::RawConnection& connection) { connection.stall(); };
    const test_support::RawServer server(stall);
    const test_support::RawServer perhaps_reached(stall);
    test_support::TestClient client("client");
    const auto idle = Card().string("FROM", "OS-Agent").string("INFO", "OS-STATUS-UPDATE");
    size_t connections = 0;
    const size_t descriptors = openDescriptors();
    enum Moment { kBeforeLaunch, kBeforeListen, kTwice, kInTransfer, kQueued, kTimer, kMoments };
    for (long round = 0; round < rounds(); ++round) {
        SCOPED_TRACE(round);
        const auto moment = static_cast<Moment>(round % kMoments);
        TdpDlReqController two("two", "two");
        CsReqController one("one", "one");  // goes first: its timer kills the other
        ASSERT_EQ(one.init() + two.init(), 0);
        one.shutdownTimer().setLaunchTriggerMask(1);
        one.shutdownTimer().setTimeoutMs(0);
        const auto kill_both = [&] { EXPECT_EQ(one.kill() + two.kill(), 0); };
        std::vector<std::thread> threads;
        if (moment == kBeforeLaunch) {
            kill_both();
        } else if (moment == kQueued) {
            for (int32_t tx_id = 0; tx_id < 4; ++tx_id) {
                EXPECT_EQ(client.send(client.get(tx_id % 2 == 0 ? "one" : "two", perhaps_reached.url(), tx_id)), 0);
            }
        } else if (moment == kTimer) {
            const Card off = Card().boolean("IS_GPS_PROVIDER_ENABLED", false);
            EXPECT_EQ(client.send("one", Card(idle).card("GPS_STATE", off)), 0);
        }
        if (moment == kBeforeListen || moment == kTwice || moment == kTimer) {
            threads.emplace_back(kill_both);
        }
        ASSERT_EQ(one.launch() + two.launch(), 0);
        EXPECT_EQ(one.addPeer(&two) + two.addPeer(&one), 0);
        if (moment == kTwice) {
            threads.emplace_back(kill_both);
        } else if (moment == kQueued) {
            two.kill();
        } else if (moment == kInTransfer) {
            EXPECT_EQ(client.send(client.get("one", server.url(), 1)), 0);
            EXPECT_TRUE(server.waitForConnections(++connections));
            two.kill();  // one hears of it as its peer
        }
        EXPECT_EQ(one.join() + two.join(), 0);
        for (std::thread& thread : threads) {
            thread.join();
        }
        const auto reply = client.receive(std::chrono::milliseconds(0));
        EXPECT_FALSE(reply.has_value()) << "nobody is answered any more: " << reply->describe();
    }
    const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (openDescriptors() != descriptors && std::chrono::steady_clock::now() < patience) {
        std::this_thread::yield();  // the servers have yet to notice that nobody is there
    }
    EXPECT_EQ(openDescriptors(), descriptors);
}

}  // namespace
}  // namespace fault_test
