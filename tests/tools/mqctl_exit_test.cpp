#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "support/HttpServer.h"
#include "tools/MqctlFixture.h"

// One test for each row of the exit codes' table.

namespace test_support {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

class MqctlExitTest : public MqctlFixture {
protected:
    HttpServer mHttp;
};

TEST_F(MqctlExitTest, Is0WithAnyHttpStatusAndForReaderThatLeft) {
    start();
    const Run missing = mqctl("get " + mHttp.url("/status/404"));
    EXPECT_EQ(missing.code, 0) << missing.err;
    EXPECT_EQ(missing.out, "status 404\n");
    // The pipe's reader takes one byte of half a million and goes.
    const std::string status = mDirectory.file("status");
    EXPECT_EQ(std::system(("(" + std::string(mqctlPath()) + " get " + mHttp.url("/bytes/500000") + " 2>" +
                           mDirectory.file("err") + "; echo $? >" + status + ") | head -c 1 >/dev/null")
                              .c_str()),
              0);
    EXPECT_EQ(readFile(status), "0\n") << readFile(mDirectory.file("err"));
    EXPECT_THAT(readFile(mDirectory.file("err")), IsEmpty());
}

TEST_F(MqctlExitTest, Is1ForItsOwnFailures) {
    start();
    const std::string get = "get " + mHttp.url("/hello");
    EXPECT_EQ(mqctl(get + " -o /nowhere/file").code, 1);
    const std::string full = std::string("(") + mqctlPath() + " " + get + " >/dev/full)";
    EXPECT_EQ(WEXITSTATUS(std::system((full + " 2>" + mDirectory.file("err")).c_str())), 1);
    EXPECT_THAT(readFile(mDirectory.file("err")), HasSubstr("No space left"));
    stop();
    std::filesystem::remove_all(device_files::kSocketDirectory);
    for (const char* arguments : {"list", "listen -w 1", "ping"}) {
        EXPECT_EQ(mqctl(arguments).code, 1) << arguments;
    }
}

TEST_F(MqctlExitTest, Is2ForWrongUsageAndWhatWouldHarm) {
    TestClient controller(kCs);
    TestClient alive("alive");
    for (const std::string arguments : {"listen a/b",
                                        "listen ''",
                                        "listen -n 0",
                                        "listen --match x",
                                        "--json=long",
                                        "--color=blue",
                                        "ping -w soon",
                                        "ping -w 0",
                                        "call",
                                        "call inet-agent-cs x",
                                        "call inet-agent-cs :int32=1",
                                        "call inet-agent-cs A:int8=200",
                                        "call inet-agent-cs A:text=x",
                                        "call inet-agent-cs A:card=x",
                                        "call inet-agent-cs A:blob=hex:0",
                                        "call inet-agent-cs A:blob=@/nowhere/file",
                                        "send inet-agent-cs --raw /nowhere/file",
                                        "get http://a --from alive",
                                        "get http://a --from alive --to inet-agent-cs",
                                        "listen x --alias alive",
                                        "listen x --alias x",
                                        "decode /nowhere/file",
                                        "repair inet-agent-cs",
                                        "repair alive --yes",
                                        "call inet-agent-cs REQ=PUT URL=http://a TIMEOUT-SEC=9",
                                        "call inet-agent-cs REQ=GET URL= TIMEOUT-SEC=9",
                                        "send inet-agent-cs REQ=GET TIMEOUT-SEC=9",
                                        "send inet-agent-cs REQ=POST URL=http://a TIMEOUT-SEC=9",
                                        "send inet-agent-cs REQ=GET URL=http://a TIMEOUT-SEC=2",
                                        "get http://a -t 2",
                                        "get '' --to alive",
                                        "post http://a -d ''",
                                        "send inet-agent-cs FROM=inet-agent-cs REQ=HTTP-RESULT"}) {
        const Run run = mqctl(arguments);
        EXPECT_EQ(run.code, 2) << arguments << ": " << run.err;
        EXPECT_THAT(run.err, HasSubstr("mqctl: ")) << arguments;
        EXPECT_THAT(run.out, IsEmpty()) << arguments;
    }
    EXPECT_FALSE(controller.receive(std::chrono::milliseconds(0)).has_value());
    EXPECT_EQ(mqctl("send inet-agent-cs REQ=PUT TIMEOUT-SEC=9 --force").code, 0);
    EXPECT_EQ(controller.receive().value().getString("REQ"), "PUT");
}

TEST_F(MqctlExitTest, Is3ForMalformedInput) {
    for (const auto& [arguments, input, reason] :
         {std::tuple("decode", std::string("\x05\0\0\0", 4), "malformed at byte 0"),
          std::tuple("decode", std::string(), "malformed at byte 0"),
          std::tuple("decode --hex", std::string("0"), "hexadecimal"),
          std::tuple("encode", std::string("{\"fields\":[{\"name\":\"A\"}]}"), "fields[0]"),
          std::tuple("encode", std::string("{"), "line 1"),
          std::tuple("send played --json-in -", std::string("[]"), "fields")}) {
        const Run run = mqctl(arguments, input);
        EXPECT_EQ(run.code, 3) << arguments << ": " << run.err;
        EXPECT_THAT(run.err, HasSubstr(reason)) << arguments;
    }
}

TEST_F(MqctlExitTest, Is4WithoutParticipant) {
    leaveStaleSocket("stale");
    for (const char* command : {"ping", "health", "call", "send", "repair --yes"}) {
        for (const char* name : {"absent", "stale", "a/b"}) {
            EXPECT_EQ(mqctl(std::string(command) + " " + name).code, 4) << command << " " << name;
        }
    }
}

TEST_F(MqctlExitTest, Is5WithoutReply) {
    TestClient mute("mute");
    for (const char* arguments :
         {"ping mute -w 50ms", "call mute A=b -w 50ms", "get http://a --to mute -w 50ms", "listen -n 1 -w 50ms"}) {
        EXPECT_EQ(mqctl(arguments).code, 5) << arguments;
    }
    EXPECT_EQ(mqctl("listen -w 50ms").code, 0);
    while (mute.send("mute", Card()) == 0 && mqctl("send mute A=b -w 50ms").code == 0) {
    }
    const Run full = mqctl("send mute A=b");
    EXPECT_EQ(full.code, 5);
    EXPECT_THAT(full.err, HasSubstr("full"));
}

TEST_F(MqctlExitTest, Is6ForErrorReplies) {
    const auto not_ready = [](const Card& request) {
        return std::vector<Card>{errorReply(request, "Inet agent not ready")};
    };
    for (const char* arguments : {"get http://a", "call played REQ=GET URL=http://a TIMEOUT-SEC=9"}) {
        const Run run = mqctlAnswered(arguments, not_ready);
        EXPECT_EQ(run.code, 6);
        EXPECT_THAT(run.err, HasSubstr("Inet agent not ready"));
    }
}

TEST_F(MqctlExitTest, Is7And28ForTransfersThatFailed) {
    start();
    const Run failed = mqctl("get --json=short " + refusedUrl());
    EXPECT_EQ(failed.code, 7);
    EXPECT_THAT(failed.out, AllOf(HasSubstr(R"({"kind":"transfer_failed","from":"inet-agent-cs","tx_id":1)"),
                                  HasSubstr(R"("http_status":null)"), HasSubstr(R"("curl_timeout":false)")));
    EXPECT_THAT(failed.err, AllOf(HasSubstr(R"({"error":"transfer failed after)"), HasSubstr(R"("exit":7})")));
    const RawServer stalled(misbehaviour());
    EXPECT_EQ(mqctl("get " + stalled.url("/stall") + " -t 3").code, 28);
}

TEST_F(MqctlExitTest, Is22ForHttpErrorsThatCount) {
    start();
    const Run missing = mqctl("get --fail " + mHttp.url("/status/404"));
    EXPECT_EQ(missing.code, 22);
    EXPECT_EQ(missing.out, "status 404\n");
    EXPECT_THAT(missing.err, HasSubstr("404"));
    EXPECT_EQ(mqctl("get --fail " + mHttp.url("/status/302")).code, 0);
}

TEST_F(MqctlExitTest, Is130And143OnSignals) {
    for (const auto& [number, code] : {std::pair(SIGINT, 130), std::pair(SIGTERM, 143)}) {
        AgentProcess listener(mqctlPath(), words("listen me --alias also-me"));
        ASSERT_TRUE(waitForSocket("also-me"));
        listener.signal(number);
        EXPECT_EQ(listener.wait(), ProcessEnd::exit(code));
        expectNoSockets();
        EXPECT_FALSE(std::filesystem::is_symlink(socketPath("also-me")));
    }
}

}  // namespace
}  // namespace test_support
