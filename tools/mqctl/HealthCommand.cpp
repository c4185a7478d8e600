#include "HealthCommand.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "FieldArgs.h"
#include "Health.h"
#include "Probe.h"
#include "RequestGuard.h"
#include "Session.h"
#include "inet/AgentProtocol.h"
#include "mq/Envelope.h"

namespace mqctl {

namespace {

using namespace zv_loc_fw;
using namespace zv_loc_fw::agent_protocol;

/// Enough to see that a worker serves, before and after a repair.
constexpr Duration kRepairPatience = std::chrono::seconds(5);

struct HealthOptions {
    std::vector<std::string> names;
    int longestSec = 0;
    std::string probeUrl = kProbeUrl;
};

struct RepairOptions {
    std::string name;
    bool yes = false;
};

int runHealth(Session& session, const HealthOptions& options) {
    std::vector<std::string> names = options.names;
    if (names.empty() && session.options.namesController()) {
        names = {session.options.to};
    } else if (names.empty()) {
        names = {kCsController, kTdpDlController};
    }
    Health::Settings settings;
    settings.patience = session.options.wait.value_or(settings.patience);
    settings.probeUrl = options.probeUrl;
    if (options.longestSec > 0) {
        settings.longestSec = options.longestSec;
    }
    int code = kOk;
    const std::unique_ptr<Participant> participant = session.join(&code);
    if (participant == nullptr) {
        return code;
    }
    return Health::report(session, Health::look(session, *participant, names, settings));
}

/// A result that no request waits for. A controller that waits for the result of a request that it has already given
/// up takes any for it; one with an active request compares TO and TX-ID, and drops this one.
std::string strayResult(const std::string& controller, const std::string& from) {
    return encodeCard({
        stringField(envelope::kTo, controller),
        stringField(envelope::kFrom, controller),
        stringField(envelope::kReq, kHttpResult),
        cardField(kResult, {stringField(envelope::kFrom, controller), stringField(envelope::kTo, from),
                            int32Field(envelope::kTxId, std::numeric_limits<int32_t>::min())}),
    });
}

int runRepair(Session& session, const RepairOptions& options) {
    const std::string controller = controllerNamed(options.name);
    if (!options.yes) {
        return session.out.fail(kUsage,
                                "repair interferes with the agent: it sends a result in the name of its worker, "
                                "which frees a controller that waits for one in vain; --yes does it");
    }
    if (controller.empty() && !session.options.force) {
        return session.out.fail(lookUpParticipant(options.name) == ParticipantState::kLive ? kUsage : kNoParticipant,
                                options.name + ": no controller of the agent");
    }
    const std::string name = controller.empty() ? options.name : controller;
    int code = kOk;
    const std::unique_ptr<Participant> participant = session.join(&code);
    if (participant == nullptr) {
        return code;
    }
    Health::Settings settings;
    settings.patience = session.options.wait.value_or(kRepairPatience);
    settings.probeUrl = kProbeUrl;
    std::vector<Health::Finding> findings = Health::look(session, *participant, {name}, settings);
    if (findings[0].state == Health::State::kBusy) {
        if (code = session.deliver(name, strayResult(name, participant->name())); code != kOk) {
            return code;
        }
        session.out.note(name + " served nothing for " + formatDuration(settings.patience) + "; sent it a result");
        findings = Health::look(session, *participant, {name}, settings);
    } else if (findings[0].state == Health::State::kHealthy) {
        session.out.note(name + " serves; nothing was sent");
    }
    return Health::report(session, findings);
}

}  // namespace

void addHealthCommands(CLI::App& app, Session& session) {
    const auto health = std::make_shared<HealthOptions>();
    CLI::App* command = addCommand(app, "health", "do the controllers serve? healthy, busy, wedged, not ready, absent");
    command->add_option("NAME", health->names, "controllers (both)");
    command
        ->add_option("--longest", health->longestSec,
                     "longest time-out in use: a worker that serves nothing for longer (--wait, 30s) is wedged")
        ->type_name("SEC")
        ->check(CLI::PositiveNumber);
    command->add_option("--probe-url", health->probeUrl, "what the worker is asked for")
        ->type_name("URL")
        ->capture_default_str();
    command->callback(
        [&session, health] { session.command = [&session, health] { return runHealth(session, *health); }; });

    const auto repair = std::make_shared<RepairOptions>();
    command = addCommand(app, "repair", "free a controller that waits for a result in vain");
    command->add_option("NAME", repair->name, "controller")->required();
    command->add_flag("--yes", repair->yes, "do it");
    command->callback(
        [&session, repair] { session.command = [&session, repair] { return runRepair(session, *repair); }; });
}

}  // namespace mqctl
