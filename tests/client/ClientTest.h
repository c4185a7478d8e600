#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <utility>

#include "inet_agent_client.h"
#include "support/DeviceFiles.h"
#include "support/TestClient.h"

/// The library against a controller that the test plays.
namespace inet_agent {

using test_support::Card;
using test_support::TestClient;

inline constexpr const char* kController = "inet-agent-cs";

/// What every reply to a request begins with.
inline Card replyTo(const Card& asked) {
    return Card()
        .string("FROM", *asked.getString("TO"))
        .string("TO", *asked.getString("FROM"))
        .int32("TX-ID", *asked.getInt32("TX-ID"))
        .string("RESP", *asked.getString("REQ"));
}

inline Card result(const Card& asked, const std::string& body) {
    return replyTo(asked).blob("HTTP-RESP-DATA", body).int32("HTTP-RESP-CODE", 200);
}

inline Request get(const std::string& url = "http://x/") {
    Request request;
    request.url = url;
    return request;
}

inline Request post(const std::string& body) {
    Request request = get();
    request.method = "POST";
    request.body = body;
    return request;
}

/// One that nobody answers in time.
inline Request impatient() {
    Request request = get();
    request.timeoutSec = 0;
    request.patience = std::chrono::milliseconds(10);
    request.allowHarmful = true;
    return request;
}

inline Client open(const std::string& name, const Options& options = {}) {
    OpenResult opened = Client::open(name, options);
    EXPECT_TRUE(opened.client.has_value()) << opened.error;
    return std::move(*opened.client);
}

class ClientTest : public testing::Test {
protected:
    ClientTest() { test_support::device_files::reset(); }
};

}  // namespace inet_agent
