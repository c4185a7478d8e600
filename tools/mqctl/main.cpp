#include <CLI/CLI.hpp>
#include <csignal>

#include "ExitCode.h"
#include "ListCommand.h"
#include "TransferCommand.h"
#include "inet/AgentProtocol.h"
#include "report/ReportCommand.h"

namespace {

CLI::App* addTransferCommand(CLI::App& app, const char* name, const char* description,
                             mqctl::TransferOptions* options) {
    CLI::App* command = app.add_subcommand(name, description);
    command->add_option("URL", options->url, "http or https address")->required();
    command->add_option("-t,--timeout", options->timeoutSec, "seconds that the agent is granted")
        ->type_name("SEC")
        ->capture_default_str();
    command->add_option("--to", options->controller, "controller to ask")->type_name("NAME")->capture_default_str();
    command->add_option("-o", options->outputFile, "write the body to FILE")->type_name("FILE");
    command->add_flag("-v", options->verbose, "show request and reply on stderr");
    command->add_flag("--force", options->force, "send even what can take the controller out of service");
    return command;
}

}  // namespace

int main(int argc, char** argv) {
    (void)std::signal(SIGPIPE, SIG_IGN);  // a reader that left shows as a write error

    CLI::App app("mqctl - ask the internet agent, and look at the message queue", "mqctl");
    app.set_version_flag("--version", "mqctl " MQCTL_VERSION);
    app.require_subcommand(0, 1);

    mqctl::TransferOptions options;
    options.controller = zv_loc_fw::agent_protocol::kCsController;
    CLI::App* list = app.add_subcommand("list", "the participants of the message queue (the default)");
    CLI::App* get = addTransferCommand(app, "get", "fetch a URL through the agent", &options);
    CLI::App* post = addTransferCommand(app, "post", "post a body through the agent", &options);
    post->add_option("-d,--data", options.data, "the body: DATA, or @FILE for a file's bytes")
        ->type_name("DATA|@FILE")
        ->required();
    mqctl::ReportOptions report_options;
    CLI::App* report = mqctl::addReportCommand(app, &report_options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? mqctl::kOk : mqctl::kUsage;
    }
    if (*get || *post) {
        options.isPost = static_cast<bool>(*post);
        return mqctl::runTransfer(options);
    }
    if (*report) {
        return mqctl::runReport(report_options);
    }
    (void)list;
    return mqctl::runList();
}
