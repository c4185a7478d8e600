#ifndef INET_AGENT_CLIENT_H
#define INET_AGENT_CLIENT_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// The internet agent's client library: lets a location process make HTTP(S) requests through the agent.
///
///   #include <inet_agent_client.h>
///
///   inet_agent::OpenResult opened = inet_agent::Client::open("wifi-position");
///   if (!opened.client) {
///       std::fprintf(stderr, "%s\n", opened.error.c_str());
///       return 1;
///   }
///   inet_agent::Request request;
///   request.url = "https://example.test/tiles/7";
///   inet_agent::Reply reply = opened.client->call(request);
///   if (reply.kind == inet_agent::ReplyKind::result && reply.httpStatus == 200) {
///       use(reply.body);
///   } else {
///       std::fprintf(stderr, "%s: %s\n", inet_agent::toText(reply.kind), reply.text.c_str());
///   }
///
/// One Client is one participant of the message queue: it owns the socket file of its name from open() to its
/// destruction. Many requests may be in flight; replies are matched by their TX-ID. Nothing is ever retried, nothing is
/// printed unless a message is lost (then one warning in the Android log), no signal is touched. The library throws
/// nothing of its own; std::bad_alloc passes through on the caller's thread, and ends the process where a reply does
/// not fit into memory.
///
/// Guide: docs/client.md. Protocol: docs/protocol.md. C++17 and later.
namespace inet_agent {

#if defined(__GNUC__)
#define INET_AGENT_API __attribute__((visibility("default")))
#define INET_AGENT_LOCAL __attribute__((visibility("hidden")))
#else
#define INET_AGENT_API
#define INET_AGENT_LOCAL
#endif

/// What became of a request. Only `result` carries an HTTP status.
enum class ReplyKind {
    result,             ///< the server answered, with any HTTP status
    errorReply,         ///< the agent gave up on it (not ready, or its time ran out): see text
    transferFailed,     ///< no answer from the server: see text
    transferTimedOut,   ///< no answer from the server in time
    noReplyInTime,      ///< nothing came from the agent; it may be out of service (docs/troubleshooting.md)
    noSuchParticipant,  ///< there is no socket of the controller's name: the agent is not running; nothing was sent
    staleSocket,        ///< there is one, and nobody listens on it: the agent has died; nothing was sent
    notDelivered,       ///< the controller's socket did not take it (not read, ending, or no permission): see text
    refused,            ///< not sent, because it would harm the agent or could not arrive as it stands: see text
    closed,             ///< the client was destroyed while the request was in flight
};

/// "result", "error reply", ...; static.
INET_AGENT_API const char* toText(ReplyKind kind) noexcept;

/// One request. The controller performs its requests one at a time, in the order of their arrival.
struct Request {
    std::string controller = "inet-agent-cs";    ///< or "inet-agent-tdp-dl"
    std::string method = "GET";                  ///< or "POST"
    std::string url;                             ///< http or https; up to 8 000 000 bytes
    std::string body;                            ///< of a POST, not empty; up to 256 MiB less 64 KiB
    std::optional<std::string> contentType;      ///< of a POST, up to 241 bytes
    std::optional<std::string> protocolVersion;  ///< of a POST, up to 237 bytes
    std::int32_t timeoutSec = 60;                ///< from the moment the agent receives the request; at least 3
    bool forceNewConnection = false;             ///< use no connection of an earlier request
    /// Sends even what can take the controller out of service for everybody: another method, an empty or overlong URL,
    /// a POST without a body, a time-out below 3 s. For tests.
    bool allowHarmful = false;
    /// How long to wait beyond timeoutSec before giving up on the agent.
    std::chrono::milliseconds patience{2000};
};

struct Reply {
    ReplyKind kind = ReplyKind::closed;
    std::int32_t txId = 0;                      ///< 0 when nothing was sent
    std::int32_t httpStatus = 0;                ///< result: the HTTP status; 0 when the agent could not tell
    std::string body;                           ///< result: the body, perhaps empty
    std::int32_t bytesReceived = 0;             ///< result and failed transfers: body bytes that had arrived
    std::optional<std::int32_t> retryAfterSec;  ///< of the server's Retry-After header
    std::string text;                      ///< everything but result: the cause, as it was told or found; never empty
    std::chrono::microseconds elapsed{0};  ///< from sending to the reply, or to giving up
};

struct Options {
    std::vector<std::string> aliases;  ///< additional names under which the client is reached; gone with it
    /// Takes a name or an alias even from a live participant, which then hears nothing under it any more.
    bool replaceLive = false;
};

class Client;

struct OpenResult;

/// A participant. Movable, not copyable; a moved-from Client can only be destroyed or assigned to. Any thread may call
/// any operation but move, assignment and destruction, which need the object to themselves.
class INET_AGENT_API Client {
public:
    using Callback = std::function<void(Reply)>;

    /// Registers a name. Fails, with a reason, when it is no name (1 to 75 characters, no "/"), when a live participant
    /// listens under it or an alias (found by connecting), or when the socket cannot be made.
    static OpenResult open(const std::string& name, const Options& options = {});

    Client(Client&& other) noexcept;
    Client& operator=(Client&& other) noexcept;
    /// Requests in flight end as `closed`; callbacks have returned when it is done. From inside a callback of this
    /// client it ends the process.
    ~Client();

    const std::string& name() const noexcept;

    /// Sends and waits for the reply, at most timeoutSec and the patience. From inside a callback of this client it is
    /// refused: it would wait for itself.
    Reply call(const Request& request);
    /// Sends and returns. The future always becomes ready.
    std::future<Reply> request(const Request& request);
    /// Sends and returns. The callback is called exactly once: on a thread of the client, or on this one before
    /// request() returns when nothing was sent. It may make further requests. It must not block for long, since other
    /// replies wait for it, and must not throw. An empty one means that nobody wants the reply.
    void request(const Request& request, Callback callback);

private:
    class INET_AGENT_LOCAL Impl;
    explicit Client(std::unique_ptr<Impl> impl) noexcept;
    std::unique_ptr<Impl> mImpl;
};

struct OpenResult {
    std::optional<Client> client;  ///< empty on failure
    std::string error;             ///< why
};

#undef INET_AGENT_API
#undef INET_AGENT_LOCAL

}  // namespace inet_agent

#endif  // INET_AGENT_CLIENT_H
