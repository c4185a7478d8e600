#include "client/RequestCard.h"

#include <cstddef>
#include <cstring>
#include <optional>

#include "base/LargePages.h"
#include "client/Participant.h"
#include "inet/AgentProtocol.h"
#include "inet/RequestRules.h"
#include "mq/Envelope.h"
#include "platform/posutil/PosIpc.h"

namespace inet_agent {

namespace {

namespace envelope = zv_loc_fw::envelope;
namespace protocol = zv_loc_fw::agent_protocol;

/// The other fields of the message have room beside it.
constexpr std::size_t kLongestBody = pos_util::kPosIpcMaxMessage - 64 * 1024;
/// The agent cuts its header lines to this.
constexpr std::size_t kLongestHeaderLine = 255;
constexpr int kFailed = 1;

std::string whyNoHeader(const std::string& header, const std::optional<std::string>& value) {
    if (!value.has_value()) {
        return {};
    }
    if (value->find_first_of(std::string("\0\r\n", 3)) != std::string::npos) {
        return header + " holds a line break or a zero";
    }
    const std::size_t limit = kLongestHeaderLine - header.size() - std::strlen(": ");
    return value->size() > limit ? header + " has more than " + std::to_string(limit) + " bytes" : std::string();
}

/// What never gets to the agent as it stands.
std::string whyNotSendable(const Request& request, const std::string& own) {
    if (!zv_loc_fw::isParticipantName(request.controller)) {
        return zv_loc_fw::noParticipantName(request.controller);
    }
    if (request.controller == own) {
        return "the controller's name is this client's own";
    }
    if (request.method.find('\0') != std::string::npos || request.url.find('\0') != std::string::npos) {
        return "method or URL hold a zero";
    }
    if (request.body.size() > kLongestBody || request.url.size() > kLongestBody ||
        request.method.size() > kLongestBody) {
        return "it has more than " + std::to_string(kLongestBody) + " bytes";
    }
    if (request.method == protocol::kGet && !request.body.empty()) {
        return "the agent sends no body with a GET";
    }
    const std::string content_type = whyNoHeader("Content-Type", request.contentType);
    return !content_type.empty() ? content_type : whyNoHeader("Protocol-Version", request.protocolVersion);
}

std::string causeOf(zv_loc_fw::InPostcard& card, const char* otherwise) {
    const char* text = nullptr;
    return card.getString(protocol::kCurlError, &text) == 0 && text[0] != '\0' ? text : otherwise;
}

}  // namespace

std::string whyRefused(const Request& request, const std::string& own) {
    std::string reason = whyNotSendable(request, own);
    if (reason.empty() && !request.allowHarmful) {
        reason = protocol::whyRejected(request.method, request.url, request.body.size(), request.timeoutSec);
        if (!reason.empty()) {
            reason += std::string(": ") + protocol::kRejectionHarm;
        }
    }
    return reason;
}

void buildCard(const Request& request, const std::string& from, std::int32_t txId, zv_loc_fw::CardBuilder* card) {
    card->addString(kFailed, envelope::kTo, request.controller.c_str());
    card->addString(kFailed, envelope::kFrom, from.c_str());
    card->addString(kFailed, envelope::kReq, request.method.c_str());
    card->addInt32(kFailed, envelope::kTxId, txId);
    card->addString(kFailed, protocol::kUrl, request.url.c_str());
    card->addInt32(kFailed, protocol::kTimeoutSec, request.timeoutSec);
    if (request.forceNewConnection) {
        card->addBool(kFailed, protocol::kForceNewConnection, true);
    }
    if (request.contentType.has_value()) {
        card->addString(kFailed, protocol::kContentType, request.contentType->c_str());
    }
    if (request.protocolVersion.has_value()) {
        card->addString(kFailed, protocol::kProtocolVersion, request.protocolVersion->c_str());
    }
    if (!request.body.empty()) {
        card->addBlob(kFailed, protocol::kPostData, request.body.data(), request.body.size());
    }
    card->finalize(kFailed);
}

Reply readReply(zv_loc_fw::InPostcard& card) {
    Reply reply;
    std::int32_t retry_after = 0;
    if (card.getInt32(protocol::kHttpRetryAfter, retry_after) == 0) {
        reply.retryAfterSec = retry_after;
    }
    (void)card.getInt32Default(protocol::kHttpRespDataSize, reply.bytesReceived);
    (void)card.getInt32Default(protocol::kHttpRespCode, reply.httpStatus);

    bool timed_out = false;
    const char* error = nullptr;
    if (card.getBool(protocol::kCurlTimeout, timed_out) == 0) {
        reply.kind = timed_out ? ReplyKind::transferTimedOut : ReplyKind::transferFailed;
        reply.text = causeOf(card, timed_out ? "the transfer timed out" : "the transfer failed");
        reply.httpStatus = 0;
    } else if (reply.httpStatus == 0 && card.getString(protocol::kCurlError, &error) == 0) {
        reply.kind = ReplyKind::errorReply;
        reply.text = causeOf(card, "an error reply without a text");
    } else {
        reply.kind = ReplyKind::result;
        const void* body = nullptr;
        std::size_t size = 0;
        if (card.getBlob(protocol::kHttpRespData, &body, &size) == 0) {
            reply.body.reserve(size);
            zv_loc_fw::preferLargePages(reply.body.data(), size, zv_loc_fw::kOwnMappingAnywhere);
            reply.body.assign(static_cast<const char*>(body), size);
        }
    }
    return reply;
}

}  // namespace inet_agent
