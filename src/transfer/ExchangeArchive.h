#pragma once

#include <cstddef>
#include <cstdint>

namespace zv_loc_fw {

/// Archives one body, for the clients that the save mask names: "Marlow-PE" (1), "KV-CS" (2), "APIC" (4). The file is
/// ROOT/CLIENT_KIND_TXID.bin, replaced if it exists; bodies may hold secrets, and the umask that start-up sets keeps
/// them to the agent. A failure is logged under "KVIA" as "saveBlobToFile failed, result = %d": -4 path too long, -5
/// not opened, -6 not all written. Any thread.
/// @param kind "req" or "resp"
/// @param size in bytes
void saveBlobToFile(const char* kind, const char* client, int32_t tx_id, const void* data, uint32_t size);

}  // namespace zv_loc_fw
