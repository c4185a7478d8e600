#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "mq/Cards.h"
#include "mq/MessageQueueClientImpl.h"
#include "mq/MessageQueueServiceCallback.h"
#include "support/LogCapture.h"

namespace {

using namespace zv_loc_fw;
using mq_test::cardOf;
using mq_test::textOf;
using mq_test::Texts;
using test_support::LogCapture;

const std::string kDirectory = "/dev/socket/location/mq/";

bool isThere(const std::string& name) {
    struct stat file {};
    return ::lstat((kDirectory + name).c_str(), &file) == 0;
}

void writeFile(const std::string& name) {
    std::FILE* file = std::fopen((kDirectory + name).c_str(), "w");
    ASSERT_NE(file, nullptr);
    (void)std::fclose(file);
}

/// A socket of another process's making: bound, and read only when somebody asks.
class RawSocket {
public:
    explicit RawSocket(const std::string& name) : mPath(kDirectory + name), mSocket(::socket(AF_UNIX, SOCK_DGRAM, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        mPath.copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(::bind(mSocket, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    }
    ~RawSocket() {
        (void)::close(mSocket);
        (void)::unlink(mPath.c_str());
    }
    /// The number of messages that wait, all read.
    int drain() {
        int count = 0;
        char bytes[4096];
        while (::recv(mSocket, bytes, sizeof(bytes), MSG_DONTWAIT) >= 0) {
            ++count;
        }
        return count;
    }

private:
    std::string mPath;
    int mSocket;
};

/// A registered transport whose messages are collected by a thread.
class Listener : public MessageQueueServiceCallback {
public:
    explicit Listener(const std::string& name) {
        const auto card = cardOf({{"TO", "SERVER"}, {"FROM", name}, {"REQ", "REGISTER"}});
        registered = transport.send(card->getEncodedBuffer());
        mThread = std::thread([this] { (void)transport.run_block(this); });
    }
    ~Listener() override {
        (void)transport.shutdown();
        mThread.join();
    }
    int newMsg(InMemoryStream* stream) override {
        std::unique_ptr<InPostcard> card(InPostcard::createInstance(stream));
        const std::lock_guard lock(mMutex);
        mInfos.push_back(textOf(*card, "INFO") + " " + textOf(*card, "CLIENT"));
        mArrived.notify_all();
        return 0;
    }
    bool waitForAnnouncementOf(const std::string& client) {
        std::unique_lock lock(mMutex);
        return mArrived.wait_for(lock, std::chrono::seconds(30), [&] {
            return std::find(mInfos.begin(), mInfos.end(), "REGISTER-EVENT " + client) != mInfos.end();
        });
    }

    MessageQueueClientImpl transport;
    int registered = -1;

private:
    std::mutex mMutex;
    std::condition_variable mArrived;
    std::vector<std::string> mInfos;
    std::thread mThread;
};

int sendTexts(MessageQueueClientImpl& transport, const Texts& fields) {
    const auto card = cardOf(fields);
    return transport.send(card->getEncodedBuffer());
}

TEST(Transport, RegisteringMakesTheSocketAndAnnouncesIt) {
    Listener first("first");
    EXPECT_EQ(first.registered, 0);
    {
        Listener second("second");
        EXPECT_TRUE(first.waitForAnnouncementOf("second"));
        EXPECT_TRUE(second.waitForAnnouncementOf("second")) << "the sender's own socket hears it, too";
        struct stat file {};
        ASSERT_EQ(::stat((kDirectory + "second").c_str(), &file), 0);
        EXPECT_EQ(file.st_mode & 0777, 0770U);
    }
    EXPECT_FALSE(isThere("second"));
    EXPECT_TRUE(isThere("first"));
}

TEST(Transport, HubRequestsHaveTheirCodes) {
    struct Case {
        const char* what;
        Texts card;
        int code;
        const char* step;  // the sub-code's line, or null
    };
    const Case cases[] = {
        {"no TO", {{"FROM", "x"}}, 5, nullptr},
        {"no REQ", {{"TO", "SERVER"}, {"FROM", "x"}}, 7, nullptr},
        {"no FROM to register", {{"TO", "SERVER"}, {"REQ", "REGISTER"}}, 9, "register client failed 2"},
        {"a path as a name", {{"TO", "SERVER"}, {"REQ", "REGISTER"}, {"FROM", "../x"}}, 9, "register client failed 3"},
        {"alias before the name",
         {{"TO", "SERVER"}, {"REQ", "ADD-ALIAS"}, {"ALIAS", "a"}, {"FROM", "x"}},
         10,
         "add alias failed 1"},
        {"no ALIAS", {{"TO", "SERVER"}, {"REQ", "ADD-ALIAS"}, {"FROM", "x"}}, 10, "add alias failed 2"},
        {"a path as an alias", {{"TO", "SERVER"}, {"REQ", "ADD-ALIAS"}, {"ALIAS", "../a"}}, 10, "add alias failed 3"},
        {"nobody to announce", {{"TO", "SERVER"}, {"REQ", "OTHER"}}, 11, nullptr},
        {"an unknown kind announces its sender", {{"TO", "SERVER"}, {"REQ", "OTHER"}, {"FROM", "x"}}, 0, nullptr},
        {"no such receiver", {{"TO", "nobody"}, {"FROM", "x"}}, 0, nullptr},
    };
    MessageQueueClientImpl transport;
    for (const Case& one : cases) {
        const LogCapture log;
        EXPECT_EQ(sendTexts(transport, one.card), one.code) << one.what;
        EXPECT_EQ(log.count("send failed " + std::to_string(one.code)), one.code != 0 ? 1U : 0U) << one.what;
        if (one.step != nullptr) {
            EXPECT_TRUE(log.contains(one.step)) << one.what;
        }
    }
    EXPECT_EQ(transport.send(nullptr), 2);
    EXPECT_EQ(transport.run_block(nullptr), 0) << "not registered: at once";
}

TEST(Transport, OneNameOnly) {
    Listener listener("one");
    const LogCapture log;
    EXPECT_EQ(sendTexts(listener.transport, {{"TO", "SERVER"}, {"FROM", "two"}, {"REQ", "REGISTER"}}), 9);
    EXPECT_EQ(sendTexts(listener.transport, {{"TO", "SERVER"}, {"REQ", "REGISTER"}}), 9);
    EXPECT_TRUE(log.contains("register client failed 1"));
    EXPECT_TRUE(log.contains("register client failed 2")) << "the name is looked at first";
    EXPECT_FALSE(isThere("two"));
}

TEST(Transport, AliasesReplaceFilesAndDanglingLinksButNotTheOwnSocket) {
    Listener listener("me");
    writeFile("alias");
    ASSERT_EQ(::symlink("/nowhere", (kDirectory + "dangling").c_str()), 0);
    ASSERT_EQ(::mkdir((kDirectory + "folder").c_str(), 0700), 0);
    for (const char* alias : {"alias", "dangling", "new"}) {
        EXPECT_EQ(
            sendTexts(listener.transport, {{"TO", "SERVER"}, {"REQ", "ADD-ALIAS"}, {"FROM", "me"}, {"ALIAS", alias}}),
            0);
        char target[200] = {};
        EXPECT_GT(::readlink((kDirectory + alias).c_str(), target, sizeof(target) - 1), 0);
        EXPECT_EQ(kDirectory + "me", target);
    }
    const LogCapture log;
    for (const char* alias : {"me", "folder"}) {
        EXPECT_EQ(
            sendTexts(listener.transport, {{"TO", "SERVER"}, {"REQ", "ADD-ALIAS"}, {"FROM", "me"}, {"ALIAS", alias}}),
            10);
    }
    EXPECT_EQ(log.count("add alias failed 4"), 2U);
    EXPECT_EQ(sendTexts(listener.transport,
                        {{"TO", "alias"}, {"FROM", "x"}, {"INFO", "REGISTER-EVENT"}, {"CLIENT", "by alias"}}),
              0);
    EXPECT_TRUE(listener.waitForAnnouncementOf("by alias"));
}

TEST(Transport, NamesNeverLeaveTheDirectory) {
    MessageQueueClientImpl transport;
    RawSocket outside("../outside");
    const LogCapture log;
    for (const char* name : {"../outside", "", ".", "..", "a/b"}) {
        EXPECT_EQ(sendTexts(transport, {{"TO", name}, {"FROM", "x"}}), 0);
    }
    EXPECT_EQ(log.count("names no participant"), 5U);
    EXPECT_EQ(outside.drain(), 0);
}

TEST(Transport, ReachesAParticipantThatRestarted) {
    MessageQueueClientImpl transport;
    for (int life = 0; life < 2; ++life) {
        RawSocket peer("phoenix");
        EXPECT_EQ(sendTexts(transport, {{"TO", "phoenix"}, {"FROM", "x"}}), 0);
        EXPECT_EQ(peer.drain(), 1) << life;
    }
}

TEST(Transport, LongNamesAreCutAt99Characters) {
    const std::string cut(75, 'n');
    RawSocket peer(cut);
    MessageQueueClientImpl transport;
    EXPECT_EQ(sendTexts(transport, {{"TO", cut + "-and-more"}, {"FROM", "x"}}), 0);
    EXPECT_EQ(peer.drain(), 1);
}

TEST(Transport, AReceiverThatNeverReadsDelaysOnlyOnce) {
    MessageQueueClientImpl transport;
    RawSocket deaf("deaf");
    RawSocket other("other");
    const LogCapture log;
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(sendTexts(transport, {{"TO", "deaf"}, {"FROM", "x"}}), 0);
    }
    // Waited for once: without the memory of it, 189 waits would take more than a minute and a half.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
    EXPECT_TRUE(log.contains("deaf")) << "what is dropped is logged";
    EXPECT_EQ(sendTexts(transport, {{"TO", "other"}, {"FROM", "x"}}), 0);
    EXPECT_EQ(other.drain(), 1);
    EXPECT_GT(deaf.drain(), 0);
    EXPECT_EQ(sendTexts(transport, {{"TO", "deaf"}, {"FROM", "x"}}), 0);
    EXPECT_EQ(deaf.drain(), 1) << "taken up again as soon as it reads";
}

TEST(Transport, CleanUpForgetsSendersWhoseSocketHasGone) {
    Listener listener("cleaner");
    {
        RawSocket gone("gone");
        EXPECT_EQ(sendTexts(listener.transport, {{"TO", "gone"}, {"FROM", "x"}}), 0);
    }
    const LogCapture log;
    EXPECT_EQ(sendTexts(listener.transport, {{"TO", "SERVER"}, {"REQ", "OTHER"}, {"FROM", "x"}}), 0);
    EXPECT_TRUE(log.waitFor("Socket file doesn't exit, erese it from mIpcSendersMap"));
    EXPECT_EQ(log.count("erese"), 1U);
}

TEST(Transport, AMissingDirectoryFailsTheAnnouncement) {
    const mq_test::MissingSocketDirectory missing;
    MessageQueueClientImpl transport;
    const LogCapture log;
    EXPECT_EQ(sendTexts(transport, {{"TO", "SERVER"}, {"REQ", "REGISTER"}, {"FROM", "x"}}), 13);
    EXPECT_TRUE(log.contains("error setting permission for socket file: 2, [")) << "and goes on";
    EXPECT_EQ(transport.run_block(nullptr), 0);
}

TEST(Transport, StopIsStickyAndComesFromAnyThread) {
    MessageQueueClientImpl transport;
    ASSERT_EQ(sendTexts(transport, {{"TO", "SERVER"}, {"REQ", "REGISTER"}, {"FROM", "stopped"}}), 0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] { EXPECT_EQ(transport.shutdown(), 0); });
    }
    EXPECT_EQ(transport.run_block(nullptr), 0);
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(transport.run_block(nullptr), 0);
}

}  // namespace
