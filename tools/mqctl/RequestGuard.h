#pragma once

#include <string>

namespace mqctl {

/// The agent's controller behind a name or alias; empty when it is none.
[[nodiscard]] std::string controllerNamed(const std::string& participant);

/// What a message would do to a controller that reads it as the agent does: requests that it rejects take it out of
/// service for everybody, and so does a result that the worker has not sent.
/// @param participant name or alias of who gets the bytes; nothing harms others than the agent's controllers
/// @return why it must not be sent; empty for harmless bytes
[[nodiscard]] std::string harmOf(const std::string& participant, const std::string& bytes);

}  // namespace mqctl
