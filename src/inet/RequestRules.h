#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "inet/AgentProtocol.h"

/// What a client must not ask of the agent, once: the client library and the tool refuse the same, with the same words.
/// Header only, on the ground floor. For authors of clients: docs/protocol.md.
namespace zv_loc_fw::agent_protocol {

/// Below it the worker may find a second or less left when the request's turn comes.
inline constexpr int32_t kShortestSafeTimeoutSec = 3;
/// Beyond it the transfer library takes no URL.
inline constexpr size_t kLongestUrl = 8'000'000;
/// Why all this is refused: the controller would wait for a result for ever, and serve nobody.
inline constexpr const char* kRejectionHarm = "this can take the controller out of service for everybody";

/// What the worker rejects.
/// @param bodySize of a POST
/// @return why; empty when it takes the request
inline std::string whyRejected(std::string_view req, std::string_view url, size_t bodySize, int32_t timeoutSec) {
    if (req != kGet && req != kPost) {
        return "REQ is neither GET nor POST";
    }
    if (url.empty()) {
        return "the URL is empty";
    }
    if (url.size() > kLongestUrl) {
        return "the URL has more than " + std::to_string(kLongestUrl) + " bytes";
    }
    if (req == kPost && bodySize == 0) {
        return "a POST needs a body";
    }
    if (timeoutSec < kShortestSafeTimeoutSec) {
        return "the time-out is below " + std::to_string(kShortestSafeTimeoutSec) + " s";
    }
    return {};
}

}  // namespace zv_loc_fw::agent_protocol
