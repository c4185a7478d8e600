#include "CallCommand.h"

#include <memory>
#include <string>
#include <vector>

#include "CardJson.h"
#include "CardText.h"
#include "FieldArgs.h"
#include "Files.h"
#include "RequestGuard.h"
#include "Session.h"
#include "TransferReply.h"
#include "inet/AgentProtocol.h"
#include "mq/Envelope.h"
#include "postcard/FieldType.h"

namespace mqctl {

namespace {

using namespace zv_loc_fw;

constexpr Duration kPatience = std::chrono::seconds(10);
/// Beyond the TIMEOUT-SEC of a request.
constexpr Duration kReplyMargin = std::chrono::seconds(2);
constexpr int32_t kTxId = 1;

struct CallOptions {
    std::string name;
    std::vector<std::string> fields;
    std::string jsonFile;
    std::string rawFile;
    bool wantsReply = false;
};

class Call {
public:
    Call(Session& session, const CallOptions& options) : mSession(session), mOptions(options) {}

    int run() {
        std::string bytes;
        if (const int code = build(&bytes); code != kOk) {
            return code;
        }
        const std::string harm = harmOf(mOptions.name, bytes);
        if (!harm.empty() && !mSession.options.force) {
            return mSession.out.fail(kUsage, harm + "; --force sends it all the same");
        }
        mSession.out.detail("> " + summaryOf(bytes.size(), mRequest) + " to " + mOptions.name + "\n" +
                            cardToText(mRequest, 2));
        return mOptions.wantsReply ? call(bytes) : mSession.deliver(mOptions.name, bytes);
    }

private:
    int build(std::string* bytes) {
        std::string why;
        if (!mOptions.rawFile.empty()) {
            return readWholeFile(mOptions.rawFile, bytes, &why) ? kOk : mSession.out.fail(kUsage, why);
        }
        if (!mOptions.jsonFile.empty()) {
            std::string text;
            if (!readWholeFile(mOptions.jsonFile, &text, &why)) {
                return mSession.out.fail(kUsage, why);
            }
            const std::optional<Json> json = parseJson(text, &why);
            std::optional<Fields> fields = json.has_value() ? cardFromJson(*json, &why) : std::nullopt;
            if (!fields.has_value()) {
                return mSession.out.fail(kMalformed, mOptions.jsonFile + ": " + why);
            }
            mRequest = std::move(*fields);
        }
        for (const std::string& argument : mOptions.fields) {
            std::optional<Field> field = fieldFromArgument(argument, &why);
            if (!field.has_value()) {
                return mSession.out.fail(kUsage, why);
            }
            mRequest.push_back(std::move(*field));
        }
        addEnvelope();
        *bytes = encodeCard(mRequest);
        return kOk;
    }

    /// What nobody wants to write each time. A field that is there, whatever its value, stays as it is.
    void addEnvelope() {
        Fields envelope;
        if (findField(mRequest, envelope::kTo) == nullptr) {
            envelope.push_back(stringField(envelope::kTo, mOptions.name));
        }
        if (findField(mRequest, envelope::kFrom) == nullptr) {
            envelope.push_back(stringField(envelope::kFrom, mSession.options.from));
        } else {
            mSession.options.from = textOf(mRequest, envelope::kFrom);  // the reply goes there
        }
        mRequest.insert(mRequest.begin(), envelope.begin(), envelope.end());
        if (mOptions.wantsReply && findField(mRequest, envelope::kTxId) == nullptr) {
            mRequest.push_back(int32Field(envelope::kTxId, kTxId));
        }
    }

    int call(const std::string& bytes) {
        int code = kOk;
        const std::unique_ptr<Participant> participant = mSession.join(&code);
        if (participant == nullptr) {
            return code;
        }
        const Clock::time_point begin = Clock::now();
        if (code = mSession.deliver(mOptions.name, bytes); code != kOk) {
            return code;
        }
        const std::optional<int32_t> tx_id = int32Of(mRequest, envelope::kTxId);
        const auto is_reply = [tx_id](const Message& message) {
            const std::optional<int32_t> theirs = message.int32(envelope::kTxId);
            return theirs.has_value() ? theirs == tx_id && !message.text(envelope::kReq).has_value()
                                      : message.text(envelope::kResp).has_value();
        };
        const Duration patience = mSession.options.wait.value_or(usualPatience());
        const std::optional<Message> reply = mSession.receive(*participant, mOptions.name, begin + patience, is_reply);
        if (!reply.has_value()) {
            return mSession.out.fail(kNoReply, mOptions.name + ": no reply within " + formatDuration(patience));
        }
        return show(*reply, Clock::now() - begin);
    }

    [[nodiscard]] Duration usualPatience() const {
        const int32_t timeout_sec = int32Of(mRequest, agent_protocol::kTimeoutSec).value_or(0);
        return timeout_sec > 0 ? std::chrono::seconds(timeout_sec) + kReplyMargin : kPatience;
    }

    int show(const Message& message, std::chrono::duration<double> elapsed) {
        if (!mSession.options.quiet) {
            if (mSession.out.json()) {
                mSession.out.writeJson(cardToJson(message.fields));
            } else {
                mSession.out.write("postcard, " + summaryOf(message.bytes.size(), message.fields) + "\n" +
                                   cardToText(message.fields, 2));
            }
        }
        mSession.out.detail("* reply after " + formatDuration(elapsed));
        if (message.damage.has_value()) {
            return mSession.out.fail(kMalformed, "malformed reply, byte " + std::to_string(message.damage->offset) +
                                                     ": " + message.damage->reason);
        }
        const TransferReply reply(message, elapsed);
        return reply.exitCode() == kOk ? kOk : mSession.out.fail(reply.exitCode(), mOptions.name + ": " + *reply.error);
    }

    Session& mSession;
    const CallOptions& mOptions;
    Fields mRequest;
};

CLI::App* addCallCommand(CLI::App& app, Session& session, bool wants_reply) {
    const auto options = std::make_shared<CallOptions>();
    options->wantsReply = wants_reply;
    CLI::App* command = addCommand(app, wants_reply ? "call" : "send",
                                   wants_reply ? "send one postcard and wait for its reply" : "send one postcard");
    command->add_option("NAME", options->name, "participant to send to")->required();
    command->add_option("FIELD", options->fields,
                        "KEY=TEXT, KEY:TYPE=VALUE, KEY:blob=@FILE, KEY:blob=hex:0AFF, KEY:int32[]=1,2; TO, FROM and, "
                        "for a call, TX-ID are added");
    CLI::Option* json =
        command->add_option("--json-in", options->jsonFile, "fields as decode --json prints them")->type_name("FILE");
    if (!wants_reply) {
        command->add_option("--raw", options->rawFile, "send the bytes of FILE as they are")
            ->type_name("FILE")
            ->excludes(json);
    }
    command->callback(
        [&session, options] { session.command = [&session, options] { return Call(session, *options).run(); }; });
    return command;
}

}  // namespace

void addCallCommands(CLI::App& app, Session& session) {
    addCallCommand(app, session, true);
    addCallCommand(app, session, false);
}

}  // namespace mqctl
