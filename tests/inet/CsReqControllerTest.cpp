#include "inet/CsReqController.h"

#include <string>

#include "inet/InetTest.h"

namespace inet_test {
namespace {

using namespace zv_loc_fw;
namespace device_files = test_support::device_files;

class CsReqControllerTest : public InetTest {};

TEST_F(CsReqControllerTest, StateThatIsNotToldStaysAsItWas) {
    const Card card = Card().card("GPS_STATE", Card().boolean("IS_GPS_PROVIDER_ENABLED", false));
    const Card no_bools = Card()
                              .card("GPS_STATE", Card().int32("IS_GPS_PROVIDER_ENABLED", 1))
                              .card("IN_EMERGENCY_CALL", Card().int32("X", 1));
    const Card emergency = Card().card("IN_EMERGENCY_CALL", Card().boolean("IS_EMERGENCY", true));
    CsReqController controller("inet-agent-cs", "inet-agent-cs");
    EXPECT_EQ(controller.processOSAgentNotification(messageOf(card)->card()), 0);
    EXPECT_FALSE(controller.shutdownTimer().started()) << "without a mask it never is";
    controller.shutdownTimer().setLaunchTriggerMask(1);
    EXPECT_EQ(controller.processOSAgentNotification(messageOf(no_bools)->card()), 0);
    EXPECT_TRUE(controller.shutdownTimer().started()) << "location is off";
    EXPECT_EQ(controller.processOSAgentNotification(messageOf(emergency)->card()), 0);
    EXPECT_FALSE(controller.shutdownTimer().started());
    EXPECT_EQ(controller.processOSAgentNotification(nullptr), 2);
    EXPECT_TRUE(log.contains("[inet-agent-cs] handleOsStateUpdate failed: 2"));
    EXPECT_EQ(controller.subOrUnSubOsStatusUpdate(false), 308) << "no transport yet";
    EXPECT_TRUE(log.contains("[inet-agent-cs] subscribeOsStatusUpdate failed: 308"));
}

TEST_F(CsReqControllerTest, AnIdleTimeThatIsNoneKeepsTheDefault) {
    for (const std::string value : {"-1", "4294967296", "0", "4294967295", "text"}) {
        device_files::writeGpsConf({{"PROCESS_SHUTDOWN_TIMER_IN_MS", value}});
        log.clear();
        const CsReqController controller("inet-agent-cs", "inet-agent-cs");
        EXPECT_EQ(log.count("[inet-agent-cs] PROCESS_SHUTDOWN_TIMER_IN_MS " + value + " is no time, using 300000"),
                  value == "-1" || value == "4294967296" ? 1U : 0U);
    }
}

}  // namespace
}  // namespace inet_test
