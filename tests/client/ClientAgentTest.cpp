#include <gmock/gmock.h>
#include <inet_agent_client.h>

#include "support/AgentProcess.h"
#include "support/DeviceFiles.h"
#include "support/HttpServer.h"
#include "support/files.h"

/// The library, and the guide's other client, against the real agent.
namespace {

using inet_agent::Client;
using inet_agent::Reply;
using inet_agent::ReplyKind;
using inet_agent::Request;
using test_support::AgentProcess;
using test_support::HttpServer;
using test_support::ProcessEnd;
using testing::HasSubstr;

class ClientAgentTest : public testing::Test {
protected:
    void SetUp() override {
        test_support::device_files::reset();
        mAgent.emplace(INET_AGENT_EXECUTABLE);
        ASSERT_TRUE(test_support::waitForSocket("inet-agent-cs")) << mAgent->log();
        ASSERT_TRUE(test_support::waitForSocket("inet-agent-tdp-dl")) << mAgent->log();
    }

    std::optional<AgentProcess> mAgent;
    HttpServer mServer;
};

Reply fetch(Client& client, const std::string& url, int32_t timeoutSec = 60, bool allowHarmful = false) {
    Request request;
    request.url = url;
    request.timeoutSec = timeoutSec;
    request.allowHarmful = allowHarmful;
    Reply reply = client.call(request);
    // Both controllers answer "not ready" for a moment after their sockets have come.
    for (int i = 0; i < 1000 && reply.text == "Inet agent not ready"; ++i) {
        reply = client.call(request);
    }
    return reply;
}

TEST_F(ClientAgentTest, EveryCauseArrives) {
    auto opened = Client::open("me");
    ASSERT_TRUE(opened.client.has_value()) << opened.error;
    Client& client = *opened.client;

    Reply reply = fetch(client, mServer.url("/hello"));
    EXPECT_EQ(reply.kind, ReplyKind::result) << reply.text;
    EXPECT_EQ(reply.httpStatus, 200);
    EXPECT_EQ(reply.body, "hello\n");
    EXPECT_EQ(reply.bytesReceived, 6);

    reply = fetch(client, mServer.url("/retry-after?value=120"));
    EXPECT_EQ(reply.httpStatus, 503);
    EXPECT_EQ(reply.retryAfterSec, 120);
    EXPECT_EQ(fetch(client, mServer.url("/status/204")).httpStatus, 204);

    reply = fetch(client, "ftp://127.0.0.1/");
    EXPECT_EQ(reply.kind, ReplyKind::transferFailed);
    EXPECT_THAT(reply.text, HasSubstr("ftp"));
    EXPECT_EQ(fetch(client, "http://127.0.0.1:1/").kind, ReplyKind::transferFailed);
    reply = fetch(client, mServer.url("/slow?ms=60000"), 3);
    EXPECT_EQ(reply.kind, ReplyKind::transferTimedOut) << reply.text;
    reply = fetch(client, mServer.url("/hello"), 0, true);
    EXPECT_EQ(reply.kind, ReplyKind::errorReply);
    EXPECT_EQ(reply.text, "queued job timed out before execution");

    EXPECT_EQ(mAgent->stop(), ProcessEnd::exit(0));
    EXPECT_EQ(fetch(client, mServer.url("/hello")).kind, ReplyKind::noSuchParticipant);
}

TEST_F(ClientAgentTest, LargeBodiesAndBothControllers) {
    auto opened = Client::open("me");
    ASSERT_TRUE(opened.client.has_value()) << opened.error;
    for (const char* controller : {"inet-agent-cs", "inet-agent-tdp-dl"}) {
        Request request;
        request.controller = controller;
        request.method = "POST";
        request.url = mServer.url("/echo");
        request.body = std::string(5'000'000, 'p');
        request.contentType = "text/x";
        auto large = opened.client->request(request);
        request.body = "small";
        auto small = opened.client->request(request);
        EXPECT_TRUE(large.get().body == std::string(5'000'000, 'p')) << controller;
        EXPECT_EQ(small.get().body, "small") << controller;
    }
    EXPECT_EQ(mServer.requests().at(0).header("content-type"), "text/x");
}

/// The first block of the guide in that language.
std::string guideBlock(const std::string& language) {
    const std::string guide = test_support::readFile(CLIENT_GUIDE);
    const std::string opening = "```" + language + "\n";
    const size_t start = guide.find(opening) + opening.size();
    return guide.substr(start, guide.find("\n```\n", start) + 1 - start);
}

TEST_F(ClientAgentTest, PythonClientOfTheGuideWorks) {
    const test_support::TempDir directory;
    const std::string script = directory.file("fetch.py");
    test_support::writeFile(script, guideBlock("python"));
    test_support::writeFile(directory.file("body"), std::string(300'000, 'b'));
    const struct {
        std::vector<std::string> arguments;
        ProcessEnd end;
        std::vector<std::string> output;
    } cases[] = {
        {{mServer.url("/hello")}, ProcessEnd::exit(0), {"HTTP 200, 6 bytes", "hello\n"}},
        {{mServer.url("/status/404")}, ProcessEnd::exit(0), {"HTTP 404"}},
        {{mServer.url("/bytes/200000")}, ProcessEnd::exit(0), {"HTTP 200, 200000 bytes", "abcdefghijklmnopqrstuvwxyz"}},
        {{mServer.url("/echo"), directory.file("body")},
         ProcessEnd::exit(0),
         {"HTTP 200, 300000 bytes", std::string(300'000, 'b')}},
        {{"ftp://127.0.0.1/"}, ProcessEnd::exit(1), {"transfer failed: Protocol \"ftp\" not supported"}},
        {{""}, ProcessEnd::exit(1), {"ValueError"}},
    };
    for (const auto& test : cases) {
        AgentProcess::Options options;
        options.arguments = test.arguments;
        options.arguments.insert(options.arguments.begin(), {"-I", script});
        AgentProcess python("/usr/bin/python3", options);
        EXPECT_EQ(python.wait(), test.end) << python.log().substr(0, 2000);
        for (const std::string& part : test.output) {
            EXPECT_EQ(python.count(part) > 0, true) << part.substr(0, 100) << "\n" << python.log().substr(0, 2000);
        }
    }
    EXPECT_EQ(mServer.requests().back().header("content-type"), "application/octet-stream");
}

}  // namespace
