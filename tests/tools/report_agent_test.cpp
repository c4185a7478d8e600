// A mixed run of the real agent, and what mqctl says about its log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>

#include "support/AgentProcess.h"
#include "support/DeviceFiles.h"
#include "support/HttpServer.h"
#include "support/TestClient.h"
#include "support/files.h"

namespace {

using namespace test_support;
using nlohmann::json;

constexpr const char* kCs = "inet-agent-cs";
constexpr const char* kTdp = "inet-agent-tdp-dl";

/// Runs "mqctl report" to its end. @return its exit status, its output in *out
int report(const std::vector<std::string>& arguments, std::string* out) {
    AgentProcess::Options options;
    options.arguments = arguments;
    options.arguments.insert(options.arguments.begin(), "report");
    AgentProcess mqctl(MQCTL_PATH, options);
    const auto end = mqctl.wait();
    *out = mqctl.log();
    return end && end->exited ? end->status : -1;
}

class ReportAgentTest : public testing::TestWithParam<int> {
protected:
    void SetUp() override {
        device_files::requireDevice();
        device_files::reset();
        device_files::writeMarlowConf({{"DEBUG_GLOBAL_LOG_LEVEL", std::to_string(GetParam())}});
    }
};

TEST_P(ReportAgentTest, NamesEachRequestWithItsOutcome) {
    HttpServer server;
    AgentProcess agent(INET_AGENT_PATH);
    ASSERT_TRUE(waitForSocket(kCs) && waitForSocket(kTdp));
    TestClient wifi("wifi");
    TestClient apic("apic");
    const auto bring = [&server](const std::string& path) { return server.url(path); };

    // Both controllers at once; a second request waits behind the first of each.
    ASSERT_EQ(wifi.send(wifi.get(kCs, bring("/slow?ms=400"), 1)), 0);
    ASSERT_EQ(apic.send(apic.get(kTdp, bring("/slow?ms=400"), 1)), 0);
    ASSERT_EQ(wifi.send(wifi.post(kCs, bring("/echo"), "body", 2)), 0);
    ASSERT_EQ(apic.send(apic.get(kTdp, bring("/redirect?to=%2Fhello"), 2)), 0);
    ASSERT_EQ(apic.send(apic.get(kTdp, bring("/retry-after?value=120"), 3)), 0);
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(wifi.receive());
    }
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(apic.receive());
    }
    ASSERT_TRUE(apic.exchange(apic.get(kTdp, "http://127.0.0.1:1/refused", 4)));
    ASSERT_TRUE(apic.exchange(apic.get(kTdp, bring("/slow?ms=20000"), 5, 3)));  // two seconds of its own
    ASSERT_TRUE(wifi.exchange(wifi.get(kCs, "", 3, 3)));  // no URL: rejected, answered at its deadline
    ASSERT_TRUE(wifi.exchange(wifi.get(kCs, bring("/hello"), 4, 1)));
    ASSERT_TRUE(agent.stop());

    const TempDir dir;
    const std::string log = dir.file("agent.log");
    writeFile(log, agent.log());
    std::string out;
    ASSERT_EQ(report({log, "-q", "--json=short", "--html", dir.file("r.html"), "--har", dir.file("r.har")}, &out), 0)
        << out;
    const json result = json::parse(out, nullptr, false);
    ASSERT_TRUE(result.is_object()) << out;
    std::map<std::string, std::string> outcomes;
    for (const json& request : result.at("requests")) {
        const int tx_id = request.value("tx_id", 0);
        outcomes[request.value("client", "?") + " " + std::to_string(tx_id)] = request.at("outcome");
        EXPECT_EQ(request.contains("wait_s"), GetParam() >= 4) << request;
    }
    std::map<std::string, std::string> expected = {{"wifi 1", "result"},
                                                   {"wifi 2", "result"},
                                                   {"apic 1", "result"},
                                                   {"apic 2", "result"},
                                                   {"apic 3", "result"},
                                                   {"apic 4", "transfer failed"},
                                                   {"apic 5", "transfer timed out"},
                                                   {"wifi 3", "expired running"}};
    // Below level 4 nobody knows whose request expired waiting.
    expected[GetParam() >= 4 ? "wifi 4" : "? 0"] = "expired waiting";
    EXPECT_EQ(outcomes, expected);
    ASSERT_EQ(result.at("wedges").size(), 1U);
    EXPECT_EQ(result.at("wedges").at(0).at("controller"), kCs);
    EXPECT_EQ(result.at("wedges").at(0).at("tx_id"), 3);
    EXPECT_EQ(result.at("wedges").at(0).at("expired_meanwhile"), 1);
    EXPECT_THAT(readFile(dir.file("r.html")), testing::HasSubstr("inet-agent-cs was wedged"));
    EXPECT_EQ(json::parse(readFile(dir.file("r.har"))).at("log").at("entries").size(), 7U);

    ASSERT_EQ(report({log, "--client", "apic", "--no-query", "--urls"}, &out), 0);
    EXPECT_THAT(out, testing::HasSubstr("/retry-after\n"));
    EXPECT_THAT(out, testing::HasSubstr("WEDGED from"));
    EXPECT_THAT(out, testing::Not(testing::HasSubstr("/echo")));
}

INSTANTIATE_TEST_SUITE_P(Levels, ReportAgentTest, testing::Values(3, 4, 5));

TEST(ReportCommandTest, ExitStatusTellsWhatIsWrong) {
    const TempDir dir;
    writeFile(dir.file("odd.log"), "nothing\nof the agent\n");
    writeFile(dir.file("fine.log"), "KVIA I 01-21 07:25:50  1  2 [inet-agent-cs-worker] entering event loop\n");
    std::string out;
    EXPECT_EQ(report({dir.file("fine.log")}, &out), 0) << out;
    EXPECT_EQ(report({dir.file("fine.log"), "--html", "/nowhere/x"}, &out), 1);
    EXPECT_EQ(report({dir.file("missing.log")}, &out), 2);
    EXPECT_EQ(report({dir.path()}, &out), 2);
    EXPECT_EQ(report({dir.file("fine.log"), "--since", "noon"}, &out), 2);
    EXPECT_EQ(report({dir.file("odd.log")}, &out), 3);
    EXPECT_EQ(report({"/dev/null"}, &out), 3);
}

}  // namespace
