#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Session.h"

namespace mqctl {

/// How long an event loop may take to answer a ping, which waits for no other request.
inline constexpr Duration kPingPatience = std::chrono::seconds(5);

/// A request without TIMEOUT-SEC: a controller answers it at once with an error reply, whatever its worker does.
[[nodiscard]] std::string pingRequest(const std::string& to, const std::string& from, int32_t txId);

/// A request that the worker serves at once and without network, with a failed transfer.
[[nodiscard]] std::string probeRequest(const std::string& to, const std::string& from, int32_t txId,
                                       const std::string& url, int32_t timeoutSec);

/// An address of a scheme that the agent refuses.
inline constexpr const char* kProbeUrl = "mqctl-probe://none/";

}  // namespace mqctl
