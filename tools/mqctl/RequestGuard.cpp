#include "RequestGuard.h"

#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>

#include "inet/AgentProtocol.h"
#include "mq/Envelope.h"
#include "postcard/InPostcard.h"

namespace mqctl {

namespace {

using namespace zv_loc_fw;
using namespace zv_loc_fw::agent_protocol;

constexpr const char* kConsequence = " can take the controller out of service for everybody";

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

/// What the worker needs of a request whose time has not run out. Its own reader decides, damaged fields included.
std::string rejectionOf(InPostcard& request, const char* req) {
    const bool is_post = std::strcmp(req, kPost) == 0;
    if (!is_post && std::strcmp(req, kGet) != 0) {
        return std::string("REQ \"") + req + "\", which is neither GET nor POST,";
    }
    const char* text = nullptr;
    if (request.getString(envelope::kTo, &text) != 0) {
        return "a request without TO";
    }
    if (request.getString(kUrl, &text) != 0 || *text == '\0') {
        return "an empty or missing URL";
    }
    const void* body = nullptr;
    size_t size = 0;
    if (is_post && request.getBlob(kPostData, &body, &size) != 0) {
        return "a POST without a body in POST-DATA";
    }
    bool flag = false;
    if (request.getBoolDefault(kForceNewConnection, flag) != 0 || request.getStringOptional(kContentType, &text) != 0 ||
        request.getStringOptional(kProtocolVersion, &text) != 0) {
        return "a field that cannot be read";
    }
    return {};
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
    if (timeout_sec < kShortestSafeTimeoutSec) {
        return "a TIMEOUT-SEC below " + std::to_string(kShortestSafeTimeoutSec) + kConsequence;
    }
    const std::string rejection = rejectionOf(*card, req);
    return rejection.empty() ? "" : rejection + kConsequence;
}

}  // namespace mqctl
