// A whole controller, through its socket: its three threads, its job queue and deadlines, its worker with a stand-in for
// the network. Needs a device's directories.

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "inet/CsReqController.h"
#include "support/Card.h"
#include "support/Input.h"
#include "support/StandInTransfer.h"

namespace {

using namespace zv_loc_fw;
using test_support::Card;

/// Fewer than the kernel queues for the client, which reads only in the end.
constexpr size_t kMaxMessages = 6;
constexpr size_t kLargestReply = size_t{256} * 1024;
constexpr int32_t kBarrierTxId = 0x5EEDEC;
constexpr int32_t kLastTxId = 0x5EEDED;
constexpr auto kPatience = std::chrono::seconds(20);
constexpr const char* kAgent = "inet-agent-cs";

/// What the boot clock, which arrivals and deadlines are read from, is ahead of its time. It must not stand still: a job
/// whose deadline is this very moment would be looked at for ever.
std::atomic<time_t> seconds_ahead{0};

sockaddr_un addressOf(const std::string& name) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string path = "/dev/socket/location/mq/" + name;
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

/// The participant "client", for the life of the process.
class Client {
public:
    Client() : mSocket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        const sockaddr_un address = addressOf("client");
        (void)unlink(address.sun_path);
        if (bind(mSocket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
            (void)std::fprintf(stderr, "no socket directory: run it with script/device --temp\n");
            std::exit(1);
        }
    }

    void send(std::string_view message) const {
        const sockaddr_un address = addressOf(kAgent);
        (void)sendto(mSocket, message.data(), message.size(), 0, reinterpret_cast<const sockaddr*>(&address),
                     sizeof(address));
    }

    /// @return nothing when none has come within that time; a message in a descriptor counts, but is not looked at
    std::optional<std::string> receive(int timeout_ms) const {
        pollfd waited = {mSocket, POLLIN, 0};
        if (poll(&waited, 1, timeout_ms) <= 0) {
            return std::nullopt;
        }
        std::string message(kLargestReply, '\0');
        const ssize_t length = recv(mSocket, message.data(), message.size(), MSG_DONTWAIT);
        message.resize(length > 0 ? static_cast<size_t>(length) : 0);
        return message;
    }

private:
    const int mSocket;
};

Client& client() {
    static Client instance;
    return instance;
}

std::string request(int32_t tx_id, int32_t timeout_sec) {
    Card card;
    card.string("TO", kAgent).string("FROM", "client").string("REQ", "GET").int32("TX-ID", tx_id);
    return card.string("URL", "http://localhost/").int32("TIMEOUT-SEC", timeout_sec).encode();
}

/// A message that wants nothing: the loop looks at its timers before it waits for the next one.
std::string wakeUp() {
    return Card().string("FROM", "client").string("RESP", "GET").encode();
}

/// A stranger's result card is passed on as it is; all others are the agent's own work.
void checkReply(const std::string& message, bool forged) {
    if (forged || message.size() <= 1) {
        return;
    }
    const std::optional<Card> reply = Card::decode(message);
    FUZZ_CHECK(reply.has_value());
    const std::vector<std::string> names = reply->names();
    if (reply->has("INFO")) {
        return;  // a controller's own announcement
    }
    FUZZ_CHECK(names.size() >= 6 && names[0] == "FROM" && names[1] == "TO" && names[2] == "TX-ID" &&
               names[3] == "RESP");
    FUZZ_CHECK(reply->has("HTTP-RESP-CODE") || reply->has("CURL-ERROR"));
}

/// Tells the replies, which are at most as many as the requests.
class Replies {
public:
    explicit Replies(bool forged) : mForged(forged) {}

    void sent() { ++mRequests; }

    /// Waits for the reply to one request.
    /// @param unless_rejected gives up when a rejected request has put the controller out of service
    void waitFor(int32_t tx_id, bool unless_rejected) {
        const auto limit = std::chrono::steady_clock::now() + kPatience;
        while (!unless_rejected || fuzz::countedLogLines() == 0) {
            FUZZ_CHECK(std::chrono::steady_clock::now() < limit);
            const std::optional<std::string> message = client().receive(1);
            if (!message.has_value()) {
                continue;
            }
            checkReply(*message, mForged);
            const std::optional<Card> card = Card::decode(*message);
            if (!card.has_value() || !card->has("INFO")) {
                FUZZ_CHECK(++mReplies <= mRequests);
            }
            // A reply in a descriptor is one byte here; it is the last one's, or nobody waits for it.
            if ((message->size() <= 1 && tx_id == kLastTxId) ||
                (card.has_value() && card->getInt32("TX-ID") == tx_id)) {
                return;
            }
        }
    }

private:
    const bool mForged;
    size_t mRequests = 0;
    size_t mReplies = 0;
};

}  // namespace

extern "C" int __real_clock_gettime(clockid_t clock, timespec* time);

extern "C" int __wrap_clock_gettime(clockid_t clock, timespec* time) {
    const int result = __real_clock_gettime(clock, time);
    if (clock == CLOCK_BOOTTIME) {
        time->tv_sec += seconds_ahead;
    }
    return result;
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    fuzz::quietLog(5);
    (void)client();
    return 0;
}

/// The input is a byte of flags, what the network does, and a row of datagrams, each behind its length in two bytes. With
/// the highest bit set a length is no message's, but seconds that pass.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const bool forged =
        std::string_view(reinterpret_cast<const char*>(data), size).find("HTTP-RESULT") != std::string_view::npos;
    fuzz::Input input(data, size);
    const auto flags = input.number<uint8_t>();
    const bool slow_network = (flags & 1) != 0;
    const bool stopped_while_busy = (flags & 2) != 0;
    fuzz::StandInTransfer::setScript(std::string(input.piece()));
    fuzz::StandInTransfer::hold(slow_network);
    while (client().receive(0).has_value()) {
    }
    fuzz::countLogLines("perform failed");
    Replies replies(forged);
    seconds_ahead = 0;
    {
        CsReqController controller("agent", kAgent);
        controller.shutdownTimer().setLaunchTriggerMask(flags & 4);
        FUZZ_CHECK(controller.init() == 0 && controller.launch() == 0);
        const auto send = [&replies](std::string_view message) {
            replies.sent();
            client().send(message);
        };
        for (size_t i = 0; i < kMaxMessages && !input.empty(); ++i) {
            const auto length = input.number<uint16_t>();
            if ((length & 0x8000) == 0) {
                send(input.bytes(length));
                continue;
            }
            // Time passes when all that came before has been seen.
            send(request(kBarrierTxId, -1));
            replies.waitFor(kBarrierTxId, false);
            seconds_ahead += length & 0x7F;
            client().send(wakeUp());
        }
        send(request(kLastTxId - 2, -1));
        replies.waitFor(kLastTxId - 2, false);
        if (!stopped_while_busy) {
            fuzz::StandInTransfer::hold(false);
            send(request(kLastTxId, 1000));
            replies.waitFor(kLastTxId, true);
        }
        FUZZ_CHECK(controller.kill() == 0 && controller.join() == 0);
    }
    fuzz::StandInTransfer::hold(false);
    FUZZ_CHECK(access(addressOf(kAgent).sun_path, F_OK) != 0);
    return 0;
}
