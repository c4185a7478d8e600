#include "transfer/CurlPerformer.h"

#include <curl/curl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <cstdio>
#include <string>

#include "support/BootClock.h"
#include "support/HttpServer.h"
#include "support/RawServer.h"
#include "transfer/WorkerTest.h"

namespace {

std::atomic<bool> noHandles{false};
std::atomic<bool> noLists{false};

}  // namespace

extern "C" {

CURL* __real_curl_easy_init();
curl_slist* __real_curl_slist_append(curl_slist* list, const char* line);

CURL* __wrap_curl_easy_init() {
    return noHandles ? nullptr : __real_curl_easy_init();
}
curl_slist* __wrap_curl_slist_append(curl_slist* list, const char* line) {
    return noLists ? nullptr : __real_curl_slist_append(list, line);
}

}  // extern "C"

namespace transfer_test {
namespace {

using namespace zv_loc_fw;
using test_support::BootClock;
using test_support::HttpServer;
using test_support::RawConnection;
using test_support::RawServer;
using test_support::Type;

/// The card's bytes with the terminating zero of a text in it overwritten.
std::string unterminated(const Card& card, const std::string& text) {
    std::string bytes = card.encode();
    bytes.at(bytes.find(text + '\0') + text.size()) = '!';
    return bytes;
}

/// A request that arrived some time before now, on a stopped clock.
std::unique_ptr<MqMsgWrapper> arrivedBefore(double seconds, const Card& card, BootClock& clock) {
    std::unique_ptr<MqMsgWrapper> message = messageOf(card);
    clock.advance(seconds);
    return message;
}

class CurlPerformerTest : public WorkerTest {
protected:
    HttpServer server;
};

TEST_F(CurlPerformerTest, RejectedRequestsLeaveACodeAndNoResult) {
    const std::string url = server.url("/hello");
    const std::string service_url = std::string(SERVICE_HOST_PREFIX) + ".localhost/";
    const Card a_post = post(url, "body");
    const Card no_timeout = without(get(url), "TIMEOUT-SEC");
    const struct {
        const char* what;
        std::string bytes;
        int code;
        bool unknown = false;
    } cases[] = {
        {"no FROM", without(get(url), "FROM").encode(), 5},
        {"no TO", without(get(url), "TO").encode(), 6},
        {"no REQ", without(get(url), "REQ").encode(), 7},
        {"no TX-ID", without(get(url), "TX-ID").encode(), 8},
        {"TX-ID as text", without(get(url), "TX-ID").string("TX-ID", "7").encode(), 8},
        {"another REQ", without(get(url), "REQ").string("REQ", "PUT").encode(), 6, true},
        {"REQ in small letters", without(get(url), "REQ").string("REQ", "get").encode(), 6, true},
        {"no URL", without(get(url), "URL").encode(), 9},
        {"URL without an end", unterminated(get(url), url), 9},
        {"empty URL", get("").encode(), 10},
        {"no TIMEOUT-SEC", no_timeout.encode(), 27},
        {"one second", get(url, 1).encode(), 27},
        {"no time at all", get(url, INT_MIN).encode(), 27},
        {"nothing readable where TIMEOUT-SEC may be", Card(no_timeout).blob("X", "").encode(), 26},
        {"a URL of eight million characters", get(url + std::string(8000000, 'x')).encode(), 29},
        {"nothing readable where FORCE_NEW_CONNECTION may be", post(url, "").encode(), 31},
        {"service host without device files", post(service_url, "body").encode(), 39},
        {"POST without POST-DATA", without(a_post, "POST-DATA").encode(), 50},
        {"POST-DATA as text", without(a_post, "POST-DATA").string("POST-DATA", "body").encode(), 50},
        {"empty POST-DATA",
         without(a_post, "POST-DATA").boolean("FORCE_NEW_CONNECTION", false).blob("POST-DATA", "").encode(), 52},
        {"CONTENT-TYPE without an end", unterminated(Card(a_post).string("CONTENT-TYPE", "a/b"), "a/b"), 56},
        {"PROTOCOL-VERSION without an end", unterminated(Card(a_post).string("PROTOCOL-VERSION", "3.1"), "3.1"), 60},
    };
    start();
    for (const auto& test : cases) {
        SCOPED_TRACE(test.what);
        log.clear();
        const BootClock clock;  // INT_MIN less one second would overflow
        push(messageOf(test.bytes, Timestamp()));
        ASSERT_TRUE(log.waitFor("perform failed"));
        EXPECT_THAT(log.texts(), testing::Contains("[agent-worker] perform failed " + std::to_string(test.code)));
        EXPECT_EQ(log.contains("[agent-worker] ignoring unknown request "), test.unknown);
        EXPECT_EQ(log.contains("[agent-worker] perform: already timed out"), test.code == 27);
    }
    log.clear();
    push(nullptr);
    EXPECT_TRUE(log.waitFor("perform failed 3"));
    push(std::make_unique<MqMsgWrapper>(nullptr));
    EXPECT_TRUE(log.waitFor("perform failed 4"));
    noLists = true;
    push(messageOf(a_post));
    EXPECT_TRUE(log.waitFor("perform failed 57"));
    noLists = false;
    EXPECT_EQ(server.requestCount(), 0U);

    EXPECT_EQ(perform(get(url)).getInt32("HTTP-RESP-CODE"), 200) << "the worker goes on, and this is its first result";
    EXPECT_EQ(log.count("perform failed"), 3U);
}

TEST_F(CurlPerformerTest, WithoutAHandleEveryJobFails) {
    noHandles = true;
    CurlPerformer broken("broken", &collector);
    noHandles = false;
    EXPECT_TRUE(log.contains("[broken] constructor failed 3"));
    ASSERT_EQ(broken.commandQueue()->push(new WorkerCommand{WorkerCommand::kPerform, messageOf(get("http://x"))}), 0);
    (void)broken.commandQueue()->close();
    EXPECT_EQ(broken.run(), 0);
    EXPECT_TRUE(log.contains("[broken] perform failed 2"));
}

TEST_F(CurlPerformerTest, AResultThatNobodyTakesIsAFailure) {
    Collector closed;  // not initialised: has no queue
    CurlPerformer lonely("lonely", &closed);
    ASSERT_EQ(
        lonely.commandQueue()->push(new WorkerCommand{WorkerCommand::kPerform, messageOf(get(server.url("/hello")))}),
        0);
    (void)lonely.commandQueue()->close();
    EXPECT_EQ(lonely.run(), 0);
    EXPECT_TRUE(log.contains("[agent] notifyHttpResult failed 12"));
    EXPECT_TRUE(log.contains("[lonely] perform failed 91"));
    EXPECT_FALSE(log.contains("inet time report"));
}

TEST_F(CurlPerformerTest, TimeInTheQueueCountsAndOneSecondIsKept) {
    const struct {
        double waited;
        int32_t timeout_sec;
        const char* line;
        bool performed;
    } cases[] = {
        {8.7, 10, "[agent-worker] perform: timeout changed to 1 sec", true},
        {9, 10, "[agent-worker] perform failed 27", false},
        {0, 2, "[agent-worker] perform: timeout changed to 1 sec", true},
        {0.999, 60, "[agent-worker] perform: timeout changed to 59 sec", true},
        {1, 60, "[agent-worker] perform: timeout changed to 58 sec", true},
        {-5, 60, "[agent-worker] perform: timeout changed to 64 sec", true},
        // More than libcurl takes: the transfer runs all the same.
        {0, 2147485, "[agent-worker] perform: timeout changed to 2147484 sec", true},
        {0, INT_MAX, "[agent-worker] perform: timeout changed to 2147483646 sec", true},
    };
    start();
    for (const auto& test : cases) {
        SCOPED_TRACE(test.line);
        log.clear();
        BootClock clock;
        push(arrivedBefore(test.waited, get(server.url("/hello"), test.timeout_sec), clock));
        EXPECT_TRUE(log.waitFor(test.line));
        if (test.performed) {
            EXPECT_TRUE(nextResult().has("HTTP-RESP-DATA-SIZE"));
        }
    }
}

TEST_F(CurlPerformerTest, NoTimeOverflowsAndEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            BootClock clock;
            push(arrivedBefore(1, get("http://127.0.0.1/", INT_MIN), clock));
            worker.run();
        },
        testing::KilledBySignal(SIGABRT), "");
}

TEST_F(CurlPerformerTest, AfterKillEverythingIsDiscarded) {
    start();
    EXPECT_TRUE(log.waitFor("[agent-worker] entering event loop"));
    push(WorkerCommand::kKill, nullptr);
    push(messageOf(get(server.url("/hello"))));
    push(WorkerCommand::kKill, nullptr);
    push(messageOf(get(server.url("/hello"))));
    closeAndJoin();
    EXPECT_EQ(log.count("[agent-worker] KILL command to download thread"), 1U);
    EXPECT_EQ(log.count("[agent-worker] download thread command queue closed"), 1U);
    EXPECT_EQ(server.requestCount(), 0U);
    EXPECT_FALSE(log.contains("perform failed"));
}

TEST_F(CurlPerformerTest, WhatIsQueuedBeforeTheCloseIsPerformed) {
    push(messageOf(get(server.url("/status/201"))));
    push(messageOf(get(server.url("/status/202"))));
    (void)worker.commandQueue()->close();
    EXPECT_EQ(worker.run(), 0);
    EXPECT_EQ(nextResult().getInt32("HTTP-RESP-CODE"), 201);
    EXPECT_EQ(nextResult().getInt32("HTTP-RESP-CODE"), 202);
    EXPECT_EQ(log.count("[agent-worker] inet time report: name "), 2U);
}

TEST_F(CurlPerformerTest, AWorkerThatNeverRanFreesItsCommands) {
    push(messageOf(get(server.url("/hello"))));
    push(WorkerCommand::kKill, nullptr);
}

TEST_F(CurlPerformerTest, InterruptEndsTheTransferAndEveryLaterOne) {
    const RawServer silent([](RawConnection& connection) { connection.stall(); });
    start();
    push(messageOf(get(silent.url(), 3600)));
    ASSERT_TRUE(silent.waitForConnections(1));
    worker.interrupt();
    Card result = nextResult();  // an hour later otherwise
    EXPECT_EQ(result.getBool("CURL-TIMEOUT"), false) << testing::PrintToString(result);
    result = perform(get(server.url("/hello")));
    EXPECT_TRUE(result.has("CURL-ERROR")) << testing::PrintToString(result);
    EXPECT_EQ(server.requestCount(), 0U);
}

TEST(OpenSockets, ShuttingDownWakesReadersAndRefusesNewSockets) {
    const RawServer silent([](RawConnection& connection) { connection.stall(); });
    OpenSockets sockets;
    curl_sockaddr where{};
    where.family = AF_INET;
    where.socktype = SOCK_STREAM;
    const curl_socket_t socket = OpenSockets::open(&sockets, CURLSOCKTYPE_IPCXN, &where);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(silent.port()));
    ASSERT_EQ(connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    sockets.shutDownAll();
    char byte = 0;
    EXPECT_EQ(recv(socket, &byte, 1, 0), 0) << "for ever otherwise";
    EXPECT_EQ(OpenSockets::close(&sockets, socket), 0);
    EXPECT_EQ(OpenSockets::open(&sockets, CURLSOCKTYPE_IPCXN, &where), CURL_SOCKET_BAD);
}

TEST_F(CurlPerformerTest, TheTraceIsWrittenWhenItIsSwitchedOn) {
    const struct {
        bool verbose;
        bool open;
    } cases[] = {{true, true}, {false, true}, {true, false}};
    for (const auto& test : cases) {
        std::FILE* file = std::tmpfile();
        ASSERT_NE(file, nullptr);
        transferSettings() = {.verbose = test.verbose, .verboseFile = test.open ? file : nullptr};
        log.clear();
        // Another worker for each case, since settings do not change while one runs.
        CurlPerformer traced("traced", &collector);
        ASSERT_EQ(traced.commandQueue()->push(
                      new WorkerCommand{WorkerCommand::kPerform, messageOf(get(server.url("/hello?traced")))}),
                  0);
        (void)traced.commandQueue()->close();
        EXPECT_EQ(traced.run(), 0);
        EXPECT_EQ(nextResult().getInt32("HTTP-RESP-CODE"), 200);
        char text[4096] = "";
        // Without a flush of the stream itself: the worker has done that.
        const ssize_t size = pread(fileno(file), text, sizeof(text) - 1, 0);
        const bool written =
            std::string(text, size > 0 ? static_cast<size_t>(size) : 0).find("GET /hello?traced") != std::string::npos;
        EXPECT_EQ(written, test.verbose && test.open);
        EXPECT_EQ(log.count("[traced] setting CURLOPT_VERBOSE"), written ? 1U : 0U);
        (void)std::fclose(file);
    }
}

}  // namespace
}  // namespace transfer_test
