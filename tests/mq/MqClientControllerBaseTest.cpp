#include "mq/MqClientControllerBase.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/log.h"
#include "mq/Cards.h"
#include "mq/Envelope.h"
#include "mq/MqMsgWrapper.h"
#include "support/LogCapture.h"

namespace {

using namespace zv_loc_fw;
using mq_test::cardOf;
using mq_test::textOf;
using test_support::LogCapture;

class TestController : public MqClientControllerBase, public MqClientFunctionalModuleBase {
public:
    explicit TestController(const char* name, const char* ipc_name = "")
        : MqClientControllerBase(name, ipc_name != nullptr && ipc_name[0] == '\0' ? name : ipc_name,
                                 envelope::kHubSocketPath, nullptr) {}

    int init() override { return MqClientControllerBase::init(); }
    int deinit() override { return 0; }
    int timerCallback(const TimerDataInterface* /*data*/) override {
        log_info("timer", "fired %d", ++timersFired);
        return 0;
    }

    std::atomic<int> initResult{0};
    std::atomic<int> shutdowns{0};
    int timersFired = 0;
    int timerSecondsInInit = -1;

protected:
    int _init() override {
        if (timerSecondsInInit >= 0) {
            (void)setLocalTimer(static_cast<unsigned>(timerSecondsInInit), this, nullptr);
        }
        return initResult;
    }
    using MqClientControllerBase::_process;
    int _process(MqMsgWrapper* message) override {
        const std::unique_ptr<MqMsgWrapper> owner(message);
        const std::string req = textOf(*owner->card(), "REQ");
        log_info("test", "processed %s", req.c_str());
        if (req == "STOP-YOURSELF") {
            (void)kill();
        }
        return 0;
    }
    int _shutdown() override {
        ++shutdowns;
        return 0;
    }
};

class ControllerBase : public testing::Test {
protected:
    void SetUp() override { log_set_global_level(EL_VERBOSE); }
};

TEST_F(ControllerBase, RefusesInitWithoutNames) {
    LogCapture log;
    TestController nameless(nullptr, "x");
    TestController unreachable("x", nullptr);
    EXPECT_TRUE(log.contains("[MqClientControllerBase] MqClientControllerBase failed 2"));
    EXPECT_TRUE(log.contains("[MqClientControllerBase] MqClientControllerBase failed 3"));
    log.clear();
    EXPECT_EQ(unreachable.init(), 2);
    EXPECT_EQ(unreachable.launch(), 2);
    EXPECT_EQ(unreachable.sendIpcMessage(nullptr), 2);
    EXPECT_EQ(unreachable.sendLocalMessage(nullptr), 2);
    EXPECT_EQ(unreachable.sendLocalMessage(cardOf({{"FROM", "a"}}).get()), 4);
    EXPECT_EQ(unreachable.addPeer(nullptr), 2);
    EXPECT_EQ(unreachable.setLocalTimer(1U, &unreachable, nullptr), 0) << "told by the log alone";
    EXPECT_EQ(unreachable.kill(), 0);
    EXPECT_EQ(unreachable.join(), 0);
    for (const char* line : {"init failed 2", "launch failed 2", "sendIpcMessage failed 2", "sendLocalMessage failed 2",
                             "sendLocalMessage failed 4", "addPeer failed 2", "setLocalTimer abs failed 2",
                             "IPC receiver thread is null", "IPC handler thread is null"}) {
        EXPECT_EQ(log.count(line), 1U) << line;
    }
}

TEST_F(ControllerBase, AFailedInitHookLeavesItAsItWas) {
    TestController controller("again");
    controller.initResult = 7;
    EXPECT_EQ(controller.init(), 20);
    controller.initResult = 0;
    EXPECT_EQ(controller.init(), 0) << "the second try replaces what the first one made";
    ASSERT_EQ(controller.launch(), 0);
    controller.kill();
    controller.join();
    EXPECT_EQ(controller.shutdowns, 1);
}

TEST_F(ControllerBase, RunsMessagesAndTimersAndEndsWhenKilled) {
    const LogCapture log;
    TestController controller("runner");
    controller.timerSecondsInInit = 0;
    ASSERT_EQ(controller.init(), 0);
    ASSERT_EQ(controller.launch(), 0);
    EXPECT_TRUE(log.waitFor("fired 1")) << "a zero delay fires on the next turn";
    EXPECT_EQ(controller.sendLocalMessage(cardOf({{"FROM", "a"}, {"REQ", "HELLO"}}).get()), 0);
    EXPECT_TRUE(log.waitFor("processed HELLO"));
    EXPECT_EQ(controller.sendIpcMessage(cardOf({{"TO", "runner"}, {"FROM", "a"}, {"REQ", "KILL"}})->getEncodedBuffer()),
              0);
    EXPECT_TRUE(log.waitFor("processed KILL"));
    EXPECT_EQ(
        controller.sendIpcMessage(cardOf({{"TO", "runner"}, {"FROM", "a"}, {"REQ", "AFTER"}})->getEncodedBuffer()), 0);
    EXPECT_TRUE(log.waitFor("processed AFTER")) << "a KILL message ends nothing";
    controller.kill();
    controller.join();
    EXPECT_EQ(controller.shutdowns, 1);
    EXPECT_EQ(controller.launch(), 2) << "never again";
    EXPECT_TRUE(log.contains("[runner] Client controller leaving event loop"));
    EXPECT_FALSE(log.contains("run failed"));
    EXPECT_FALSE(log.contains("waken up without"));
}

TEST_F(ControllerBase, MessagesQueuedAtTheEndAreStillProcessed) {
    const LogCapture log;
    TestController controller("drained");
    ASSERT_EQ(controller.init(), 0);
    EXPECT_EQ(controller.sendLocalMessage(cardOf({{"FROM", "a"}, {"REQ", "STOP-YOURSELF"}}).get()), 0);
    EXPECT_EQ(controller.sendLocalMessage(cardOf({{"FROM", "a"}, {"REQ", "LATE"}}).get()), 0);
    ASSERT_EQ(controller.launch(), 0);
    controller.join();
    EXPECT_TRUE(log.contains("processed STOP-YOURSELF"));
    EXPECT_TRUE(log.contains("processed LATE"));
}

TEST_F(ControllerBase, NeverLaunchedControllersFreeTheirMessages) {
    TestController controller("idle");
    ASSERT_EQ(controller.init(), 0);
    EXPECT_EQ(controller.sendLocalMessage(cardOf({{"FROM", "a"}, {"REQ", "X"}}).get()), 0);
}

TEST_F(ControllerBase, OneStopEndsEveryPeerHoweverTheyMeet) {
    log_set_global_level(EL_ERROR);
    for (int round = 0; round < 50; ++round) {
        TestController one("one");
        TestController two("two");
        ASSERT_EQ(one.init(), 0);
        ASSERT_EQ(two.init(), 0);
        std::thread killer;
        switch (round % 4) {
            case 0:
                one.kill();  // before the launch
                break;
            case 1:
                killer = std::thread([&] { one.kill(); });  // somewhere between launch and listen
                break;
            case 2:
                killer = std::thread([&] {
                    two.kill();
                    one.kill();
                });
                break;
            default:
                break;
        }
        ASSERT_EQ(one.launch(), 0);
        ASSERT_EQ(two.launch(), 0);
        ASSERT_EQ(one.addPeer(&two), 0);  // perhaps after its end
        ASSERT_EQ(two.addPeer(&one), 0);
        if (round % 4 == 3) {
            two.kill();
        }
        one.join();
        two.join();
        if (killer.joinable()) {
            killer.join();
        }
        EXPECT_EQ(one.shutdowns + two.shutdowns, 2);
    }
}

TEST_F(ControllerBase, TransactionIdsTurnOverThroughZero) {
    const LogCapture log;
    TestController controller("counter");
    for (int32_t expected = 1; expected <= 10000000; ++expected) {
        if (controller.getNextTxId() != expected) {
            FAIL() << expected;
        }
    }
    EXPECT_EQ(controller.getNextTxId(), 0);
    EXPECT_EQ(controller.getNextTxId(), 1);
    EXPECT_EQ(log.count("getNextTxId rollback"), 1U);
}

TEST_F(ControllerBase, WithoutItsOwnHookItSaysSo) {
    class Plain : public TestController {
    public:
        using TestController::TestController;

    protected:
        int _process(MqMsgWrapper* message) override { return MqClientControllerBase::_process(message); }
    };
    const LogCapture log;
    Plain controller("plain");
    ASSERT_EQ(controller.init(), 0);
    EXPECT_EQ(controller.sendLocalMessage(cardOf({{"FROM", "a"}, {"REQ", "X"}}).get()), 0);
    ASSERT_EQ(controller.launch(), 0);
    EXPECT_TRUE(log.waitFor("_process without timestamp. inherit this one to handle incoming IPC messages"));
    controller.kill();
    controller.join();
}

TEST_F(ControllerBase, AMissingSocketDirectoryEndsTheLoopAtOnce) {
    const mq_test::MissingSocketDirectory missing;
    TestController controller("homeless");
    ASSERT_EQ(controller.init(), 0);
    ASSERT_EQ(controller.launch(), 0);
    controller.join();
    EXPECT_EQ(controller.shutdowns, 1);
}

}  // namespace
