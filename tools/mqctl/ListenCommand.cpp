#include "ListenCommand.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "CardJson.h"
#include "CardText.h"
#include "FieldArgs.h"
#include "Files.h"
#include "LocalTime.h"
#include "Session.h"
#include "Text.h"
#include "mq/Envelope.h"

namespace mqctl {

namespace {

using namespace zv_loc_fw;

constexpr std::chrono::hours kForEver{100000};
constexpr size_t kDamagedBytes = 64;

struct ListenOptions {
    std::optional<std::string> name;
    std::vector<std::string> aliases;
    std::vector<std::string> matches;
    std::string directory;  ///< of --save
    int count = 0;          ///< 0: no limit
    bool announcements = false;
};

/// Whether a field of that name has a value of that text, as cardToText() writes it but without quotes.
bool matches(const Message& message, const std::string& match) {
    const size_t equals = match.find('=');
    const std::string name = match.substr(0, equals);
    const std::string wanted = match.substr(equals + 1);
    return std::any_of(message.fields.begin(), message.fields.end(), [&](const Field& field) {
        return field.name == name &&
               // Text counts up to its zero. NOLINTNEXTLINE(readability-redundant-string-cstr)
               (field.type->kind == Kind::kString ? field.value.c_str() : valueToText(field)) == wanted;
    });
}

/// A sender's name as part of a file's: nothing in it leads elsewhere.
std::string fileName(int number, const std::string& from) {
    char prefix[16];
    (void)std::snprintf(prefix, sizeof(prefix), "%06d-", number);
    std::string name = prefix;
    for (const char c : from.substr(0, 75)) {
        const bool plain =
            (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' || c == '_';
        name += plain ? c : '_';
    }
    return name + ".postcard";
}

void write(Session& session, const Message& message) {
    const std::string from = message.text(envelope::kFrom).value_or("");
    if (session.out.json()) {
        Json json = Json::object();
        json["time"] = localTime();
        json["from"] = from;
        json["size"] = message.bytes.size();
        if (message.damage.has_value()) {
            json["malformed"] = Json{{"offset", message.damage->offset}, {"reason", message.damage->reason}};
            json["base64"] = toBase64(message.bytes);
        } else {
            json["card"] = cardToJson(message.fields);
        }
        session.out.writeJson(json);
        return;
    }
    session.out.write(session.out.paint(Style::kHeading, localTime() + "  " + (from.empty() ? "?" : printable(from))) +
                      "  " + summaryOf(message.bytes.size(), message.fields) + "\n" + cardToText(message.fields, 2));
    if (message.damage.has_value()) {
        session.out.write(session.out.paint(Style::kBad, "  malformed at byte " +
                                                             std::to_string(message.damage->offset) + ": " +
                                                             message.damage->reason) +
                          "\n  " + toHex(message.bytes.substr(0, kDamagedBytes), " ") +
                          (message.bytes.size() > kDamagedBytes ? " ..." : "") + "\n");
    }
}

int run(Session& session, const ListenOptions& options) {
    for (const std::string& match : options.matches) {
        if (match.find('=') == std::string::npos) {
            return session.out.fail(kUsage, "--match \"" + match + "\": KEY=VALUE is wanted");
        }
    }
    ParticipantOptions wanted;
    wanted.aliases = options.aliases;
    wanted.keepAnnouncements = options.announcements;
    int code = kOk;
    const std::string name = options.name.value_or(session.options.from);
    const std::unique_ptr<Participant> participant = session.join(name, wanted, &code);
    if (participant == nullptr) {
        return code;
    }
    session.out.detail("* listening as " + name);
    const auto is_wanted = [&](const Message& message) {
        return std::all_of(options.matches.begin(), options.matches.end(),
                           [&](const std::string& match) { return matches(message, match); });
    };
    const Clock::time_point deadline = Clock::now() + session.options.wait.value_or(kForEver);
    for (int number = 1; options.count == 0 || number <= options.count; ++number) {
        const std::optional<Message> message = session.receive(*participant, name + " listens", deadline, is_wanted);
        if (!message.has_value()) {
            return options.count == 0
                       ? kOk
                       : session.out.fail(kNoReply, std::to_string(number - 1) + " of " +
                                                        std::to_string(options.count) + " messages within " +
                                                        formatDuration(*session.options.wait));
        }
        write(session, *message);
        std::string error;
        if (!options.directory.empty() &&
            !writeWholeFile(
                options.directory + "/" + fileName(number, message->text(envelope::kFrom).value_or("unknown")),
                message->bytes.data(), message->bytes.size(), &error)) {
            return session.out.fail(kOwnFailure, error);
        }
        if (!session.out.flush()) {
            return kOk;
        }
    }
    return kOk;
}

}  // namespace

void addListenCommand(CLI::App& app, Session& session) {
    const auto options = std::make_shared<ListenOptions>();
    CLI::App* command = addCommand(app, "listen", "be a participant, and print what arrives");
    command->add_option("NAME", options->name, "own name (the --from)");
    command->add_option("--alias", options->aliases, "one more name; may be repeated")
        ->type_name("NAME")
        ->allow_extra_args(false);
    command->add_option("-n,--count", options->count, "end after COUNT messages")
        ->type_name("COUNT")
        ->check(CLI::PositiveNumber);
    command->add_option("--match", options->matches, "only messages with that field; may be repeated")
        ->type_name("KEY=VALUE")
        ->allow_extra_args(false);
    command->add_option("--save", options->directory, "write each message to a file in DIR")
        ->type_name("DIR")
        ->check(CLI::ExistingDirectory);
    command->add_flag("--announcements", options->announcements, "also what the hub says about other participants");
    command->callback(
        [&session, options] { session.command = [&session, options] { return run(session, *options); }; });
}

}  // namespace mqctl
