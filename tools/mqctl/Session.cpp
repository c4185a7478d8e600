#include "Session.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "Countdown.h"
#include "FieldArgs.h"
#include "LogLines.h"
#include "SignalCleanup.h"
#include "Text.h"
#include "mq/Envelope.h"
#include "platform/posutil/PosIpc.h"
#include "postcard/FieldType.h"

namespace mqctl {

namespace {

using namespace zv_loc_fw;

/// How often the line on the terminal is redrawn.
constexpr Duration kRedraw{200};

const Field* find(const Fields& fields, const std::string& name, uint16_t type) {
    for (const Field& field : fields) {
        if (field.name == name && field.type->code == type) {
            return &field;
        }
    }
    return nullptr;
}

Message messageOf(std::unique_ptr<InPostcard> card) {
    Message message;
    message.card = std::move(card);
    if (InMemoryStream* stream = message.card->getBuffer(); stream != nullptr && stream->getSize() > 0) {
        message.bytes = {static_cast<const char*>(stream->getBuffer()), stream->getSize()};
    }
    Malformed damage;
    const std::optional<size_t> end = parseCard(message.bytes, 0, &message.fields, &damage);
    if (!end.has_value()) {
        message.damage = damage;
    } else if (*end != message.bytes.size()) {
        message.damage = Malformed{*end, "more bytes follow the card"};
    }
    return message;
}

}  // namespace

std::optional<int32_t> Message::int32(const std::string& name) const {
    return int32Of(fields, name);
}

std::optional<bool> Message::boolean(const std::string& name) const {
    const Field* field = find(fields, name, FT_BOOL);
    return field != nullptr ? std::optional(field->value[0] == '\1') : std::nullopt;
}

std::optional<std::string> Message::text(const std::string& name) const {
    const Field* field = find(fields, name, FT_STRING);
    return field != nullptr ? std::optional<std::string>(field->value.c_str()) : std::nullopt;
}

const std::string* Message::blob(const std::string& name) const {
    const Field* field = find(fields, name, FT_BLOB);
    return field != nullptr ? &field->value : nullptr;
}

std::unique_ptr<Participant> Session::join(const std::string& name, ParticipantOptions wanted, int* code) {
    std::vector<std::string> names = wanted.aliases;
    names.push_back(name);
    for (const std::string& each : names) {
        if (!isParticipantName(each)) {
            *code = out.fail(kUsage, noParticipantName(each));
            return nullptr;
        }
        if (!options.force && lookUpParticipant(each) == ParticipantState::kLive) {
            *code = out.fail(kUsage, "\"" + each +
                                         "\" is taken: another participant listens under that name, and "
                                         "would hear nothing any more; --force takes it");
            return nullptr;
        }
    }
    if (std::count(names.begin(), names.end(), name) != 1) {
        *code = out.fail(kUsage, "\"" + name + "\" cannot be an alias of itself");
        return nullptr;
    }
    wanted.replaceLive = options.force;
    std::string error;
    const SignalCleanup::Hold hold;  // a file that exists is a file that goes
    std::unique_ptr<Participant> participant = Participant::create(name, std::move(wanted), &error);
    if (participant == nullptr) {
        *code = out.fail(kOwnFailure, error);
        return nullptr;
    }
    for (const std::string& each : names) {
        SignalCleanup::remember(envelope::kSocketDirectory + each);
    }
    return participant;
}

int Session::deliver(const std::string& name, const std::string& bytes) {
    std::string reason;
    const ExitCode code = tryDeliver(name, bytes, &reason);
    return code == kOk ? kOk : out.fail(code, name + ": " + reason);
}

ExitCode Session::tryDeliver(const std::string& name, const std::string& bytes, std::string* reason) {
    if (bytes.size() > pos_util::kPosIpcMaxMessage) {
        *reason = std::to_string(bytes.size()) + " bytes are too many for one message";
        return kUsage;
    }
    switch (lookUpParticipant(name)) {
        case ParticipantState::kLive:
            break;
        case ParticipantState::kStale:
            *reason = "nobody listens on its socket (stale)";
            return kNoParticipant;
        case ParticipantState::kAbsent:
            *reason = "no such participant";
            return kNoParticipant;
    }
    const std::string path = envelope::kSocketDirectory + name;
    const auto sender = pos_util::PosIpc::getPosIpcLocalSender(path.c_str());
    if (sender != nullptr && pos_util::PosIpc::send(*sender, reinterpret_cast<const uint8_t*>(bytes.data()),
                                                    static_cast<uint32_t>(bytes.size()), -1)) {
        return kOk;
    }
    *reason = lastLogLine();
    if (reason->find(std::strerror(EPIPE)) != std::string::npos) {
        *reason = "it is ending";
        return kNoParticipant;
    }
    return reason->find("full") != std::string::npos ? kNoReply : kOwnFailure;
}

std::optional<Message> Session::receive(Participant& participant, const std::string& label, Clock::time_point deadline,
                                        const std::function<bool(const Message&)>& wanted) const {
    const bool show = out.errIsTerminal() && !options.quiet;
    Countdown countdown(label, deadline);
    while (true) {
        const Clock::time_point redraw = show ? std::min(Clock::now() + kRedraw, deadline) : deadline;
        std::unique_ptr<InPostcard> card = participant.receive(redraw);
        if (card != nullptr) {
            Message message = messageOf(std::move(card));
            if (wanted(message)) {
                return message;
            }
        } else if (Clock::now() >= deadline) {
            return std::nullopt;
        } else if (show) {
            countdown.draw();
        }
    }
}

CLI::App* addCommand(CLI::App& app, const char* name, const char* description) {
    CLI::App* command = app.add_subcommand(name, description);
    command->fallthrough();
    command->footer("The options of \"mqctl --help\" work here, too.");
    return command;
}

}  // namespace mqctl
