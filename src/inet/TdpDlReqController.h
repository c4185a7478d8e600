#pragma once

#include "inet/InetControllerBase.h"

namespace zv_loc_fw {

/// The download controller, "inet-agent-tdp-dl": a request controller and nothing beyond.
class TdpDlReqController : public InetControllerBase {
public:
    TdpDlReqController(const char* name, const char* queue_name);
};

}  // namespace zv_loc_fw
