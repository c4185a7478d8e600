#include "inet/CsReqController.h"

#include <cstdint>
#include <limits>
#include <memory>

#include "base/log.h"
#include "inet/AgentProtocol.h"
#include "mq/Envelope.h"
#include "platform/posutil/pos_conf.h"
#include "postcard/CardBuilder.h"
#include "postcard/InPostcard.h"

namespace zv_loc_fw {

namespace {

using namespace agent_protocol;

constexpr const char* kTag = kCsController;
constexpr const char* kShutdownTimerKey = "PROCESS_SHUTDOWN_TIMER_IN_MS";
constexpr uint32_t kConfigTextLimit = 172;

const char* text(bool value) {
    return value ? "true" : "false";
}

/// The idle time from the GNSS configuration file; the default when it is absent or no time.
uint32_t shutdownTimeoutMs() {
    long timeout_ms = ProcessShutdownTimer::kDefaultTimeoutMs;
    const pos_conf_entry entry = {kShutdownTimerKey, &timeout_ms, 'n', nullptr};
    (void)pos_read_conf_long(POS_PATH_GPS_CONF, &entry, 1, kConfigTextLimit);  // no file: the default
    if (timeout_ms < 0 || static_cast<unsigned long>(timeout_ms) > std::numeric_limits<uint32_t>::max()) {
        log_warning(kTag, "%s %ld is no time, using %u", kShutdownTimerKey, timeout_ms,
                    ProcessShutdownTimer::kDefaultTimeoutMs);
        return ProcessShutdownTimer::kDefaultTimeoutMs;
    }
    return static_cast<uint32_t>(timeout_ms);
}

/// Reads the bool of a nested card, if both are there.
/// @return whether the card is there
bool readNestedBool(InPostcard& event, const char* card_name, const char* name, bool* value) {
    InPostcard* raw_card = nullptr;
    if (event.getCard(card_name, &raw_card, 0) != 0) {
        return false;
    }
    const std::unique_ptr<InPostcard> card(raw_card);
    (void)card->getBoolDefault(name, *value);  // absent or damaged: stays as it was
    return true;
}

}  // namespace

CsReqController::CsReqController(const char* name, const char* queue_name)
    : InetControllerBase(name, queue_name, envelope::kHubSocketPath, POS_PATH_MARLOW_CONF),
      mShutdownTimer([this] { shutDownProcess(); }, "INET-AGENT") {
    mShutdownTimer.setTimeoutMs(shutdownTimeoutMs());
}

void CsReqController::shutDownProcess() {
    log_verbose(kTag, "Shutting down process...");
    (void)subOrUnSubOsStatusUpdate(true);
    killPeers();
    (void)kill();
}

int CsReqController::subOrUnSubOsStatusUpdate(bool unsubscribe) {
    constexpr int32_t kItems[] = {kDeviceStateItem};
    CardBuilder request(300, 301);
    request.addString(302, envelope::kTo, kOsAgent);
    request.addString(303, envelope::kFrom, getSelfIpcName());
    request.addString(304, envelope::kReq, unsubscribe ? kUnsubscribe : kSubscribe);
    request.addArrayInt32(305, kDataItems, static_cast<int>(std::size(kItems)), kItems);
    request.finalize(307);
    int result = request.result();
    if (result == 0 && sendIpcMessage(request.card()->getEncodedBuffer()) != 0) {
        result = 308;
    }
    if (result != 0) {
        log_error(kTag, "subscribeOsStatusUpdate failed: %d", result);
    }
    return result;
}

int CsReqController::processOSAgentNotification(InPostcard* event) {
    int result = 0;
    if (event == nullptr) {
        result = 2;
        log_error(kTag, "handleOsStateUpdate failed: %d", result);
    } else {
        readDeviceState(*event);
    }
    steerTimer();
    return result;
}

void CsReqController::readDeviceState(InPostcard& event) {
    log_verbose(kTag, "OS Status Update");
    if (readNestedBool(event, kGpsState, kIsGpsProviderEnabled, &mLocationEnabled)) {
        log_verbose(kTag, "Location setting?: %s", text(mLocationEnabled));
    }
    if (readNestedBool(event, kInEmergencyCall, kIsEmergency, &mInEmergency)) {
        log_verbose(kTag, "Device in emergency: %s", text(mInEmergency));
    }
}

void CsReqController::steerTimer() {
    if (mLocationEnabled || mInEmergency) {
        if (mShutdownTimer.started()) {
            mShutdownTimer.stop();
        }
    } else if (!mShutdownTimer.started()) {
        mShutdownTimer.start();
    } else if (mShutdownTimer.launchTriggerMask() != 0) {
        mShutdownTimer.restart();
    }
}

}  // namespace zv_loc_fw
