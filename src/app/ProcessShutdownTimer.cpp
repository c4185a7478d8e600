#include "app/ProcessShutdownTimer.h"

#include <cstdlib>
#include <utility>

#include "base/ModuleLog.h"

namespace zv_loc_fw {

namespace {

// The level is that of the platform's default tag.
constinit ModuleLog moduleLog("ProcessShutdownTimer", nullptr);

}  // namespace

ProcessShutdownTimer::ProcessShutdownTimer(std::function<void()> callback, std::string process_name)
    : mCallback(std::move(callback)), mProcessName(std::move(process_name)) {}

ProcessShutdownTimer::~ProcessShutdownTimer() {
    shutDown();
}

// The names and numbers in the three lines are fixed texts, not places in this file: deliberate.

void ProcessShutdownTimer::start() {
    if (mLaunchTriggerMask == 0) {
        return;
    }
    moduleLog.debug("start", 30, "Started shutdown timer for process %s", mProcessName.c_str());
    mStarted = true;
    (void)PosTimer::start(mTimeoutMs, false);  // a failure is logged there; the process then stays
}

void ProcessShutdownTimer::stop() {
    if (mLaunchTriggerMask == 0) {
        return;
    }
    moduleLog.debug("stop", 38, "Stopped shutdown timer for process %s", mProcessName.c_str());
    mStarted = false;
    PosTimer::stop();
}

void ProcessShutdownTimer::restart() {
    moduleLog.debug("restart", 46, "Restarted shutdown timer for process %s", mProcessName.c_str());
    stop();
    start();
}

void ProcessShutdownTimer::timeOutCallback() {
    if (!mCallback) {
        std::abort();
    }
    mCallback();
}

}  // namespace zv_loc_fw
