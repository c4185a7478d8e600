#pragma once

#include <gmock/gmock.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "base/log.h"
#include "mq/Envelope.h"
#include "mq/MqClientControllerBase.h"
#include "support/DeviceFiles.h"
#include "support/LogCapture.h"
#include "transfer/CurlPerformer.h"
#include "transfer/Messages.h"
#include "transfer/TransferSettings.h"
#include "transfer/WorkerCommand.h"

namespace transfer_test {

using test_support::Card;

/// A controller that keeps what its worker tells it.
class Collector : public zv_loc_fw::MqClientControllerBase {
public:
    Collector() : MqClientControllerBase("agent", "agent", zv_loc_fw::envelope::kHubSocketPath, nullptr) {}

    /// The next message; nothing after 30 seconds.
    std::optional<Card> next() {
        std::unique_lock lock(mMutex);
        if (!mArrived.wait_for(lock, std::chrono::seconds(30), [&] { return !mCards.empty(); })) {
            return std::nullopt;
        }
        Card card = mCards.front();
        mCards.pop_front();
        return card;
    }

protected:
    int _init() override { return 0; }
    using MqClientControllerBase::_process;
    int _process(zv_loc_fw::MqMsgWrapper* message) override {
        const std::unique_ptr<zv_loc_fw::MqMsgWrapper> owner(message);
        const Card card = Card::decode(bytesOf(*owner->card())).value_or(Card().string("damaged", ""));
        if (card.getString("INFO") != "REGISTER-EVENT") {
            const std::lock_guard guard(mMutex);
            mCards.push_back(card);
            mArrived.notify_all();
        }
        return 0;
    }
    int _shutdown() override { return 0; }

private:
    std::mutex mMutex;
    std::condition_variable mArrived;
    std::deque<Card> mCards;
};

inline Card get(const std::string& url, int32_t timeout_sec = 60) {
    Card card;
    card.string("FROM", "client").string("TO", "agent").string("REQ", "GET").int32("TX-ID", 7).string("URL", url);
    return card.int32("TIMEOUT-SEC", timeout_sec);
}

inline Card post(const std::string& url, const std::string& body, int32_t timeout_sec = 60) {
    Card card;
    card.string("FROM", "client").string("TO", "agent").string("REQ", "POST").int32("TX-ID", 7).string("URL", url);
    return card.int32("TIMEOUT-SEC", timeout_sec).blob("POST-DATA", body);
}

/// A worker, the controller that it reports to, and what both log.
class WorkerTest : public testing::Test {
protected:
    WorkerTest() {
        zv_loc_fw::log_set_global_level(zv_loc_fw::EL_VERBOSE);
        setenv("no_proxy", "*", 1);
        test_support::device_files::reset();
        zv_loc_fw::transferSettings() = {};
        EXPECT_EQ(collector.init(), 0);
        EXPECT_EQ(collector.launch(), 0);
    }

    ~WorkerTest() override {
        if (mThread.joinable()) {
            stop();
        }
        collector.kill();
        collector.join();
        zv_loc_fw::transferSettings() = {};
    }

    /// Starts the worker's thread, if it does not run yet.
    void start() {
        if (!mThread.joinable()) {
            mThread = std::thread([this] { worker.run(); });
        }
    }
    /// Ends it as a controller does; what is queued is discarded.
    void stop() {
        push(zv_loc_fw::WorkerCommand::kKill, nullptr);
        closeAndJoin();
    }
    void closeAndJoin() {
        (void)worker.commandQueue()->close();
        mThread.join();
    }

    void push(int32_t kind, std::unique_ptr<zv_loc_fw::MqMsgWrapper> job) {
        EXPECT_EQ(worker.commandQueue()->push(new zv_loc_fw::WorkerCommand{kind, std::move(job)}), 0);
    }
    void push(std::unique_ptr<zv_loc_fw::MqMsgWrapper> job) {
        push(zv_loc_fw::WorkerCommand::kPerform, std::move(job));
    }

    /// The card for the client out of the worker's next message.
    Card nextResult() {
        const std::optional<Card> message = collector.next();
        if (!message.has_value()) {
            ADD_FAILURE() << "no result";
            return {};
        }
        EXPECT_THAT(message->names(), testing::ElementsAre("TO", "FROM", "REQ", "RESULT"));
        EXPECT_EQ(message->getString("TO"), "agent");
        EXPECT_EQ(message->getString("FROM"), "agent");
        EXPECT_EQ(message->getString("REQ"), "HTTP-RESULT");
        return message->getCard("RESULT").value_or(Card());
    }

    Card perform(const Card& request) {
        start();
        push(messageOf(request));
        return nextResult();
    }

    test_support::LogCapture log;
    Collector collector;
    zv_loc_fw::CurlPerformer worker{"agent-worker", &collector};

private:
    std::thread mThread;
};

}  // namespace transfer_test
