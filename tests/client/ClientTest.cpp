#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <set>
#include <thread>

#include "client/ClientTest.h"

namespace inet_agent {
namespace {

using namespace std::chrono_literals;
using test_support::Type;
using testing::HasSubstr;

TEST_F(ClientTest, RequestCarriesWhatWasAsked) {
    TestClient controller(kController);
    Client client = open("me");
    EXPECT_EQ(client.name(), "me");
    Request request = post("body");
    request.contentType = "text/plain";
    request.protocolVersion = "2";
    request.timeoutSec = 7;
    request.forceNewConnection = true;
    auto reply = client.request(request);
    const auto asked = controller.receive();
    ASSERT_TRUE(asked.has_value());
    EXPECT_EQ(asked->fields(), Card()
                                   .string("TO", kController)
                                   .string("FROM", "me")
                                   .string("REQ", "POST")
                                   .int32("TX-ID", 1)
                                   .string("URL", "http://x/")
                                   .int32("TIMEOUT-SEC", 7)
                                   .boolean("FORCE_NEW_CONNECTION", true)
                                   .string("CONTENT-TYPE", "text/plain")
                                   .string("PROTOCOL-VERSION", "2")
                                   .blob("POST-DATA", "body")
                                   .fields());
    controller.send(result(*asked, "x"));
    EXPECT_EQ(reply.get().txId, 1);

    reply = client.request(get());
    const auto plain = controller.receive();
    EXPECT_THAT(plain->names(), testing::ElementsAre("TO", "FROM", "REQ", "TX-ID", "URL", "TIMEOUT-SEC"));
    EXPECT_EQ(plain->getInt32("TX-ID"), 2);
    EXPECT_EQ(plain->getInt32("TIMEOUT-SEC"), 60);
    controller.send(result(*plain, "x"));
    EXPECT_EQ(reply.get().kind, ReplyKind::result);
}

TEST_F(ClientTest, EachReplyHasItsKind) {
    using Kind = ReplyKind;
    const struct {
        const char* what;
        Card fields;
        Kind kind;
        int32_t status;
        const char* body;
        int32_t bytes;
        int32_t retryAfter;  // -1: none
        const char* text;
    } cases[] = {
        {"body", Card().blob("HTTP-RESP-DATA", "hi").int32("HTTP-RESP-CODE", 200).int32("HTTP-RESP-DATA-SIZE", 2),
         Kind::result, 200, "hi", 2, -1, ""},
        {"no body", Card().int32("HTTP-RESP-CODE", 204).int32("HTTP-RESP-DATA-SIZE", 0), Kind::result, 204, "", 0, -1,
         ""},
        {"busy server", Card().int32("HTTP-RESP-CODE", 503).int32("HTTP-RETRY-AFTER", 120), Kind::result, 503, "", 0,
         120, ""},
        {"unknown status", Card().blob("HTTP-RESP-DATA", "hi"), Kind::result, 0, "hi", 0, -1, ""},
        {"timed out", Card().boolean("CURL-TIMEOUT", true).string("CURL-ERROR", "slow").int32("HTTP-RESP-DATA-SIZE", 9),
         Kind::transferTimedOut, 0, "", 9, -1, "slow"},
        {"failed", Card().boolean("CURL-TIMEOUT", false).string("CURL-ERROR", "cut").int32("HTTP-RETRY-AFTER", 0),
         Kind::transferFailed, 0, "", 0, 0, "cut"},
        {"failed without a text", Card().boolean("CURL-TIMEOUT", false).string("CURL-ERROR", ""), Kind::transferFailed,
         0, "", 0, -1, "the transfer failed"},
        {"error reply", Card().string("CURL-ERROR", "Inet agent not ready").int32("HTTP-RESP-CODE", 0),
         Kind::errorReply, 0, "", 0, -1, "Inet agent not ready"},
    };
    TestClient controller(kController);
    Client client = open("me");
    for (const auto& test : cases) {
        auto future = client.request(get());
        const auto asked = controller.receive();
        ASSERT_TRUE(asked.has_value());
        Card answer = replyTo(*asked);
        for (const auto& field : test.fields.fields()) {
            answer.add(field.name, field.type, field.value);
        }
        controller.send(answer);
        const Reply reply = future.get();
        EXPECT_EQ(reply.kind, test.kind) << test.what;
        EXPECT_EQ(reply.httpStatus, test.status) << test.what;
        EXPECT_EQ(reply.body, test.body) << test.what;
        EXPECT_EQ(reply.bytesReceived, test.bytes) << test.what;
        EXPECT_EQ(reply.retryAfterSec.value_or(-1), test.retryAfter) << test.what;
        EXPECT_EQ(reply.text, test.text) << test.what;
        EXPECT_GT(reply.elapsed.count(), 0) << test.what;
    }
}

TEST_F(ClientTest, AbsentControllerIsToldBeforeSending) {
    Client client = open("me");
    EXPECT_EQ(client.call(get()).kind, ReplyKind::noSuchParticipant);

    const std::string path = std::string(test_support::device_files::kSocketDirectory) + "/" + kController;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    close(fd);
    const Reply stale = client.call(get());
    EXPECT_EQ(stale.kind, ReplyKind::staleSocket);
    EXPECT_EQ(stale.txId, 0);
    EXPECT_THAT(stale.text, HasSubstr(kController));
    std::filesystem::remove(path);
}

TEST_F(ClientTest, ControllerThatDoesNotReadTakesNothing) {
    TestClient controller(kController);
    Client client = open("me");
    std::atomic<int> undelivered{0};
    for (int i = 0; i < 10'000 && undelivered == 0; ++i) {
        client.request(get(), [&](const Reply& reply) { undelivered += reply.kind == ReplyKind::notDelivered; });
    }
    EXPECT_EQ(undelivered, 1);
}

TEST_F(ClientTest, DeadlinesEndInTheirOrder) {
    std::optional<TestClient> controller(kController);
    Client client = open("me");
    auto patient = client.request(get());
    const Reply none = client.call(impatient());
    EXPECT_EQ(none.kind, ReplyKind::noReplyInTime);
    EXPECT_THAT(none.text, HasSubstr("sent no reply"));
    EXPECT_EQ(patient.wait_for(0s), std::future_status::timeout);

    // The late reply finds nobody, and the next request hears its own.
    const auto first = controller->receive();
    const auto late = controller->receive();
    ASSERT_TRUE(first.has_value() && late.has_value());
    controller->send(result(*late, "late"));
    controller->send(result(*first, "mine"));
    EXPECT_EQ(patient.get().body, "mine");

    Request last = impatient();
    last.patience = 200ms;
    auto orphan = client.request(last);
    controller.reset();
    EXPECT_THAT(orphan.get().text, HasSubstr("any more"));
}

TEST_F(ClientTest, ForeignMessagesAreIgnored) {
    TestClient controller(kController);
    TestClient stranger("stranger");
    Client client = open("me");
    auto future = client.request(get());
    const auto asked = controller.receive();
    ASSERT_TRUE(asked.has_value());
    const int32_t id = *asked->getInt32("TX-ID");
    const auto forged = [&](const char* from, const char* resp, int32_t number) {
        return Card().string("FROM", from).int32("TX-ID", number).string("RESP", resp).blob("HTTP-RESP-DATA", "bad");
    };
    stranger.send("me", forged("stranger", "GET", id));
    stranger.send("me", forged(kController, "POST", id));
    stranger.send("me", forged(kController, "GET", id + 1));
    stranger.send("me", forged(kController, "GET", -1));
    stranger.send("me", Card().string("FROM", kController).add("TX-ID", Type::Int64, std::string(8, '\1')));
    stranger.send("me", Card().string("FROM", kController).string("REQ", "GET").int32("TX-ID", id));
    stranger.send("me", Card().string("FROM", "LOCATION-MQ").string("INFO", "REGISTER-EVENT").int32("TX-ID", id));
    stranger.send("me", result(*asked, "cut").encode().substr(0, 60));
    stranger.send("me", std::string("\xff\xff\xff\xff", 4));
    stranger.send("me", std::string());
    controller.send(result(*asked, "good"));
    controller.send(result(*asked, "twice"));
    EXPECT_EQ(future.get().body, "good");
}

TEST_F(ClientTest, LargeBodiesTravelBothWays) {
    TestClient controller(kController);
    Client client = open("me");
    for (const size_t size : {size_t{60'000}, size_t{70'000}, size_t{5'000'000}}) {
        std::string body(size, 'p');
        body[size / 2] = '\0';
        auto future = client.request(post(body));
        const auto asked = controller.receive();
        ASSERT_TRUE(asked.has_value());
        EXPECT_TRUE(asked->getBlob("POST-DATA") == body) << size;
        controller.send(result(*asked, body));
        EXPECT_TRUE(future.get().body == body) << size;
    }
}

TEST_F(ClientTest, FiftyInFlightFromFourThreads) {
    constexpr int kThreads = 4;
    constexpr int kRequests = 50;
    TestClient controller(kController);
    Client client = open("me");
    std::atomic<int> next{0};
    std::atomic<int> called{0};
    std::atomic<int> wrong{0};
    const auto check = [&wrong](int number, const Reply& reply) {
        wrong += reply.body != "body of " + std::to_string(number);
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            std::vector<std::pair<int, std::future<Reply>>> futures;
            for (int number = next++; number < kRequests; number = next++) {
                const Request request = get(std::to_string(number));
                if (number % 3 == 0 && number + kThreads < kRequests) {
                    futures.emplace_back(number, client.request(request));
                } else if (number + kThreads < kRequests) {
                    client.request(request, [&, number](const Reply& reply) {
                        check(number, reply);
                        ++called;
                    });
                } else {
                    check(number, client.call(request));  // the last ones, so that all are in flight together
                }
            }
            for (auto& [number, future] : futures) {
                check(number, future.get());
            }
        });
    }
    std::vector<Card> asked;
    while (asked.size() < kRequests) {
        auto request = controller.receive();
        ASSERT_TRUE(request.has_value());
        asked.push_back(std::move(*request));
    }
    std::set<int32_t> ids;
    for (auto request = asked.rbegin(); request != asked.rend(); ++request) {
        ids.insert(*request->getInt32("TX-ID"));
        controller.send(result(*request, "body of " + *request->getString("URL")));
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(ids.size(), size_t{kRequests});
    Client(std::move(client));  // its callbacks have returned then
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(called, 30);
}

}  // namespace
}  // namespace inet_agent
