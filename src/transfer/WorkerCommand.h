#pragma once

#include <cstdint>
#include <memory>

#include "mq/MqMsgWrapper.h"

namespace zv_loc_fw {

/// What a controller pushes on its worker's command queue. The worker owns the record, and the job in it, once popped.
struct WorkerCommand {
    static constexpr int32_t kPerform = 0;
    static constexpr int32_t kKill = 1;

    int32_t kind;
    std::unique_ptr<MqMsgWrapper> job;  ///< the request; null for kKill
};

static_assert(sizeof(void*) != 8 || sizeof(WorkerCommand) == 16);

}  // namespace zv_loc_fw
