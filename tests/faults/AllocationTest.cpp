#include <android/log.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "faults/Fault.h"
#include "inet/InetTest.h"
#include "support/CertificateAuthority.h"
#include "transfer/TransferSettings.h"

/// Memory runs out once, at each place of a request's road in turn.
namespace fault_test {
namespace {

using namespace zv_loc_fw;
using inet_test::TestController;
using test_support::Card;
using test_support::HttpServer;

constexpr int32_t kNext = 1000;
constexpr int32_t kLast = 2000;

/// The places that tell of a failure, as one; those below, which they stand for, are left out.
std::string errors(const test_support::LogCapture& log) {
    std::string result;
    for (const test_support::LogLine& line : log.lines()) {
        const bool below = line.text.starts_with("[MemoryStream]") || line.text.starts_with("[InPostcard]") ||
                           line.text.starts_with("[OutPostcard]");
        if (line.priority >= ANDROID_LOG_ERROR && !below) {
            result += (result.empty() ? "" : ", ") + line.text.substr(line.text.find_first_of("] ") + 2);
        }
    }
    return result;
}

class AllocationTest : public inet_test::InetTest {
protected:
    AllocationTest() {
        prepareCurl();
        test_support::device_files::writeCaFile(mAuthority.pem());
        EXPECT_EQ(mController.init(), 0);
        EXPECT_EQ(mController.launch(), 0);
        serve();
    }
    ~AllocationTest() override {
        mController.kill();
        mController.join();
        transferSettings() = {};
    }

    Card get(const std::string& url, int32_t tx_id) { return client.get("agent", url, tx_id); }
    void serve() {
        EXPECT_EQ(client.send(get(server.url("/hello"), kNext)), 0);
        EXPECT_EQ(client.receive().value_or(Card()).getInt32("HTTP-RESP-CODE"), 200);
    }
    /// Waits until the loop has taken what was sent before.
    void sync() {
        const size_t before = log.count("Recived update from OS-AGENT");
        EXPECT_EQ(client.send("agent", Card().string("FROM", "client").string("INFO", "OS-STATUS-UPDATE")), 0);
        EXPECT_TRUE(log.waitFor("Recived update from OS-AGENT", before + 1));
    }

    /// The request with its nth allocation failing, and another behind it that must be served whatever becomes of the
    /// first, if only after its controller was told of the result that it waits for in vain.
    /// @return what it left: lines of errors, and how its client heard; nothing when nothing failed
    std::optional<std::string> failOnce(Point point, int n, const Card& request) {
        sync();  // the request before has said all it had to
        log.clear();
        const Fault fault(point, {.nth = n, .on = On::AgentThreads});
        EXPECT_EQ(client.send(request), 0);
        std::vector<Card> replies;
        const auto receive = [&](int milliseconds) {
            if (const auto card = client.receive(std::chrono::milliseconds(milliseconds))) {
                replies.push_back(*card);
            }
        };
        const auto heard = [&](int32_t tx_id) {
            return std::count_if(replies.begin(), replies.end(),
                                 [&](const Card& card) { return card.getInt32("TX-ID") == tx_id; });
        };
        while (!Fault::fired() && replies.empty()) {
            receive(5);
        }
        if (!Fault::fired()) {
            return {};
        }
        EXPECT_EQ(client.send(get(server.url("/hello"), kNext)), 0);
        sync();
        const auto wedges = [&] {
            return !transferSettings().replyToRejected &&
                   (log.contains("-worker] perform failed") || log.contains("setActiveJob failed 32"));
        };
        while (heard(kNext) == 0 && !wedges()) {
            receive(5);
        }
        if (wedges()) {
            EXPECT_EQ(mController.state(), InetControllerBase::kActive);
            clock.advance(61);
            EXPECT_EQ(client.send(get(server.url("/hello"), kLast)), 0);
            sync();
            sync();  // a turn on, the timers have fired
            while (heard(kNext) == 0 || heard(1) == 0) {
                receive(30000);
            }
            EXPECT_EQ(mController.state(), InetControllerBase::kActiveTimedOut);
            EXPECT_EQ(client.send("agent", Card().string("FROM", "agent").string("REQ", "HTTP-RESULT")), 0);
            while (heard(kLast) == 0) {
                receive(30000);
            }
        }
        EXPECT_EQ(heard(kNext), 1);
        EXPECT_LE(heard(1), 1);
        std::string outcome = errors(log);
        for (const Card& card : replies) {
            const std::string error = card.getString("CURL-ERROR").value_or("served");
            if (card.getInt32("TX-ID") == kNext) {
                EXPECT_EQ(error, wedges() ? "queued job timed out before execution" : "served") << outcome;
            } else if (card.getInt32("TX-ID") == 1) {
                const bool rejected = error == "active job timed out" || error.starts_with("request rejected ");
                EXPECT_TRUE(!rejected || wedges() || outcome.find("failed " + error.substr(17)) != std::string::npos)
                    << outcome << error;
                outcome += rejected ? " -> rejected" : error == "served" ? " -> served" : " -> failed";
            }
        }
        return outcome;
    }

    /// Every place in turn. @return the outcomes in their order, neighbours that are equal as one
    std::vector<std::string> sweep(Point point, const Card& request) {
        std::vector<std::string> outcomes;
        for (int n = 1; !HasFailure(); ++n) {
            const auto outcome = failOnce(point, n, request);
            if (!outcome.has_value()) {
                mAllocations = n - 1;
                break;
            }
            if (outcomes.empty() || outcomes.back() != *outcome) {
                outcomes.push_back(*outcome);
            }
        }
        return outcomes;
    }

    test_support::CertificateAuthority mAuthority;
    HttpServer mHttps{HttpServer::Tls{mAuthority.issueServer()}};
    int mAllocations = 0;

private:
    TestController mController;
};

TEST_F(AllocationTest, ARequestsMemoryFailsOnceAtEachPlace) {
    const std::vector<std::string> reception = {
        "onReceive failed 1",
        "onReceive failed 2",
        "onReceive failed 3",
        "newMsg error 3",
        "",  // no wrapper: dropped without a line
    };
    const std::string not_started = ", reevaluateJobQueue failed 3, _process failed 31";
    std::vector<std::string> post = reception;
    for (const char* code : {"5", "20", "30"}) {
        post.push_back("setActiveJob failed " + (code + not_started));
    }
    post.push_back("setActiveJob failed 32" + not_started + " -> rejected");
    for (const char* code : {"11", "50", "71"}) {
        post.push_back(std::string("perform failed ") + code + " -> rejected");
    }
    const std::string grows = " -> served";  // without the room that it wanted to have at once
    post.push_back(grows);
    for (const char* code : {"3", "4", "", "10", "11"}) {
        post.push_back(
            *code == '\0' ? grows : std::string("notifyHttpResult failed ") + code + ", perform failed 91 -> rejected");
    }
    // The result is there, but its client cannot be told.
    post.insert(post.end(), {"_process failed 4", "send failed 3, sendIpcMessage failed 4, _process failed 5"});

    const std::string no_reply = ", notifyQueuedJobTimeout failed 4, insertJob: all jobs are already timedout";
    std::vector<std::string> expired = reception;
    for (const char* lines : {"sendErrorResponse failed 21", "sendErrorResponse failed 10",
                              "send failed 3, sendIpcMessage failed 4, sendErrorResponse failed 18"}) {
        expired.push_back(lines + no_reply);
    }
    // More than a datagram holds, both ways.
    const Card large = client.post("agent", server.url("/echo"), std::string(70000, 'x'), 1)
                           .string("CONTENT-TYPE", "application/x-test");
    for (const bool answered : {true, false}) {
        SCOPED_TRACE(answered);
        transferSettings().replyToRejected = answered;
        EXPECT_EQ(sweep(Point::NothrowNew, large), post);
        EXPECT_EQ(sweep(Point::NothrowNew, client.get("agent", server.url("/hello"), 1, -1)), expired);
    }
    // Rejected by the worker, as it has no URL: the answer comes, if not at the first try.
    std::vector<std::string> rejected(post.begin(), post.begin() + 9);
    for (const char* code : {"2", "3", "4", "10", "11"}) {
        rejected.push_back(std::string("perform failed 10, notifyHttpResult failed ") + code + " -> rejected");
    }
    for (auto last = post.end() - 2; last != post.end(); ++last) {
        rejected.push_back("perform failed 10, " + *last);
    }
    transferSettings().replyToRejected = true;
    EXPECT_EQ(sweep(Point::NothrowNew, client.get("agent", "", 1)), rejected);
}

TEST_F(AllocationTest, LibcurlsMemoryFailsOnceAtEachPlace) {
    for (const bool answered : {true, false}) {
        SCOPED_TRACE(answered);
        transferSettings().replyToRejected = answered;
        const Card request = client.get("agent", server.url("/hello"), 1).boolean("FORCE_NEW_CONNECTION", true);
        EXPECT_THAT(sweep(Point::CurlMemory, request),
                    testing::Each(testing::AnyOf(" -> served", " -> failed", "perform failed 29 -> rejected",
                                                 "perform failed 30 -> rejected")));
        EXPECT_GT(mAllocations, 20);
    }
}

/// A process of its own: where memory must not fail, its end is the answer.
[[noreturn]] void serveWithFailure(int n) {
    const test_support::BootClock clock;
    const HttpServer server;
    test_support::TestClient client("client");
    TestController controller;
    const bool launched = controller.init() == 0 && controller.launch() == 0;
    const Fault fault(Point::PlainNew, {.nth = n, .on = On::AgentThreads});
    const bool sent = client.send(client.get("agent", server.url("/hello"), 1)) == 0;
    while (launched && sent && !client.receive(std::chrono::milliseconds(5)).has_value()) {
    }
    std::_Exit(Fault::fired() ? 1 : 0);
}

TEST(AllocationDeathTest, WithoutMemoryForALinkOfAListTheProcessAborts) {
    int places = 0;
    bool untouched = false;
    while (!untouched && !testing::Test::HasFailure()) {
        EXPECT_EXIT(
            serveWithFailure(places + 1),
            [&](int status) {
                untouched = WIFEXITED(status) && WEXITSTATUS(status) == 0;
                places += untouched ? 0 : 1;
                return untouched || testing::KilledBySignal(SIGABRT)(status);
            },
            "");
    }
    EXPECT_GT(places, 2) << "lists keep a link or so, the rest is asked for";
}

}  // namespace
}  // namespace fault_test
