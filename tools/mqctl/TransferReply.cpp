#include "TransferReply.h"

#include "Text.h"
#include "inet/AgentProtocol.h"
#include "mq/Envelope.h"

namespace mqctl {

namespace {

using namespace zv_loc_fw;
using namespace zv_loc_fw::agent_protocol;

const char* nameOf(TransferReply::Kind kind) {
    switch (kind) {
        case TransferReply::Kind::kErrorReply:
            return "error_reply";
        case TransferReply::Kind::kTransferFailed:
            return "transfer_failed";
        case TransferReply::Kind::kTransferTimedOut:
            return "transfer_timed_out";
        default:
            return "result";
    }
}

template <typename T>
Json orNull(const std::optional<T>& value) {
    return value.has_value() ? Json(*value) : Json(nullptr);
}

}  // namespace

TransferReply::TransferReply(const Message& reply, std::chrono::duration<double> time)
    : message(reply),
      resp(reply.text(envelope::kResp).value_or("")),
      error(reply.text(kCurlError)),
      curlTimeout(reply.boolean(kCurlTimeout)),
      httpStatus(reply.int32(kHttpRespCode)),
      size(reply.int32(kHttpRespDataSize)),
      retryAfter(reply.int32(kHttpRetryAfter)),
      elapsed(time) {
    if (const std::string* data = reply.blob(kHttpRespData); data != nullptr) {
        body = *data;
    }
    if (error.has_value()) {
        kind = !curlTimeout.has_value() ? Kind::kErrorReply
               : *curlTimeout           ? Kind::kTransferTimedOut
                                        : Kind::kTransferFailed;
    }
}

ExitCode TransferReply::exitCode() const {
    switch (kind) {
        case Kind::kErrorReply:
            return ExitCode::kErrorReply;
        case Kind::kTransferFailed:
            return ExitCode::kTransferFailed;
        case Kind::kTransferTimedOut:
            return ExitCode::kTransferTimedOut;
        default:
            return kOk;
    }
}

std::string TransferReply::line() const {
    std::string text = "< RESP " + resp;
    const auto add = [&text](const char* name, const std::string& value) {
        text += std::string(" | ") + name + " " + value;
    };
    add(envelope::kTxId, std::to_string(message.int32(envelope::kTxId).value_or(envelope::kNoTxId)));
    if (curlTimeout.has_value()) {
        add(kCurlTimeout, *curlTimeout ? "true" : "false");
    }
    if (error.has_value()) {
        add(kCurlError, *error);
    }
    if (httpStatus.has_value()) {
        add(kHttpRespCode, std::to_string(*httpStatus));
    }
    if (size.has_value()) {
        add(kHttpRespDataSize, std::to_string(*size));
    }
    if (retryAfter.has_value()) {
        add(kHttpRetryAfter, std::to_string(*retryAfter));
    }
    return printable(text);
}

Json TransferReply::toJson(int32_t timeoutSec, const std::string& bodyFile) const {
    Json json = Json::object();
    json["kind"] = nameOf(kind);
    json["from"] = orNull(message.text(envelope::kFrom));
    json["tx_id"] = orNull(message.int32(envelope::kTxId));
    json["resp"] = resp;
    // 0 in an error reply is no status.
    json["http_status"] = kind == Kind::kErrorReply ? Json(nullptr) : orNull(httpStatus);
    json["retry_after_s"] = orNull(retryAfter);
    json["size"] = orNull(size);
    json["curl_timeout"] = orNull(curlTimeout);
    json["error"] = orNull(error);
    json["elapsed_s"] = secondsOf(elapsed);
    json["timeout_s"] = timeoutSec;
    if (bodyFile.empty()) {
        json["card"] = cardToJson(message.fields);
        return json;
    }
    Fields fields;
    for (const Field& field : message.fields) {
        fields.push_back({field.name, field.type, field.name == kHttpRespData ? "" : field.value, field.fields});
    }
    json["card"] = cardToJson(fields);
    for (Json& field : json["card"]["fields"]) {
        if (field["name"] == kHttpRespData) {
            field.erase("base64");
            field["size"] = body.size();
            field["file"] = bodyFile;
        }
    }
    return json;
}

}  // namespace mqctl
