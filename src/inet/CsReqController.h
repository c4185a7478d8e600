#pragma once

#include "app/ProcessShutdownTimer.h"
#include "inet/InetControllerBase.h"

namespace zv_loc_fw {

/// The crowd-sourcing controller, "inet-agent-cs": a request controller that also follows whether location is on and
/// whether the device is in an emergency call, as the OS agent publishes it. Both only steer the process shutdown
/// timer: requests are served whatever the device's state.
///
/// When the timer expires, on its own thread: unsubscribe, kill every peer, kill this controller.
class CsReqController : public InetControllerBase {
public:
    /// Reads "PROCESS_SHUTDOWN_TIMER_IN_MS" of the GNSS configuration file into the timer.
    CsReqController(const char* name, const char* queue_name);

    /// Asks the OS agent for device state, or no longer. Sent once, to an agent that is not there in vain. Owner's,
    /// event-loop and timer's thread. @return 0; 300, 301 no memory; 302 to 305, 307 not built; 308 not sent. Logged as
    ///         "subscribeOsStatusUpdate failed: %d", for both: deliberate
    int subOrUnSubOsStatusUpdate(bool unsubscribe) override;

    /// Takes what an event says (what it leaves out stays as it was) and steers the timer. Event-loop thread.
    /// @param event null is logged as "handleOsStateUpdate failed: %d" 2, and the timer is steered all the same
    int processOSAgentNotification(InPostcard* event) override;

    /// Owner's thread, before launch.
    ProcessShutdownTimer& shutdownTimer() { return mShutdownTimer; }

private:
    void shutDownProcess();
    void readDeviceState(InPostcard& event);
    void steerTimer();

    // Event-loop thread
    bool mLocationEnabled = true;
    bool mInEmergency = false;

    // Self-synchronising. The last member: it is gone, and its callback over, before anything that the callback needs.
    ProcessShutdownTimer mShutdownTimer;
};

}  // namespace zv_loc_fw
