#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <httplib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

#include "support/AgentProcess.h"
#include "support/CertificateAuthority.h"
#include "support/DeviceFiles.h"
#include "support/HttpServer.h"
#include "support/RawServer.h"
#include "support/TestClient.h"
#include "support/files.h"

namespace test_support {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST(CardTest, BytesAreThoseOfTheFormat) {
    Card card;
    card.int32("A", 0x01020304).string("S", "hi").boolean("B", true).blob("D", "").card("C", Card().int32("X", -1));
    const std::string bytes = card.encode();
    const std::string expected(
        "\x3e\0\0\0"
        "\x0c\0\x02\0A\0\x04\x03\x02\x01"
        "\x13\0\x02\0S\0\x03\0\0\0hi\0"
        "\x12\0\x02\0B\0\x01"
        "\x14\0\x02\0D\0\0\0\0\0"
        "\x01\0\x02\0C\0\x0b\0\0\0\x0c\0\x02\0X\0\xff\xff\xff\xff\0"
        "\0",
        66);
    EXPECT_EQ(bytes, expected);
    const auto decoded = Card::decode(bytes);
    ASSERT_TRUE(decoded.has_value());
    EXPECT_EQ(decoded->fields(), card.fields());
    EXPECT_EQ(decoded->getCard("C")->getInt32("X"), -1);
    EXPECT_EQ(decoded->getString("A"), std::nullopt);
}

TEST(CardTest, EveryCutCardIsRefused) {
    const std::string bytes = Card().string("URL", "http://x").int32("TX-ID", 7).encode();
    for (size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_FALSE(Card::decode(bytes.substr(0, size)).has_value()) << size;
    }
    EXPECT_FALSE(Card::decode(bytes + '\0').has_value());
}

TEST(TestClientTest, SmallAndLargeMessagesArrive) {
    TestClient a("a");
    TestClient b("b");
    for (const size_t size : {size_t{0}, size_t{1000}, size_t{65000}, size_t{70000}, size_t{5'000'000}}) {
        ASSERT_EQ(a.send(a.post("b", "http://x", std::string(size, 'p'), 5)), 0);
        const auto got = b.receive();
        ASSERT_TRUE(got.has_value());
        EXPECT_THAT(got->names(), ElementsAre("FROM", "TO", "REQ", "TX-ID", "URL", "TIMEOUT-SEC", "POST-DATA"));
        EXPECT_EQ(got->getBlob("POST-DATA")->size(), size);
    }
}

TEST(TestClientTest, AnnouncementsAreSkippedUnlessAskedFor) {
    TestClient a("a");
    const Card event = Card().string("TO", "a").string("INFO", "REGISTER-EVENT").string("CLIENT", "z");
    const Card other = Card().string("TO", "a").int32("TX-ID", 1);
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(a.send(event), 0);
        ASSERT_EQ(a.send(other), 0);
    }
    EXPECT_EQ(a.receiveAny()->getString("CLIENT"), "z");
    EXPECT_EQ(a.receive()->getInt32("TX-ID"), 1);
    EXPECT_EQ(a.receive()->getInt32("TX-ID"), 1);
    EXPECT_FALSE(a.receive(std::chrono::milliseconds(1)).has_value());
    EXPECT_EQ(a.send("nobody", other), ENOENT);
}

TEST(HttpServerTest, RoutesAnswerAndRequestsAreRecorded) {
    HttpServer server;
    httplib::Client client("127.0.0.1", server.port());
    EXPECT_EQ(client.Get("/hello")->body, "hello\n");
    const auto echo = client.Post("/echo", httplib::Headers{{"X-Own", "1"}}, "body", "text/x");
    EXPECT_EQ(echo->body, "body");
    EXPECT_EQ(echo->get_header_value("Content-Type"), "text/x");
    EXPECT_EQ(client.Get("/status/404")->status, 404);
    EXPECT_EQ(client.Get("/status/204")->body, "");
    EXPECT_EQ(client.Get("/bytes/100000")->body.size(), 100000U);
    EXPECT_EQ(client.Get("/redirect?to=%2Fhello&code=307")->get_header_value("Location"), "/hello");
    const auto later = client.Get("/retry-after?value=120");
    EXPECT_EQ(later->status, 503);
    EXPECT_EQ(later->get_header_value("Retry-After"), "120");
    EXPECT_EQ(client.Get("/nothing")->status, 404);

    const auto seen = server.requests();
    ASSERT_EQ(seen.size(), 8U);
    EXPECT_EQ(seen[1].method, "POST");
    EXPECT_EQ(seen[1].header("x-OWN"), "1");
    EXPECT_EQ(seen[1].body, "body");
    EXPECT_EQ(seen[5].path, "/redirect?to=%2Fhello&code=307");
}

TEST(HttpServerTest, StopWaitsForNoClient) {
    std::optional<HttpServer> server(std::in_place);
    httplib::Client idle("127.0.0.1", server->port());
    idle.set_keep_alive(true);
    ASSERT_TRUE(idle.Get("/hello"));
    std::thread waiting([&] {
        httplib::Client client("127.0.0.1", server->port());
        client.set_read_timeout(300);
        (void)client.Get("/slow?ms=300000");
    });
    ASSERT_TRUE(server->waitForRequests(2));
    const auto start = std::chrono::steady_clock::now();
    server.reset();
    waiting.join();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));  // the client would wait 300
}

TEST(CertificateAuthorityTest, ClientsBelieveTheRightCertificatesOnly) {
    const CertificateAuthority ca;
    const CertificateAuthority stranger("Stranger");
    using Validity = CertificateAuthority::Validity;
    const struct {
        const char* what;
        Certificate certificate;
        bool good;
    } cases[] = {
        {"right", ca.issueServer(), true},
        {"expired", ca.issueServer({"localhost"}, Validity::Expired), false},
        {"not yet valid", ca.issueServer({"localhost"}, Validity::NotYet), false},
        {"another host", ca.issueServer({"elsewhere.example"}), false},
        {"another authority", stranger.issueServer(), false},
    };
    const TempDir directory;
    ca.writeTo(directory.file("ca.pem"));
    for (const auto& test : cases) {
        HttpServer server(HttpServer::Tls{test.certificate});
        httplib::SSLClient client("localhost", server.port());
        client.set_hostname_addr_map({{"localhost", "127.0.0.1"}});
        client.set_ca_cert_path(directory.file("ca.pem").c_str());
        client.enable_server_certificate_verification(true);
        EXPECT_EQ(static_cast<bool>(client.Get("/hello")), test.good) << test.what;
    }
}

TEST(CertificateAuthorityTest, ServerAsksForAClientCertificate) {
    const CertificateAuthority ca;
    const TempDir directory;
    HttpServer server(HttpServer::Tls{ca.issueServer(), ca.pem()});
    const auto files = ca.issueClient("device 7").writeTo(directory.path(), "client");
    httplib::SSLClient with("127.0.0.1", server.port(), files.certificate, files.key);
    with.enable_server_certificate_verification(false);
    ASSERT_TRUE(with.Get("/hello"));
    EXPECT_EQ(server.requests().at(0).clientCertificate, "device 7");
    httplib::SSLClient without("127.0.0.1", server.port());
    without.enable_server_certificate_verification(false);
    EXPECT_FALSE(without.Get("/hello"));
}

TEST(RawServerTest, PlaysItsScriptPerConnection) {
    RawServer server([](RawConnection& connection) {
        if (connection.number() == 0) {
            connection.reset();
        } else if (connection.number() == 1) {
            (void)connection.readRequest();
            connection.sendAll("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\ncut");
        } else {
            RawServer::answer(RawServer::response("200 OK", {"X-A: b"}, "done"))(connection);
        }
    });
    httplib::Client first("127.0.0.1", server.port());
    EXPECT_FALSE(first.Get("/"));
    httplib::Client second("127.0.0.1", server.port());
    EXPECT_FALSE(second.Get("/"));
    httplib::Client third("127.0.0.1", server.port());
    const auto answer = third.Post("/", std::string(300'000, 'x'), "text/plain");
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->body, "done");
    EXPECT_EQ(answer->get_header_value("X-A"), "b");
    EXPECT_EQ(server.connectionCount(), 3U);
}

TEST(RawServerTest, StopEndsEveryScript) {
    std::optional<RawServer> server(std::in_place, [](RawConnection& connection) {
        if (connection.number() == 0) {
            connection.stall();
        } else {
            connection.drip(std::string(1000, 'x'), 1, 60'000);
        }
    });
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(server->port()));
    int clients[2];
    for (int& client : clients) {
        client = socket(AF_INET, SOCK_STREAM, 0);
        ASSERT_EQ(connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    }
    ASSERT_TRUE(server->waitForConnections(2));
    server.reset();
    for (const int client : clients) {
        char byte = 0;
        EXPECT_LE(recv(client, &byte, 1, 0), 0);
        close(client);
    }
}

TEST(AgentProcessTest, OutputEndAndSignalsAreSeen) {
    AgentProcess process("/bin/sh", {{"-c",
                                      "trap 'echo bye; exit 3' TERM; echo hello; echo oops >&2; "
                                      "while :; do read line </dev/tty || sleep 0.01; done 2>/dev/null"}});
    ASSERT_TRUE(process.waitForLine("hello\noops\n")) << process.log();
    EXPECT_TRUE(process.running());
    EXPECT_GE(process.descriptorCount(), 3U);
    EXPECT_GT(process.residentKiB(), 100U);
    EXPECT_EQ(process.stop(), ProcessEnd::exit(3));
    EXPECT_EQ(process.count("bye"), 1U);
    EXPECT_FALSE(process.waitForLine("never said"));
    process.signal(SIGTERM);  // to nobody
}

TEST(AgentProcessTest, EnvironmentLimitsAndDeathBySignal) {
    setenv("http_proxy", "http://127.0.0.1:1", 1);
    AgentProcess process("/bin/sh", {{"-c", "echo \"proxy=$http_proxy. own=$OWN. files=$(ulimit -n).\"; kill -9 $$"},
                                     {"OWN=1"},
                                     {{RLIMIT_NOFILE, 77}}});
    EXPECT_EQ(process.wait(), ProcessEnd::signal(SIGKILL));
    EXPECT_EQ(process.log(), "proxy=. own=1. files=77.\n");
    unsetenv("http_proxy");
    EXPECT_EQ(AgentProcess("/no/such/program").wait(), ProcessEnd::exit(127));
}

TEST(DeviceFilesTest, DeviceIsPrivateAndResets) {
    device_files::writeMarlowConf({{"KEY", "1"}, {"OTHER", "two words"}});
    EXPECT_EQ(readFile(device_files::kMarlowConf), "KEY = 1\nOTHER = two words\n");
    {
        TestClient client("someone");
        EXPECT_TRUE(waitForSocket("someone", 1));
    }
    EXPECT_TRUE(waitForSocketGone("someone", 1));
    device_files::reset();
    EXPECT_FALSE(std::filesystem::exists(device_files::kMarlowConf));
}

}  // namespace
}  // namespace test_support
