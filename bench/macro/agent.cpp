// The agent, and its two kinds of clients.

#include "macro/agent.h"

#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "client/inet_agent_client.h"
#include "inet/AgentProtocol.h"
#include "mq/Envelope.h"
#include "postcard/CardBuilder.h"
#include "postcard/InPostcard.h"

namespace bench {

namespace {

namespace envelope = zv_loc_fw::envelope;
namespace protocol = zv_loc_fw::agent_protocol;

constexpr std::size_t kLargestPlain = 65536;

sockaddr_un addressOf(const std::string& name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (void)std::snprintf(address.sun_path, sizeof(address.sun_path), envelope::kSocketPathFormat, name.c_str());
    return address;
}

/// Gets what is asked for, the caller's thread waiting at its socket.
class ByPlainClient : public Getter {
public:
    ByPlainClient(const Stage& stage, bool newConnection)
        : mAgent(AgentProcess::shared(stage)), mNewConnection(newConnection) {}
    std::size_t get(const std::string& url) override { return mClient.get({url, 60, mNewConnection}); }
    [[nodiscard]] std::vector<pid_t> servants() const override { return {mAgent->pid()}; }

private:
    std::shared_ptr<AgentProcess> mAgent;
    PlainClient mClient{"bench"};
    bool mNewConnection;
};

/// With the client library, whose threads match replies to requests and watch their time.
class ByLibrary : public Getter {
public:
    explicit ByLibrary(const Stage& stage)
        : mAgent(AgentProcess::shared(stage)), mOpened(inet_agent::Client::open("bench-library")) {
        if (!mOpened.client.has_value()) {
            die(mOpened.error);
        }
    }
    std::size_t get(const std::string& url) override {
        inet_agent::Request request;
        request.url = url;
        const inet_agent::Reply reply = mOpened.client->call(request);
        if (reply.kind != inet_agent::ReplyKind::result) {
            die(std::string("the library's request: ") + inet_agent::toText(reply.kind) + ": " + reply.text);
        }
        return reply.body.size();
    }
    [[nodiscard]] std::vector<pid_t> servants() const override { return {mAgent->pid()}; }

private:
    std::shared_ptr<AgentProcess> mAgent;
    inet_agent::OpenResult mOpened;
};

class Refused : public Work {
public:
    explicit Refused(const Stage& stage) : mAgent(AgentProcess::shared(stage)) {}
    std::vector<double> run(std::size_t n) override {
        return timed(n, [this] { (void)mClient.get({"http://127.0.0.1/", 0, false}); });
    }
    [[nodiscard]] std::vector<pid_t> servants() const override { return {mAgent->pid()}; }

private:
    std::shared_ptr<AgentProcess> mAgent;
    PlainClient mClient{"bench"};
};

const RegisterExchange kRows[] = {
    RegisterExchange(gettingRow(
        kAgent, kEverywhere,
        [](const Stage& stage, std::string* /*why*/) { return std::make_unique<ByPlainClient>(stage, false); })),
    RegisterExchange(
        gettingRow("inet-agent, client library", kEverywhere,
                   [](const Stage& stage, std::string* /*why*/) { return std::make_unique<ByLibrary>(stage); })),
    RegisterExchange(gettingRow(
        kAgent, {"connection/https"},
        [](const Stage& stage, std::string* /*why*/) { return std::make_unique<ByPlainClient>(stage, true); })),
    RegisterExchange(ExchangeRow{
        kAgent,
        {"reply/refused"},
        [](const Stage& stage, const std::string&, std::string*) { return std::make_unique<Refused>(stage); }}),
};

}  // namespace

AgentProcess::AgentProcess(const Stage& stage) : mProcess(Process::start({stage.agent})) {
    PlainClient client("bench-waits");
    const bool up = waitFor(&mProcess, [&] {
        return ::access(addressOf(protocol::kTdpDlController).sun_path, F_OK) == 0 &&
               client.send({"http://127.0.0.1/", 0, false});
    });
    if (!up) {
        die("the agent does not come up: " + stage.agent);
    }
    (void)client.receive();
    // The first replies may say that it is not ready yet; the worker is when a transfer has been made.
    (void)client.get({stage.origin.http("/bytes/200"), 60, false});
}

std::shared_ptr<AgentProcess> AgentProcess::shared(const Stage& stage) {
    static std::weak_ptr<AgentProcess> current;
    std::shared_ptr<AgentProcess> agent = current.lock();
    if (agent == nullptr) {
        agent = std::make_shared<AgentProcess>(stage);
        current = agent;
    }
    return agent;
}

PlainClient::PlainClient(const std::string& name)
    : mName(name), mSocket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)), mBuffer(new char[kLargestPlain]) {
    const sockaddr_un own = addressOf(name);
    (void)::unlink(own.sun_path);
    const timeval patience{60, 0};
    if (::bind(mSocket, reinterpret_cast<const sockaddr*>(&own), sizeof(own)) != 0 ||
        ::setsockopt(mSocket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience)) != 0) {
        die("no socket at " + std::string(own.sun_path));
    }
}

PlainClient::~PlainClient() {
    (void)::unlink(addressOf(mName).sun_path);
    (void)::close(mSocket);
}

bool PlainClient::send(const Request& request) {
    zv_loc_fw::CardBuilder card(1, 1);
    card.addString(1, envelope::kTo, protocol::kCsController);
    card.addString(1, envelope::kFrom, mName.c_str());
    card.addString(1, envelope::kReq, protocol::kGet);
    card.addInt32(1, envelope::kTxId, ++mTxId);
    card.addString(1, protocol::kUrl, request.url.c_str());
    card.addInt32(1, protocol::kTimeoutSec, request.timeoutSec);
    if (request.newConnection) {
        card.addBool(1, protocol::kForceNewConnection, true);
    }
    card.finalize(1);
    static const sockaddr_un agent = addressOf(protocol::kCsController);
    const zv_loc_fw::MemoryStreamBase* const bytes = card.card()->getEncodedBuffer();
    return card.result() == 0 && ::sendto(mSocket, bytes->getBuffer(), bytes->getSize(), 0,
                                          reinterpret_cast<const sockaddr*>(&agent), sizeof(agent)) >= 0;
}

std::size_t PlainClient::get(const Request& request) {
    if (!send(request)) {
        die("the agent takes no request");
    }
    return receive();
}

std::size_t PlainClient::receive() {
    for (;;) {
        iovec part{mBuffer.get(), kLargestPlain};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof(control);
        const ssize_t length = ::recvmsg(mSocket, &message, MSG_CMSG_CLOEXEC);
        if (length < 0) {
            die("the agent does not answer");
        }
        std::size_t body = 0;
        const cmsghdr* const header = CMSG_FIRSTHDR(&message);
        if (header == nullptr) {
            if (parse(mBuffer.get(), static_cast<std::size_t>(length), &body)) {
                return body;
            }
            continue;
        }
        int file = -1;
        std::memcpy(&file, CMSG_DATA(header), sizeof(file));
        struct stat status {};
        (void)::fstat(file, &status);
        const auto size = static_cast<std::size_t>(status.st_size);
        void* const data = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, file, 0);
        const bool reply = data != MAP_FAILED && parse(data, size, &body);
        (void)::munmap(data, size);
        (void)::close(file);
        if (reply) {
            return body;
        }
    }
}

bool PlainClient::parse(const void* data, std::size_t size, std::size_t* body) {
    const std::unique_ptr<zv_loc_fw::InPostcard> card(zv_loc_fw::InPostcard::createInstance());
    int32_t tx_id = 0;
    const char* response = nullptr;
    if (card->init(data, size, false) != 0 || card->getString(envelope::kResp, &response) != 0 ||
        card->getInt32(envelope::kTxId, tx_id) != 0) {
        return false;
    }
    const void* bytes = nullptr;
    *body = 0;
    if (card->getBlob(protocol::kHttpRespData, &bytes, body) == 0) {
        touch(bytes, *body);
    }
    return true;
}

}  // namespace bench
