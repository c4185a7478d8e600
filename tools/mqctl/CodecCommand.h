#pragma once

#include <CLI/CLI.hpp>

namespace mqctl {

class Session;

/// "decode": postcard bytes to text or JSON; "encode": JSON to bytes. Neither needs an agent.
void addCodecCommands(CLI::App& app, Session& session);

}  // namespace mqctl
