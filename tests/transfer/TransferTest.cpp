#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/CertificateAuthority.h"
#include "support/HttpServer.h"
#include "support/RawServer.h"
#include "support/files.h"
#include "transfer/WorkerTest.h"

/// The worker against servers: what a client gets, and what a server sees.
namespace transfer_test {
namespace {

using namespace zv_loc_fw;
using test_support::CertificateAuthority;
using test_support::HttpServer;
using test_support::RawConnection;
using test_support::RawServer;
using test_support::SeenRequest;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace device_files = test_support::device_files;

/// The service host, under a name that stands for this machine.
std::string serviceHost() {
    return std::string(SERVICE_HOST_PREFIX).substr(std::string("https://").size()) + ".localhost";
}

class TransferTest : public WorkerTest {
protected:
    HttpServer server;
};

/// Over http, and over https with an authority that the device trusts.
class BothSchemesTest : public WorkerTest, public testing::WithParamInterface<bool> {
protected:
    BothSchemesTest() { device_files::writeCaFile(authority.pem()); }

    CertificateAuthority authority;
    HttpServer server{GetParam() ? HttpServer(HttpServer::Tls{authority.issueServer()}) : HttpServer()};
};

INSTANTIATE_TEST_SUITE_P(Schemes, BothSchemesTest, testing::Bool(),
                         [](const auto& suite) { return suite.param ? "Https" : "Http"; });

TEST_P(BothSchemesTest, ResultsHaveTheirFieldsInOrder) {
    const struct {
        Card request;
        const char* result;
        const char* data;
    } cases[] = {
        {get(server.url("/hello")),
         "FROM agent | TO client | TX-ID 7 | RESP GET | HTTP-RESP-DATA (6 bytes) | HTTP-RESP-CODE 200 | "
         "HTTP-RESP-DATA-SIZE 6",
         "hello\n"},
        {post(server.url("/echo"), "body"),
         "FROM agent | TO client | TX-ID 7 | RESP POST | HTTP-RESP-DATA (4 bytes) | HTTP-RESP-CODE 200 | "
         "HTTP-RESP-DATA-SIZE 4",
         "body"},
        {get(server.url("/status/204")),
         "FROM agent | TO client | TX-ID 7 | RESP GET | HTTP-RESP-CODE 204 | HTTP-RESP-DATA-SIZE 0", nullptr},
        {post(server.url("/status/404"), "body"),
         "FROM agent | TO client | TX-ID 7 | RESP POST | HTTP-RESP-DATA (11 bytes) | HTTP-RESP-CODE 404 | "
         "HTTP-RESP-DATA-SIZE 11",
         "status 404\n"},
        {get(server.url("/retry-after?value=120")),
         "FROM agent | TO client | TX-ID 7 | RESP GET | HTTP-RESP-DATA (6 bytes) | HTTP-RESP-CODE 503 | "
         "HTTP-RESP-DATA-SIZE 6 | HTTP-RETRY-AFTER 120",
         "later\n"},
        {get(server.url("/hello")),  // nothing of the one before is left
         "FROM agent | TO client | TX-ID 7 | RESP GET | HTTP-RESP-DATA (6 bytes) | HTTP-RESP-CODE 200 | "
         "HTTP-RESP-DATA-SIZE 6",
         "hello\n"},
    };
    for (const auto& test : cases) {
        const Card result = perform(test.request);
        EXPECT_EQ(result.describe(), test.result);
        EXPECT_EQ(result.getBlob("HTTP-RESP-DATA").value_or("(none)"), test.data != nullptr ? test.data : "(none)");
    }
    const Card big = perform(get(server.url("/bytes/3000000")));
    EXPECT_EQ(big.getInt32("HTTP-RESP-DATA-SIZE"), 3000000);
    EXPECT_EQ(big.getBlob("HTTP-RESP-DATA")->substr(2999990), "ghijklmnop");
    EXPECT_FALSE(log.contains("perform failed"));
}

TEST_P(BothSchemesTest, ConnectionsAreReusedUnlessANewOneIsAsked) {
    (void)perform(get(server.url("/hello")));
    (void)perform(get(server.url("/hello")));
    (void)perform(post(server.url("/echo"), "x").boolean("FORCE_NEW_CONNECTION", false));
    EXPECT_FALSE(log.contains("force new connection"));
    (void)perform(get(server.url("/hello")).boolean("FORCE_NEW_CONNECTION", true));
    EXPECT_EQ(log.count("[agent-worker] force new connection"), 1U);
    const std::vector<SeenRequest> seen = server.requests();
    ASSERT_EQ(seen.size(), 4U);
    EXPECT_EQ(seen[1].clientPort, seen[0].clientPort);
    EXPECT_EQ(seen[2].clientPort, seen[0].clientPort);
    EXPECT_NE(seen[3].clientPort, seen[0].clientPort);
}

TEST_F(TransferTest, FailedTransfersAreResults) {
    const RawServer silent([](RawConnection& connection) { connection.stall(); });
    const RawServer cut(RawServer::answer("HTTP/1.1 200 OK\r\nRetry-After: 9\r\nContent-Length: 10\r\n\r\ncut"));
    const RawServer nonsense(RawServer::answer("SMTP ready\r\n"));
    const std::string start = "FROM agent [|] TO client [|] TX-ID 7 [|] RESP GET [|] CURL-TIMEOUT ";
    device_files::writeDeviceCertificate({.certificatePem = "certificate", .keyPem = "secret"});
    const struct {
        std::string url;
        int code;
        std::string result;
    } cases[] = {
        {"http://127.0.0.1:1/", 7, start + "false [|] CURL-ERROR [^|]+ [|] HTTP-RESP-DATA-SIZE 0"},
        {"http://[", 3, start + "false [|] CURL-ERROR [^|]*[|] HTTP-RESP-DATA-SIZE 0"},
        {"file:///vendor/etc/myprivatekey.pem", 1, start + "false [|] CURL-ERROR .*not supported.*SIZE 0"},
        {"ftp://127.0.0.1:1/", 1, start + "false [|] CURL-ERROR .*not supported.*SIZE 0"},
        {nonsense.url(), 1, start + "false [|] CURL-ERROR .*HTTP-RESP-DATA-SIZE 0"},
        {cut.url(), 18, start + "false [|] CURL-ERROR .*HTTP-RESP-DATA-SIZE 3 [|] HTTP-RETRY-AFTER 9"},
        {silent.url(), 28, start + "true [|] CURL-ERROR .*timed out.* [|] HTTP-RESP-DATA-SIZE 0"},
    };
    for (const auto& test : cases) {
        log.clear();
        EXPECT_THAT(perform(get(test.url, test.code == 28 ? 2 : 60)).describe(), MatchesRegex(test.result)) << test.url;
        EXPECT_TRUE(log.contains("[agent-worker] curl error " + std::to_string(test.code) + ": [")) << test.url;
        EXPECT_TRUE(log.waitFor("[agent-worker] inet time report: name ")) << test.url;
        EXPECT_FALSE(log.contains("perform failed"));
    }
}

TEST_F(TransferTest, PostsSendTheirHeaders) {
    const std::string long_type(300, 't');
    const struct {
        Card request;
        std::string type;
        std::string version;
    } cases[] = {
        {post(server.url("/echo"), "four"), "application/x-www-form-urlencoded", ""},
        {post(server.url("/echo"), "four").string("CONTENT-TYPE", "text/x").string("PROTOCOL-VERSION", "3.1"), "text/x",
         "3.1"},
        {post(server.url("/echo"), "four").string("PROTOCOL-VERSION", ""), "application/x-www-form-urlencoded", ""},
        {post(server.url("/echo"), "four").string("CONTENT-TYPE", long_type),
         long_type.substr(0, 255 - std::string("Content-Type: ").size()), ""},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(perform(test.request).getBlob("HTTP-RESP-DATA"), "four");
        const SeenRequest seen = server.requests().back();
        EXPECT_EQ(seen.header("content-type"), test.type);
        EXPECT_EQ(seen.header("protocol-version"), test.version);
        EXPECT_EQ(seen.header("content-length"), "4");
    }
    EXPECT_EQ(log.count("[agent-worker] post header [Content-length: 4]"), 4U);
    // What a POST set does not stay with the handle.
    (void)perform(get(server.url("/hello")).string("CONTENT-TYPE", "text/x"));
    EXPECT_EQ(server.requests().back().method, "GET");
    EXPECT_EQ(server.requests().back().header("content-type"), "");
}

TEST_F(TransferTest, OneRedirectIsFollowedAndAPostStaysOne) {
    for (const char* status : {"301 Moved", "302 Found", "303 See Other", "307 Again", "308 For Good"}) {
        const RawServer elsewhere(RawServer::answer(
            RawServer::response(status, {"Location: " + server.url("/echo"), "Retry-After: 5"}, "not this body")));
        const Card result = perform(post(elsewhere.url(), "posted").string("CONTENT-TYPE", "text/x"));
        EXPECT_EQ(server.requests().back().method, "POST") << status;
        EXPECT_EQ(server.requests().back().header("content-type"), "text/x") << status;
        EXPECT_EQ(result.getBlob("HTTP-RESP-DATA"), "posted") << status;
        EXPECT_EQ(result.getInt32("HTTP-RESP-CODE"), 200) << status;
        EXPECT_EQ(result.getInt32("HTTP-RETRY-AFTER"), 5) << status << ": the redirect's header counts";
    }
    const Card once = perform(get(server.url("/redirect?to=/hello")));
    EXPECT_EQ(once.getBlob("HTTP-RESP-DATA"), "hello\n");

    const Card twice = perform(get(server.url("/redirect?to=/redirect%3Fto%3D/hello")));
    EXPECT_EQ(twice.getBool("CURL-TIMEOUT"), false);
    EXPECT_FALSE(twice.has("HTTP-RESP-CODE"));
    EXPECT_TRUE(log.contains("[agent-worker] curl error 47: ["));
}

TEST_F(TransferTest, RedirectsLeadToNoOtherKindOfServer) {
    const RawServer ftp([](RawConnection& connection) { connection.sendAll("220 ready\r\n"); });
    device_files::writeDeviceCertificate({.certificatePem = "certificate", .keyPem = "secret"});
    for (const std::string& target : {std::string("file:///vendor/etc/myprivatekey.pem"), ftp.url("/file", "ftp")}) {
        const Card result = perform(get(server.url("/redirect?to=" + target)));
        EXPECT_THAT(result.getString("CURL-ERROR").value_or(""), HasSubstr("not supported")) << target;
        EXPECT_FALSE(result.has("HTTP-RESP-DATA")) << target;
    }
    EXPECT_EQ(ftp.connectionCount(), 0U);
}

TEST_F(TransferTest, OnlyTrustedServersAreBelieved) {
    const CertificateAuthority trusted;
    const CertificateAuthority stranger("Stranger");
    {
        const HttpServer unproven(HttpServer::Tls{trusted.issueServer()});
        EXPECT_TRUE(perform(get(unproven.url("/hello"))).has("CURL-ERROR")) << "no file: nobody is trusted";
    }
    device_files::writeCaFile(trusted.pem());
    using Validity = CertificateAuthority::Validity;
    const HttpServer::Tls servers[] = {
        {stranger.issueServer()},
        {trusted.issueServer({"elsewhere.example"})},
        {trusted.issueServer({"127.0.0.1"}, Validity::Expired)},
    };
    for (const HttpServer::Tls& tls : servers) {
        const HttpServer untrusted(tls);
        EXPECT_THAT(perform(get(untrusted.url("/hello"))).describe(),
                    HasSubstr("| CURL-TIMEOUT false | CURL-ERROR SSL"));
        EXPECT_EQ(untrusted.requestCount(), 0U);
    }
}

TEST_F(TransferTest, TheDeviceShowsItsCertificateInPostsToTheServiceHostOnly) {
    const CertificateAuthority authority;
    const std::string host = serviceHost();
    const HttpServer demanding(HttpServer::Tls{authority.issueServer({"localhost", host}), authority.pem()});
    device_files::writeCaFile(authority.pem());

    const std::string no_key = "[KVIA] Couldn't find device key file";
    const std::string no_certificate = "[KVIA] Couldn't find device cert file";
    const Card request = post(demanding.url("/echo", host), "body");
    const test_support::Certificate device = authority.issueClient("device 7");
    start();
    push(messageOf(request));
    EXPECT_TRUE(log.waitFor("[agent-worker] perform failed 39"));
    EXPECT_TRUE(log.contains(no_key));
    EXPECT_TRUE(log.contains(no_certificate));
    device_files::writeRaw(device_files::kDeviceCertificate, device.certificatePem);
    push(messageOf(request));
    EXPECT_TRUE(log.waitFor("[agent-worker] perform failed 39", 2)) << "the certificate alone does not help";
    EXPECT_EQ(log.count(no_certificate), 1U);
    device_files::writeDeviceCertificate(device);
    EXPECT_EQ(perform(request).getInt32("HTTP-RESP-CODE"), 200) << "found without a restart";
    EXPECT_EQ(demanding.requests().back().clientCertificate, "device 7");

    EXPECT_TRUE(perform(get(demanding.url("/hello", host))).has("CURL-ERROR")) << "a GET";
    EXPECT_TRUE(perform(post(demanding.url("/echo", "localhost"), "body")).has("CURL-ERROR")) << "another host";
    EXPECT_EQ(demanding.requestCount(), 1U);
}

TEST_F(TransferTest, PostsOfChosenClientsAreArchived) {
    const test_support::TempDir directory;
    transferSettings() = {.rootDirectory = directory.path().c_str(), .saveMask = 2};
    const auto from = [](const std::string& client, int32_t tx_id, const std::string& req, const std::string& url) {
        Card card;
        card.string("FROM", client).string("TO", "agent").string("REQ", req).int32("TX-ID", tx_id);
        return card.string("URL", url).int32("TIMEOUT-SEC", 60).blob("POST-DATA", "asked");
    };
    (void)perform(from("KV-CS", 1, "POST", server.url("/status/404")));
    (void)perform(from("KV-CS", 2, "POST", server.url("/status/204")));
    (void)perform(from("KV-CS", 3, "POST", "http://127.0.0.1:1/"));
    (void)perform(from("KV-CS", 4, "GET", server.url("/hello")));
    (void)perform(from("APIC", 5, "POST", server.url("/echo")));
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
        files.push_back(entry.path().filename());
    }
    EXPECT_THAT(files, testing::UnorderedElementsAre("KV-CS_req_1.bin", "KV-CS_resp_1.bin", "KV-CS_req_2.bin",
                                                     "KV-CS_req_3.bin"));
    EXPECT_EQ(test_support::readFile(directory.file("KV-CS_req_1.bin")), "asked");
    EXPECT_EQ(test_support::readFile(directory.file("KV-CS_resp_1.bin")), "status 404\n");
}

}  // namespace
}  // namespace transfer_test
