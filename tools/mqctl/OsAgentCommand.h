#pragma once

#include <CLI/CLI.hpp>

namespace mqctl {

class Session;

/// "os-agent": play the OS agent, which tells its subscribers the device's state.
void addOsAgentCommand(CLI::App& app, Session& session);

}  // namespace mqctl
