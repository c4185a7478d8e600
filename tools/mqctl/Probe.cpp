#include "Probe.h"

#include "FieldArgs.h"
#include "inet/AgentProtocol.h"
#include "mq/Envelope.h"

namespace mqctl {

namespace {

using namespace zv_loc_fw;
using namespace zv_loc_fw::agent_protocol;

Fields request(const std::string& to, const std::string& from, int32_t tx_id, const std::string& url) {
    return {stringField(envelope::kTo, to), stringField(envelope::kFrom, from), stringField(envelope::kReq, kGet),
            int32Field(envelope::kTxId, tx_id), stringField(kUrl, url)};
}

}  // namespace

std::string pingRequest(const std::string& to, const std::string& from, int32_t txId) {
    return encodeCard(request(to, from, txId, kProbeUrl));
}

std::string probeRequest(const std::string& to, const std::string& from, int32_t txId, const std::string& url,
                         int32_t timeoutSec) {
    Fields fields = request(to, from, txId, url);
    fields.push_back(int32Field(kTimeoutSec, timeoutSec));
    return encodeCard(fields);
}

}  // namespace mqctl
