#pragma once

#include <CLI/CLI.hpp>

namespace mqctl {

class Session;

/// "health": do the controllers serve? "repair": free one that does not.
void addHealthCommands(CLI::App& app, Session& session);

}  // namespace mqctl
