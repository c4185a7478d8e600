#include "inet/TdpDlReqController.h"

#include "mq/Envelope.h"
#include "platform/posutil/pos_conf.h"

namespace zv_loc_fw {

TdpDlReqController::TdpDlReqController(const char* name, const char* queue_name)
    : InetControllerBase(name, queue_name, envelope::kHubSocketPath, POS_PATH_MARLOW_CONF) {}

}  // namespace zv_loc_fw
