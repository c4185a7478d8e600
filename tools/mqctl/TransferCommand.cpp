#include "TransferCommand.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "ExitCode.h"
#include "client/Participant.h"
#include "inet/AgentProtocol.h"
#include "mq/Envelope.h"
#include "postcard/CardBuilder.h"

namespace mqctl {

namespace {

using namespace zv_loc_fw;
using namespace zv_loc_fw::agent_protocol;
using Clock = Participant::Clock;

/// Below it the worker may find a second or less left: it then rejects the request, and the controller serves nobody
/// any more (docs/operating.md).
constexpr int32_t kShortestSafeTimeoutSec = 3;
/// How much longer than its deadline a reply may take to get here.
constexpr std::chrono::seconds kReplyMargin{2};
constexpr int32_t kTxId = 1;

struct Reply {
    std::unique_ptr<InPostcard> card;
    const char* resp = "";
    const char* error = nullptr;
    bool hasCurlTimeout = false;
    bool curlTimeout = false;
    int32_t httpStatus = -1;
    int32_t size = -1;
    const void* body = nullptr;
    size_t bodySize = 0;
    double seconds = 0;
};

int fail(ExitCode code, const std::string& text) {
    std::fprintf(stderr, "mqctl: %s\n", text.c_str());
    return code;
}

/// Turns "-d" into the body: the text, or a file's bytes.
int readBody(const std::string& data, std::string* body) {
    if (data.empty() || data[0] != '@') {
        *body = data;
        return kOk;
    }
    const std::string path = data.substr(1);
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    if (file) {
        body->assign(std::istreambuf_iterator<char>(file), {});
    }
    if (!file || file.bad()) {
        return fail(kUsage, path + ": " + std::strerror(errno != 0 ? errno : EIO));
    }
    return kOk;
}

/// What would take the controller out of service is not sent.
int checkRequest(const TransferOptions& options, const std::string& body) {
    if (options.url.empty()) {
        return fail(kUsage, "the URL is empty");
    }
    if (options.isPost && body.empty()) {
        return fail(kUsage, "a POST needs a body: -d DATA or -d @FILE");
    }
    if (options.timeoutSec < kShortestSafeTimeoutSec && !options.force) {
        return fail(kUsage,
                    "a time-out below " + std::to_string(kShortestSafeTimeoutSec) +
                        " s can take the controller out of service for everybody; --force sends it all the same");
    }
    return kOk;
}

int buildRequest(const TransferOptions& options, const std::string& from, const std::string& body,
                 std::unique_ptr<OutPostcard>* card) {
    CardBuilder builder(1, 1);
    builder.addString(1, envelope::kTo, options.controller.c_str());
    builder.addString(1, envelope::kFrom, from.c_str());
    builder.addString(1, envelope::kReq, options.isPost ? kPost : kGet);
    builder.addInt32(1, envelope::kTxId, kTxId);
    builder.addString(1, kUrl, options.url.c_str());
    builder.addInt32(1, kTimeoutSec, options.timeoutSec);
    if (!body.empty()) {
        builder.addBlob(1, kPostData, body.data(), body.size());
    }
    builder.finalize(1);
    if (builder.result() == 0 && builder.card()->getEncodedBuffer()->getSize() > pos_util::kPosIpcMaxMessage) {
        return fail(kUsage, "the body is too large for one message");
    }
    *card = builder.takeCard();
    return builder.result() == 0 ? kOk : fail(kOwnFailure, "cannot build the request: no memory");
}

/// Skips whatever is not the reply to our one request.
std::unique_ptr<InPostcard> waitForReply(Participant& participant, Clock::time_point deadline) {
    while (true) {
        std::unique_ptr<InPostcard> message = participant.receive(deadline);
        int32_t tx_id = envelope::kNoTxId;
        const char* resp = nullptr;
        if (message == nullptr || (message->getInt32(envelope::kTxId, tx_id) == 0 && tx_id == kTxId &&
                                   message->getString(envelope::kResp, &resp) == 0)) {
            return message;
        }
    }
}

Reply readReply(std::unique_ptr<InPostcard> card) {
    Reply reply;
    (void)card->getString(envelope::kResp, &reply.resp);
    (void)card->getString(kCurlError, &reply.error);
    reply.hasCurlTimeout = card->getBool(kCurlTimeout, reply.curlTimeout) == 0;
    (void)card->getInt32Default(kHttpRespCode, reply.httpStatus);
    (void)card->getInt32Default(kHttpRespDataSize, reply.size);
    (void)card->getBlob(kHttpRespData, &reply.body, &reply.bodySize);
    reply.card = std::move(card);
    return reply;
}

int writeBody(const TransferOptions& options, const Reply& reply) {
    std::FILE* out = stdout;
    if (!options.outputFile.empty()) {
        out = std::fopen(options.outputFile.c_str(), "wb");
        if (out == nullptr) {
            return fail(kOwnFailure, options.outputFile + ": " + std::strerror(errno));
        }
    }
    const bool written = reply.bodySize == 0 || std::fwrite(reply.body, 1, reply.bodySize, out) == reply.bodySize;
    const int error = errno;
    const bool finished = out == stdout ? std::fflush(out) == 0 : std::fclose(out) == 0;
    return written && finished ? kOk : fail(kOwnFailure, std::string("cannot write the body: ") + std::strerror(error));
}

void printRequest(const TransferOptions& options, const std::string& from) {
    std::fprintf(stderr, "> TO %s | FROM %s | REQ %s | TX-ID %d | TIMEOUT-SEC %d | URL %s\n",
                 options.controller.c_str(), from.c_str(), options.isPost ? kPost : kGet, kTxId, options.timeoutSec,
                 options.url.c_str());
}

void printReply(const TransferOptions& options, const Reply& reply) {
    std::fprintf(stderr, "< RESP %s | TX-ID %d", reply.resp, kTxId);
    if (reply.hasCurlTimeout) {
        std::fprintf(stderr, " | CURL-TIMEOUT %s", reply.curlTimeout ? "true" : "false");
    }
    if (reply.error != nullptr) {
        std::fprintf(stderr, " | CURL-ERROR %s", reply.error);
    }
    if (reply.httpStatus >= 0) {
        std::fprintf(stderr, " | HTTP-RESP-CODE %d", reply.httpStatus);
    }
    if (reply.size >= 0) {
        std::fprintf(stderr, " | HTTP-RESP-DATA-SIZE %d", reply.size);
    }
    int32_t retry_after = 0;
    if (reply.card->getInt32(kHttpRetryAfter, retry_after) == 0) {
        std::fprintf(stderr, " | HTTP-RETRY-AFTER %d", retry_after);
    }
    std::fprintf(stderr, "\n* reply after %.3f s of %d s; %zu bytes", reply.seconds, options.timeoutSec,
                 reply.bodySize);
    if (!options.outputFile.empty()) {
        std::fprintf(stderr, " to %s", options.outputFile.c_str());
    }
    std::fputc('\n', stderr);
}

/// What the reply says, as an exit status, with one line for everything but a result.
int judge(const TransferOptions& options, const Reply& reply) {
    if (reply.error == nullptr) {
        return writeBody(options, reply);
    }
    if (!reply.hasCurlTimeout) {
        return fail(kErrorReply, options.controller + ": " + reply.error);
    }
    char after[64];
    (void)std::snprintf(after, sizeof(after), "after %.1f s of %d s: ", reply.seconds, options.timeoutSec);
    return reply.curlTimeout ? fail(kTransferTimedOut, std::string("transfer timed out ") + after + reply.error)
                             : fail(kTransferFailed, std::string("transfer failed ") + after + reply.error);
}

}  // namespace

int runTransfer(const TransferOptions& options) {
    std::string body;
    if (options.isPost) {
        if (const int code = readBody(options.data, &body); code != kOk) {
            return code;
        }
    }
    if (const int code = checkRequest(options, body); code != kOk) {
        return code;
    }
    std::string error;
    const std::unique_ptr<Participant> participant =
        Participant::create("mqctl-" + std::to_string(::getpid()), {}, &error);
    if (participant == nullptr) {
        return fail(kOwnFailure, error);
    }
    switch (lookUpParticipant(options.controller)) {
        case ParticipantState::kLive:
            break;
        case ParticipantState::kStale:
            return fail(kNoParticipant, options.controller + ": nobody listens on its socket (stale)");
        case ParticipantState::kAbsent:
            return fail(kNoParticipant, options.controller + ": no such participant");
    }
    std::unique_ptr<OutPostcard> request;
    if (const int code = buildRequest(options, participant->name(), body, &request); code != kOk) {
        return code;
    }
    if (options.verbose) {
        printRequest(options, participant->name());
    }
    const Clock::time_point begin = Clock::now();
    (void)participant->send(*request);
    std::unique_ptr<InPostcard> card =
        waitForReply(*participant, begin + std::chrono::seconds(options.timeoutSec) + kReplyMargin);
    if (card == nullptr) {
        return fail(kNoReply, options.controller + ": no reply within " + std::to_string(options.timeoutSec) + " s");
    }
    Reply reply = readReply(std::move(card));
    reply.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    if (options.verbose) {
        printReply(options, reply);
    }
    return judge(options, reply);
}

}  // namespace mqctl
