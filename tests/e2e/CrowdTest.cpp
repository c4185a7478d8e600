#include <algorithm>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <thread>

#include "e2e/E2eTest.h"
#include "support/CertificateAuthority.h"
#include "support/HttpServer.h"

namespace test_support {
namespace {

constexpr size_t kClients = 20;
constexpr size_t kRequestsEach = 10;
constexpr size_t kBig = (kSlowed ? 8U : 64U) * 1024 * 1024;
constexpr int32_t kPatienceSec = 150;

/// A request with the one reply that is right for it.
struct Expected {
    Card request;
    std::function<void(const Card& reply)> check;
};

class CrowdTest : public E2eTest {
protected:
    CrowdTest() { device_files::writeCaFile(mAuthority.pem()); }

    Expected succeeds(const Card& request, int32_t status, const std::string& body) {
        return {request, [=](const Card& reply) { expectCard(reply, result(request, status, body)); }};
    }
    Expected fails(const Card& request, const std::string& error, int32_t size = 0) {
        return {request, [=](const Card& reply) { expectFailed(reply, request, false, error, size); }};
    }

    /// The crowd's n-th request: any two neighbours differ in kind, and every kind meets both controllers.
    Expected make(const TestClient& client, size_t n, int32_t tx_id) {
        const char* to = (n + n / kRequestsEach) % 2 == 0 ? kCs : kTdpDl;
        const auto get = [&](const std::string& url) { return client.get(to, url, tx_id, kPatienceSec); };
        const auto post = [&](const std::string& url, const std::string& body) {
            Card request = client.post(to, url, body, tx_id, kPatienceSec);
            return succeeds(request.string("CONTENT-TYPE", "application/x-test"), 200, body);
        };
        const std::string own_body = std::to_string(n) + std::string(n * 500, 'x');
        if (n % 50 == 0) {
            return n % 100 == 0 ? succeeds(get(mHttp.url("/bytes/" + std::to_string(kBig))), 200, mBigBody)
                                : post(mHttps.url("/echo"), mBigBody);
        }
        switch (n % 11) {
            case 0:
                return succeeds(get(mHttp.url("/hello")), 200, "hello\n");
            case 1:
                return post(mHttp.url("/echo"), own_body);
            case 2:
                return post(mHttps.url("/echo"), own_body);
            case 3:
                return succeeds(get(mHttps.url("/status/404")), 404, "status 404\n");
            case 4:
                return succeeds(get(mRaw.url("/moved/302")), 200, "GET ");
            case 5:
                return succeeds(get(mHttp.url("/status/204")), 204, "");
            case 6:
                return succeeds(get(mHttp.url("/slow?ms=20")), 200, "slow\n");
            case 7:
                return fails(get(mRaw.url("/moved-twice")), "Maximum (1) redirects");
            case 8:
                return fails(get(mRaw.url("/reset")), "reset by peer");
            case 9:
                return fails(get(mRaw.url("/cut")), "90 bytes remaining", 10);
            default:
                return fails(get(refusedUrl()), "onnect");
        }
    }

    /// Sends everything, then takes replies until each request has had one.
    static void play(TestClient& client, const std::vector<Expected>& requests) {
        std::map<std::pair<std::string, int32_t>, const Expected*> open;
        for (const Expected& expected : requests) {
            open[{*expected.request.getString("TO"), *expected.request.getInt32("TX-ID")}] = &expected;
            EXPECT_EQ(client.send(expected.request), 0);
        }
        while (!open.empty()) {
            const auto reply = client.receive(std::chrono::seconds(kPatienceSec));
            ASSERT_TRUE(reply.has_value()) << client.name() << ": " << open.size() << " requests without a reply";
            const auto found =
                open.find({reply->getString("FROM").value_or(""), reply->getInt32("TX-ID").value_or(-1)});
            ASSERT_TRUE(found != open.end()) << client.name() << ": not asked for: " << reply->describe();
            found->second->check(*reply);
            open.erase(found);
        }
    }

    static constexpr size_t kLooks = 10;
    /// A reply may be received before the descriptor that it was sent with is closed.
    size_t descriptorsAtRest(TestClient& client) {
        size_t fewest = SIZE_MAX;
        for (size_t i = 0; i < kLooks; ++i) {
            serveOnce(client);
            fewest = std::min(fewest, agent().descriptorCount());
        }
        return fewest;
    }
    /// Lets both controllers notice which of their kept connections have died, until only `count` descriptors are left.
    bool descriptorsComeBackTo(size_t count, TestClient& client) {
        for (int32_t i = 0; i < 60 && agent().descriptorCount() != count; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(i == 0 ? 0 : 500));  // looked for once a second
            serveOnce(client);
        }
        return agent().descriptorCount() == count;
    }
    void serveOnce(TestClient& client) {
        for (const char* controller : {kCs, kTdpDl}) {
            const Card request = client.get(controller, mRaw.url("/final"), 1);
            expectCard(client.exchange(request), result(request, 200, "GET "));
        }
    }

    CertificateAuthority mAuthority;
    std::optional<HttpServer> mHttpServer{std::in_place};
    std::optional<HttpServer> mHttpsServer{std::in_place, HttpServer::Tls{mAuthority.issueServer()}};
    const HttpServer& mHttp = *mHttpServer;
    const HttpServer& mHttps = *mHttpsServer;
    RawServer mRaw{misbehaviour()};
    const std::string mBigBody = alphabet(kBig);
};

TEST_F(CrowdTest, EveryLiveClientIsAnsweredExactlyOnce) {
    start();
    TestClient observer("observer");
    const size_t descriptors = descriptorsAtRest(observer);

    // Both controllers are held up first, so that the crowd really meets in the queues. What comes right behind with
    // less time runs out of it there.
    std::deque<TestClient> clients;
    std::vector<std::thread> threads;
    for (const char* controller : {kCs, kTdpDl}) {
        TestClient& client = clients.emplace_back(std::string("impatient-") + controller);
        const Card stalled = client.get(controller, mRaw.url("/stall"), 0, 6);
        std::vector<Expected> requests{{stalled, [=](const Card& r) { expectFailed(r, stalled, true, "timed out"); }}};
        for (int32_t tx_id = 1; tx_id <= 4; ++tx_id) {
            const Card request = client.get(controller, mHttp.url("/hello"), tx_id, 1);
            requests.push_back({request, [=](const Card& r) { expectCard(r, errorReply(request, kQueuedTimedOut)); }});
        }
        threads.emplace_back([&client, requests] { play(client, requests); });
    }
    ASSERT_TRUE(mRaw.waitForConnections(2 * kLooks + 2));

    // Those who die before their replies come, with and without leaving their socket behind, and those who never read.
    for (const char* name : {"dying", "dying-badly"}) {
        TestClient client(name);
        for (int32_t tx_id = 0; tx_id < 8; ++tx_id) {
            ASSERT_EQ(client.send(client.get(tx_id % 2 == 0 ? kCs : kTdpDl, mHttp.url("/bytes/100000"), tx_id)), 0);
        }
    }
    leaveStaleSocket("dying-badly");
    std::deque<TestClient> sleepers;
    for (const char* name : {"sleeper-1", "sleeper-2"}) {
        TestClient& client = sleepers.emplace_back(name);
        for (int32_t tx_id = 0; tx_id < 40; ++tx_id) {
            const std::string path = "/bytes/" + std::to_string(tx_id * 5000);
            ASSERT_EQ(client.send(client.get(tx_id % 2 == 0 ? kCs : kTdpDl, mHttp.url(path), tx_id, kPatienceSec)), 0);
        }
    }

    for (size_t i = 0; i < kClients; ++i) {
        TestClient& client = clients.emplace_back("client-" + std::to_string(i));
        std::vector<Expected> requests;
        for (size_t k = 0; k < kRequestsEach; ++k) {
            requests.push_back(make(client, i * kRequestsEach + k, static_cast<int32_t>(k)));
        }
        threads.emplace_back([&client, requests = std::move(requests)] { play(client, requests); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    // No connection is alive any more, so nothing is left of the crowd but what was there before it.
    mHttpServer.reset();
    mHttpsServer.reset();
    EXPECT_TRUE(descriptorsComeBackTo(descriptors, observer))
        << descriptors << " descriptors before, " << agent().descriptorCount() << " after";
    stop();
    for (TestClient& client : clients) {
        EXPECT_FALSE(client.receive(std::chrono::milliseconds(0)).has_value()) << client.name();
    }
}

TEST_F(CrowdTest, FloodIsAnsweredAndHoldsUpOnlyItsOwnController) {
    // Each arrival and each start looks through all that wait, so the time it takes grows with the square.
#ifdef __OPTIMIZE__
    constexpr int32_t kFlood = kSlowed ? 1000 : 10000;
#else
    constexpr int32_t kFlood = 2000;
#endif
    configure({{"DEBUG_GLOBAL_LOG_LEVEL", "2"}}, {{"DEBUG_LEVEL", "2"}});
    start();
    TestClient observer("observer");
    TestClient flooder("flooder");
    const size_t descriptors = descriptorsAtRest(observer);
    const Card stalled = flooder.get(kCs, mRaw.url("/stall"), kFlood, 5);
    ASSERT_EQ(flooder.send(stalled), 0);
    for (int32_t tx_id = 0; tx_id < kFlood; ++tx_id) {
        ASSERT_EQ(flooder.send(flooder.get(kCs, mHttp.url("/hello"), tx_id, kPatienceSec)), 0);
    }
    const Card beside = observer.get(kTdpDl, mRaw.url("/final"), 1);
    expectCard(observer.exchange(beside), result(beside, 200, "GET "));
    const auto patience = std::chrono::seconds(kPatienceSec);
    // The worker's result, unless the loop is too busy to hear of it within the second that it has.
    EXPECT_EQ(flooder.receive(patience).value_or(Card()).getInt32("TX-ID"), kFlood);
    for (int32_t tx_id = 0; tx_id < kFlood && !HasFailure(); ++tx_id) {
        const Card request = flooder.get(kCs, "", tx_id);
        expectCard(flooder.receive(patience), result(request, 200, "hello\n"));
    }
    mHttpServer.reset();
    EXPECT_TRUE(descriptorsComeBackTo(descriptors, observer)) << descriptors << " before";
    stop();
}

}  // namespace
}  // namespace test_support
