#include "mq/MqClientControllerBase.h"

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "mq/Envelope.h"
#include "mq/MqMsgWrapper.h"
#include "mq/MqTest.h"
#include "postcard/InPostcard.h"

namespace {

using namespace zv_loc_fw;
using mq_test::cardOf;

class TestController : public MqClientControllerBase, public MqClientFunctionalModuleBase {
public:
    explicit TestController(const char* name) : TestController(name, name) {}
    TestController(const char* name, const char* ipc_name)
        : MqClientControllerBase(name, ipc_name, envelope::kHubSocketPath, nullptr) {}

    int init() override { return MqClientControllerBase::init(); }
    int deinit() override { return 0; }
    int timerCallback(const TimerDataInterface* /*data*/) override {
        log_info("test", "fired");
        return 0;
    }
    int sendIpc(const char* req) {
        return sendIpcMessage(cardOf({{"TO", getSelfIpcName()}, {"FROM", "a"}, {"REQ", req}})->getEncodedBuffer());
    }
    int sendLocal(const char* req) { return sendLocalMessage(cardOf({{"FROM", "a"}, {"REQ", req}}).get()); }

    int initResult = 0;
    std::atomic<int> shutdowns{0};

protected:
    int _init() override { return initResult != 0 ? initResult : setLocalTimer(0U, this, nullptr); }
    using MqClientControllerBase::_process;
    int _process(MqMsgWrapper* message) override {
        const std::unique_ptr<MqMsgWrapper> owner(message);
        const char* text = nullptr;
        const std::string req = owner->card()->getString("REQ", &text) == 0 ? text : "an announcement";
        log_info("test", "processed %s", req.c_str());
        if (req == "HELLO") {
            return MqClientControllerBase::_process(new MqMsgWrapper(owner->takeCard().release()));
        }
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

class ControllerBase : public mq_test::MqTest {};

TEST_F(ControllerBase, RefusesInitWithoutNames) {
    const TestController nameless(nullptr, "x");
    TestController unreachable("x", nullptr);
    EXPECT_TRUE(log.contains("[MqClientControllerBase] MqClientControllerBase failed 2"));
    EXPECT_TRUE(log.contains("[MqClientControllerBase] MqClientControllerBase failed 3"));
    EXPECT_EQ(unreachable.init(), 2);
    EXPECT_EQ(unreachable.launch(), 2);
    EXPECT_EQ(unreachable.sendIpcMessage(nullptr) + unreachable.sendLocal("X"), 2 + 4);
    EXPECT_EQ(unreachable.sendLocalMessage(nullptr) + unreachable.addPeer(nullptr), 2 + 2);
    EXPECT_EQ(unreachable.setLocalTimer(1U, &unreachable, nullptr), 0) << "told by the log alone";
    EXPECT_EQ(unreachable.kill() + unreachable.join(), 0);
}

TEST_F(ControllerBase, AFailedInitHookLeavesItAsItWas) {
    TestController controller("again");
    controller.initResult = 7;
    EXPECT_EQ(controller.init(), 20);
    controller.initResult = 0;
    EXPECT_EQ(controller.init(), 0) << "the second try replaces what the first one made";
    EXPECT_EQ(controller.sendLocal("X"), 0) << "never launched, it frees its messages";
}

TEST_F(ControllerBase, RunsMessagesAndTimersAndEndsWhenKilled) {
    TestController controller("runner");
    ASSERT_EQ(controller.init(), 0);
    ASSERT_EQ(controller.launch(), 0);
    EXPECT_TRUE(log.waitFor("fired")) << "a zero delay fires on the next turn";
    EXPECT_EQ(controller.sendLocal("HELLO"), 0);
    EXPECT_TRUE(log.waitFor("[runner] _process without timestamp. inherit this one to handle"));
    EXPECT_EQ(controller.sendIpc("KILL"), 0);
    EXPECT_EQ(controller.sendIpc("AFTER"), 0);
    EXPECT_TRUE(log.waitFor("processed AFTER")) << "a KILL message ends nothing";
    EXPECT_TRUE(log.contains("processed KILL"));
    controller.kill();
    controller.join();
    EXPECT_EQ(controller.shutdowns, 1);
    EXPECT_EQ(controller.launch(), 2) << "never again";
    EXPECT_TRUE(log.contains("[runner] Client controller leaving event loop"));
    EXPECT_FALSE(log.contains("run failed") || log.contains("waken up without"));
}

TEST_F(ControllerBase, MessagesQueuedAtTheEndAreStillProcessed) {
    TestController controller("drained");
    ASSERT_EQ(controller.init(), 0);
    EXPECT_EQ(controller.sendLocal("STOP-YOURSELF"), 0);
    EXPECT_EQ(controller.sendLocal("LATE"), 0);
    ASSERT_EQ(controller.launch(), 0);
    controller.join();
    EXPECT_TRUE(log.contains("processed LATE"));
}

TEST_F(ControllerBase, OneStopEndsEveryPeerHoweverTheyMeet) {
    for (int round = 0; round < 50; ++round) {
        TestController one("one");
        TestController two("two");
        ASSERT_EQ(one.init(), 0);
        ASSERT_EQ(two.init(), 0);
        std::thread killer([&, round] {
            if (round % 4 == 1) {
                one.kill();  // somewhere between launch and listen
            } else if (round % 4 == 2) {
                two.kill();
                one.kill();
            }
        });
        if (round % 4 == 0) {
            one.kill();  // before the launch
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
        killer.join();
        EXPECT_EQ(one.shutdowns + two.shutdowns, 2);
    }
}

TEST_F(ControllerBase, TransactionIdsTurnOverThroughZero) {
    TestController controller("counter");
    int32_t expected = 1;
    while (expected <= 10000000 && controller.getNextTxId() == expected) {
        ++expected;
    }
    EXPECT_EQ(expected, 10000001);
    EXPECT_EQ(controller.getNextTxId(), 0);
    EXPECT_EQ(controller.getNextTxId(), 1);
    EXPECT_EQ(log.count("getNextTxId rollback"), 1U);
}

TEST_F(ControllerBase, AMissingSocketDirectoryEndsTheLoopAtOnce) {
    removeSocketDirectory();
    TestController controller("homeless");
    ASSERT_EQ(controller.init(), 0);
    ASSERT_EQ(controller.launch(), 0);
    controller.join();
    EXPECT_EQ(controller.shutdowns, 1);
}

}  // namespace
