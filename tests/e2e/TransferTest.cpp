#include <atomic>
#include <thread>

#include "e2e/E2eTest.h"
#include "support/CertificateAuthority.h"
#include "support/HttpServer.h"

namespace test_support {
namespace {

class TransferTest : public E2eTest {
protected:
    TransferTest() { device_files::writeCaFile(mAuthority.pem()); }

    Card get(const std::string& url, const std::string& to = kCs) { return mClient.get(to, url, ++mTxId); }
    /// With a type of its own: the server takes no more than a little of what looks like a form.
    Card post(const std::string& url, const std::string& body, const std::string& to = kCs) {
        return mClient.post(to, url, body, ++mTxId).string("CONTENT-TYPE", "application/x-test");
    }
    void expectResult(const Card& request, int32_t status, const std::string& body) {
        expectCard(mClient.exchange(request, std::chrono::seconds(60)), result(request, status, body));
    }

    CertificateAuthority mAuthority;
    HttpServer mHttp;
    HttpServer mHttps{HttpServer::Tls{mAuthority.issueServer()}};
    RawServer mRaw{misbehaviour()};
    TestClient mClient{"client"};
    int32_t mTxId = 0;
};

TEST_F(TransferTest, BothControllersServeBothSchemesAtTheSameTime) {
    struct {
        const char* method;
        const char* path;
        int32_t status;
        const char* body;
    } const exchanges[] = {
        {"GET", "/hello", 200, "hello\n"},
        {"POST", "/echo", 200, "some data"},
        {"GET", "/status/204", 204, ""},
        {"GET", "/bytes/0", 200, ""},
        {"GET", "/status/404", 404, "status 404\n"},
        {"POST", "/status/500", 500, "status 500\n"},
        {"GET", "/redirect?to=/hello&code=301", 200, "hello\n"},
    };
    start();
    TestClient other("other-client");
    for (const HttpServer* server : {&mHttp, &mHttps}) {
        for (const auto& exchange : exchanges) {
            const auto request = [&](const TestClient& client, const char* to) {
                const std::string url = server->url(exchange.path);
                return exchange.method == std::string("GET") ? client.get(to, url, ++mTxId)
                                                             : client.post(to, url, "some data", ++mTxId);
            };
            const Card to_cs = request(mClient, kCs);
            const Card to_dl = request(other, kTdpDl);
            SCOPED_TRACE(to_cs.describe());
            ASSERT_EQ(mClient.send(to_cs), 0);
            ASSERT_EQ(other.send(to_dl), 0);
            expectCard(mClient.receive(), result(to_cs, exchange.status, exchange.body));
            expectCard(other.receive(), result(to_dl, exchange.status, exchange.body));
        }
    }
}

TEST_F(TransferTest, OptionalFieldsOfAPostReachTheServer) {
    start();
    const Card request = post(mHttp.url("/echo"), "abc").string("PROTOCOL-VERSION", "7");
    for (const bool force_new : {false, false, true}) {
        expectResult(Card(request).boolean("FORCE_NEW_CONNECTION", force_new), 200, "abc");
    }
    const std::vector<SeenRequest> seen = mHttp.requests();
    ASSERT_EQ(seen.size(), 3U);
    EXPECT_EQ(seen[0].header("content-type"), "application/x-test");
    EXPECT_EQ(seen[0].header("protocol-version"), "7");
    EXPECT_EQ(seen[0].header("content-length"), "3");
    EXPECT_EQ(seen[0].clientPort, seen[1].clientPort);
    EXPECT_NE(seen[0].clientPort, seen[2].clientPort);
}

TEST_F(TransferTest, PostStaysAPostWhateverTheRedirect) {
    start();
    for (const char* status : {"301", "302", "303", "307", "308"}) {
        SCOPED_TRACE(status);
        expectResult(post(mRaw.url("/moved/" + std::string(status)), "body"), 200, "POST body");
    }
}

TEST_F(TransferTest, FailedTransferIsAResult) {
    const CertificateAuthority stranger("Stranger");
    const HttpServer untrusted(HttpServer::Tls{stranger.issueServer()});
    const HttpServer expired(
        HttpServer::Tls{mAuthority.issueServer({"127.0.0.1"}, CertificateAuthority::Validity::Expired)});
    const HttpServer misnamed(HttpServer::Tls{mAuthority.issueServer({"elsewhere.test"})});
    const RawServer hasty([](RawConnection& connection) { connection.reset(); });  // before it knows of any request
    const RawServer busy([](RawConnection& connection) {
        (void)connection.sleep(200);  // by then the client can send no more
        connection.reset();
    });
    const auto redirect = [&](const std::string& to) { return mHttp.url("/redirect?to=" + to); };
    struct {
        std::string url;
        const char* error;
        int32_t size = 0;
    } const failures[] = {
        {refusedUrl(), "onnect"},
        {mRaw.url("/reset"), "reset by peer"},
        {mRaw.url("/cut"), "90 bytes remaining", 10},
        {mRaw.url("/moved-twice"), "Maximum (1) redirects followed"},
        {mRaw.url("/loop"), "Maximum (1) redirects followed"},
        // Longer than any label may be, so nobody is asked.
        {"http://" + std::string(64, 'n') + ".test/", "Could not resolve host"},
        {"https" + mHttp.url("/hello").substr(4), "SSL"},
        {hasty.url(), "onnect"},
        {"https" + hasty.url().substr(4), "onnect"},
        {untrusted.url("/hello"), "certificate"},
        {expired.url("/hello"), "certificate"},
        {misnamed.url("/hello"), "127.0.0.1"},
        {"file://" + std::string(device_files::kMarlowConf), "Protocol \"file\" not supported"},
        {"ftp://127.0.0.1/", "Protocol \"ftp\" not supported"},
        {redirect("file:///etc/passwd"), "Protocol \"file\" not supported"},
        {redirect("ftp://127.0.0.1/"), "Protocol \"ftp\" not supported"},
    };
    start();
    for (const char* controller : {kCs, kTdpDl}) {
        for (const auto& failure : failures) {
            SCOPED_TRACE(failure.url);
            const Card request = get(failure.url, controller);
            expectFailed(mClient.exchange(request), request, false, failure.error, failure.size);
        }
        const Card upload = mClient.post(controller, busy.url(), std::string(32 << 20, 'u'), 1);
        expectFailed(mClient.exchange(upload), upload, false, "failure");
        // None of it harms the next.
        expectResult(get(mHttps.url("/hello"), controller), 200, "hello\n");
    }
    EXPECT_EQ(untrusted.requestCount() + expired.requestCount() + misnamed.requestCount(), 0U);
}

TEST_F(TransferTest, BrokenAnswerIsAFailureOrATimeout) {
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    const std::string ten_bytes = ok + "Content-Length: 10\r\n\r\n";
    enum End { kClose, kReset, kStall, kDrip, kRepeat };
    struct {
        std::string bytes;  // the answer
        const char* error;  // the client's
        End end;            // what follows; kDrip and kRepeat send it in bytes, or over and over
        int32_t size = 0;
    } const answers[] = {
        {"", "Empty reply", kClose},
        {"garbage\r\n\r\n", "HTTP/0.9", kClose},
        {ok + "X", "reset by peer", kReset},
        {ten_bytes + "0123", "reset by peer", kReset, 4},
        {ok + "Content-Length: -1\r\n\r\n", "Content-Length", kClose},
        {ok + "Transfer-Encoding: chunked\r\n\r\nzz\r\n", "chunk", kClose},
        {ok + "X: " + std::string(1000, 'x') + "\r\n", "headers", kRepeat},
        {"", "timed out", kStall},
        {ok + "X", "timed out", kStall},
        {ten_bytes + "0123", "timed out", kStall, 4},
        {ok + "X: " + std::string(10000, 'x'), "timed out", kDrip},
    };
    std::atomic<size_t> row{0};  // the one that the server plays
    const RawServer server([&](RawConnection& connection) {
        if (connection.readRequest().empty()) {
            return;
        }
        const auto& answer = answers[row];
        if (answer.end == kDrip) {
            for (size_t i = 0; i < answer.bytes.size() && connection.sleep(20); ++i) {
                connection.sendAll(answer.bytes.substr(i, 1));
            }
            return;
        }
        connection.sendAll(answer.bytes);
        while (answer.end == kRepeat && connection.sendAll(answer.bytes.substr(ok.size()))) {
        }
        if (answer.end == kReset) {
            connection.reset();
        } else if (answer.end == kStall) {
            connection.stall();
        }
    });
    start();
    for (row = 0; row < std::size(answers); ++row) {
        SCOPED_TRACE(answers[row].bytes.substr(0, 50));
        const bool timeout = answers[row].error == std::string("timed out");
        const Card request = mClient.get(kTdpDl, server.url(), 1, timeout ? 3 : 60);
        expectFailed(mClient.exchange(request), request, timeout, answers[row].error, answers[row].size);
    }
    expectResult(get(mHttp.url("/hello"), kTdpDl), 200, "hello\n");
    // What is too long is left off, and slowness alone is no failure.
    const RawServer longer(RawServer::answer(ok + "Content-Length: 5\r\n\r\n0123456789"));
    expectResult(get(longer.url()), 200, "01234");
    const RawServer slow([&](RawConnection& connection) {
        (void)connection.readRequest();
        for (const char byte : ten_bytes + "0123456789") {
            connection.sendAll({byte});
            (void)connection.sleep(1);
        }
    });
    expectResult(get(slow.url()), 200, "0123456789");
}

TEST_F(TransferTest, BodiesAroundTheLimitOfADatagramArrive) {
    start();
    constexpr size_t kLimit = 64 * 1024;
    const std::string echo = mHttp.url("/echo");
    for (const size_t size : {kLimit - 1, kLimit, kLimit + 1}) {
        SCOPED_TRACE(size);
        // A reply of exactly that size, then a request.
        const size_t around_reply = result(get(""), 200, "x").encode().size() - 1;
        const Card wanted = get(mHttp.url("/bytes/" + std::to_string(size - around_reply)));
        expectResult(wanted, 200, alphabet(size - around_reply));
        EXPECT_EQ(result(wanted, 200, alphabet(size - around_reply)).encode().size(), size);

        const std::string body = alphabet(size - post(echo, "").encode().size());
        const Card sent = post(echo, body);
        EXPECT_EQ(sent.encode().size(), size);
        expectResult(sent, 200, body);
    }
}

TEST_F(TransferTest, LargeBodiesArriveWholeBothWays) {
    start();
    constexpr size_t kMiB = 1024 * 1024;
    for (const size_t size : {5 * kMiB + 1, (kSlowed ? 16 : 64) * kMiB}) {
        SCOPED_TRACE(size);
        const std::string body = alphabet(size);
        expectResult(get(mHttp.url("/bytes/" + std::to_string(size)), kTdpDl), 200, body);
        expectResult(post(mHttps.url("/echo"), body, kTdpDl), 200, body);
    }
}

TEST_F(TransferTest, MemoryOfLargeBodiesGoesBackWhenTheyHaveEnded) {
    if (kSlowed) {
        GTEST_SKIP() << "sanitizers and emulators have memory of their own";
    }
    constexpr size_t kMiB = 1024 * 1024;
    const RawServer cutter([](RawConnection& connection) {
        (void)connection.readRequest();
        connection.sendAll("HTTP/1.1 200 OK\r\nContent-Length: 7000000\r\n\r\n" + std::string(6 * kMiB, 'c'));
    });
    start();
    for (const char* controller : {kCs, kTdpDl}) {
        expectResult(get(mHttp.url("/hello"), controller), 200, "hello\n");
    }
    const size_t limit = agent().anonymousKiB() + 2000;
    const auto expect_given_back = [&] {
        for (int i = 0; i < 500 && agent().anonymousKiB() > limit; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        EXPECT_LE(agent().anonymousKiB(), limit);
        ASSERT_TRUE(agent().running());
        // Until neither controller is about to give anything back.
        std::this_thread::sleep_for(std::chrono::milliseconds(600));
    };
    for (const size_t size : {kMiB / 5, kMiB, 3 * kMiB, 7 * kMiB, 16 * kMiB}) {
        for (const char* controller : {kCs, kTdpDl}) {
            const Card request = get(mHttp.url("/bytes/" + std::to_string(size)), controller);
            EXPECT_EQ(mClient.exchange(request).value_or(Card()).getInt32("HTTP-RESP-DATA-SIZE"), size);
        }
    }
    expect_given_back();
    // The body is the worker's until the answer comes, which is short.
    expectResult(post(mHttp.url("/slow?ms=900"), std::string(6 * kMiB, 'b')), 200, "slow\n");
    expect_given_back();
    // What came of a body that was cut off is in no message.
    const Card cut = get(cutter.url());
    expectFailed(mClient.exchange(cut), cut, false, "bytes remaining", 6 * kMiB);
    expect_given_back();
    // What does not say whom it is from goes no further than the receiver.
    const Card refused = Card().string("REQ", "START-GET").blob("POST-DATA", std::string(6 * kMiB, 'b'));
    ASSERT_EQ(mClient.send(kCs, refused.encode()), 0);
    EXPECT_TRUE(agent().waitForLine("newMsg error 4"));
    expect_given_back();
}

TEST_F(TransferTest, DeviceCertificateIsForPostsToTheServiceHost) {
    const HttpServer service(HttpServer::Tls{mAuthority.issueServer(), mAuthority.pem()});
    const std::string url = service.url("/echo", "posit.localhost");
    start();
    // Without the files the request is given up before anything is sent. They are looked for again at the next.
    ASSERT_EQ(mClient.send(mClient.post(kCs, url, "abc", 1)), 0);
    EXPECT_TRUE(agent().waitForLine("[inet-agent-cs-worker] perform failed 39"));
    EXPECT_TRUE(agent().waitForLine("Couldn't find device key file"));
    EXPECT_TRUE(agent().waitForLine("Couldn't find device cert file"));
    device_files::writeDeviceCertificate(CertificateAuthority("Stranger").issueClient("this device"));
    const Card refused = post(url, "abc", kTdpDl);
    expectFailed(mClient.exchange(refused), refused, false, "");
    device_files::writeDeviceCertificate(mAuthority.issueClient("this device"));
    expectResult(post(url, "abc", kTdpDl), 200, "abc");
    ASSERT_EQ(service.requestCount(), 1U);
    EXPECT_EQ(service.requests()[0].clientCertificate, "this device");
    // The same server under another name, or asked by another method, gets to see none and refuses.
    for (const std::string& other : {service.url("/echo"), service.url("/echo", "localhost")}) {
        const Card request = post(other, "abc", kTdpDl);
        expectFailed(mClient.exchange(request), request, false, "");
    }
    const Card request = get(service.url("/hello", "posit.localhost"), kTdpDl);
    expectFailed(mClient.exchange(request), request, false, "");
    EXPECT_EQ(service.requestCount(), 1U);
}

}  // namespace
}  // namespace test_support
