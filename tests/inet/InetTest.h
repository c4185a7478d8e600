#pragma once

#include <gmock/gmock.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "base/log.h"
#include "inet/TdpDlReqController.h"
#include "support/BootClock.h"
#include "support/DeviceFiles.h"
#include "support/HttpServer.h"
#include "support/LogCapture.h"
#include "support/RawServer.h"
#include "support/TestClient.h"
#include "transfer/Messages.h"

namespace inet_test {

using test_support::Card;
using transfer_test::messageOf;
using transfer_test::without;

/// The download controller with its hooks within reach.
class TestController : public zv_loc_fw::TdpDlReqController {
public:
    TestController() : TdpDlReqController("agent", "agent") {}
    using InetControllerBase::_process;
};

/// A server that answers each request once it is let go.
class Gate {
public:
    [[nodiscard]] std::string url() const { return mServer.url(); }
    /// Waits until that many requests have come.
    [[nodiscard]] bool waitForRequests(size_t count) const { return mServer.waitForConnections(count); }
    void open() { mOpen = true; }

private:
    std::atomic<bool> mOpen{false};
    test_support::RawServer mServer{[this](test_support::RawConnection& connection) {
        (void)connection.readRequest();
        while (!mOpen && connection.sleep(1)) {
        }
        connection.sendAll(test_support::RawServer::response("200 OK", {}, "let go"));
    }};
};

class InetTest : public testing::Test {
protected:
    InetTest() {
        zv_loc_fw::log_set_global_level(zv_loc_fw::EL_VERBOSE);
        setenv("no_proxy", "*", 1);
    }

    /// The reply's one line; "nothing" when none comes.
    std::string reply() {
        const auto card = client.receive();
        return card.has_value() ? card->describe() : "nothing";
    }
    static std::string errorReply(int32_t tx_id, const std::string& text, const std::string& req = "GET") {
        return "FROM agent | TO client | TX-ID " + std::to_string(tx_id) + " | RESP " + req + " | CURL-ERROR " + text +
               " | HTTP-RESP-CODE 0";
    }
    static std::string queuedTimedOut(int32_t tx_id) {
        return errorReply(tx_id, "queued job timed out before execution");
    }
    static std::string activeTimedOut(int32_t tx_id) { return errorReply(tx_id, "active job timed out"); }
    static std::string letGo(int32_t tx_id) {
        return "FROM agent | TO client | TX-ID " + std::to_string(tx_id) +
               " | RESP GET | HTTP-RESP-DATA (6 bytes) | HTTP-RESP-CODE 200 | HTTP-RESP-DATA-SIZE 6";
    }

    test_support::BootClock clock;  // stands still: spans are exact
    test_support::LogCapture log;
    test_support::HttpServer server;
    Gate gate;
    test_support::TestClient client{"client"};
};

}  // namespace inet_test
