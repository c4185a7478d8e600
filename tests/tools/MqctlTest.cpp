#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <thread>

#include "e2e/E2eTest.h"
#include "support/HttpServer.h"
#include "support/files.h"

namespace test_support {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class MqctlTest : public E2eTest {
protected:
    /// The platform's own log lines would mix with what mqctl says.
    MqctlTest() { configure({}, {{"DEBUG_LEVEL", "2"}}); }

    struct Run {
        int code;
        std::string out;
        std::string err;
    };

    /// Through the shell: the arguments are quoted as one would.
    Run mqctl(const std::string& arguments) const {
        const std::string out = mDirectory.file("out");
        const std::string err = mDirectory.file("err");
        const int status = std::system((MQCTL_BINARY " " + arguments + " >" + out + " 2>" + err).c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(out), readFile(err)};
    }
    /// Runs it against a participant of the test's, which answers with what is made of the request.
    Run mqctlAnswered(const std::string& arguments, const std::function<std::vector<Card>(const Card&)>& answer) const {
        TestClient played("played");
        std::thread player([&] {
            const auto request = played.receive();
            for (const Card& reply : answer(request.value())) {
                played.send(reply);
            }
        });
        Run run = mqctl(arguments + " --to played");
        player.join();
        return run;
    }

    TempDir mDirectory;
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

TEST_F(MqctlTest, ListShowsWhoIsThere) {
    leaveStaleSocket("crashed");
    writeFile(socketPath("file"), "no socket");
    start();
    std::filesystem::create_symlink(socketPath(kCs), socketPath("alias"));
    std::filesystem::create_symlink(socketPath("gone"), socketPath("dangling"));
    const char* const expected =
        "NAME               TYPE    STATE\n"
        "alias              alias   live\n"
        "crashed            socket  stale\n"
        "dangling           alias   stale\n"
        "inet-agent-cs      socket  live\n"
        "inet-agent-tdp-dl  socket  live\n";
    for (const char* arguments : {"list", ""}) {
        const Run run = mqctl(arguments);
        EXPECT_EQ(run.code, 0) << run.err;
        EXPECT_EQ(run.out, expected);
    }
    std::filesystem::remove_all(device_files::kSocketDirectory);
    EXPECT_EQ(mqctl("list").code, 1);
    EXPECT_EQ(mqctl("get --help").code, 0);
    const Run version = mqctl("--version");
    EXPECT_EQ(version.code, 0);
    EXPECT_THAT(version.out, StartsWith("mqctl 0."));
}

}  // namespace
}  // namespace test_support
