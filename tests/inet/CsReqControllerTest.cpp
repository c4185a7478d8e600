#include "inet/CsReqController.h"

#include <gmock/gmock.h>

#include <android/log.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/log.h"
#include "inet/TdpDlReqController.h"
#include "mq/MqMsgWrapper.h"
#include "support/DeviceFiles.h"
#include "support/LogCapture.h"
#include "support/TestClient.h"
#include "transfer/Messages.h"

namespace {

using namespace zv_loc_fw;
namespace device_files = test_support::device_files;
using test_support::Card;
using test_support::LogCapture;
using test_support::TestClient;
using testing::ElementsAre;
using testing::IsEmpty;

/// The second road's level is read once, with the first line of the process.
class VerboseDevice : public testing::Environment {
public:
    void SetUp() override {
        device_files::reset();
        device_files::writeGpsConf({{"DEBUG_LEVEL", "5"}});
    }
};
const auto* const verboseDevice = testing::AddGlobalTestEnvironment(new VerboseDevice);

const std::string kStarted = "start:30] Started shutdown timer for process INET-AGENT";
const std::string kStopped = "stop:38] Stopped shutdown timer for process INET-AGENT";
const std::string kRestarted = "restart:46] Restarted shutdown timer for process INET-AGENT";

Card event(std::optional<bool> location, std::optional<bool> emergency) {
    Card card;
    card.string("TO", "inet-agent-cs").string("FROM", "OS-Agent").string("INFO", "OS-STATUS-UPDATE");
    if (location.has_value()) {
        card.card("GPS_STATE", Card().boolean("IS_GPS_PROVIDER_ENABLED", *location));
    }
    if (emergency.has_value()) {
        card.card("IN_EMERGENCY_CALL", Card().boolean("IS_EMERGENCY", *emergency));
    }
    return card;
}

class CsReqControllerTest : public testing::Test {
protected:
    void SetUp() override {
        log_set_global_level(EL_VERBOSE);
        device_files::writeGpsConf({{"DEBUG_LEVEL", "5"}});
    }

    /// Lines of the timer's own, with their priority checked.
    std::vector<std::string> timerLines() {
        std::vector<std::string> texts;
        for (const test_support::LogLine& line : log.lines()) {
            if (line.tag == "ProcessShutdownTimer") {
                EXPECT_EQ(line.priority, ANDROID_LOG_DEBUG);
                texts.push_back(line.text);
            }
        }
        return texts;
    }

    LogCapture log;
};

TEST_F(CsReqControllerTest, DeviceStateSteersTheShutdownTimer) {
    const auto nothing = std::nullopt;
    const Card no_bools = Card()
                              .card("GPS_STATE", Card().int32("IS_GPS_PROVIDER_ENABLED", 0))
                              .card("IN_EMERGENCY_CALL", Card().int32("X", 1));
    const std::vector<std::string> none;
    const std::vector<std::string> restart = {kRestarted, kStopped, kStarted};
    const struct {
        const char* what;
        Card event;
        std::vector<std::string> lines;
    } steps[] = {
        {"at first location is on", event(nothing, nothing), none},
        {"location off", event(false, nothing), {kStarted}},
        {"off again", event(false, nothing), restart},
        {"nothing said: still off", event(nothing, nothing), restart},
        {"emergency", event(nothing, true), {kStopped}},
        {"location off in an emergency", event(false, nothing), none},
        {"emergency over", event(nothing, false), {kStarted}},
        {"both at once", event(true, true), {kStopped}},
        {"cards without their bools change nothing", no_bools, none},
        {"emergency over, location on", event(nothing, false), none},
        {"both off", event(false, false), {kStarted}},
        {"location on", event(true, nothing), {kStopped}},
    };
    CsReqController controller("inet-agent-cs", "inet-agent-cs");
    controller.shutdownTimer().setLaunchTriggerMask(1);
    for (const auto& step : steps) {
        log.clear();
        EXPECT_EQ(controller.processOSAgentNotification(transfer_test::messageOf(step.event)->card()), 0);
        EXPECT_EQ(timerLines(), step.lines) << step.what;
        const bool location_told = step.event.has("GPS_STATE");
        EXPECT_EQ(log.count("[inet-agent-cs] Location setting?: "), location_told ? 1U : 0U) << step.what;
        EXPECT_EQ(log.count("[inet-agent-cs] OS Status Update"), 1U) << step.what;
    }
    EXPECT_EQ(controller.processOSAgentNotification(transfer_test::messageOf(event(false, true))->card()), 0);
    EXPECT_TRUE(log.contains("[inet-agent-cs] Location setting?: false"));
    EXPECT_TRUE(log.contains("[inet-agent-cs] Device in emergency: true"));

    EXPECT_EQ(controller.processOSAgentNotification(transfer_test::messageOf(event(false, false))->card()), 0);
    log.clear();
    EXPECT_EQ(controller.processOSAgentNotification(nullptr), 2);
    EXPECT_TRUE(log.contains("[inet-agent-cs] handleOsStateUpdate failed: 2"));
    EXPECT_EQ(timerLines(), restart) << "the timer is steered all the same";
}

TEST_F(CsReqControllerTest, WithoutAMaskTheTimerStaysSilent) {
    CsReqController controller("inet-agent-cs", "inet-agent-cs");
    for (const Card& card : {event(false, false), event(false, false), event(true, true)}) {
        EXPECT_EQ(controller.processOSAgentNotification(transfer_test::messageOf(card)->card()), 0);
        EXPECT_FALSE(controller.shutdownTimer().started());
    }
    EXPECT_THAT(timerLines(), IsEmpty());
}

TEST_F(CsReqControllerTest, SubscriptionsNameTheOneItem) {
    TestClient os_agent("OS-Agent");
    CsReqController controller("inet-agent-cs", "inet-agent-cs");
    EXPECT_EQ(controller.subOrUnSubOsStatusUpdate(false), 308) << "no transport yet";
    EXPECT_TRUE(log.contains("[inet-agent-cs] subscribeOsStatusUpdate failed: 308"));
    ASSERT_EQ(controller.init(), 0);
    for (const bool unsubscribe : {false, true}) {
        EXPECT_EQ(controller.subOrUnSubOsStatusUpdate(unsubscribe), 0);
        const auto card = os_agent.receive();
        ASSERT_TRUE(card.has_value());
        Card expected;
        expected.string("TO", "OS-Agent").string("FROM", "inet-agent-cs");
        expected.string("REQ", unsubscribe ? "UNSUBSCRIBE" : "SUBSCRIBE");
        expected.add("DATA-ITEMS", test_support::Type::ArrayInt32, std::string("\2\0\0\0", 4));
        EXPECT_EQ(card->encode(), expected.encode());
    }
}

TEST_F(CsReqControllerTest, ExpiryUnsubscribesThenKillsPeersThenItself) {
    class Cs : public CsReqController {
    public:
        Cs() : CsReqController("inet-agent-cs", "inet-agent-cs") {}
        int subOrUnSubOsStatusUpdate(bool unsubscribe) override {
            log_info("order", unsubscribe ? "unsubscribe" : "subscribe");
            return CsReqController::subOrUnSubOsStatusUpdate(unsubscribe);
        }
        int kill() override {
            log_info("order", "self");
            return CsReqController::kill();
        }
    };
    class Peer : public TdpDlReqController {
    public:
        Peer() : TdpDlReqController("inet-agent-tdp-dl", "inet-agent-tdp-dl") {}
        int kill() override {
            log_info("order", "peer");
            return TdpDlReqController::kill();
        }
    };
    TestClient os_agent("OS-Agent");
    device_files::writeGpsConf({{"DEBUG_LEVEL", "5"}, {"PROCESS_SHUTDOWN_TIMER_IN_MS", "1"}});
    Cs cs;
    Peer peer;
    ASSERT_EQ(cs.init(), 0);
    ASSERT_EQ(peer.init(), 0);
    cs.shutdownTimer().setLaunchTriggerMask(1);
    ASSERT_EQ(cs.launch(), 0);
    ASSERT_EQ(peer.launch(), 0);
    ASSERT_EQ(cs.addPeer(&peer), 0);
    ASSERT_EQ(peer.addPeer(&cs), 0);
    ASSERT_EQ(os_agent.send(event(false, std::nullopt)), 0);
    cs.join();
    peer.join();
    std::vector<std::string> order;
    for (const std::string& text : log.texts()) {
        // The peers kill each other once more as they end.
        const bool counts = text.starts_with("[order]") || text == "[inet-agent-cs] Shutting down process...";
        if (counts && std::find(order.begin(), order.end(), text) == order.end()) {
            order.push_back(text);
        }
    }
    EXPECT_THAT(order, ElementsAre("[inet-agent-cs] Shutting down process...", "[order] unsubscribe", "[order] peer",
                                   "[order] self"));
    const auto last = os_agent.receive();
    ASSERT_TRUE(last.has_value());
    EXPECT_EQ(last->getString("REQ"), "UNSUBSCRIBE");
}

TEST_F(CsReqControllerTest, AnIdleTimeThatIsNoneKeepsTheDefault) {
    for (const char* value : {"-1", "4294967296"}) {
        device_files::writeGpsConf({{"PROCESS_SHUTDOWN_TIMER_IN_MS", value}});
        log.clear();
        const CsReqController controller("inet-agent-cs", "inet-agent-cs");
        EXPECT_TRUE(log.contains(std::string("[inet-agent-cs] PROCESS_SHUTDOWN_TIMER_IN_MS ") + value +
                                 " is no time, using 300000"));
    }
    for (const char* value : {"0", "4294967295", "text"}) {
        device_files::writeGpsConf({{"PROCESS_SHUTDOWN_TIMER_IN_MS", value}});
        log.clear();
        const CsReqController controller("inet-agent-cs", "inet-agent-cs");
        EXPECT_THAT(log.texts(), IsEmpty()) << value;
    }
}

}  // namespace
