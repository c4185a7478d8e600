#include "transfer/TransferRequest.h"

#include <cstring>

#include "base/log.h"
#include "inet/AgentProtocol.h"
#include "mq/Envelope.h"
#include "mq/MqMsgWrapper.h"
#include "postcard/InPostcard.h"

namespace zv_loc_fw {

using namespace agent_protocol;

int readTransferRequest(const char* tag, MqMsgWrapper* job, TransferRequest* request) {
    if (job == nullptr) {
        return 3;
    }
    InPostcard* card = job->card();
    if (card == nullptr) {
        return 4;
    }
    request->card = card;
    if (card->getString(envelope::kFrom, &request->from) != 0) {
        return 5;
    }
    if (card->getString(envelope::kTo, &request->to) != 0) {
        return 6;
    }
    if (card->getString(envelope::kReq, &request->req) != 0) {
        return 7;
    }
    if (card->getInt32(envelope::kTxId, request->txId) != 0) {
        return 8;
    }
    log_info(tag, "FROM: %s", request->from);
    log_info(tag, "REQ:  %s", request->req);
    log_info(tag, "TX-ID:  %d", request->txId);

    request->isPost = std::strcmp(request->req, kPost) == 0;
    if (!request->isPost && std::strcmp(request->req, kGet) != 0) {
        log_warning(tag, "ignoring unknown request %s", request->req);
        return 6;
    }
    if (card->getString(kUrl, &request->url) != 0) {
        return 9;
    }
    if (request->url == nullptr || request->url[0] == '\0') {
        return 10;
    }
    log_info(tag, "URL:  %s", request->url);
    return 0;
}

int readPostBody(TransferRequest* request) {
    constexpr int kEmptyBlob = 7;  // the reader refuses a blob of no bytes with this code
    const int read = request->card->getBlob(kPostData, &request->postData, &request->postSize);
    if (read != 0 && read != kEmptyBlob) {
        return 50;
    }
    if (read == 0 && request->postData == nullptr) {
        return 51;
    }
    return request->postSize == 0 ? 52 : 0;
}

}  // namespace zv_loc_fw
