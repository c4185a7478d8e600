#include "PingCommand.h"

#include <algorithm>
#include <memory>
#include <string>
#include <thread>

#include "Probe.h"
#include "Session.h"
#include "inet/AgentProtocol.h"
#include "mq/Envelope.h"

namespace mqctl {

namespace {

using namespace zv_loc_fw;

struct PingOptions {
    std::optional<std::string> name;
    int count = 1;
    std::optional<Duration> interval;
};

class Ping {
public:
    Ping(Session& session, const PingOptions& options)
        : mSession(session), mOptions(options), mName(options.name.value_or(session.options.to)) {}

    int run() {
        int code = kOk;
        const std::unique_ptr<Participant> participant = mSession.join(&code);
        if (participant == nullptr) {
            return code;
        }
        int answered = 0;
        for (int i = 1; i <= mOptions.count && mSession.out.flush(); ++i) {
            const Clock::time_point next = Clock::now() + mOptions.interval.value_or(std::chrono::seconds(1));
            if (const int result = pingOnce(*participant, i); result == kOk) {
                ++answered;
            } else {
                code = result;
            }
            if (i < mOptions.count) {
                std::this_thread::sleep_until(next);
            }
        }
        if (mOptions.count > 1 && !mSession.options.noLegend && !mSession.out.json()) {
            mSession.out.note(std::to_string(answered) + " of " + std::to_string(mOptions.count) + " answered");
        }
        return code;
    }

private:
    int pingOnce(Participant& participant, int number) {
        const Clock::time_point begin = Clock::now();
        if (const int code = mSession.deliver(mName, pingRequest(mName, participant.name(), number)); code != kOk) {
            return code;
        }
        const Duration patience = mSession.options.wait.value_or(kPingPatience);
        const std::optional<Message> answer =
            mSession.receive(participant, mName, begin + patience, [number](const Message& message) {
                return message.int32(envelope::kTxId) == number && message.text(envelope::kResp).has_value();
            });
        if (!answer.has_value()) {
            return mSession.out.fail(kNoReply, mName + ": no answer within " + formatDuration(patience));
        }
        const std::chrono::duration<double> time = Clock::now() - begin;
        const bool ready = answer->text(agent_protocol::kCurlError) != agent_protocol::kErrorNotReady;
        if (mSession.out.json()) {
            Json json = Json::object();
            json["name"] = mName;
            json["number"] = number;
            json["elapsed_s"] = secondsOf(time);
            json["ready"] = ready;
            mSession.out.writeJson(json);
        } else {
            mSession.out.write(mName + ": event loop answered in " + formatDuration(time) +
                               (ready ? "" : ", not ready") + "\n");
        }
        return kOk;
    }

    Session& mSession;
    const PingOptions& mOptions;
    const std::string mName;
};

}  // namespace

void addPingCommand(CLI::App& app, Session& session) {
    const auto options = std::make_shared<PingOptions>();
    CLI::App* command = addCommand(app, "ping", "does a controller's event loop answer?");
    command->add_option("NAME", options->name, "controller (the --to)");
    command->add_option("-c,--count", options->count, "that many times")
        ->type_name("COUNT")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    addDuration(*command, "-i,--interval", &options->interval, "from one to the next (1s)");
    command->callback(
        [&session, options] { session.command = [&session, options] { return Ping(session, *options).run(); }; });
}

}  // namespace mqctl
