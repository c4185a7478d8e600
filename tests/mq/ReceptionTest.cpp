#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "base/BlockingQueue.h"
#include "base/Timestamp.h"
#include "base/log.h"
#include "mq/Cards.h"
#include "mq/MessageQueueClientImpl.h"
#include "mq/MqClientIpcListener.h"
#include "mq/MqClientIpcReciver.h"
#include "mq/MqMsgWrapper.h"
#include "support/LogCapture.h"

namespace {

using namespace zv_loc_fw;
using mq_test::cardOf;
using test_support::LogCapture;

/// Bytes through the listener into the receiver, as the IPC library hands them over, and out of the queue.
class Reception : public testing::Test {
protected:
    void SetUp() override { log_set_global_level(EL_VERBOSE); }
    ~Reception() override {
        while (pop() != nullptr) {
        }
    }

    void receive(const std::string& bytes) {
        listener.onReceive(bytes.data(), static_cast<uint32_t>(bytes.size()), nullptr);
    }
    void receive(const OutPostcard& card) {
        const auto* stream = card.getEncodedBuffer();
        receive(std::string(static_cast<const char*>(stream->getBuffer()), stream->getSize()));
    }
    std::unique_ptr<MqMsgWrapper> pop() {
        void* item = nullptr;
        bool closed = false;
        EXPECT_EQ(queue->pop(&item, TimeDiff(0), &closed), 0);
        return std::unique_ptr<MqMsgWrapper>(static_cast<MqMsgWrapper*>(item));
    }

    std::unique_ptr<BlockingQueue> queue{BlockingQueue::createInstance("test", false)};
    MessageQueueClientImpl transport;
    MqClientIpcReciver receiver{"tester", queue.get(), &transport, "tester"};
    MqClientIpcListener listener{&transport};
};

TEST_F(Reception, WithoutACallbackMessagesAreDropped) {
    const LogCapture log;
    receive(*cardOf({{"FROM", "a"}, {"REQ", "GET"}}));
    EXPECT_EQ(pop(), nullptr);
    EXPECT_FALSE(log.contains("onReceive failed"));
}

TEST_F(Reception, GoodMessagesAreQueuedWithTheirTimeAndLoggedByTheFirstKind) {
    listener.setCallback(&receiver);
    const LogCapture log;
    std::unique_ptr<OutPostcard> card(OutPostcard::createInstance());
    ASSERT_EQ(card->init() + card->addString("FROM", "a") + card->addString("INFO", "i") +
                  card->addString("REQ", "GET") + card->addInt32("TX-ID", 7) + card->finalize(),
              0);
    const Timestamp before;
    receive(*card);
    const auto message = pop();
    ASSERT_NE(message, nullptr);
    EXPECT_TRUE(message->time() >= before);
    EXPECT_EQ(mq_test::textOf(*message->card(), "FROM"), "a");
    EXPECT_EQ(log.texts(), (std::vector<std::string>{"[MqClientIpcReciver] FROM: a", "[MqClientIpcReciver] REQ:  GET",
                                                     "[MqClientIpcReciver] TX-ID:  7"}));
}

TEST_F(Reception, BadEnvelopesAreDroppedWithTheirCode) {
    listener.setCallback(&receiver);
    std::unique_ptr<OutPostcard> wide_tx_id(OutPostcard::createInstance());
    ASSERT_EQ(wide_tx_id->init() + wide_tx_id->addString("FROM", "a") + wide_tx_id->addString("REQ", "GET") +
                  wide_tx_id->addInt64("TX-ID", 7) + wide_tx_id->finalize(),
              0);
    struct Case {
        std::unique_ptr<OutPostcard> card;
        const char* line;
        bool silent_reader;
    };
    Case cases[3];
    cases[0] = {cardOf({{"TO", "b"}, {"REQ", "GET"}}), "newMsg error 4", true};
    cases[1] = {std::move(wide_tx_id), "newMsg error 5", true};
    cases[2] = {cardOf({{"TO", "b"}, {"FROM", "a"}}), "newMsg error 6", true};
    for (const Case& one : cases) {
        const LogCapture log;
        receive(*one.card);
        EXPECT_EQ(log.texts(), std::vector<std::string>{std::string("[MqClientIpcReciver] ") + one.line});
        EXPECT_EQ(pop(), nullptr);
    }
    for (const std::string& garbage : {std::string(), std::string("x"), std::string(100, '\xff')}) {
        const LogCapture log;
        receive(garbage);
        EXPECT_TRUE(log.contains("newMsg error 4"));
        EXPECT_FALSE(log.contains("onReceive failed"));
        EXPECT_EQ(pop(), nullptr);
    }
}

TEST_F(Reception, KillIsQueuedLikeAnyOtherAndLoggedTwice) {
    listener.setCallback(&receiver);
    const LogCapture log;
    receive(*cardOf({{"FROM", "a"}, {"REQ", "KILL"}}));
    EXPECT_TRUE(log.contains("received KILL request, closing service"));
    EXPECT_TRUE(log.contains("onReceive failed 4"));
    const auto message = pop();
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(mq_test::textOf(*message->card(), "REQ"), "KILL") << "its bytes are still there";
}

TEST_F(Reception, AnAnnouncementIsQueuedAndCleansUp) {
    listener.setCallback(&receiver);
    const LogCapture log;
    // The second road's level is the platform's and may hide the line; that the message is queued is what counts here.
    receive(*cardOf({{"FROM", "LOCATION-MQ"}, {"INFO", "REGISTER-EVENT"}, {"CLIENT", "new"}}));
    EXPECT_NE(pop(), nullptr);
}

TEST_F(Reception, AClosedQueueDropsWhatArrives) {
    listener.setCallback(&receiver);
    EXPECT_EQ(queue->close(), 0);
    receive(*cardOf({{"FROM", "a"}, {"REQ", "GET"}}));
    EXPECT_EQ(pop(), nullptr);
}

TEST(Receiver, ConstructionReportsWhatIsMissing) {
    log_set_global_level(EL_VERBOSE);
    const std::unique_ptr<BlockingQueue> queue(BlockingQueue::createInstance("test", false));
    MessageQueueClientImpl transport;
    const LogCapture log;
    const MqClientIpcReciver nameless(nullptr, queue.get(), &transport, "x");
    const MqClientIpcReciver without_client("x", queue.get(), nullptr, "x");
    const MqClientIpcReciver without_ipc_name("x", queue.get(), &transport, nullptr);
    const MqClientIpcReciver registered("x", queue.get(), &transport, "x");
    const MqClientIpcReciver again("x", queue.get(), &transport, "y");
    EXPECT_EQ(log.count("MqClientIpcReciver constructor failed"), 4U);
    EXPECT_EQ(log.lines()[0].text, "MqClientIpcReciver constructor failed 3") << "the tag is not set yet";
    for (const char* line : {"[MqClientIpcReciver] MqClientIpcReciver constructor failed 4",
                             "[MqClientIpcReciver] MqClientIpcReciver constructor failed 8",
                             "[MqClientIpcReciver] MqClientIpcReciver constructor failed 11"}) {
        EXPECT_TRUE(log.contains(line)) << line;
    }
}

}  // namespace
