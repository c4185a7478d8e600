#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "app/AgentSettings.h"
#include "base/log.h"
#include "faults/Fault.h"
#include "inet/InetTest.h"
#include "mq/MessageQueueClientImpl.h"
#include "platform/posutil/PosIpc.h"
#include "support/files.h"
#include "transfer/TransferSettings.h"

/// The system refuses a call.
namespace fault_test {
namespace {

using namespace zv_loc_fw;
using inet_test::TestController;
using pos_util::PosIpc;
using test_support::Card;
using test_support::LogCapture;
using test_support::TempDir;

class Counter : public pos_util::IPosIpcListener {
public:
    void onReceive(const char* /*data*/, uint32_t length, const pos_util::PosIpcRecver* /*recver*/) override {
        log_info("test", "received %u", length);
    }
};

class PosIpcFaults : public testing::Test {
protected:
    PosIpcFaults() { log_set_global_level(EL_INFO); }
    static bool send(const std::string& path, size_t size) {
        const std::string message(size, 'm');
        const auto sender = PosIpc::getPosIpcLocalSender(path.c_str());
        return PosIpc::send(*sender, reinterpret_cast<const uint8_t*>(message.data()), static_cast<uint32_t>(size), -1);
    }

    const TempDir dir;
    const std::string path = dir.file("a");
    LogCapture log;
};

TEST_F(PosIpcFaults, ASocketFileThatCannotBeMadeIsNoReceiver) {
    const struct {
        Point point;
        int error;
        int times = 1;
        const char* reason = nullptr;
    } cases[] = {
        {Point::Socket, EMFILE},
        {Point::Fchmod, EPERM},
        {Point::Bind, EACCES},
        {Point::Bind, EADDRINUSE, 5, "others keep making the file"},
    };
    for (const auto& each : cases) {
        const Fault fault(each.point, {.times = each.times, .error = each.error});
        EXPECT_EQ(PosIpc::getPosIpcLocalRecver(std::make_shared<Counter>(), path.c_str()), nullptr);
        const std::string reason = each.reason != nullptr ? each.reason : std::strerror(each.error);
        EXPECT_TRUE(log.contains("cannot receive on " + path + ": " + reason)) << reason;
    }
    {
        const Fault fault(Point::Bind, {.times = 4, .error = EADDRINUSE});
        EXPECT_NE(PosIpc::getPosIpcLocalRecver(std::make_shared<Counter>(), path.c_str()), nullptr) << "tried again";
    }
    const Fault fault(Point::NothrowNew, {});
    EXPECT_EQ(PosIpc::getPosIpcLocalRecver(std::make_shared<Counter>(), path.c_str()), nullptr);
    EXPECT_TRUE(log.contains("no memory to receive on " + path));
}

TEST_F(PosIpcFaults, AMessageThatCannotBeSentIsDroppedWithItsReason) {
    constexpr size_t kSmall = 10;
    constexpr size_t kLarge = 100000;
    const struct {
        Point point;
        int error;
        size_t size;
        bool sent = false;
    } cases[] = {
        {Point::Socket, EMFILE, kSmall, true},                                          // another one serves
        {Point::Sendmsg, EINTR, kSmall, true}, {Point::Sendmsg, EAGAIN, kSmall, true},  // full for a moment
        {Point::Sendmsg, ENOBUFS, kSmall},     {Point::Sendmsg, ETOOMANYREFS, kLarge},
        {Point::MemfdCreate, EMFILE, kLarge},  {Point::Ftruncate, ENOSPC, kLarge},
        {Point::Write, ENOSPC, kLarge},        {Point::Write, EINTR, kLarge, true},
    };
    const auto receiver = PosIpc::getPosIpcLocalRecver(std::make_shared<Counter>(), path.c_str());
    for (const auto& each : cases) {
        SCOPED_TRACE(std::strerror(each.error));
        log.clear();
        const Fault fault(each.point, {.error = each.error});
        EXPECT_EQ(send(path, each.size), each.sent);
        EXPECT_TRUE(Fault::fired());
        EXPECT_EQ(log.contains("message of " + std::to_string(each.size) + " bytes to " + path +
                               " dropped: " + std::strerror(each.error)),
                  !each.sent);
    }
}

TEST_F(PosIpcFaults, ReceptionOutlivesWhatPassesAndEndsWithWhatStays) {
    const struct {
        Point point;
        int error;
        size_t size;
        const char* line;  // null: the message arrives without one
        bool lost = false;
        bool ends = false;
    } cases[] = {
        {Point::Recv, EINTR, 10, nullptr},
        {Point::Recv, ENOMEM, 10, "cannot receive: Cannot allocate memory"},
        {Point::Recv, EBADF, 10, "cannot receive: Bad file descriptor", true, true},
        {Point::Recvmsg, EINTR, 10, nullptr},
        {Point::Recvmsg, ENOBUFS, 10, "cannot receive: No buffer space available"},
        {Point::Recvmsg, ENOTCONN, 10, "cannot receive: Transport endpoint is not connected", true, true},
        {Point::Mmap, ENOMEM, 100000, "refused: Cannot allocate memory", true},
        {Point::NothrowNew, 0, 10, "message of 10 bytes dropped: out of memory", true},
        {Point::NothrowNew, 0, 100000, "message of 1 bytes dropped: out of memory", true},  // a memfd's one byte
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(std::to_string(static_cast<int>(each.point)) + " " + std::strerror(each.error));
        log.clear();
        const auto receiver = PosIpc::getPosIpcLocalRecver(std::make_shared<Counter>(), path.c_str());
        EXPECT_TRUE(send(path, each.size));
        EXPECT_TRUE(send(path, 77));
        {
            const Fault fault(each.point, {.error = each.error});
            std::thread listener([&] { EXPECT_EQ(PosIpc::startBlockingListening(*receiver), !each.ends); });
            EXPECT_TRUE(each.ends || log.waitFor("received 77"));
            EXPECT_TRUE(log.waitFor(each.line != nullptr ? each.line : "received"));
            while (!Fault::fired()) {
                std::this_thread::yield();
            }
            receiver->stop();
            listener.join();
        }
        EXPECT_EQ(log.contains("received " + std::to_string(each.size)), !each.lost);
    }
}

class ControllerFaults : public inet_test::InetTest {
protected:
    void expectServed() {
        const auto card = client.exchange(client.get("agent", server.url("/hello"), 1));
        EXPECT_EQ(card.value_or(Card()).getInt32("HTTP-RESP-CODE"), 200);
    }
};

TEST_F(ControllerFaults, ANameThatIsNotQuiteRegisteredServesAllTheSame) {
    const struct {
        Point point;
        int error;
        const char* line;
        bool served = true;
    } cases[] = {
        {Point::Chmod, EPERM, "error setting permission for socket file: 1, [Operation not permitted]"},
        {Point::Opendir, EMFILE, "[MqClientIpcReciver] MqClientIpcReciver constructor failed 11"},
        {Point::Socket, EMFILE, "cannot receive on", false},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.line);
        TestController controller;
        {
            const Fault fault(each.point, {.error = each.error});
            EXPECT_EQ(controller.init(), 0);
        }
        EXPECT_TRUE(log.contains(each.line));
        EXPECT_EQ(controller.launch(), 0);
        if (each.served) {
            expectServed();
            controller.kill();
        }
        controller.join();  // ends by itself when it has no socket
    }
}

TEST_F(ControllerFaults, AnAliasThatCannotBeLinkedIsAFailure) {
    MessageQueueClientImpl transport;
    const auto send = [&](Card card) {
        const auto message = inet_test::messageOf(card.string("TO", "SERVER").string("FROM", "me"));
        return transport.send(message->card()->getBuffer());
    };
    EXPECT_EQ(send(Card().string("REQ", "REGISTER")), 0);
    const Fault fault(Point::Symlink, {.error = EROFS});
    EXPECT_EQ(send(Card().string("REQ", "ADD-ALIAS").string("ALIAS", "also-me")), 10);
    EXPECT_TRUE(log.contains("symlink 30") && log.contains("add alias failed 5"));
}

TEST_F(ControllerFaults, WithoutADescriptorATransferFailsAndTheNextIsServed) {
    TestController controller;
    ASSERT_EQ(controller.init() + controller.launch(), 0);
    {
        const Fault fault(Point::Socket, {.error = EMFILE, .on = On::AgentThreads});
        const auto card = client.exchange(client.get("agent", server.url("/hello"), 1));
        EXPECT_THAT(card.value_or(Card()).getString("CURL-ERROR").value_or(""), testing::HasSubstr("onnect"));
        EXPECT_TRUE(Fault::fired());
    }
    expectServed();
    controller.kill();
    controller.join();
}

TEST(ClockDeathTest, WithoutAClockTheProcessEndsWithItsStatus) {
    EXPECT_EXIT(
        {
            test_support::BootClock clock;
            test_support::TestClient client("client");
            TestController controller;
            if (controller.init() == 0 && controller.launch() == 0) {
                clock.fail();
                (void)client.exchange(client.get("agent", "http://127.0.0.1/", 1));
            }
            std::_Exit(0);
        },
        testing::ExitedWithCode(255), "");
}

}  // namespace
}  // namespace fault_test
