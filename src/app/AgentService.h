#pragma once

#include <cstdint>

namespace zv_loc_fw {

/// Builds the two controllers, runs them until both have ended, and deletes them. Blocks for the life of the service.
/// On a failure what was started is stopped and joined first; the controllers themselves stay, with whatever their
/// threads still use: the process is about to end. Main thread, once.
/// @param launch_trigger_mask greater than 0: follow device state and let the process end when idle
/// @return 0; 11 crowd-sourcing, 16 download controller not allocated; 22, 25 init failed; 32, 35 launch failed;
///         64, 92 addPeer failed; 202, 205 join failed
[[nodiscard]] int runAgentService(int32_t launch_trigger_mask);

}  // namespace zv_loc_fw
