#include "e2e/E2eTest.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace test_support {

using testing::HasSubstr;
using testing::Not;

std::string alphabet(size_t size) {
    std::string text(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        text[i] = static_cast<char>('a' + i % 26);
    }
    return text;
}

Card replyTo(const Card& request) {
    Card card;
    card.string("FROM", request.getString("TO").value()).string("TO", request.getString("FROM").value());
    return card.int32("TX-ID", request.getInt32("TX-ID").value()).string("RESP", request.getString("REQ").value());
}

Card result(const Card& request, int32_t status, const std::string& body) {
    Card card = replyTo(request);
    if (!body.empty()) {
        card.blob("HTTP-RESP-DATA", body);
    }
    return card.int32("HTTP-RESP-CODE", status).int32("HTTP-RESP-DATA-SIZE", static_cast<int32_t>(body.size()));
}

Card errorReply(const Card& request, const std::string& text) {
    return replyTo(request).string("CURL-ERROR", text).int32("HTTP-RESP-CODE", 0);
}

void expectCard(const std::optional<Card>& actual, const Card& expected) {
    ASSERT_TRUE(actual.has_value()) << "no message; expected " << expected.describe();
    EXPECT_TRUE(actual->fields() == expected.fields())
        << "  actual: " << actual->describe() << "\nexpected: " << expected.describe();
}

void expectFailed(const std::optional<Card>& actual, const Card& request, bool timeout, const std::string& error,
                  int32_t size) {
    const std::string text = actual.has_value() ? actual->getString("CURL-ERROR").value_or("") : "";
    EXPECT_THAT(text, HasSubstr(error));
    expectCard(actual, replyTo(request)
                           .boolean("CURL-TIMEOUT", timeout)
                           .string("CURL-ERROR", text)
                           .int32("HTTP-RESP-DATA-SIZE", size));
}

Card deviceState(std::optional<bool> location, std::optional<bool> emergency) {
    Card card;
    card.string("TO", kCs).string("FROM", "OS-Agent").string("INFO", "OS-STATUS-UPDATE");
    if (location.has_value()) {
        card.card("GPS_STATE", Card().boolean("IS_GPS_PROVIDER_ENABLED", *location));
    }
    if (emergency.has_value()) {
        card.card("IN_EMERGENCY_CALL", Card().boolean("IS_EMERGENCY", *emergency));
    }
    return card;
}

Card subscription(const std::string& req) {
    Card card;
    card.string("TO", "OS-Agent").string("FROM", kCs).string("REQ", req);
    return card.add("DATA-ITEMS", Type::ArrayInt32, std::string("\2\0\0\0", 4));
}

Card internalResult(const std::string& controller, const std::optional<Card>& result) {
    Card card;
    card.string("TO", controller).string("FROM", controller).string("REQ", "HTTP-RESULT");
    return result.has_value() ? card.card("RESULT", *result) : card;
}

std::string socketPath(const std::string& name) {
    return std::string(device_files::kSocketDirectory) + "/" + name;
}

void leaveStaleSocket(const std::string& name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketPath(name).c_str(), sizeof(address.sun_path) - 1);
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    close(descriptor);
}

std::string refusedUrl() {
    // Bound, but not listening, for as long as the test runs: nobody else gets the port meanwhile.
    static const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    auto* raw = reinterpret_cast<sockaddr*>(&address);
    static const bool bound = bind(descriptor, raw, size) == 0;
    if (!bound || getsockname(descriptor, raw, &size) != 0) {
        std::abort();
    }
    return "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
}

RawServer::Script misbehaviour() {
    return [](RawConnection& connection) {
        const std::string request = connection.readRequest();
        const std::string method = request.substr(0, request.find(' '));
        const std::string rest = request.substr(std::min(request.size(), method.size() + 1));
        const std::string path = rest.substr(0, rest.find(' '));
        const auto answer = [&](const std::string& status, const std::list<std::string>& headers) {
            const size_t body = request.find("\r\n\r\n") + 4;
            connection.sendAll(RawServer::response(status, headers, method + " " + request.substr(body)));
        };
        if (path.starts_with("/moved/")) {
            answer(path.substr(7) + " Moved", {"Location: /final"});
        } else if (path == "/moved-twice") {
            answer("302 Moved", {"Location: /moved/302"});
        } else if (path == "/loop") {
            answer("302 Moved", {"Location: /loop"});
        } else if (path == "/final") {
            answer("200 OK", {});
        } else if (path == "/reset") {
            connection.reset();
        } else if (path == "/cut") {
            connection.sendAll("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n0123456789");
        } else if (path == "/stall") {
            connection.stall();
        }
    };
}

E2eTest::E2eTest() {
    device_files::requireDevice();
    configure({});
}

void E2eTest::TearDown() {
    if (mAgent == nullptr) {
        return;
    }
    if (mAgent->running()) {
        stop();
    }
    EXPECT_THAT(mAgent->log(), Not(testing::AnyOf(HasSubstr("Sanitizer"), HasSubstr("runtime error"))));
    if (HasFailure()) {
        const std::string log = mAgent->log();
        constexpr size_t kShown = 20000;
        std::printf("--- the agent's log ---\n%s\n", log.substr(log.size() - std::min(log.size(), kShown)).c_str());
    }
}

void E2eTest::configure(device_files::Settings agent, device_files::Settings gnss) {
    agent.emplace("DEBUG_GLOBAL_LOG_LEVEL", "5");
    gnss.emplace("DEBUG_LEVEL", "5");
    device_files::writeMarlowConf(agent);
    device_files::writeGpsConf(gnss);
}

AgentProcess& E2eTest::launch(const std::vector<std::string>& arguments) {
    if (mAgent != nullptr) {
        TearDown();  // the one before
    }
    mAgent = std::make_unique<AgentProcess>(INET_AGENT_BINARY, AgentProcess::Options{.arguments = arguments});
    return *mAgent;
}

AgentProcess& E2eTest::start(const std::vector<std::string>& arguments) {
    launch(arguments);
    EXPECT_TRUE(waitForSocket(kCs) && waitForSocket(kTdpDl));
    return *mAgent;
}

void E2eTest::stop() {
    mAgent->signal(SIGTERM);
    expectEnd(ProcessEnd::exit(0));
    expectNoSockets();
}

void E2eTest::expectEnd(ProcessEnd end) {
    EXPECT_EQ(mAgent->wait(), end);
}

void E2eTest::expectNoSockets() {
    for (const char* name : {kCs, kTdpDl}) {
        EXPECT_FALSE(std::filesystem::exists(socketPath(name))) << name;
    }
}

}  // namespace test_support
