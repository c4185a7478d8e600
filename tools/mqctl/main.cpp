#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <new>

#include "CallCommand.h"
#include "CodecCommand.h"
#include "HealthCommand.h"
#include "Help.h"
#include "ListCommand.h"
#include "ListenCommand.h"
#include "LogLines.h"
#include "OsAgentCommand.h"
#include "PingCommand.h"
#include "Session.h"
#include "SignalCleanup.h"
#include "TransferCommand.h"

namespace {

void addCommands(CLI::App& app, mqctl::Session& session) {
    mqctl::addListCommand(app, session);
    mqctl::addTransferCommands(app, session);
    mqctl::addCallCommands(app, session);
    mqctl::addListenCommand(app, session);
    mqctl::addOsAgentCommand(app, session);
    mqctl::addPingCommand(app, session);
    mqctl::addHealthCommands(app, session);
    mqctl::addCodecCommands(app, session);
}

int run(mqctl::Session& session) {
    mqctl::showLogLines(session.options.verbose);
    return session.command ? session.command() : mqctl::runDefaultList(session);
}

}  // namespace

int main(int argc, char** argv) {
    (void)std::signal(SIGPIPE, SIG_IGN);  // a reader that left shows as a write error
    mqctl::SignalCleanup::install();

    mqctl::Session session;
    try {
        CLI::App app("Asks the internet agent, and looks at the message queue.", "mqctl");
        app.formatter(std::make_shared<mqctl::HelpFormatter>());
        app.set_version_flag("--version", "mqctl " MQCTL_VERSION);
        app.require_subcommand(0, 1);
        addGlobalOptions(app, &session.options);
        addCommands(app, session);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            if (error.get_exit_code() == 0) {
                (void)app.exit(error);  // help and version
                return session.out.finish(mqctl::kOk);
            }
            return session.out.fail(mqctl::kUsage, std::string(error.what()) + " (see \"mqctl --help\")");
        }
        return session.out.finish(run(session));
    } catch (const std::bad_alloc&) {
        return session.out.fail(mqctl::kOwnFailure, "no memory");
    } catch (const std::exception& error) {
        return session.out.fail(mqctl::kOwnFailure, error.what());
    }
}
