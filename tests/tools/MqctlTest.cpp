#include <filesystem>

#include "support/HttpServer.h"
#include "tools/MqctlFixture.h"

namespace test_support {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

/// Its agent has the message queue's own log lines on: they must not mix with what mqctl says.
class MqctlTest : public MqctlFixture {
protected:
    HttpServer mHttp;
};

TEST_F(MqctlTest, BodyGoesToStandardOutput) {
    start();
    const Run get = mqctl("get " + mHttp.url("/hello"));
    EXPECT_EQ(get.code, 0) << get.err;
    EXPECT_EQ(get.out, "hello\n");
    EXPECT_THAT(get.err, IsEmpty());
    const Run post = mqctl("post " + mHttp.url("/echo") + " -d 'two words' --to inet-agent-tdp-dl -t 30 -v");
    EXPECT_EQ(post.code, 0) << post.err;
    EXPECT_EQ(post.out, "two words");
    EXPECT_THAT(post.err, AllOf(HasSubstr("> TO inet-agent-tdp-dl"), HasSubstr("TIMEOUT-SEC 30"),
                                HasSubstr("HTTP-RESP-CODE 200 | HTTP-RESP-DATA-SIZE 9")));
    EXPECT_EQ(mHttp.requests().at(1).body, "two words");
    const Run missing = mqctl("get " + mHttp.url("/status/404"));
    EXPECT_EQ(missing.code, 0);
    EXPECT_EQ(missing.out, "status 404\n");
    // Its sockets went with it.
    for (const auto& entry : std::filesystem::directory_iterator(device_files::kSocketDirectory)) {
        EXPECT_THAT(entry.path().filename().string(), testing::AnyOf(kCs, kTdpDl));
    }
}

TEST_F(MqctlTest, FilesAreSentAndWrittenAsTheyAre) {
    std::string bytes(300000, '\0');
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<char>(i * 7);
    }
    const std::string sent = mDirectory.file("sent");
    const std::string received = mDirectory.file("received");
    writeFile(sent, bytes);
    const RawServer server(misbehaviour());
    start();
    const Run run = mqctl("post " + server.url("/final") + " -d @" + sent + " -o " + received);
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_THAT(run.out, IsEmpty());
    EXPECT_TRUE(readFile(received) == "POST " + bytes);
    EXPECT_EQ(mqctl("get " + mHttp.url("/hello") + " -o /nowhere/file").code, 1);
}

TEST_F(MqctlTest, WrongUsageIsRefusedBeforeAnythingIsSent) {
    TestClient played("played");
    for (const std::string arguments :
         {"frobnicate", "-x", "get", "get http://a http://b", "get ''", "get http://a -t 2", "get http://a -t 0",
          "get http://a -t -1", "get http://a -t soon", "get http://a -t 99999999999", "post http://a",
          "post http://a -d ''", "post '' -d x", "post http://a -d @/nowhere/file", "post http://a -d @/dev/null",
          "get http://a -d x", "post http://a -d x -t 2"}) {
        const Run run = mqctl(arguments + (arguments.find(' ') == std::string::npos ? "" : " --to played"));
        EXPECT_EQ(run.code, 2) << arguments << ": " << run.err;
        EXPECT_FALSE(run.err.empty()) << arguments;
        EXPECT_THAT(run.out, IsEmpty()) << arguments;
    }
    EXPECT_FALSE(played.receive(std::chrono::milliseconds(0)).has_value());
}

TEST_F(MqctlTest, ParticipantThatIsNotThereIsNamed) {
    leaveStaleSocket("stale");
    writeFile(socketPath("file"), "no socket");
    for (const std::string name : {"absent", "stale", "file", "a/b", "..", "''", "inet-agent-cs"}) {
        const Run run = mqctl("get http://127.0.0.1/ --to " + name);
        EXPECT_EQ(run.code, 4) << name << ": " << run.err;
        EXPECT_THAT(run.out, IsEmpty());
    }
    EXPECT_THAT(mqctl("get http://a --to stale").err, HasSubstr("stale"));
}

TEST_F(MqctlTest, SilentParticipantIsGivenUpOn) {
    const Run run = mqctlAnswered("get http://a -t 1 --force", [](const Card&) { return std::vector<Card>(); });
    EXPECT_EQ(run.code, 5) << run.err;
}

TEST_F(MqctlTest, OnlyTheReplyToTheRequestCounts) {
    const auto strangers_first = [](const Card& request) {
        Card event = Card().string("FROM", "played").string("TO", request.getString("FROM").value());
        Card wrong =
            Card().string("FROM", "played").string("TO", request.getString("FROM").value()).int32("TX-ID", 999);
        return std::vector<Card>{event.string("INFO", "NEWS"), wrong.string("RESP", "GET"),
                                 result(request, 200, "right")};
    };
    const Run run = mqctlAnswered("get http://a", strangers_first);
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.out, "right");
}

TEST_F(MqctlTest, ErrorReplyAndFailedTransfersHaveTheirExitCodes) {
    const Run error = mqctlAnswered("get http://a", [](const Card& request) {
        return std::vector<Card>{errorReply(request, "Inet agent not ready")};
    });
    EXPECT_EQ(error.code, 6);
    EXPECT_THAT(error.err, HasSubstr("Inet agent not ready"));

    const RawServer stalled(misbehaviour());
    start();
    const Run refused = mqctl("get " + refusedUrl());
    EXPECT_EQ(refused.code, 7);
    EXPECT_THAT(refused.err, HasSubstr("onnect"));
    const Run timed_out = mqctl("get " + stalled.url("/stall") + " -t 3");
    EXPECT_EQ(timed_out.code, 28);
    EXPECT_THAT(timed_out.err, HasSubstr("timed out"));
    EXPECT_THAT(error.out + refused.out + timed_out.out, IsEmpty());
    // What --force does, to a controller that nobody needs any more.
    const Run forced = mqctl("get " + mHttp.url("/hello") + " -t 1 --force");
    EXPECT_EQ(forced.code, 6);
    EXPECT_THAT(forced.err, HasSubstr(kActiveTimedOut));
}

}  // namespace
}  // namespace test_support
