#include "transfer/Rejection.h"

#include <cstdint>
#include <cstdio>

#include "inet/AgentProtocol.h"
#include "mq/Envelope.h"
#include "postcard/CardBuilder.h"

namespace zv_loc_fw {

namespace {

struct Addressee {
    const char* from = nullptr;
    const char* req = nullptr;
    int32_t txId = envelope::kNoTxId;
};

bool readAddressee(InPostcard& request, Addressee* addressee) {
    return request.getString(envelope::kFrom, &addressee->from) == 0 &&
           request.getString(envelope::kReq, &addressee->req) == 0 &&
           request.getInt32(envelope::kTxId, addressee->txId) == 0;
}

}  // namespace

bool isAnswerable(InPostcard& request) {
    Addressee unused;
    return readAddressee(request, &unused);
}

std::unique_ptr<OutPostcard> rejectionOf(InPostcard& request, const char* controller, int code) {
    Addressee addressee;
    if (!readAddressee(request, &addressee)) {
        return nullptr;
    }
    const char* to = nullptr;
    if (request.getString(envelope::kTo, &to) != 0) {
        to = controller;
    }
    char text[40];
    (void)std::snprintf(text, sizeof(text), agent_protocol::kErrorRejectedFormat, code);

    constexpr int kFailed = 1;  // one code for all: the callers only need to know whether there is a card
    CardBuilder result(kFailed, kFailed);
    result.addString(kFailed, envelope::kFrom, to);
    result.addString(kFailed, envelope::kTo, addressee.from);
    result.addInt32(kFailed, envelope::kTxId, addressee.txId);
    result.addString(kFailed, envelope::kResp, addressee.req);
    result.addBool(kFailed, agent_protocol::kCurlTimeout, false);
    result.addString(kFailed, agent_protocol::kCurlError, text);
    result.addInt32(kFailed, agent_protocol::kHttpRespDataSize, 0);
    result.finalize(kFailed);
    return result.result() == 0 ? result.takeCard() : nullptr;
}

}  // namespace zv_loc_fw
