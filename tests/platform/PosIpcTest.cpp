#include "platform/posutil/PosIpc.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/posutil/SocketAddress.h"
#include "platform/posutil/UniqueFd.h"
#include "support/LogCapture.h"
#include "support/files.h"
#include "support/sanitized.h"

namespace pos_util {
namespace {

using test_support::LogCapture;
using test_support::TempDir;
using testing::ElementsAre;

constexpr auto kGenerous = std::chrono::seconds(30);
constexpr int kAllSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL;

class Collector : public IPosIpcListener {
public:
    void onReceive(const char* data, uint32_t length, const PosIpcRecver* /*recver*/) override {
        const std::lock_guard guard(mMutex);
        mMessages.emplace_back(data, length);
        mArrived.notify_all();
    }

    /// Waits for so many messages and takes them.
    std::vector<std::string> take(size_t count) {
        std::unique_lock lock(mMutex);
        EXPECT_TRUE(mArrived.wait_for(lock, kGenerous, [&] { return mMessages.size() >= count; }));
        return std::exchange(mMessages, {});
    }

private:
    std::mutex mMutex;
    std::condition_variable mArrived;
    std::vector<std::string> mMessages;
};

/// A receiver and the thread that listens on it.
class Participant {
public:
    explicit Participant(const std::string& path) : mRecver(PosIpc::getPosIpcLocalRecver(mCollector, path.c_str())) {
        mThread = std::thread([this] { EXPECT_TRUE(PosIpc::startBlockingListening(*mRecver)); });
    }
    ~Participant() {
        mRecver->stop();
        mThread.join();
    }
    std::vector<std::string> take(size_t count) { return mCollector->take(count); }

private:
    const std::shared_ptr<Collector> mCollector = std::make_shared<Collector>();
    const std::unique_ptr<PosIpcRecver> mRecver;
    std::thread mThread;
};

bool sendText(PosIpcSender& sender, const std::string& text) {
    return PosIpc::send(sender, reinterpret_cast<const uint8_t*>(text.data()), static_cast<uint32_t>(text.size()), -1);
}

size_t openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

/// What a program of another make may send: any payload with any descriptors.
void sendRaw(const std::string& path, const std::string& payload, const std::vector<int>& fds) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    std::string bytes = payload;
    iovec part = {bytes.data(), bytes.size()};
    std::vector<char> control(CMSG_SPACE(fds.size() * sizeof(int)));
    msghdr message = {};
    message.msg_name = &address;
    message.msg_namelen = sizeof(address);
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (!fds.empty()) {
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        cmsghdr* const header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(fds.size() * sizeof(int));
        memcpy(CMSG_DATA(header), fds.data(), fds.size() * sizeof(int));
    }
    const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int wide = 4 * 1024 * 1024;
    setsockopt(socket, SOL_SOCKET, SO_SNDBUFFORCE, &wide, sizeof(wide));
    EXPECT_EQ(sendmsg(socket, &message, MSG_NOSIGNAL), static_cast<ssize_t>(payload.size())) << strerror(errno);
    close(socket);
}

int makeFile(const std::string& content, int seals) {
    const int file = memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    EXPECT_EQ(write(file, content.data(), content.size()), static_cast<ssize_t>(content.size()));
    EXPECT_EQ(fcntl(file, F_ADD_SEALS, seals), 0);
    return file;
}

TEST(PosIpc, MessagesOfAnySizeArriveWholeAndInOrder) {
    const TempDir dir;
    Participant participant(dir.file("a"));
    const auto sender = PosIpc::getPosIpcLocalSender(dir.file("a").c_str());
    const size_t before = openDescriptors();
    for (const size_t size : {0U, 1U, 65535U, 65536U, 65537U, 210000U, 5U * 1024 * 1024, 3U}) {
        std::string message(size, 'x');
        for (size_t i = 0; i < size; ++i) {
            message[i] = static_cast<char>(i * 31 + i / 256);
        }
        ASSERT_TRUE(sendText(*sender, message));
        const auto received = participant.take(1);
        ASSERT_EQ(received.size(), 1U);
        EXPECT_TRUE(received[0] == message) << size;
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(PosIpc, OnlySendersKeepToTheLimits) {
    const TempDir dir;
    const LogCapture log;
    Participant participant(dir.file("a"));
    const auto sender = PosIpc::getPosIpcLocalSender(dir.file("a").c_str());
    EXPECT_EQ(PosIpc::getPosIpcLocalSender(std::string(108, 'n').c_str()), nullptr) << "no address holds it";
    const uint8_t byte = 0;
    EXPECT_FALSE(PosIpc::send(*sender, &byte, kPosIpcMaxMessage + 1, -1));
    EXPECT_FALSE(PosIpc::send(*sender, nullptr, 1, -1));
    EXPECT_TRUE(log.contains("message of 268435457 bytes to " + dir.file("a") + " dropped: too long"));
    const std::string large(150000, 'l');
    sendRaw(dir.file("a"), large, {});
    EXPECT_THAT(participant.take(1), ElementsAre(large));
}

TEST(PosIpc, EveryDescriptorButOneSealedMemfdIsRefusedAndClosed) {
    const TempDir dir;
    const LogCapture log;
    Participant participant(dir.file("a"));
    const int sealed = makeFile("sealed", kAllSeals);
    const int unsealed = makeFile("loose", F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE);
    const int shrinking = makeFile("loose", kAllSeals & ~F_SEAL_SHRINK);
    const int growing = makeFile("loose", kAllSeals & ~F_SEAL_GROW);
    const int writable = makeFile("loose", kAllSeals & ~F_SEAL_WRITE);
    const int empty = makeFile("", kAllSeals);
    const int device = open("/dev/null", O_RDWR | O_CLOEXEC);
    const int regular = open(dir.write("f", "text").c_str(), O_RDONLY | O_CLOEXEC);
    int pipe_ends[2] = {};
    ASSERT_EQ(pipe2(pipe_ends, O_CLOEXEC), 0);
    const int sparse = memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    ASSERT_EQ(ftruncate(sparse, static_cast<off_t>(kPosIpcMaxMessage) + 1), 0);
    ASSERT_EQ(fcntl(sparse, F_ADD_SEALS, kAllSeals), 0);

    const struct {
        const char* reason;
        const char* payload;
        std::vector<int> fds;
    } cases[] = {
        {"not sealed", "m", {unsealed}},
        {"not sealed", "m", {shrinking}},
        {"not sealed", "m", {growing}},
        {"not sealed", "m", {writable}},
        {"not sealed", "m", {device}},
        {"not sealed", "m", {regular}},
        {"not sealed", "m", {pipe_ends[0]}},
        {"size is out of range", "m", {empty}},
        {"size is out of range", "m", {sparse}},
        {"one descriptor and one byte", "m", {sealed, sealed}},
        {"one descriptor and one byte", "", {sealed}},
        {"one descriptor and one byte", "mm", {sealed}},
        {"with 9 descriptors refused", "m", std::vector<int>(9, sealed)},
        {"with 253 descriptors refused", "m", std::vector<int>(253, sealed)},
    };
    sendRaw(dir.file("a"), "m", {sealed});
    EXPECT_THAT(participant.take(1), ElementsAre("sealed"));
    sendRaw(dir.file("a"), "ready", {});
    participant.take(1);
    const size_t before = openDescriptors();
    size_t refused = 0;
    for (const auto& each : cases) {
        if (test_support::kEmulated && each.fds.size() > 8) {
            continue;
        }
        sendRaw(dir.file("a"), each.payload, each.fds);
        ASSERT_TRUE(log.waitFor("refused", ++refused)) << each.reason;
        EXPECT_THAT(log.texts().back(), testing::HasSubstr(each.reason));
        // The next message comes only after everything of this one is closed.
        sendRaw(dir.file("a"), "next", {});
        EXPECT_THAT(participant.take(1), ElementsAre("next"));
        EXPECT_EQ(openDescriptors(), before) << each.reason;
    }
    for (const int fd :
         {sealed, unsealed, shrinking, growing, writable, empty, device, regular, pipe_ends[0], pipe_ends[1], sparse}) {
        close(fd);
    }
}

TEST(PosIpc, ReceiverReplacesOldFilesAndRemovesOnlyItsOwn) {
    const TempDir dir;
    const LogCapture log;
    const std::string path = dir.file("a");
    std::filesystem::create_symlink(dir.write("target", "stays"), path);
    {
        const Participant over_link(path);
        EXPECT_TRUE(std::filesystem::is_regular_file(dir.file("target")));
        EXPECT_TRUE(std::filesystem::is_socket(std::filesystem::symlink_status(path)));
        EXPECT_EQ(std::filesystem::status(path).permissions() & ~std::filesystem::perms(0770),
                  std::filesystem::perms::none);
        { const Participant over_socket(path); }
        EXPECT_FALSE(std::filesystem::exists(path));
        dir.write("a", "of another");
    }
    EXPECT_TRUE(std::filesystem::exists(path)) << "the file of another must stay";
    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    EXPECT_EQ(PosIpc::getPosIpcLocalRecver(std::make_shared<Collector>(), path.c_str()), nullptr);
    EXPECT_TRUE(log.contains("cannot receive on " + path + ": "));
}

TEST(PosIpc, FullReceiverIsWaitedForOnceAndDelaysNobodyElse) {
    const TempDir dir;
    const LogCapture log;
    SocketAddress address;
    ASSERT_TRUE(address.set(dir.file("idle").c_str()));
    const UniqueFd idle(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(::bind(idle.get(), address.get(), address.length()), 0);
    Participant busy(dir.file("busy"));
    const auto to_idle = PosIpc::getPosIpcLocalSender(dir.file("idle").c_str());
    const auto to_busy = PosIpc::getPosIpcLocalSender(dir.file("busy").c_str());
    const std::string message(60000, 'm');
    while (sendText(*to_idle, message)) {
    }
    EXPECT_EQ(log.count("dropped: the receiver is full"), 1U);
    // 200 waits would take 100 seconds.
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 200; ++i) {
        EXPECT_FALSE(sendText(*to_idle, message));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, kGenerous);
    EXPECT_EQ(log.count("message of 60000 bytes to " + dir.file("idle") + " dropped: the receiver is still full"),
              200U);
    EXPECT_TRUE(sendText(*to_busy, message));
    EXPECT_EQ(busy.take(1).size(), 1U);

    // Once it takes messages again, it is waited for again.
    char byte = 0;
    while (::recv(idle.get(), &byte, 1, MSG_DONTWAIT) >= 0) {
    }
    while (sendText(*to_idle, message)) {
    }
    EXPECT_EQ(log.count("dropped: the receiver is full"), 2U);
}

TEST(PosIpc, ASocketThatLingersHoldsUpNobody) {
    const TempDir dir;
    const auto collector = std::make_shared<Collector>();
    const auto recver = PosIpc::getPosIpcLocalRecver(collector, dir.file("a").c_str());
    const UniqueFd listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = {};
    socklen_t length = sizeof(address);
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    ASSERT_EQ(::listen(listener.get(), 1), 0);
    ASSERT_EQ(::getsockname(listener.get(), any, &length), 0);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    {
        // Its peer reads nothing: whoever closes the last descriptor would wait. That is the receiver.
        const UniqueFd full(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        ASSERT_EQ(::connect(full.get(), any, length), 0);
        const std::string bytes(100000, 'x');
        while (::send(full.get(), bytes.data(), bytes.size(), MSG_DONTWAIT) > 0) {
        }
        const linger longer_than_the_test = {1, 40};
        ASSERT_EQ(::setsockopt(full.get(), SOL_SOCKET, SO_LINGER, &longer_than_the_test, sizeof(linger)), 0);
        sendRaw(dir.file("a"), "m", {full.get()});
    }
    sendRaw(dir.file("a"), "after", {});
    std::thread thread([&] { EXPECT_TRUE(PosIpc::startBlockingListening(*recver)); });
    EXPECT_THAT(collector->take(1), ElementsAre("after"));
    recver->stop();
    thread.join();
}

TEST(PosIpc, StopIsStickyAndMayComeOftenAndFromAnywhere) {
    class Stopper : public IPosIpcListener {
    public:
        void onReceive(const char* /*data*/, uint32_t /*length*/, const PosIpcRecver* recver) override {
            EXPECT_EQ(recver, mRecver);
            mRecver->stop();
        }
        PosIpcRecver* mRecver = nullptr;
    };
    const TempDir dir;
    const auto stopper = std::make_shared<Stopper>();
    for (int i = 0; i < 50; ++i) {
        const auto recver = PosIpc::getPosIpcLocalRecver(stopper, dir.file("a").c_str());
        stopper->mRecver = recver.get();
        std::vector<std::thread> threads;
        threads.emplace_back([&] { EXPECT_TRUE(PosIpc::startBlockingListening(*recver)); });
        if (i % 2 == 0) {
            threads.emplace_back([&] { recver->stop(); });
            threads.emplace_back([&] { recver->stop(); });
        } else {  // from the listening thread itself
            EXPECT_TRUE(sendText(*PosIpc::getPosIpcLocalSender(dir.file("a").c_str()), "stop"));
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_TRUE(PosIpc::startBlockingListening(*recver)) << "at once";
    }
}

}  // namespace
}  // namespace pos_util
