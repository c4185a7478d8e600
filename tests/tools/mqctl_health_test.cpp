#include <filesystem>
#include <thread>

#include "support/HttpServer.h"
#include "tools/MqctlFixture.h"

namespace test_support {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class MqctlHealthTest : public MqctlFixture {
protected:
    HttpServer mHttp;
};

TEST_F(MqctlHealthTest, PingCountsAnswersOfTheEventLoop) {
    start();
    const Run run = mqctl("ping -c 3 -i 1ms");
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_THAT(run.out, testing::ContainsRegex("^(inet-agent-cs: event loop answered in [0-9.]+ m?u?s\n){3}$"));
    EXPECT_EQ(run.err, "3 of 3 answered\n");
    EXPECT_THAT(mqctl("ping inet-agent-tdp-dl --json=short").out,
                StartsWith(R"({"name":"inet-agent-tdp-dl","number":1,"elapsed_s":)"));
}

TEST_F(MqctlHealthTest, HealthyControllersNeedNoNetwork) {
    start();
    const Run run = mqctl("health");
    EXPECT_EQ(run.code, 0) << run.out << run.err;
    EXPECT_THAT(run.out, testing::ContainsRegex("^inet-agent-cs      healthy  event loop .*, worker .*\n"
                                                "inet-agent-tdp-dl  healthy  event loop .*, worker .*\n$"));
    EXPECT_EQ(mHttp.requestCount(), 0U);
    const Run absent = mqctl("health nobody inet-agent-cs --json=short");
    EXPECT_EQ(absent.code, 4);
    EXPECT_THAT(absent.out, AllOf(HasSubstr(R"({"name":"nobody","state":"absent","event_loop_s":null)"),
                                  HasSubstr(R"({"name":"inet-agent-cs","state":"healthy")")));
}

TEST_F(MqctlHealthTest, ControllerThatIsNotReadyIsNamed) {
    TestClient played("played");
    std::thread player([&] {
        const Card ping = played.receive().value();
        EXPECT_THAT(ping.names(), testing::Not(testing::Contains("TIMEOUT-SEC")));
        played.send(errorReply(ping, "Inet agent not ready"));
    });
    const Run run = mqctl("health played");
    player.join();
    EXPECT_EQ(run.code, 6);
    EXPECT_THAT(run.out, StartsWith("played  not ready  "));
    EXPECT_THAT(mqctl("ping played -w 10ms").err, HasSubstr("no answer within 10 ms"));
}

/// A request that the worker rejects takes the controller out of service: the way back is what is tested.
TEST_F(MqctlHealthTest, WedgedControllerIsToldAndFreed) {
    start();
    EXPECT_EQ(mqctl("get " + mHttp.url("/hello") + " -t 1 --force").code, 6);
    const Run busy = mqctl("health -w 100ms");
    EXPECT_EQ(busy.code, 6);
    EXPECT_THAT(busy.out, AllOf(HasSubstr("inet-agent-cs      busy     event loop"),
                                HasSubstr("nothing served for 100 ms: busy or wedged\n"),
                                HasSubstr("inet-agent-tdp-dl  healthy  ")));
    const Run wedged = mqctl("health inet-agent-cs -w 1100ms --longest 1");
    EXPECT_EQ(wedged.code, 6);
    EXPECT_THAT(wedged.out,
                AllOf(StartsWith("inet-agent-cs  wedged  event loop "), HasSubstr("mqctl repair inet-agent-cs --yes")));
    EXPECT_THAT(mqctl("health inet-agent-cs -w 1s --longest 60").out, HasSubstr("busy or wedged"));

    std::filesystem::create_symlink(socketPath(kCs), socketPath("alias"));
    EXPECT_EQ(mqctl("repair alias").code, 2);
    const Run freed = mqctl("repair alias --yes -w 100ms");
    EXPECT_EQ(freed.code, 0) << freed.out << freed.err;
    EXPECT_THAT(freed.out, StartsWith("inet-agent-cs  healthy  "));
    EXPECT_EQ(mqctl("get " + mHttp.url("/hello")).out, "hello\n");
}

TEST_F(MqctlHealthTest, RepairDisturbsNoActiveJobAndNoHealthyController) {
    start();
    TestClient client("client");
    client.send(client.get(kCs, mHttp.url("/slow?ms=1500"), 7));
    ASSERT_TRUE(mHttp.waitForRequests(1));
    const Run busy = mqctl("repair inet-agent-cs --yes -w 100ms");
    EXPECT_EQ(busy.code, 6);
    EXPECT_THAT(busy.err, HasSubstr("sent it a result"));
    expectCard(client.receive(), result(client.get(kCs, "", 7), 200, "slow\n"));
    const Run healthy = mqctl("repair inet-agent-cs --yes");
    EXPECT_EQ(healthy.code, 0) << healthy.out;
    EXPECT_THAT(healthy.err, HasSubstr("nothing was sent"));
    EXPECT_EQ(agent().count("_process failed 8"), 1U);
}

TEST_F(MqctlHealthTest, PlaysTheOsAgent) {
    TestClient agent("inet-agent-cs");
    AgentProcess os(mqctlPath(), words("os-agent --location off"));
    ASSERT_TRUE(waitForSocket("OS-Agent"));
    agent.send(Card(subscription("SUBSCRIBE")));
    expectCard(agent.receive(), deviceState(false, false));
    agent.send(Card(subscription("UNSUBSCRIBE")));
    ASSERT_TRUE(os.waitForLine("< inet-agent-cs UNSUBSCRIBE"));
    EXPECT_EQ(os.stop(), ProcessEnd::exit(143));
}

TEST_F(MqctlHealthTest, OsAgentObeysItsInput) {
    TestClient agent("inet-agent-cs");
    const Run run =
        mqctl("os-agent -i --to inet-agent-cs", "location off\nnonsense\nemergency on\nquit\nlocation on\n");
    EXPECT_EQ(run.code, 0) << run.err;
    expectCard(agent.receive(), deviceState(true, false));
    expectCard(agent.receive(), deviceState(false, false));
    expectCard(agent.receive(), deviceState(false, true));
    EXPECT_FALSE(agent.receive(std::chrono::milliseconds(0)).has_value());
    EXPECT_THAT(run.err, HasSubstr("\"nonsense\""));
    EXPECT_THAT(run.out, HasSubstr("> inet-agent-cs location off, emergency on\n"));
}

}  // namespace
}  // namespace test_support
