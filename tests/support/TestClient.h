#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "support/Card.h"

/// A participant of the message queue that shares no code with the product.
namespace test_support {

/// Owns the socket of the given name in the device's socket directory from construction to destruction. One thread.
class TestClient {
public:
    explicit TestClient(std::string name);
    ~TestClient();
    TestClient(const TestClient&) = delete;
    TestClient& operator=(const TestClient&) = delete;

    [[nodiscard]] const std::string& name() const { return mName; }

    /// Sends to a participant: a datagram up to 64 KiB, a sealed memory file beyond. Waits while the receiver is full,
    /// for at most 30 seconds; 0, or the errno of the failure.
    int send(const std::string& participant, const std::string& bytes);
    int send(const std::string& participant, const Card& card) { return send(participant, card.encode()); }
    /// Sends to the participant that the card's TO names.
    int send(const Card& card) { return send(card.getString("TO").value_or(""), card); }

    /// The next message of any kind as bytes; nothing after the time.
    [[nodiscard]] std::optional<std::string> receiveBytes(std::chrono::milliseconds limit);
    /// The next card, announcements of new participants left out; a message that is no card fails the process.
    [[nodiscard]] std::optional<Card> receive(std::chrono::milliseconds limit = std::chrono::seconds(30));
    /// The same with announcements.
    [[nodiscard]] std::optional<Card> receiveAny(std::chrono::milliseconds limit = std::chrono::seconds(30));

    /// FROM this client, TO, REQ, TX-ID, URL, TIMEOUT-SEC; add to it what the case needs.
    [[nodiscard]] Card get(const std::string& to, const std::string& url, int32_t txId, int32_t timeoutSec = 60) const {
        return request("GET", to, url, txId, timeoutSec);
    }
    [[nodiscard]] Card post(const std::string& to, const std::string& url, const std::string& body, int32_t txId,
                            int32_t timeoutSec = 60) const {
        return request("POST", to, url, txId, timeoutSec).blob("POST-DATA", body);
    }
    /// Sends and receives one message.
    [[nodiscard]] std::optional<Card> exchange(const Card& request,
                                               std::chrono::milliseconds limit = std::chrono::seconds(30));

private:
    [[nodiscard]] Card request(const std::string& req, const std::string& to, const std::string& url, int32_t txId,
                               int32_t timeoutSec) const;

    std::string mName;
    int mFd = -1;
};

}  // namespace test_support
