#pragma once

#include <CLI/CLI.hpp>

namespace mqctl {

class Session;

/// "get" and "post": one request to a controller; the body to standard output or a file, everything else to standard
/// error.
void addTransferCommands(CLI::App& app, Session& session);

}  // namespace mqctl
