#include <pwd.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "support/HttpServer.h"
#include "tools/MqctlFixture.h"

namespace test_support {
namespace {

using testing::AllOf;
using testing::Each;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class MqctlCommandTest : public MqctlFixture {
protected:
    HttpServer mHttp;
};

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        result.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return result;
}

/// One blank for each run of them.
std::string squeezed(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (c != ' ' || result.empty() || result.back() != ' ') {
            result += c;
        }
    }
    return result;
}

TEST_F(MqctlCommandTest, ListShowsOwnersAndAliases) {
    leaveStaleSocket("crashed");
    writeFile(socketPath("file"), "no socket");
    start();
    std::filesystem::create_symlink(socketPath(kCs), socketPath("alias"));
    std::filesystem::create_symlink(socketPath("gone"), socketPath("dangling"));
    const std::string user =
        ::getpwuid(::geteuid()) != nullptr ? ::getpwuid(::geteuid())->pw_name : std::to_string(::geteuid());
    const std::string owner = std::to_string(agent().pid()) + " inet-agent " + user;
    const std::string rows = "alias alias live " + owner + " inet-agent-cs\n" +  //
                             "crashed socket stale - - - -\n" +                  //
                             "dangling alias stale - - - gone\n" +               //
                             "inet-agent-cs socket live " + owner + " -\n" +     //
                             "inet-agent-tdp-dl socket live " + owner + " -\n";
    for (const char* arguments : {"list", "", "--color=never"}) {
        const Run run = mqctl(arguments);
        EXPECT_EQ(run.code, 0) << run.err;
        EXPECT_EQ(squeezed(run.out),
                  "NAME TYPE STATE PID PROCESS USER TARGET\n" + rows + "\n5 names in /dev/socket/location/mq\n");
        EXPECT_THAT(run.err, IsEmpty());
    }
    EXPECT_EQ(squeezed(mqctl("--no-legend").out), rows);
    EXPECT_EQ(mqctl("list --names").out, "alias\ncrashed\ndangling\ninet-agent-cs\ninet-agent-tdp-dl\n");
    const std::string json = mqctl("list --json=short").out;
    EXPECT_THAT(json, StartsWith(R"([{"name":"alias","type":"alias","state":"live","pid":)" +
                                 std::to_string(agent().pid()) + R"(,"process":"inet-agent","user":")" + user +
                                 R"(","target":"inet-agent-cs"},{"name":"crashed","type":"socket","state":"stale",)" +
                                 R"("pid":null,"process":null,"user":null,"target":null},)"));
}

TEST_F(MqctlCommandTest, ListWatchesWhatChanges) {
    AgentProcess watch(mqctlPath(), words("list --watch"));
    {
        TestClient guest("guest");
        ASSERT_TRUE(watch.waitForLine("+ guest socket live " + std::to_string(::getpid()) + "\n"));
    }
    ASSERT_TRUE(watch.waitForLine("- guest socket live"));
    leaveStaleSocket("crashed");
    ASSERT_TRUE(watch.waitForLine("+ crashed socket stale\n"));
    EXPECT_EQ(mqctl("list --watch -w 1ms").code, 0);
}

TEST_F(MqctlCommandTest, PostCarriesEveryField) {
    TestClient played("played");
    std::thread player([&] {
        const Card request = played.receive().value();
        Card expected;
        expected.string("TO", "played").string("FROM", "me").string("REQ", "POST").int32("TX-ID", 1);
        expected.string("URL", "http://a").int32("TIMEOUT-SEC", 9).boolean("FORCE_NEW_CONNECTION", true);
        expected.string("CONTENT-TYPE", "text/plain").string("PROTOCOL-VERSION", "3").blob("POST-DATA", "from stdin");
        expectCard(request, expected);
        played.send(result(request, 200, "thanks"));
    });
    const Run run = mqctl(
        "post http://a -d @- --type text/plain --protocol-version 3 --fresh --from me -t 9 --to played", "from stdin");
    player.join();
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.out, "thanks");
}

TEST_F(MqctlCommandTest, CallSendsFieldsAndPrintsTheReply) {
    const std::string blob = mDirectory.file("blob");
    writeFile(blob, std::string("\0\1", 2));
    TestClient played("played");
    std::thread player([&] {
        const Card request = played.receive().value();
        Card expected;
        expected.string("TO", "played").string("FROM", "me").string("REQ", "HELLO").int32("TIMEOUT-SEC", 9);
        expected.blob("B", std::string("\0\1", 2)).add("A", Type::ArrayInt32, std::string("\1\0\0\0\2\0\0\0", 8));
        expected.boolean("YES", true).add("N", Type::Double, std::string("\0\0\0\0\0\0\xF8\x3F", 8)).int32("TX-ID", 1);
        expectCard(request, expected);
        played.send(Card().string("TO", "me").string("FROM", "played").string("REQ", "QUESTION").int32("TX-ID", 1));
        played.send(Card().string("TO", "me").string("FROM", "played").string("RESP", "HELLO").int32("TX-ID", 1));
    });
    const Run run = mqctl("call played --from me REQ=HELLO TIMEOUT-SEC=9 B:blob=@" + blob +
                          " 'A:int32[]=1,2' YES:bool=true N:double=1.5");
    player.join();
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.out,
              "postcard, 72 bytes, 4 fields\n"
              "  TO     string  \"me\"\n"
              "  FROM   string  \"played\"\n"
              "  RESP   string  \"HELLO\"\n"
              "  TX-ID  int32   1\n");
}

TEST_F(MqctlCommandTest, SendTakesJsonAndRawBytesAsTheyAre) {
    TestClient played("played");
    const Run sent = mqctl("send played --json-in -", R"({"fields":[{"name":"C","type":"card","fields":[]}]} )");
    EXPECT_EQ(sent.code, 0) << sent.err;
    EXPECT_EQ(played.receive().value().names(), (std::vector<std::string>{"TO", "FROM", "C"}));
    EXPECT_EQ(mqctl("send played --raw -", "no card").code, 0);
    EXPECT_EQ(played.receiveBytes(std::chrono::seconds(30)), "no card");
    // Beyond the size of a datagram.
    EXPECT_EQ(mqctl("send played --raw -", std::string(100000, 'x')).code, 0);
    EXPECT_EQ(played.receiveBytes(std::chrono::seconds(30)).value().size(), 100000U);
}

TEST_F(MqctlCommandTest, GuardReadsAMessageAsTheAgentWill) {
    TestClient played(kCs);
    std::filesystem::create_symlink(socketPath(kCs), socketPath("alias"));
    const std::string request = "send alias REQ=GET URL=http://a ";
    EXPECT_EQ(mqctl("send alias REQ=PUT TIMEOUT-SEC=9").code, 2);
    EXPECT_EQ(mqctl(request + "TIMEOUT-SEC=9 FORCE_NEW_CONNECTION:blob=").code, 2);  // nobody scans past an empty blob
    EXPECT_EQ(mqctl(request + "TIMEOUT-SEC=9").code, 0);
    for (const char* harmless : {"TIMEOUT-SEC=0", "TIMEOUT-SEC=-5", "TIMEOUT-SEC:string=9", ""}) {
        EXPECT_EQ(mqctl("send alias REQ=PUT " + std::string(harmless)).code, 0) << harmless;
    }
    EXPECT_EQ(mqctl("send alias INFO=NEWS").code, 0);
    EXPECT_EQ(mqctl("send alias REQ=KILL TIMEOUT-SEC=9").code, 0);
}

TEST_F(MqctlCommandTest, ListenPrintsCountsMatchesAndSaves) {
    const std::string saved = mDirectory.file("");
    AgentProcess listener(mqctlPath(),
                          words("listen me --alias also -n 2 --match REQ=YES --match N=7 --save " + saved));
    ASSERT_TRUE(waitForSocket("also"));
    TestClient sender("a.b");
    const Card wanted = Card().string("FROM", "a.b").string("REQ", "YES").int32("N", 7);
    sender.send("me", Card().string("FROM", "a.b").string("REQ", "NO").int32("N", 7));
    sender.send("me", wanted);
    sender.send("also", Card().string("FROM", "a.b").string("REQ", "YES").int32("N", 8));
    sender.send("also", wanted);
    EXPECT_EQ(listener.wait(), ProcessEnd::exit(0)) << listener.log();
    EXPECT_EQ(listener.count("  a.b  48 bytes, 3 fields\n"), 2U) << listener.log();
    EXPECT_THAT(listener.log(), Not(HasSubstr("NO")));
    EXPECT_EQ(readFile(saved + "/000001-a_b.postcard"), wanted.encode());
    EXPECT_EQ(mqctl("decode " + saved + "/000002-a_b.postcard").code, 0);
    expectNoSockets();
}

TEST_F(MqctlCommandTest, ListenShowsDamageAndAnnouncements) {
    AgentProcess listener(mqctlPath(), words("listen me -n 2 --announcements --json=short"));
    ASSERT_TRUE(waitForSocket("me"));
    TestClient sender("sender");
    ASSERT_TRUE(listener.waitForLine("REGISTER-EVENT"));  // its own
    sender.send("me", std::string("\1\0\0\0x", 5));
    EXPECT_EQ(listener.wait(), ProcessEnd::exit(0));
    EXPECT_THAT(
        listener.log(),
        HasSubstr(R"("size":5,"malformed":{"offset":4,"reason":"the end byte is not 0"},"base64":"AQAAAHg="})"));
}

TEST_F(MqctlCommandTest, LiveNameIsTakenByForceAlone) {
    TestClient alive("alive");
    EXPECT_EQ(mqctl("listen alive -w 1ms").code, 2);
    EXPECT_EQ(mqctl("listen alive -w 1ms --force").code, 0);
    leaveStaleSocket("stale");
    EXPECT_EQ(mqctl("listen stale -w 1ms").code, 0);
}

TEST_F(MqctlCommandTest, DecodeAndEncodeAreInverse) {
    const std::string first = Card().int32("A", 7).string("S", "hi").encode();
    const std::string second = Card().card("EMPTY", Card()).blob("B", std::string("\0\xFF", 2)).encode();
    const Run text = mqctl("decode", first + second);
    EXPECT_EQ(text.out,
              "postcard, 28 bytes, 2 fields\n  A  int32   7\n  S  string  \"hi\"\n"
              "postcard, 32 bytes, 2 fields\n  EMPTY  card  empty\n  B      blob  2 bytes 00 ff\n");
    for (const char* form : {"-j", "--json=short", "--json=pretty"}) {
        const Run json = mqctl(std::string("decode ") + form, first + second);
        EXPECT_EQ(lines(json.out).size() == 2, std::string(form) != "--json=pretty");
        EXPECT_EQ(mqctl("encode", json.out).out, first + second) << form;
    }
    EXPECT_EQ(mqctl("decode --hex", mqctl("encode --hex", mqctl("decode -j", first).out).out).out.substr(0, 8),
              "postcard");
    const Run damaged = mqctl("decode", first + second.substr(0, 20));
    EXPECT_EQ(damaged.code, 3);
    EXPECT_THAT(damaged.out, HasSubstr("  A  int32   7\n"));
    EXPECT_THAT(damaged.err, HasSubstr("malformed at byte 28: "));
}

TEST_F(MqctlCommandTest, HelpFitsItsColumnsAndNamesEveryCommand) {
    const std::string help = mqctl("--help").out;
    for (const std::string command : {"", "list", "get", "post", "call", "send", "listen", "os-agent", "ping", "health",
                                      "repair", "decode", "encode"}) {
        const Run run = mqctl(command + " --help");
        EXPECT_EQ(run.code, 0);
        EXPECT_THAT(lines(run.out), Each(testing::SizeIs(testing::Le(80U)))) << command;
        EXPECT_THAT(help, HasSubstr("\n  " + command)) << command;
    }
}

TEST_F(MqctlCommandTest, VerboseShowsTheRequestAndTheLogLines) {
    start();
    EXPECT_THAT(mqctl("call -v inet-agent-cs REQ=GET").err,
                AllOf(HasSubstr("> "), HasSubstr("  REQ    string  \"GET\"\n"), HasSubstr("* log MessageQ_Client: ")));
}

}  // namespace
}  // namespace test_support
