#pragma once

#include <CLI/CLI.hpp>

namespace mqctl {

class Session;

/// "listen": be a participant, and print what arrives.
void addListenCommand(CLI::App& app, Session& session);

}  // namespace mqctl
