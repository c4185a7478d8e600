#pragma once

#include <cstdint>
#include <string>

#include "client/inet_agent_client.h"
#include "postcard/CardBuilder.h"
#include "postcard/InPostcard.h"

/// Between the library's requests and replies and the agent's protocol.
namespace inet_agent {

/// @param own name of the participant that would send it
/// @return why the request must not be sent; empty when it may
[[nodiscard]] std::string whyRefused(const Request& request, const std::string& own);

/// Writes a request that is not refused; its failures are told by the builder's result.
void buildCard(const Request& request, const std::string& from, std::int32_t txId, zv_loc_fw::CardBuilder* card);

/// Reads what the agent says about a request; TX-ID and time are the caller's.
[[nodiscard]] Reply readReply(zv_loc_fw::InPostcard& card);

}  // namespace inet_agent
