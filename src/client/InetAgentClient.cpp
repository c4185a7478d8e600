#include <utility>

#include "client/ClientImpl.h"
#include "client/inet_agent_client.h"

namespace inet_agent {

const char* toText(ReplyKind kind) noexcept {
    switch (kind) {
        case ReplyKind::result:
            return "result";
        case ReplyKind::errorReply:
            return "error reply";
        case ReplyKind::transferFailed:
            return "transfer failed";
        case ReplyKind::transferTimedOut:
            return "transfer timed out";
        case ReplyKind::noReplyInTime:
            return "no reply in time";
        case ReplyKind::noSuchParticipant:
            return "no such participant";
        case ReplyKind::staleSocket:
            return "stale socket";
        case ReplyKind::notDelivered:
            return "not delivered";
        case ReplyKind::refused:
            return "refused";
        case ReplyKind::closed:
            return "closed";
    }
    return "unknown";
}

OpenResult Client::open(const std::string& name, const Options& options) {
    OpenResult result;
    std::unique_ptr<Impl> impl = Impl::create(name, options, &result.error);
    if (impl != nullptr) {
        result.client = Client(std::move(impl));
    }
    return result;
}

Client::Client(std::unique_ptr<Impl> impl) noexcept : mImpl(std::move(impl)) {}
Client::Client(Client&& other) noexcept = default;
Client& Client::operator=(Client&& other) noexcept = default;
Client::~Client() = default;

const std::string& Client::name() const noexcept {
    return mImpl->name();
}

Reply Client::call(const Request& request) {
    if (mImpl->isOwnThread()) {
        Reply reply;
        reply.kind = ReplyKind::refused;
        reply.text = "call() inside a callback would wait for itself: use request()";
        return reply;
    }
    return this->request(request).get();
}

std::future<Reply> Client::request(const Request& request) {
    auto promise = std::make_shared<std::promise<Reply>>();
    std::future<Reply> future = promise->get_future();
    mImpl->request(request, [promise](Reply reply) { promise->set_value(std::move(reply)); });
    return future;
}

void Client::request(const Request& request, Callback callback) {
    mImpl->request(request, std::move(callback));
}

}  // namespace inet_agent
