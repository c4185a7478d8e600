#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "Session.h"

namespace mqctl {

/// A controller's answer to a request.
struct TransferReply {
    enum class Kind : uint8_t { kResult, kErrorReply, kTransferFailed, kTransferTimedOut };

    /// @param reply stays where it is for as long as the reply is used
    TransferReply(const Message& reply, std::chrono::duration<double> time);

    const Message& message;
    Kind kind = Kind::kResult;
    std::string resp;
    std::optional<std::string> error;
    std::optional<bool> curlTimeout;
    std::optional<int32_t> httpStatus;
    std::optional<int32_t> size;
    std::optional<int32_t> retryAfter;
    std::string_view body;
    std::chrono::duration<double> elapsed;

    /// The code that stands for its kind.
    [[nodiscard]] ExitCode exitCode() const;
    /// "< RESP GET | TX-ID 1 | HTTP-RESP-CODE 200 ..."
    [[nodiscard]] std::string line() const;
    /// @param bodyFile where the body went, left out of the card then; empty: it stays in it
    [[nodiscard]] Json toJson(int32_t timeoutSec, const std::string& bodyFile) const;
};

}  // namespace mqctl
