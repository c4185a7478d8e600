#pragma once

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/AgentProcess.h"
#include "support/Card.h"
#include "support/DeviceFiles.h"
#include "support/RawServer.h"
#include "support/TestClient.h"
#include "support/sanitized.h"

namespace test_support {

inline constexpr const char* kCs = "inet-agent-cs";
inline constexpr const char* kTdpDl = "inet-agent-tdp-dl";
inline constexpr const char* kActiveTimedOut = "active job timed out";
inline constexpr const char* kQueuedTimedOut = "queued job timed out before execution";

/// What HttpServer serves as /bytes/SIZE.
[[nodiscard]] std::string alphabet(size_t size);

/// The fields that every reply to the request begins with.
[[nodiscard]] Card replyTo(const Card& request);
/// A whole reply of a transfer that succeeded.
[[nodiscard]] Card result(const Card& request, int32_t status, const std::string& body);
/// A whole reply of a controller that gave up on the request.
[[nodiscard]] Card errorReply(const Card& request, const std::string& text);
/// Compares names, types and values in their order; the message shows both cards.
void expectCard(const std::optional<Card>& actual, const Card& expected);
/// A reply of a transfer that failed: as result(), but for the error, whose text needs to match only in part.
void expectFailed(const std::optional<Card>& actual, const Card& request, bool timeout, const std::string& error,
                  int32_t size = 0);

/// What the device's OS agent says. An absent value leaves its card out.
[[nodiscard]] Card deviceState(std::optional<bool> location, std::optional<bool> emergency);
/// "SUBSCRIBE" or "UNSUBSCRIBE", as the OS agent gets it.
[[nodiscard]] Card subscription(const std::string& req);
/// What a worker says to its own controller.
[[nodiscard]] Card internalResult(const std::string& controller, const std::optional<Card>& result = {});

/// A socket file that nobody listens on.
void leaveStaleSocket(const std::string& name);
[[nodiscard]] std::string socketPath(const std::string& name);
/// "http://127.0.0.1:PORT/" with a port where nobody listens.
[[nodiscard]] std::string refusedUrl();

/// For RawServer: answers by the path of the request.
///
///     /moved/N   status N, to /final        /moved-twice   to /moved/302
///     /final     the request's method and body      /loop    302, to itself
///     /reset     a reset                    /cut     ten bytes of a body of a hundred, then the end
///     /stall     nothing, ever
[[nodiscard]] RawServer::Script misbehaviour();

/// Runs the real program in the device's directories, at the most talkative log level unless told otherwise.
/// Whatever a test does, its agent must not have been reported by a sanitizer.
class E2eTest : public testing::Test {
protected:
    E2eTest();
    void TearDown() override;

    /// Settings beside the log levels; before the start.
    static void configure(device_files::Settings agent, device_files::Settings gnss = {});

    /// Starts the agent without waiting for anything.
    AgentProcess& launch(const std::vector<std::string>& arguments = {});
    /// Starts it and waits until both controllers can be reached.
    AgentProcess& start(const std::vector<std::string>& arguments = {});
    /// SIGTERM; the end must be an orderly one.
    void stop();
    /// The agent's own end, which must be this one.
    void expectEnd(ProcessEnd end);
    void expectNoSockets();

    [[nodiscard]] AgentProcess& agent() { return *mAgent; }

private:
    std::unique_ptr<AgentProcess> mAgent;
};

}  // namespace test_support
