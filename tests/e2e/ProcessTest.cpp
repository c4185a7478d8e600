#include <sys/stat.h>

#include <csignal>
#include <filesystem>

#include "e2e/E2eTest.h"
#include "support/HttpServer.h"
#include "support/files.h"

namespace test_support {
namespace {

using testing::AllOf;
using testing::HasSubstr;

class ProcessTest : public E2eTest {
protected:
    void expectServed() {
        TestClient client("client");
        for (const char* controller : {kCs, kTdpDl}) {
            const Card request = client.get(controller, mHttp.url("/hello"), 1);
            expectCard(client.exchange(request), result(request, 200, "hello\n"));
        }
    }

    HttpServer mHttp;
};

mode_t modeOf(const std::string& name) {
    struct stat file {};
    EXPECT_EQ(lstat(socketPath(name).c_str(), &file), 0) << name;
    return file.st_mode;
}

TEST_F(ProcessTest, DefaultsServeWithoutAnyConfiguration) {
    device_files::reset();
    start();
    for (const char* controller : {kCs, kTdpDl}) {
        EXPECT_EQ(modeOf(controller), mode_t{S_IFSOCK | 0770}) << controller;
    }
    expectServed();
    stop();
    // Everything is logged until the configuration is read, then warnings at most.
    EXPECT_THAT(agent().log(), HasSubstr("[main] config loaded 0"));
    EXPECT_EQ(agent().count("process shutdown"), 0U);
    EXPECT_EQ(agent().count("Bye Bye"), 0U);
}

TEST_F(ProcessTest, BadSettingEndsTheStartWithItsStatus) {
    const std::string directory = "/data/vendor/location/marlow/";
    const std::string long_directory = directory + std::string(240 - directory.size() - 1, 'x') + "/";
    struct {
        device_files::Settings settings;
        int status;
        std::string line = {};
    } const starts[] = {
        {{{"DEBUG_GLOBAL_LOG_LEVEL", "-1"}}, 4},
        {{{"DEBUG_GLOBAL_LOG_LEVEL", "much"}}, 4},
        {{{"DEBUG_GLOBAL_LOG_LEVEL", "99999999999999999999"}}, 4},
        {{{"CAIRN_CURL_VERBOSE_ENABLED", "yes"}}, 5},
        {{{"CAIRN_CURL_VERBOSE_ENABLED", "1"}, {"CAIRN_AP_ROOT_DIR", "\"\""}}, 6},
        {{{"CAIRN_AP_ROOT_DIR", long_directory}}, 6, long_directory + "/curl_verbose.log too long\n"},
        {{{"CAIRN_CURL_VERBOSE_ENABLED", "1"}, {"ENABLE_SAVE_SERVER_REQ_AND_RESP_MASK", "all"}}, 7},
        {{{"ENABLE_SAVE_SERVER_REQ_AND_RESP_MASK", "7x"}}, 7},
        // The first in the order of reading counts.
        {{{"CAIRN_CURL_VERBOSE_ENABLED", "yes"}, {"ENABLE_SAVE_SERVER_REQ_AND_RESP_MASK", "all"}}, 5},
    };
    const std::string trace = directory + "curl_verbose.log";
    writeFile(trace, "of an earlier run\n");
    for (const auto& [settings, status, line] : starts) {
        SCOPED_TRACE(testing::PrintToString(settings));
        configure(settings);
        launch();
        expectEnd(ProcessEnd::exit(status));
        EXPECT_THAT(agent().log(), AllOf(HasSubstr(line), HasSubstr("[main] failed " + std::to_string(status) + "\n")));
        expectNoSockets();
        EXPECT_EQ(readFile(trace), "of an earlier run\n");  // not reached
    }
    // One character less, and the directory does not even have to be there.
    configure({{"CAIRN_AP_ROOT_DIR", long_directory.substr(1)}, {"REPLY_TO_REJECTED_REQUESTS", "perhaps"}});
    start();
    expectServed();
    EXPECT_EQ(agent().count("REPLY_TO_REJECTED_REQUESTS cannot be read, counts as 0"), 1U);
}

TEST_F(ProcessTest, LaunchTriggerMaskDecidesOnTheSubscription) {
    struct {
        std::vector<std::string> arguments;
        bool enabled;
    } const starts[] = {
        {{}, false},
        {{"--launch-trigger-mask", "0"}, false},
        {{"--launch-trigger-mask", "1"}, true},
        {{"--launch-trigger-mask=0x7fffffff"}, true},
        {{"--launch-trigger-mask", "10000"}, true},
        {{"--launch-trigger-mask", " 1 and more"}, true},
        {{"--launch-trigger-mask", "80000000"}, false},
        {{"--launch-trigger-mask", "FFFFFFFFF"}, false},
        {{"--launch-trigger-mask", "-1"}, false},
        {{"--launch-trigger-mask", "1", "--launch-trigger-mask", "0"}, false},
        {{"--launch-trigger-mask"}, false},
        {{"--help", "-x", "stray", "--cairn-wifi", "a", "--cairn-modem-cell=b", "--launch-trigger-mask", "1"}, true},
    };
    for (const char* mask : {"x", "", "-", "10000000000000000"}) {
        SCOPED_TRACE(mask);
        launch({"--launch-trigger-mask", mask});
        expectEnd(ProcessEnd::signal(SIGABRT));
        expectNoSockets();
    }
    TestClient os_agent("OS-Agent");
    for (const auto& [arguments, enabled] : starts) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        start(arguments);
        stop();
        EXPECT_THAT(agent().log(), HasSubstr(std::string("[main] process shutdown ") + (enabled ? "En" : "Dis")));
        if (enabled) {
            expectCard(os_agent.receive(), subscription("SUBSCRIBE"));
        }
        EXPECT_FALSE(os_agent.receive(std::chrono::milliseconds(0)).has_value());
    }
}

TEST_F(ProcessTest, StaleFilesUnderItsNamesAreReplaced) {
    leaveStaleSocket(kCs);
    writeFile(socketPath(kTdpDl), "no socket");
    start();
    for (const char* controller : {kCs, kTdpDl}) {
        EXPECT_EQ(modeOf(controller), mode_t{S_IFSOCK | 0770}) << controller;
    }
    expectServed();
    // Killed, it leaves stale files of its own.
    agent().signal(SIGKILL);
    expectEnd(ProcessEnd::signal(SIGKILL));
    EXPECT_TRUE(std::filesystem::exists(socketPath(kCs)));
    start();
    expectServed();
}

TEST_F(ProcessTest, ControllerThatCannotTakeItsNameEndsBoth) {
    std::filesystem::create_directory(socketPath(kTdpDl));
    launch();
    expectEnd(ProcessEnd::exit(0));
    EXPECT_FALSE(std::filesystem::exists(socketPath(kCs)));
    std::filesystem::remove_all(device_files::kSocketDirectory);
    launch();
    expectEnd(ProcessEnd::exit(0));
    EXPECT_EQ(agent().count("[MqClientIpcReciver] MqClientIpcReciver constructor failed 11"), 2U);
}

}  // namespace
}  // namespace test_support
