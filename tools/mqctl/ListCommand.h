#pragma once

#include <CLI/CLI.hpp>

namespace mqctl {

class Session;

/// "list": the participants of the message queue.
void addListCommand(CLI::App& app, Session& session);

/// What mqctl does when no command is given.
int runDefaultList(Session& session);

}  // namespace mqctl
