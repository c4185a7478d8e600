// What the library refuses, and the life of a client: names, moves, callbacks, the end.

#include <gmock/gmock.h>

#include <array>
#include <climits>
#include <filesystem>
#include <functional>
#include <optional>
#include <thread>

#include "client/ClientTest.h"

namespace inet_agent {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

size_t entries(const char* directory) {
    return static_cast<size_t>(
        std::distance(std::filesystem::directory_iterator(directory), std::filesystem::directory_iterator()));
}

using ClientLifeTest = ClientTest;

TEST_F(ClientLifeTest, GuardRailsHold) {
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

TEST_F(ClientLifeTest, LiveNamesAreLeftAloneUnlessTold) {
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

TEST_F(ClientLifeTest, RequestsSurviveAMove) {
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

TEST_F(ClientLifeTest, CallbacksMayAskAgainButNotWait) {
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

TEST_F(ClientLifeTest, EndLeavesNothingBehind) {
    TestClient controller(kController);
    const auto counts = [] {
        return std::array{entries("/proc/self/fd"), entries("/proc/self/task"),
                          entries(test_support::device_files::kSocketDirectory)};
    };
    std::thread([] {}).join();  // a sanitizer's own thread comes with the first one
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
        // A joined thread can still be listed for a moment.
        for (int wait = 0; wait < 3000 && counts() != before; ++wait) {
            std::this_thread::sleep_for(10ms);
        }
        EXPECT_EQ(counts(), before);
    }
    EXPECT_EQ(closed, 18);
}

}  // namespace
}  // namespace inet_agent
