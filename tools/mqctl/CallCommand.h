#pragma once

#include <CLI/CLI.hpp>

namespace mqctl {

class Session;

/// "call": one postcard and its reply; "send": one postcard.
void addCallCommands(CLI::App& app, Session& session);

}  // namespace mqctl
