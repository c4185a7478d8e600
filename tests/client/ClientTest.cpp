#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <functional>
#include <set>
#include <thread>

#include "inet_agent_client.h"
#include "support/DeviceFiles.h"
#include "support/TestClient.h"

/// The library against a controller that the test plays.
namespace inet_agent {
namespace {

using namespace std::chrono_literals;
using test_support::Card;
using test_support::TestClient;
using test_support::Type;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kController = "inet-agent-cs";

/// What every reply to a request begins with.
Card replyTo(const Card& asked) {
    return Card()
        .string("FROM", *asked.getString("TO"))
        .string("TO", *asked.getString("FROM"))
        .int32("TX-ID", *asked.getInt32("TX-ID"))
        .string("RESP", *asked.getString("REQ"));
}

Card result(const Card& asked, const std::string& body) {
    return replyTo(asked).blob("HTTP-RESP-DATA", body).int32("HTTP-RESP-CODE", 200);
}

Request get(const std::string& url = "http://x/") {
    Request request;
    request.url = url;
    return request;
}

Request post(const std::string& body) {
    Request request = get();
    request.method = "POST";
    request.body = body;
    return request;
}

/// One that nobody answers in time.
Request impatient() {
    Request request = get();
    request.timeoutSec = 0;
    request.patience = 10ms;
    request.allowHarmful = true;
    return request;
}

Client open(const std::string& name, const Options& options = {}) {
    OpenResult opened = Client::open(name, options);
    EXPECT_TRUE(opened.client.has_value()) << opened.error;
    return std::move(*opened.client);
}

size_t entries(const char* directory) {
    return static_cast<size_t>(
        std::distance(std::filesystem::directory_iterator(directory), std::filesystem::directory_iterator()));
}

class ClientTest : public testing::Test {
protected:
    ClientTest() { test_support::device_files::reset(); }
};

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
    const struct {
        const char* what;
        std::function<Card(Card)> fill;
        ReplyKind kind;
        int32_t status;
        const char* body;
        int32_t bytes;
        int32_t retryAfter;  // -1: none
        const char* text;
    } cases[] = {
        {"body",
         [](Card c) {
             return c.blob("HTTP-RESP-DATA", "hi").int32("HTTP-RESP-CODE", 200).int32("HTTP-RESP-DATA-SIZE", 2);
         },
         ReplyKind::result, 200, "hi", 2, -1, ""},
        {"no body", [](Card c) { return c.int32("HTTP-RESP-CODE", 204).int32("HTTP-RESP-DATA-SIZE", 0); },
         ReplyKind::result, 204, "", 0, -1, ""},
        {"busy server", [](Card c) { return c.int32("HTTP-RESP-CODE", 503).int32("HTTP-RETRY-AFTER", 120); },
         ReplyKind::result, 503, "", 0, 120, ""},
        {"unknown status", [](Card c) { return c.blob("HTTP-RESP-DATA", "hi").int32("HTTP-RESP-DATA-SIZE", 2); },
         ReplyKind::result, 0, "hi", 2, -1, ""},
        {"timed out",
         [](Card c) {
             return c.boolean("CURL-TIMEOUT", true).string("CURL-ERROR", "slow").int32("HTTP-RESP-DATA-SIZE", 9);
         },
         ReplyKind::transferTimedOut, 0, "", 9, -1, "slow"},
        {"failed",
         [](Card c) {
             return c.boolean("CURL-TIMEOUT", false).string("CURL-ERROR", "cut").int32("HTTP-RETRY-AFTER", 0);
         },
         ReplyKind::transferFailed, 0, "", 0, 0, "cut"},
        {"failed without a text", [](Card c) { return c.boolean("CURL-TIMEOUT", false).string("CURL-ERROR", ""); },
         ReplyKind::transferFailed, 0, "", 0, -1, "the transfer failed"},
        {"error reply",
         [](Card c) { return c.string("CURL-ERROR", "Inet agent not ready").int32("HTTP-RESP-CODE", 0); },
         ReplyKind::errorReply, 0, "", 0, -1, "Inet agent not ready"},
    };
    TestClient controller(kController);
    Client client = open("me");
    for (const auto& test : cases) {
        auto future = client.request(get());
        const auto asked = controller.receive();
        ASSERT_TRUE(asked.has_value());
        controller.send(test.fill(replyTo(*asked)));
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

TEST_F(ClientTest, GuardRailsHold) {
    enum Override { kNever, kAllowed };
    const struct {
        const char* what;
        std::function<void(Request&)> change;
        Override override;
        const char* text;
    } cases[] = {
        {"method", [](Request& r) { r.method = "PUT"; }, kAllowed, "neither GET nor POST"},
        {"empty method", [](Request& r) { r.method = ""; }, kAllowed, "neither GET nor POST"},
        {"empty URL", [](Request& r) { r.url = ""; }, kAllowed, "URL is empty"},
        {"long URL", [](Request& r) { r.url.assign(8'000'001, 'u'); }, kAllowed, "8000000"},
        {"POST without a body", [](Request& r) { r.method = "POST"; }, kAllowed, "needs a body"},
        {"time-out", [](Request& r) { r.timeoutSec = 2; }, kAllowed, "below 3 s"},
        {"negative time-out", [](Request& r) { r.timeoutSec = INT32_MIN; }, kAllowed, "below 3 s"},
        {"no controller", [](Request& r) { r.controller = ""; }, kNever, "no name"},
        {"the hub", [](Request& r) { r.controller = "SERVER"; }, kNever, "no name"},
        {"controller's path", [](Request& r) { r.controller = "../x"; }, kNever, "no name"},
        {"itself", [](Request& r) { r.controller = "me"; }, kNever, "own"},
        {"GET with a body", [](Request& r) { r.body = "b"; }, kNever, "no body with a GET"},
        {"zero", [](Request& r) { r.url += std::string("\0x", 2); }, kNever, "zero"},
        {"line break", [](Request& r) { r.contentType = "a\r\nX: b"; }, kNever, "line break"},
        {"long type", [](Request& r) { r.contentType = std::string(242, 't'); }, kNever, "241"},
        {"long version", [](Request& r) { r.protocolVersion = std::string(238, 't'); }, kNever, "237"},
    };
    TestClient controller(kController);
    Client client = open("me");
    for (const auto& test : cases) {
        Request request = get();
        test.change(request);
        const Reply reply = client.call(request);
        EXPECT_EQ(reply.kind, ReplyKind::refused) << test.what;
        EXPECT_THAT(reply.text, HasSubstr(test.text)) << test.what;
        request.allowHarmful = true;
        auto future = client.request(request);
        if (test.override == kNever) {
            EXPECT_EQ(future.get().kind, ReplyKind::refused) << test.what;
        } else {
            const auto asked = controller.receive();
            ASSERT_TRUE(asked.has_value()) << test.what;
            EXPECT_EQ(asked->getInt32("TIMEOUT-SEC"), request.timeoutSec);
        }
    }
    Request huge = post(std::string(256 * 1024 * 1024 - 64 * 1024 + 1, 'b'));
    huge.allowHarmful = true;
    EXPECT_EQ(client.call(huge).kind, ReplyKind::refused);
    Request edges = post("b");
    edges.contentType = std::string(241, 't');
    edges.protocolVersion = std::string(237, 't');
    edges.timeoutSec = 3;
    auto future = client.request(edges);
    ASSERT_TRUE(controller.receive().has_value());
}

TEST_F(ClientTest, LiveNamesAreLeftAloneUnlessTold) {
    TestClient controller(kController);
    std::optional<Client> first = open("me");
    OpenResult second = Client::open("me");
    EXPECT_FALSE(second.client.has_value());
    EXPECT_THAT(second.error, HasSubstr("taken"));
    EXPECT_FALSE(Client::open("you", {{"me"}, false}).client.has_value());
    EXPECT_FALSE(Client::open("a/b").client.has_value());

    Client thief = open("me", {{"also-me"}, true});
    first.reset();
    auto future = thief.request(get());
    const auto asked = controller.receive();
    ASSERT_TRUE(asked.has_value());
    controller.send("also-me", result(*asked, "to the alias"));
    EXPECT_EQ(future.get().body, "to the alias");
}

TEST_F(ClientTest, RequestsSurviveAMove) {
    TestClient controller(kController);
    Client first = open("one");
    auto kept = first.request(get());
    Client second = std::move(first);
    first = open("two");
    auto lost = first.request(get());
    first = std::move(second);
    EXPECT_EQ(lost.get().kind, ReplyKind::closed);
    EXPECT_EQ(first.name(), "one");
    const auto asked = controller.receive();
    ASSERT_TRUE(asked.has_value());
    controller.send(result(*asked, "kept"));
    EXPECT_EQ(kept.get().body, "kept");
}

TEST_F(ClientTest, CallbacksMayAskAgainButNotWait) {
    TestClient controller(kController);
    Client client = open("me");
    std::promise<std::future<Reply>> promised;
    ReplyKind nested = ReplyKind::result;
    client.request(get(), [&](const Reply&) {
        nested = client.call(get()).kind;
        promised.set_value(client.request(get()));
    });
    controller.send(result(*controller.receive(), "first"));
    auto future = promised.get_future().get();
    controller.send(result(*controller.receive(), "second"));
    EXPECT_EQ(future.get().body, "second");
    EXPECT_EQ(nested, ReplyKind::refused);
    client.request(get(), nullptr);
    controller.send(result(*controller.receive(), "for nobody"));
    client.request(impatient(), Client::Callback());
    EXPECT_EQ(client.call(impatient()).kind, ReplyKind::noReplyInTime);
}

TEST_F(ClientTest, EndLeavesNothingBehind) {
    TestClient controller(kController);
    const auto counts = [] {
        return std::array{entries("/proc/self/fd"), entries("/proc/self/task"),
                          entries(test_support::device_files::kSocketDirectory)};
    };
    const auto before = counts();
    int closed = 0;
    for (int i = 0; i < 3; ++i) {
        std::vector<std::future<Reply>> futures;
        {
            Client client = open("me", {{"mine", "mine-too"}, false});
            EXPECT_NE(counts(), before);
            for (int j = 0; j < 3; ++j) {
                futures.push_back(client.request(get()));
                client.request(get(), [&](const Reply& reply) {
                    closed += reply.kind == ReplyKind::closed;
                    client.request(get(), [&](const Reply& again) { closed += again.kind == ReplyKind::closed; });
                });
            }
            futures.push_back(client.request(post(std::string(100'000, 'x'))));
        }
        for (auto& future : futures) {
            const Reply reply = future.get();
            EXPECT_EQ(reply.kind, ReplyKind::closed);
            EXPECT_THAT(reply.text, Not(IsEmpty()));
        }
        while (controller.receive(100ms).has_value()) {
        }
        EXPECT_EQ(counts(), before);
    }
    EXPECT_EQ(closed, 18);
}

}  // namespace
}  // namespace inet_agent
