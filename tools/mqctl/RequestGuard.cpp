#include "RequestGuard.h"

#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>

#include "inet/AgentProtocol.h"
#include "inet/RequestRules.h"
#include "mq/Envelope.h"
#include "postcard/InPostcard.h"

namespace mqctl {

namespace {

using namespace zv_loc_fw;
using namespace zv_loc_fw::agent_protocol;

/// The name that an alias stands for, or the name itself.
std::string resolve(const std::string& name) {
    char target[PATH_MAX];
    const ssize_t length = ::readlink((envelope::kSocketDirectory + name).c_str(), target, sizeof(target));
    if (length <= 0) {
        return name;
    }
    const std::string path(target, static_cast<size_t>(length));
    return path.substr(path.rfind('/') + 1);
}

/// What the worker would reject. Its own reader decides, damaged fields included.
std::string rejectionOf(InPostcard& request, const char* req, int32_t timeoutSec) {
    const char* text = nullptr;
    bool flag = false;
    if (request.getString(envelope::kTo, &text) != 0 || request.getBoolDefault(kForceNewConnection, flag) != 0 ||
        request.getStringOptional(kContentType, &text) != 0 ||
        request.getStringOptional(kProtocolVersion, &text) != 0) {
        return "TO is missing, or a field cannot be read";
    }
    const char* url = nullptr;
    if (request.getString(kUrl, &url) != 0) {
        url = "";
    }
    const void* body = nullptr;
    size_t size = 0;
    if (request.getBlob(kPostData, &body, &size) != 0) {
        size = 0;
    }
    return whyRejected(req, url, size, timeoutSec);
}

}  // namespace

std::string controllerNamed(const std::string& participant) {
    const std::string name = resolve(participant);
    return name == kCsController || name == kTdpDlController ? name : "";
}

std::string harmOf(const std::string& participant, const std::string& bytes) {
    const std::string controller = controllerNamed(participant);
    const std::unique_ptr<InPostcard> card(InPostcard::createInstance());
    if (controller.empty() || card == nullptr || card->init(bytes.data(), bytes.size(), false) != 0) {
        return {};
    }
    const char* from = nullptr;
    const char* req = nullptr;
    int32_t timeout_sec = 0;
    if (card->getString(envelope::kFrom, &from) != 0 || card->getString(envelope::kReq, &req) != 0 ||
        std::strcmp(req, envelope::kKill) == 0) {
        return {};  // dropped, or no request
    }
    if (controller == from) {
        return "FROM is the controller itself, which would take this for its worker's result";
    }
    if (card->getInt32(kTimeoutSec, timeout_sec) != 0 || timeout_sec <= 0) {
        return {};  // answered at once, the worker never sees it
    }
    const std::string rejection = rejectionOf(*card, req, timeout_sec);
    return rejection.empty() ? "" : rejection + ": " + kRejectionHarm;
}

}  // namespace mqctl
