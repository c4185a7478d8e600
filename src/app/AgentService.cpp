#include "app/AgentService.h"

#include <new>

#include "app/StopSignals.h"
#include "base/log.h"
#include "inet/AgentProtocol.h"
#include "inet/CsReqController.h"
#include "inet/TdpDlReqController.h"

namespace zv_loc_fw {

namespace {

using agent_protocol::kCsController;
using agent_protocol::kTdpDlController;

// Static, so that controllers that are left behind on a failure stay reachable; without destructors, since their
// threads may still run while the process ends.
CsReqController* csController;
TdpDlReqController* tdpDlController;

int createAndInit(int32_t launch_trigger_mask) {
    csController = new (std::nothrow) CsReqController(kCsController, kCsController);
    if (csController == nullptr) {
        return 11;
    }
    tdpDlController = new (std::nothrow) TdpDlReqController(kTdpDlController, kTdpDlController);
    if (tdpDlController == nullptr) {
        return 16;
    }
    if (csController->init() != 0) {
        return 22;
    }
    const bool shutdown_enabled = launch_trigger_mask > 0;
    log_debug("main", "process shutdown %s", shutdown_enabled ? "Enabled" : "Disabled");
    if (shutdown_enabled) {
        // Only 16 bits: a mask such as 0x10000 subscribes but never starts the timer, deliberately.
        csController->shutdownTimer().setLaunchTriggerMask(static_cast<uint16_t>(launch_trigger_mask));
        (void)csController->subOrUnSubOsStatusUpdate(false);  // logged there; not fatal
    }
    return tdpDlController->init() != 0 ? 25 : 0;
}

void killControllers() {
    (void)csController->kill();
    (void)tdpDlController->kill();
}

/// No worker may hold a transfer handle when libcurl is cleaned up.
void stopWorkers() {
    for (InetControllerBase* controller :
         {static_cast<InetControllerBase*>(csController), static_cast<InetControllerBase*>(tdpDlController)}) {
        if (controller != nullptr) {
            controller->stopWithoutLoop();
        }
    }
}

int launchAndJoin() {
    if (csController->launch() != 0) {
        return 32;
    }
    if (tdpDlController->launch() != 0) {
        return 35;
    }
    // Joined before the controllers are deleted; a signal that came earlier is waiting.
    StopSignals signals(killControllers);
    signals.watch();
    if (csController->addPeer(tdpDlController) != 0) {
        return 64;
    }
    if (tdpDlController->addPeer(csController) != 0) {
        return 92;
    }
    if (csController->join() != 0) {
        return 202;
    }
    if (tdpDlController->join() != 0) {
        return 205;
    }
    return 0;
}

}  // namespace

int runAgentService(int32_t launch_trigger_mask) {
    int status = createAndInit(launch_trigger_mask);
    if (status == 0) {
        status = launchAndJoin();
        if (status != 0) {
            killControllers();
            (void)csController->join();  // harmless for what was not launched
            (void)tdpDlController->join();
        }
    }
    if (status != 0) {
        stopWorkers();
        return status;
    }
    delete csController;  // in this order: the download controller is the peer that the other's timer kills
    csController = nullptr;
    delete tdpDlController;
    tdpDlController = nullptr;
    return 0;
}

}  // namespace zv_loc_fw
