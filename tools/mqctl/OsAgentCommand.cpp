#include "OsAgentCommand.h"

#include <poll.h>
#include <unistd.h>

#include <memory>
#include <set>
#include <string>

#include "FieldArgs.h"
#include "LocalTime.h"
#include "Session.h"
#include "Text.h"
#include "inet/AgentProtocol.h"
#include "mq/Envelope.h"

namespace mqctl {

namespace {

using namespace zv_loc_fw;
using namespace zv_loc_fw::agent_protocol;

/// Messages and typed lines are looked at in turns.
constexpr Duration kTurn{100};
constexpr std::chrono::hours kForEver{100000};

struct OsAgentOptions {
    bool location = true;
    bool emergency = false;
    bool interactive = false;
};

class OsAgent {
public:
    OsAgent(Session& session, const OsAgentOptions& options)
        : mSession(session), mLocation(options.location), mEmergency(options.emergency), mTyped(options.interactive) {}

    int run() {
        int code = kOk;
        const std::unique_ptr<Participant> participant = mSession.join(kOsAgent, {}, &code);
        if (participant == nullptr) {
            return code;
        }
        // The agent asks once, when it starts: one that was there before is told unasked, if it is named.
        if (mSession.options.namesController()) {
            mSubscribers.insert(mSession.options.to);
        }
        say("plays " + std::string(kOsAgent) + ": " + stateText());
        tellAll();
        const Clock::time_point end = Clock::now() + mSession.options.wait.value_or(kForEver);
        while (!mQuit && Clock::now() < end && mSession.out.flush()) {
            const std::optional<Message> message =
                mSession.receive(*participant, std::string(kOsAgent) + " " + stateText(),
                                 std::min(end, Clock::now() + (mTyped ? kTurn : Duration(kForEver))),
                                 [](const Message&) { return true; });
            if (message.has_value()) {
                take(*message);
            }
            if (mTyped) {
                readTyped();
            }
        }
        return kOk;
    }

private:
    void take(const Message& message) {
        const std::string from = message.text(envelope::kFrom).value_or("");
        const std::string req = message.text(envelope::kReq).value_or("");
        say("< " + from + " " + (req.empty() ? "sends no request" : req));
        if (req == kSubscribe) {
            mSubscribers.insert(from);
            tell(from);
        } else if (req == kUnsubscribe) {
            mSubscribers.erase(from);
        }
    }

    /// Takes whole lines as far as they have come.
    void readTyped() {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        while (!mQuit && ::poll(&input, 1, 0) > 0) {
            char part[256];
            const ssize_t count = ::read(STDIN_FILENO, part, sizeof(part));
            if (count <= 0) {
                mLine += "\nquit\n";  // the end of input is the end of the play
            } else {
                mLine.append(part, static_cast<size_t>(count));
            }
            for (size_t end = mLine.find('\n'); end != std::string::npos && !mQuit; end = mLine.find('\n')) {
                obey(mLine.substr(0, end));
                mLine.erase(0, end + 1);
            }
        }
    }

    void obey(const std::string& line) {
        const bool on = line == "location on" || line == "emergency on";
        if (on || line == "location off" || line == "emergency off") {
            (line[0] == 'l' ? mLocation : mEmergency) = on;
            say(stateText());
            tellAll();
        } else if (line == "quit") {
            mQuit = true;
        } else if (!line.empty()) {
            mSession.out.note("mqctl: \"" + printable(line) +
                              "\": location on|off, emergency on|off, or quit is wanted");
        }
    }

    void tellAll() {
        for (const std::string& name : mSubscribers) {
            tell(name);
        }
    }

    void tell(const std::string& name) {
        const std::string event = encodeCard({
            stringField(envelope::kTo, name),
            stringField(envelope::kFrom, kOsAgent),
            stringField(envelope::kInfo, kOsStatusUpdate),
            cardField(kGpsState, {boolField(kIsGpsProviderEnabled, mLocation)}),
            cardField(kInEmergencyCall, {boolField(kIsEmergency, mEmergency)}),
        });
        std::string reason;
        if (Session::tryDeliver(name, event, &reason) == kOk) {
            say("> " + name + " " + stateText());
        } else {
            mSession.out.note("mqctl: " + printable(name) + ": " + reason);
        }
    }

    [[nodiscard]] std::string stateText() const {
        return std::string("location ") + (mLocation ? "on" : "off") + ", emergency " + (mEmergency ? "on" : "off");
    }

    void say(const std::string& text) {
        if (mSession.out.json()) {
            Json json = Json::object();
            json["time"] = localTime();
            json["text"] = text;
            json["location"] = mLocation;
            json["emergency"] = mEmergency;
            mSession.out.writeJson(json);
        } else {
            mSession.out.write(localTime() + "  " + printable(text) + "\n");
        }
    }

    Session& mSession;
    bool mLocation;
    bool mEmergency;
    const bool mTyped;
    bool mQuit = false;
    std::set<std::string> mSubscribers;
    std::string mLine;  // typed, not yet ended
};

CLI::Option* addSwitch(CLI::App& app, const char* name, bool* target, const char* description) {
    return app
        .add_option_function<std::string>(
            name, [target](const std::string& text) { *target = text == "on"; }, description)
        ->type_name("on|off")
        ->check(CLI::IsMember({"on", "off"}))
        ->default_str(*target ? "on" : "off");
}

}  // namespace

void addOsAgentCommand(CLI::App& app, Session& session) {
    const auto options = std::make_shared<OsAgentOptions>();
    CLI::App* command = addCommand(app, "os-agent", "play the OS agent: tell subscribers the device's state");
    addSwitch(*command, "--location", &options->location, "the location setting");
    addSwitch(*command, "--emergency", &options->emergency, "an emergency call");
    command->add_flag("-i,--interactive", options->interactive,
                      "read \"location off\", \"emergency on\", \"quit\" from stdin, a line each");
    command->callback(
        [&session, options] { session.command = [&session, options] { return OsAgent(session, *options).run(); }; });
}

}  // namespace mqctl
