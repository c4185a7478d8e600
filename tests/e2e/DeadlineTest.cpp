#include "e2e/E2eTest.h"
#include "support/HttpServer.h"

namespace test_support {
namespace {

class DeadlineTest : public E2eTest {
protected:
    HttpServer mHttp;
    TestClient mClient{"client"};
};

TEST_F(DeadlineTest, RequestWithoutTimeExpiresAtOnce) {
    start();
    const auto bare = [&] {
        Card card;
        card.string("FROM", "client").string("TO", kCs).string("REQ", "GET").int32("TX-ID", 7);
        return card.string("URL", mHttp.url("/hello"));
    };
    for (const Card& request : {bare(), bare().int32("TIMEOUT-SEC", 0), bare().int32("TIMEOUT-SEC", -1),
                                bare().int32("TIMEOUT-SEC", INT32_MIN), bare().string("TIMEOUT-SEC", "60")}) {
        SCOPED_TRACE(request.describe());
        expectCard(mClient.exchange(request), errorReply(request, kQueuedTimedOut));
    }
    EXPECT_TRUE(agent().waitForLine("insertJob: all jobs are already timedout", 5));
    EXPECT_EQ(mHttp.requestCount(), 0U);
    const Card patient = mClient.get(kCs, mHttp.url("/hello"), 1, INT32_MAX);
    expectCard(mClient.exchange(patient), result(patient, 200, "hello\n"));
}

// A request that the worker rejects yields no result: the controller waits for it beyond the deadline, and serves
// nobody until one comes, from wherever.
TEST_F(DeadlineTest, RejectedRequestBlocksItsControllerUntilAResultComes) {
    const auto base = [&](const char* to, const std::string& req, int32_t timeout) {
        Card card;
        card.string("FROM", "client").string("TO", to).string("REQ", req).int32("TX-ID", 7);
        return card.int32("TIMEOUT-SEC", timeout);
    };
    const std::string url = mHttp.url("/hello");
    struct {
        Card request;
        const char* code;
    } const rejected[] = {
        {base(kCs, "GET", 1).string("URL", url), "27"},  {base(kTdpDl, "PUT", 1).string("URL", url), "6"},
        {base(kCs, "GET", 1).string("URL", ""), "10"},   {base(kTdpDl, "GET", 1), "9"},
        {base(kCs, "POST", 3).string("URL", url), "50"}, {base(kTdpDl, "get", 1).string("URL", url), "6"},
    };
    start();
    for (const auto& [request, code] : rejected) {
        SCOPED_TRACE(request.describe());
        const std::string controller = request.getString("TO").value();
        const std::string line = "[" + controller + "-worker] perform failed " + code + "\n";
        const size_t before = agent().count(line);
        expectCard(mClient.exchange(request), errorReply(request, kActiveTimedOut));
        EXPECT_TRUE(agent().waitForLine(line, before + 1));

        const Card expiring = mClient.get(controller, url, 8, code == std::string("27") ? 1 : 0);
        const Card waiting = mClient.get(controller, url, 9);
        ASSERT_EQ(mClient.send(waiting), 0);
        expectCard(mClient.exchange(expiring), errorReply(expiring, kQueuedTimedOut));
        ASSERT_EQ(mClient.send(controller, internalResult(controller)), 0);
        expectCard(mClient.receive(), result(waiting, 200, "hello\n"));
    }
    EXPECT_TRUE(agent().waitForLine("ignoring response for a request that has timed out", std::size(rejected)));

    // Unless the agent is told to answer those as well.
    stop();
    configure({{"REPLY_TO_REJECTED_REQUESTS", "1"}});
    start();
    for (const auto& [request, code] : rejected) {
        SCOPED_TRACE(request.describe());
        Card reply;
        reply.string("FROM", request.getString("TO").value()).string("TO", "client").int32("TX-ID", 7);
        reply.string("RESP", request.getString("REQ").value()).boolean("CURL-TIMEOUT", false);
        reply.string("CURL-ERROR", std::string("request rejected ") + code).int32("HTTP-RESP-DATA-SIZE", 0);
        expectCard(mClient.exchange(request), reply);
        const Card next = mClient.get(request.getString("TO").value(), url, 9);
        expectCard(mClient.exchange(next), result(next, 200, "hello\n"));
    }
    EXPECT_EQ(mHttp.requestCount(), 2 * std::size(rejected)) << "only what was waiting, or came next";
}

}  // namespace
}  // namespace test_support
