#include "TransferCommand.h"

#include <cstdint>
#include <memory>
#include <string>

#include "FieldArgs.h"
#include "Files.h"
#include "Session.h"
#include "Text.h"
#include "TransferReply.h"
#include "inet/AgentProtocol.h"
#include "inet/RequestRules.h"
#include "mq/Envelope.h"
#include "platform/posutil/PosIpc.h"
#include "postcard/FieldType.h"

namespace mqctl {

namespace {

using namespace zv_loc_fw;
using namespace zv_loc_fw::agent_protocol;

/// How much longer than its deadline a reply may take to get here.
constexpr std::chrono::seconds kReplyMargin{2};
constexpr int32_t kTxId = 1;
constexpr int32_t kFirstErrorStatus = 400;

struct TransferOptions {
    std::string url;
    std::string data;  ///< of a POST: the text itself, @FILE or @-
    std::string contentType;
    std::string protocolVersion;
    std::string outputFile;  ///< empty: standard output, unless that is a terminal and the body is not for one
    int32_t timeoutSec = 60;
    bool isPost = false;
    bool fail = false;
    bool fresh = false;
};

class Transfer {
public:
    Transfer(Session& session, const TransferOptions& options)
        : mSession(session), mOut(session.out), mOptions(options), mTo(session.options.to) {}

    int run() {
        std::string body;
        std::string error;
        if (mOptions.isPost && !readBody(&body, &error)) {
            return mOut.fail(kUsage, error);
        }
        if (const int code = check(body); code != kOk) {
            return code;
        }
        int code = kOk;
        const std::unique_ptr<Participant> participant = mSession.join(&code);
        if (participant == nullptr) {
            return code;
        }
        const std::string request = encodeCard(requestFields(body));
        if (request.size() > pos_util::kPosIpcMaxMessage) {
            return mOut.fail(kUsage, "the body is too large for one message");
        }
        mOut.detail(requestLine());
        const Clock::time_point begin = Clock::now();
        if (code = mSession.deliver(mTo, request); code != kOk) {
            return code;
        }
        const Duration patience =
            mSession.options.wait.value_or(std::chrono::seconds(mOptions.timeoutSec) + kReplyMargin);
        const auto is_reply = [](const Message& message) {
            return message.int32(envelope::kTxId) == kTxId && message.text(envelope::kResp).has_value();
        };
        const std::optional<Message> message = mSession.receive(*participant, mTo, begin + patience, is_reply);
        if (!message.has_value()) {
            return mOut.fail(kNoReply, mTo + ": no reply within " + formatDuration(patience));
        }
        return judge(TransferReply(*message, Clock::now() - begin));
    }

private:
    /// Turns "-d" into the body: the text, or a file's bytes.
    bool readBody(std::string* body, std::string* error) const {
        if (mOptions.data.empty() || mOptions.data[0] != '@') {
            *body = mOptions.data;
            return true;
        }
        return readWholeFile(mOptions.data.substr(1), body, error);
    }

    /// What would take the controller out of service is not sent.
    int check(const std::string& body) {
        const std::string why =
            whyRejected(mOptions.isPost ? kPost : kGet, mOptions.url, body.size(), mOptions.timeoutSec);
        return why.empty() || mSession.options.force
                   ? kOk
                   : mOut.fail(kUsage, why + ": " + kRejectionHarm + "; --force sends it all the same");
    }

    [[nodiscard]] Fields requestFields(const std::string& body) const {
        Fields fields;
        fields.push_back(stringField(envelope::kTo, mTo));
        fields.push_back(stringField(envelope::kFrom, mSession.options.from));
        fields.push_back(stringField(envelope::kReq, mOptions.isPost ? kPost : kGet));
        fields.push_back(int32Field(envelope::kTxId, kTxId));
        fields.push_back(stringField(kUrl, mOptions.url));
        fields.push_back(int32Field(kTimeoutSec, mOptions.timeoutSec));
        if (mOptions.fresh) {
            fields.push_back(boolField(kForceNewConnection, true));
        }
        if (!mOptions.contentType.empty()) {
            fields.push_back(stringField(kContentType, mOptions.contentType));
        }
        if (!mOptions.protocolVersion.empty()) {
            fields.push_back(stringField(kProtocolVersion, mOptions.protocolVersion));
        }
        if (!body.empty()) {
            fields.push_back({kPostData, findFieldType(uint16_t{FT_BLOB}), body, {}});
        }
        return fields;
    }

    [[nodiscard]] std::string requestLine() const {
        return printable("> TO " + mTo + " | FROM " + mSession.options.from + " | REQ " +
                         (mOptions.isPost ? kPost : kGet) + " | TX-ID " + std::to_string(kTxId) + " | TIMEOUT-SEC " +
                         std::to_string(mOptions.timeoutSec) + " | URL " + mOptions.url);
    }

    /// What the reply says, as an exit status, with one line for everything but a result.
    int judge(const TransferReply& reply) {
        char after[64];
        (void)std::snprintf(after, sizeof(after), "%.3f s of %d s; ", reply.elapsed.count(), mOptions.timeoutSec);
        mOut.detail(reply.line());
        mOut.detail(std::string("* reply after ") + after + std::to_string(reply.body.size()) + " bytes" +
                    (mOptions.outputFile.empty() ? "" : " to " + mOptions.outputFile));
        int code = kOk;
        if (reply.kind == TransferReply::Kind::kResult) {
            code = writeBody(reply);
        }
        if (mOut.json()) {
            mOut.writeJson(reply.toJson(mOptions.timeoutSec, bodyIsInFile(reply) ? mOptions.outputFile : ""));
        }
        if (code != kOk) {
            return code;
        }
        (void)std::snprintf(after, sizeof(after), "after %.1f s of %d s: ", reply.elapsed.count(), mOptions.timeoutSec);
        switch (reply.kind) {
            case TransferReply::Kind::kErrorReply:
                return mOut.fail(kErrorReply, mTo + ": " + *reply.error);
            case TransferReply::Kind::kTransferFailed:
                return mOut.fail(kTransferFailed, std::string("transfer failed ") + after + *reply.error);
            case TransferReply::Kind::kTransferTimedOut:
                return mOut.fail(kTransferTimedOut, std::string("transfer timed out ") + after + *reply.error);
            default:
                return mOptions.fail && reply.httpStatus.value_or(0) >= kFirstErrorStatus
                           ? mOut.fail(kHttpError, "the server answered " + std::to_string(*reply.httpStatus))
                           : kOk;
        }
    }

    [[nodiscard]] bool bodyIsInFile(const TransferReply& reply) const {
        return reply.kind == TransferReply::Kind::kResult && !mOptions.outputFile.empty() && mOptions.outputFile != "-";
    }

    int writeBody(const TransferReply& reply) {
        if (bodyIsInFile(reply)) {
            std::string error;
            return writeWholeFile(mOptions.outputFile, reply.body.data(), reply.body.size(), &error)
                       ? kOk
                       : mOut.fail(kOwnFailure, "cannot write the body: " + error);
        }
        if (mOut.json()) {
            return kOk;  // it is in the card
        }
        if (mOut.outIsTerminal() && mOptions.outputFile.empty() && !mSession.options.force &&
            reply.body.find('\0') != std::string_view::npos) {
            return mOut.fail(kUsage,
                             "the body is not for a terminal: use \"-o FILE\", or \"-o -\" to see it all the same");
        }
        mOut.write(reply.body);
        return kOk;
    }

    Session& mSession;
    Output& mOut;
    const TransferOptions& mOptions;
    const std::string& mTo;
};

CLI::App* addTransferCommand(CLI::App& app, Session& session, bool is_post,
                             const std::shared_ptr<TransferOptions>& options) {
    CLI::App* command = addCommand(app, is_post ? "post" : "get",
                                   is_post ? "post a body through the agent" : "fetch a URL through the agent");
    command->add_option("URL", options->url, "http or https address")->required();
    if (is_post) {
        command->add_option("-d,--data", options->data, "the body: DATA, @FILE for a file's bytes, @- for stdin")
            ->type_name("DATA|@FILE")
            ->required();
        command->add_option("--type", options->contentType, "CONTENT-TYPE of the body")->type_name("TYPE");
        command->add_option("--protocol-version", options->protocolVersion, "PROTOCOL-VERSION for the server")
            ->type_name("V");
    }
    command->add_option("-t,--timeout", options->timeoutSec, "seconds that the agent is granted")
        ->type_name("SEC")
        ->capture_default_str();
    command->add_option("-o,--output", options->outputFile, "write the body to FILE; - is stdout")->type_name("FILE");
    command->add_flag("--fail", options->fail, "HTTP status of 400 or more is exit status 22");
    command->add_flag("--fresh", options->fresh, "use no connection of an earlier request");
    options->isPost = is_post;
    command->callback(
        [&session, options] { session.command = [&session, options] { return Transfer(session, *options).run(); }; });
    return command;
}

}  // namespace

void addTransferCommands(CLI::App& app, Session& session) {
    addTransferCommand(app, session, false, std::make_shared<TransferOptions>());
    addTransferCommand(app, session, true, std::make_shared<TransferOptions>());
}

}  // namespace mqctl
