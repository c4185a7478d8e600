#include <sys/resource.h>

#include <atomic>
#include <filesystem>

#include "e2e/E2eTest.h"
#include "support/HttpServer.h"

namespace test_support {
namespace {

class EnvelopeTest : public E2eTest {
protected:
    /// What was sent before has been dealt with once this is answered.
    void expectServed() {
        const Card request = mClient.get(kCs, mHttp.url("/hello"), 100);
        expectCard(mClient.exchange(request), result(request, 200, "hello\n"));
    }
    Card getFrom(const std::string& from) {
        Card card;
        card.string("FROM", from).string("TO", kCs).string("REQ", "GET").int32("TX-ID", 1);
        return card.string("URL", mHttp.url("/hello")).int32("TIMEOUT-SEC", 60);
    }

    HttpServer mHttp;
    TestClient mClient{"client"};
};

TEST_F(EnvelopeTest, ControllersAnnounceThemselvesToWhoeverIsThere) {
    leaveStaleSocket("stale");
    start();
    for (const char* name : {kCs, kTdpDl}) {
        Card event = Card().string("TO", "client").string("FROM", "LOCATION-MQ").string("INFO", "REGISTER-EVENT");
        expectCard(mClient.receiveAny(), event.string("CLIENT", name));
    }
}

TEST_F(EnvelopeTest, MessagesThatAreNoRequestsHarmNothing) {
    const std::string bytes = getFrom("client").encode();
    const Card kill = Card().string("FROM", "client").string("REQ", "KILL");
    struct {
        std::string bytes;
        const char* line;
    } const messages[] = {
        {"", "newMsg error "},
        {bytes.substr(0, bytes.size() / 2), "newMsg error "},
        {std::string(bytes.size(), '\xff'), "newMsg error "},
        {Card().string("TO", kCs).string("REQ", "GET").encode(), "newMsg error 4"},
        {Card().string("FROM", "client").string("TX-ID", "1").string("REQ", "GET").encode(), "newMsg error 5"},
        {Card().string("FROM", "client").string("TO", kCs).encode(), "newMsg error 6"},
        {Card().string("FROM", "client").string("INFO", "NEWS").encode(), "INFO:  NEWS"},
        {kill.encode(), "received KILL request, closing service"},
        {kill.encode(), "received KILL command"},
        {Card().string("FROM", kCs).string("REQ", "NEWS").encode(), "_process failed 9"},
        {internalResult(kCs).encode(), "_process failed 8"},
        {getFrom("SERVER").encode(), "_process failed 5"},
    };
    start();
    for (const auto& message : messages) {
        SCOPED_TRACE(message.line);
        const size_t before = agent().count(message.line);
        ASSERT_EQ(mClient.send(kCs, message.bytes), 0);
        EXPECT_TRUE(agent().waitForLine(message.line, before + 1));
        expectServed();
    }
    EXPECT_TRUE(agent().waitForLine("onReceive failed 4", 2));
}

TEST_F(EnvelopeTest, ReplyNeverLeavesTheSocketDirectory) {
    const std::string outside = socketPath("../outside");
    start();
    TestClient elsewhere("../outside");
    for (const std::string& from : {std::string("nobody"), std::string(), elsewhere.name(), std::string(4096, 'n')}) {
        SCOPED_TRACE(from);
        ASSERT_EQ(mClient.send(getFrom(from)), 0);
        expectServed();
    }
    EXPECT_FALSE(elsewhere.receive(std::chrono::milliseconds(0)).has_value());
}

TEST_F(EnvelopeTest, WithoutDescriptorsLongMessagesAreDroppedAndRepliesArrive) {
    start();
    expectServed();
    rlimit limit{};
    ASSERT_EQ(prlimit(agent().pid(), RLIMIT_NOFILE, nullptr, &limit), 0);
    const rlimit none{4, limit.rlim_max};  // none to be had, but enough to poll as many
    ASSERT_EQ(prlimit(agent().pid(), RLIMIT_NOFILE, &none, nullptr), 0);
    ASSERT_EQ(mClient.send(mClient.post(kCs, mHttp.url("/echo"), std::string(100000, 'x'), 1)), 0);
    EXPECT_TRUE(agent().waitForLine("its descriptors could not all be received"));
    ASSERT_EQ(mClient.send(mClient.get(kCs, mHttp.url("/hello"), 2).boolean("FORCE_NEW_CONNECTION", true)), 0);
    EXPECT_TRUE(agent().waitForLine("curl error 7: "));
    const auto reply = mClient.receive();
    ASSERT_TRUE(reply.has_value()) << "needs none";
    EXPECT_EQ(reply->getInt32("TX-ID"), 2);
    ASSERT_EQ(prlimit(agent().pid(), RLIMIT_NOFILE, &limit, nullptr), 0);
    expectServed();
}

TEST_F(EnvelopeTest, ClientIsReachedAfterARestartAndByAnAlias) {
    start();
    for (int32_t i = 0; i < 3; ++i) {
        TestClient again("restarted");
        const Card request = again.get(kCs, mHttp.url("/hello"), i);
        expectCard(again.exchange(request), result(request, 200, "hello\n"));
    }
    // Also between its request and the reply.
    std::atomic<bool> restarted{false};
    const RawServer server([&](RawConnection& connection) {
        (void)connection.readRequest();
        while (!restarted && connection.sleep(1)) {
        }
        connection.sendAll(RawServer::response("200 OK", {}, "late"));
    });
    std::optional<TestClient> client(std::in_place, "restarted");
    const Card pending = client->get(kCs, server.url(), 4);
    ASSERT_EQ(client->send(pending), 0);
    ASSERT_TRUE(server.waitForConnections(1));
    client.emplace("restarted");
    restarted = true;
    expectCard(client->receive(), result(pending, 200, "late"));

    std::filesystem::create_symlink(socketPath("client"), socketPath("alias"));
    expectCard(mClient.exchange(getFrom("alias")), result(getFrom("alias"), 200, "hello\n"));
    // Links that lead nowhere harm nobody else.
    const char* const targets[] = {"/nowhere",     "astray-2", "../mq/../../..",
                                   "/etc/passwd/", "client/",  "/proc/self/fd/0"};
    for (size_t i = 0; i < std::size(targets); ++i) {
        const std::string name = "astray-" + std::to_string(i);
        std::filesystem::create_symlink(targets[i], socketPath(name));
        mClient.send(getFrom(name));
    }
    expectCard(mClient.exchange(getFrom("alias")), result(getFrom("alias"), 200, "hello\n"));
}

}  // namespace
}  // namespace test_support
