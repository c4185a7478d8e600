#include "transfer/CurlPerformer.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <thread>

#include "base/log.h"
#include "mq/Envelope.h"
#include "mq/MqClientControllerBase.h"
#include "postcard/MemoryStream.h"
#include "support/BootClock.h"
#include "support/HttpServer.h"
#include "support/LogCapture.h"
#include "support/RawServer.h"
#include "transfer/Messages.h"
#include "transfer/OpenSockets.h"
#include "transfer/TransferSettings.h"
#include "transfer/WorkerCommand.h"

namespace transfer_test {
namespace {

using namespace zv_loc_fw;
using test_support::BootClock;
using test_support::Card;
using test_support::RawConnection;
using test_support::RawServer;

/// A controller that keeps what its worker tells it.
class Mailbox : public MqClientControllerBase {
public:
    explicit Mailbox(std::vector<Card>& results)
        : MqClientControllerBase("agent", "agent", envelope::kHubSocketPath, nullptr), mResults(results) {}

protected:
    int _init() override { return 0; }
    using MqClientControllerBase::_process;
    int _process(MqMsgWrapper* message) override {
        const std::unique_ptr<MqMsgWrapper> owner(message);
        const InMemoryStream* stream = owner->card()->getBuffer();
        const auto card = Card::decode({static_cast<const char*>(stream->getBuffer()), stream->getSize()});
        if (const auto result = card->getCard("RESULT")) {
            EXPECT_THAT(card->describe(), testing::StartsWith("TO agent | FROM agent | REQ HTTP-RESULT | RESULT"));
            mResults.push_back(*result);
        }
        return 0;
    }
    int _shutdown() override { return 0; }

private:
    std::vector<Card>& mResults;
};

Card makeRequest(const std::string& req, const std::string& url, int32_t timeout_sec = 60) {
    Card card;
    card.string("FROM", "client").string("TO", "agent").string("REQ", req).int32("TX-ID", 7).string("URL", url);
    return card.int32("TIMEOUT-SEC", timeout_sec);
}
Card get(const std::string& url, int32_t timeout_sec = 60) {
    return makeRequest("GET", url, timeout_sec);
}
Card post(const std::string& url, const std::string& body) {
    return makeRequest("POST", url).blob("POST-DATA", body);
}

/// The card's bytes with the terminating zero of a text in it overwritten.
std::string unterminated(const Card& card, const std::string& text) {
    std::string bytes = card.encode();
    bytes.at(bytes.find(text + '\0') + text.size()) = '!';
    return bytes;
}

class CurlPerformerTest : public testing::Test {
protected:
    CurlPerformerTest() {
        log_set_global_level(EL_VERBOSE);
        setenv("no_proxy", "*", 1);
    }
    void push(std::unique_ptr<MqMsgWrapper> job, int32_t kind = WorkerCommand::kPerform) {
        EXPECT_EQ(worker->commandQueue()->push(new WorkerCommand{kind, std::move(job)}), 0);
    }
    /// Lets the worker do what is queued, and its controller take what came of it; the next ones start afresh.
    void run(bool with_controller = true) {
        log.clear();
        results.clear();
        EXPECT_TRUE(!with_controller || mailbox->init() == 0);
        (void)worker->commandQueue()->close();
        EXPECT_EQ(worker->run(), 0);
        if (interrupter.joinable()) {
            interrupter.join();
        }
        EXPECT_TRUE(!with_controller || mailbox->launch() == 0);
        mailbox->kill();
        mailbox->join();
        mailbox = std::make_unique<Mailbox>(results);
        worker = std::make_unique<CurlPerformer>("worker", mailbox.get());
    }
    /// The result's one line; "nothing" without one.
    std::string perform(const Card& request) {
        push(messageOf(request));
        run();
        return results.empty() ? "nothing" : results.front().describe();
    }

    test_support::LogCapture log;
    std::thread interrupter;
    std::vector<Card> results;
    std::unique_ptr<Mailbox> mailbox = std::make_unique<Mailbox>(results);
    std::unique_ptr<CurlPerformer> worker = std::make_unique<CurlPerformer>("worker", mailbox.get());
    test_support::HttpServer server;
};

TEST_F(CurlPerformerTest, RejectedRequestsLeaveACodeAndNoResultUnlessAskedFor) {
    const std::string url = server.url("/hello");
    const Card a_get = get(url);
    const Card a_post = post(url, "body");
    const Card no_timeout = without(a_get, "TIMEOUT-SEC");
    const struct {
        const char* what;
        std::string bytes;
        int code;
    } cases[] = {
        {"no FROM", without(a_get, "FROM").encode(), 5},
        {"no TO", without(a_get, "TO").encode(), 6},
        {"another REQ", makeRequest("PUT", url).encode(), 6},
        {"REQ in small letters", makeRequest("get", url).encode(), 6},
        {"no REQ", without(a_get, "REQ").encode(), 7},
        {"no TX-ID", without(a_get, "TX-ID").encode(), 8},
        {"TX-ID as text", without(a_get, "TX-ID").string("TX-ID", "7").encode(), 8},
        {"no URL", without(a_get, "URL").encode(), 9},
        {"URL without an end", unterminated(a_get, url), 9},
        {"empty URL", get("").encode(), 10},
        {"nothing readable where TIMEOUT-SEC may be", Card(no_timeout).blob("X", "").encode(), 26},
        {"no TIMEOUT-SEC", no_timeout.encode(), 27},
        {"one second", get(url, 1).encode(), 27},
        {"no time at all", get(url, INT_MIN).encode(), 27},
        {"a URL of eight million characters", get(url + std::string(8000000, 'x')).encode(), 29},
        {"nothing readable where FORCE_NEW_CONNECTION may be", post(url, "").encode(), 31},
        {"service host without device files", post(std::string(SERVICE_HOST_PREFIX) + ".test/", "x").encode(), 39},
        {"POST without POST-DATA", without(a_post, "POST-DATA").encode(), 50},
        {"POST-DATA as text", without(a_post, "POST-DATA").string("POST-DATA", "body").encode(), 50},
        {"empty POST-DATA",
         makeRequest("POST", url).boolean("FORCE_NEW_CONNECTION", false).blob("POST-DATA", "").encode(), 52},
        {"CONTENT-TYPE without an end", unterminated(Card(a_post).string("CONTENT-TYPE", "a/b"), "a/b"), 56},
        {"PROTOCOL-VERSION without an end", unterminated(Card(a_post).string("PROTOCOL-VERSION", "3.1"), "3.1"), 60},
    };
    for (const auto& test : cases) {
        const BootClock clock;  // INT_MIN less one second would overflow
        push(messageOf(test.bytes));
        run();
        EXPECT_TRUE(log.contains("[worker] perform failed " + std::to_string(test.code))) << test.what;
        EXPECT_EQ(log.contains("[worker] ignoring unknown request "), test.code == 6 && test.what[0] != 'n');
        EXPECT_EQ(log.contains("[worker] perform: already timed out"), test.code == 27);
        EXPECT_TRUE(results.empty()) << test.what;

        transferSettings().replyToRejected = true;
        push(messageOf(test.bytes));
        run();
        transferSettings().replyToRejected = false;
        EXPECT_TRUE(log.contains("[worker] perform failed " + std::to_string(test.code))) << test.what;
        const auto card = messageOf(test.bytes);
        const char* req = nullptr;
        int32_t tx_id = 0;
        const bool answerable =
            test.code != 5 && card->card()->getString("REQ", &req) == 0 && card->card()->getInt32("TX-ID", tx_id) == 0;
        EXPECT_EQ(answerable, test.code != 5 && test.code != 7 && test.code != 8) << test.what;
        ASSERT_EQ(results.size(), answerable ? 1U : 0U) << test.what;
        if (answerable) {
            EXPECT_EQ(results.front().describe(), std::string("FROM agent | TO client | TX-ID 7 | RESP ") + req +
                                                      " | CURL-TIMEOUT false | CURL-ERROR request rejected " +
                                                      std::to_string(test.code) + " | HTTP-RESP-DATA-SIZE 0");
        } else {
            EXPECT_TRUE(log.contains("[agent] notifyHttpResult failed 2")) << test.what;
        }
    }
    EXPECT_EQ(server.requestCount(), 0U);
    EXPECT_EQ(CurlPerformer::curl_data_handler(nullptr, 1, 5, nullptr), 0U);
    EXPECT_EQ(CurlPerformer::curl_header_handler(nullptr, 1, 5, nullptr), 0U);
    push(nullptr);
    run();
    EXPECT_TRUE(log.contains("perform failed 3"));
    push(messageOf(a_get));
    run(false);
    EXPECT_TRUE(log.contains("[agent] notifyHttpResult failed 12"));
    EXPECT_TRUE(log.contains("[worker] perform failed 91"));
}

TEST_F(CurlPerformerTest, MalformedUrlHarmsNoLaterRequest) {
    push(
        messageOf(get("http://b\xc3\xbc"
                      "cher.localhost:1/")));
    push(messageOf(get("http://127.0.0.1:99999/")));
    push(messageOf(get(server.url("/hello"))));
    run();
    ASSERT_EQ(results.size(), 3U);
    EXPECT_EQ(results.back().getInt32("HTTP-RESP-CODE"), 200);
}

TEST_F(CurlPerformerTest, ResultsHaveTheirFieldsInOrder) {
    const RawServer cut(RawServer::answer("HTTP/1.1 200 OK\r\nRetry-After: 9\r\nContent-Length: 10\r\n\r\ncut"));
    const RawServer later(RawServer::answer(RawServer::response("503 Later", {"Retry-After: 120"}, "later\n")));
    const RawServer moved(RawServer::answer(
        RawServer::response("302 Found", {"Location: " + server.url("/status/204"), "Retry-After: 5"}, "gone")));
    const RawServer nonsense(RawServer::answer("SMTP ready\r\n"));
    const RawServer silent([](RawConnection& connection) { connection.stall(); });
    const std::string start = "FROM agent [|] TO client [|] TX-ID 7 [|] RESP ";
    const std::string failed = start + "GET [|] CURL-TIMEOUT false [|] CURL-ERROR [^|]*[|] HTTP-RESP-DATA-SIZE ";
    const std::string data = "HTTP-RESP-DATA [(]6 bytes[)] [|] HTTP-RESP-CODE ";
    const struct {
        Card request;
        std::string result;
        int curl_error = 0;
    } cases[] = {
        {get(server.url("/hello")), start + "GET [|] " + data + "200 [|] HTTP-RESP-DATA-SIZE 6"},
        {post(server.url("/echo"), "posted"), start + "POST [|] " + data + "200 [|] HTTP-RESP-DATA-SIZE 6"},
        {post(moved.url(), "x"),
         start + "POST [|] HTTP-RESP-CODE 204 [|] HTTP-RESP-DATA-SIZE 0 [|] HTTP-RETRY-AFTER 5"},
        {get(later.url()), start + "GET [|] " + data + "503 [|] HTTP-RESP-DATA-SIZE 6 [|] HTTP-RETRY-AFTER 120"},
        {get("http://["), failed + "0", 3},
        {get("http://127.0.0.1:1/"), failed + "0", 7},
        {get(nonsense.url()), failed + "0", 1},
        {get(cut.url()), failed + "3 [|] HTTP-RETRY-AFTER 9", 18},
        {get(silent.url(), 2),
         start + "GET [|] CURL-TIMEOUT true [|] CURL-ERROR .*timed out.* [|] HTTP-RESP-DATA-SIZE 0", 28},
    };
    for (const auto& test : cases) {
        EXPECT_THAT(perform(test.request), testing::MatchesRegex(test.result));
        EXPECT_EQ(log.contains("[worker] curl error " + std::to_string(test.curl_error) + ": ["), test.curl_error != 0);
        EXPECT_TRUE(log.contains("[worker] inet time report: name "));
        EXPECT_FALSE(log.contains("perform failed"));
    }
}

TEST_F(CurlPerformerTest, PostsSendTheirHeaders) {
    const std::string long_type(300, 't');
    const Card plain = post(server.url("/echo"), "four");
    const struct {
        Card request;
        std::string type;
    } cases[] = {
        {plain, "application/x-www-form-urlencoded"},
        {Card(plain).string("CONTENT-TYPE", "text/x").string("PROTOCOL-VERSION", ""), "text/x"},
        {Card(plain).string("CONTENT-TYPE", long_type), long_type.substr(0, 255 - sizeof("Content-Type:"))},
    };
    for (const auto& test : cases) {
        push(messageOf(test.request));
        push(messageOf(get(server.url("/hello"))));  // what a POST set does not stay with the handle
        run();
        EXPECT_EQ(log.count("[worker] post header [Content-length: 4]"), 1U);
        const auto seen = server.requests();
        EXPECT_EQ(seen.at(seen.size() - 2).header("content-type"), test.type);
        EXPECT_EQ(seen.at(seen.size() - 2).header("protocol-version"), "");
        EXPECT_EQ(seen.back().method + seen.back().header("content-type"), "GET");
    }
}

TEST_F(CurlPerformerTest, TimeInTheQueueCountsAndOneSecondIsKept) {
    const struct {
        double waited;
        int32_t timeout_sec;
        const char* line;
    } cases[] = {
        {8.7, 10, "perform: timeout changed to 1 sec"},
        {9, 10, "perform failed 27"},
        {0, 2, "perform: timeout changed to 1 sec"},
        {0.999, 60, "perform: timeout changed to 59 sec"},
        {1, 60, "perform: timeout changed to 58 sec"},
        {-5, 60, "perform: timeout changed to 64 sec"},
        // More than libcurl takes: the transfer runs all the same.
        {0, 2147485, "perform: timeout changed to 2147484 sec"},
        {0, INT_MAX, "perform: timeout changed to 2147483646 sec"},
    };
    for (const auto& test : cases) {
        BootClock clock;
        push(messageOf(get(server.url("/hello"), test.timeout_sec)));
        clock.advance(test.waited);
        run();
        EXPECT_TRUE(log.contains(std::string("[worker] ") + test.line)) << test.line;
        EXPECT_EQ(results.size(), log.contains("perform failed") ? 0U : 1U) << test.line;
    }
}

TEST_F(CurlPerformerTest, AfterKillEverythingIsDiscarded) {
    push(messageOf(get(server.url("/status/201"))));
    push(messageOf(get(server.url("/status/202"))));
    push(nullptr, WorkerCommand::kKill);
    push(messageOf(get(server.url("/hello"))));
    push(nullptr, WorkerCommand::kKill);
    run();
    EXPECT_EQ(log.count("[worker] KILL command to download thread"), 1U);
    EXPECT_EQ(log.count("[worker] download thread command queue closed"), 1U);
    EXPECT_EQ(results.size(), 2U);
    EXPECT_EQ(server.requestCount(), 2U);
    push(messageOf(get(server.url("/hello"))));  // a worker that never runs frees its commands
}

TEST_F(CurlPerformerTest, InterruptEndsTheTransferAndEveryLaterOne) {
    const RawServer silent([](RawConnection& connection) { connection.stall(); });
    push(messageOf(get(silent.url(), 3600)));
    push(messageOf(get(server.url("/hello"))));
    interrupter = std::thread([&] {
        EXPECT_TRUE(silent.waitForConnections(1));
        worker->interrupt();
    });
    run();  // an hour later otherwise
    ASSERT_EQ(results.size(), 2U);
    EXPECT_THAT(results[0].describe(), testing::HasSubstr("CURL-TIMEOUT false"));
    EXPECT_TRUE(results[1].getString("CURL-ERROR").has_value());
    EXPECT_EQ(server.requestCount(), 0U);
}

TEST(OpenSockets, NumberThatIsSomebodyElsesByNowIsLeftAlone) {
    OpenSockets sockets;
    curl_sockaddr address{};
    address.family = AF_INET;
    address.socktype = SOCK_STREAM;
    const int number = OpenSockets::open(&sockets, CURLSOCKTYPE_IPCXN, &address);
    ASSERT_EQ(close(number), 0);  // as libcurl does with one that never connected
    int others[2] = {};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, others), 0);
    ASSERT_EQ(others[0], number);
    sockets.shutDownAll();
    EXPECT_EQ(send(others[1], "x", 1, MSG_NOSIGNAL), 1);
    (void)close(others[0]);
    (void)close(others[1]);
}

}  // namespace
}  // namespace transfer_test
