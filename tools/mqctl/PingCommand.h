#pragma once

#include <CLI/CLI.hpp>

namespace mqctl {

class Session;

/// "ping": does the event loop of a controller answer?
void addPingCommand(CLI::App& app, Session& session);

}  // namespace mqctl
