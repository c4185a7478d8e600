#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "mq/MessageQueueClientImpl.h"
#include "mq/MqTest.h"
#include "support/TestClient.h"
#include "support/files.h"

namespace {

using namespace zv_loc_fw;
using mq_test::Texts;
using test_support::TestClient;

class Transport : public mq_test::MqTest {
protected:
    int send(const Texts& fields) { return transport.send(mq_test::cardOf(fields)->getEncodedBuffer()); }
    int registerAs(const std::string& name) { return send({{"TO", "SERVER"}, {"REQ", "REGISTER"}, {"FROM", name}}); }
    int addAlias(const std::string& alias) {
        return send({{"TO", "SERVER"}, {"REQ", "ADD-ALIAS"}, {"FROM", "me"}, {"ALIAS", alias}});
    }
    static std::string pathOf(const std::string& name) {
        return std::string(test_support::device_files::kSocketDirectory) + "/" + name;
    }

    MessageQueueClientImpl transport;
};

TEST_F(Transport, HubRequestsHaveTheirCodes) {
    const struct {
        const char* what;
        Texts card;
        int code;
        const char* step = nullptr;  // the sub-code's line
    } cases[] = {
        {"no TO", {{"FROM", "x"}}, 5},
        {"no REQ", {{"TO", "SERVER"}, {"FROM", "x"}}, 7},
        {"no FROM to register", {{"TO", "SERVER"}, {"REQ", "REGISTER"}}, 9, "register client failed 2"},
        {"a path as a name", {{"TO", "SERVER"}, {"REQ", "REGISTER"}, {"FROM", "../x"}}, 9, "register client failed 3"},
        {"alias before the name",
         {{"TO", "SERVER"}, {"REQ", "ADD-ALIAS"}, {"ALIAS", "a"}, {"FROM", "x"}},
         10,
         "add alias failed 1"},
        {"no ALIAS", {{"TO", "SERVER"}, {"REQ", "ADD-ALIAS"}, {"FROM", "x"}}, 10, "add alias failed 2"},
        {"a path as an alias", {{"TO", "SERVER"}, {"REQ", "ADD-ALIAS"}, {"ALIAS", "../a"}}, 10, "add alias failed 3"},
        {"nobody to announce", {{"TO", "SERVER"}, {"REQ", "OTHER"}}, 11},
        {"an unknown kind announces its sender", {{"TO", "SERVER"}, {"REQ", "OTHER"}, {"FROM", "x"}}, 0},
        {"no such receiver", {{"TO", "nobody"}, {"FROM", "x"}}, 0},
    };
    for (const auto& test : cases) {
        log.clear();
        EXPECT_EQ(send(test.card), test.code) << test.what;
        EXPECT_EQ(log.count("send failed " + std::to_string(test.code)), test.code != 0 ? 1U : 0U) << test.what;
        EXPECT_TRUE(test.step == nullptr || log.contains(test.step)) << test.what;
    }
    EXPECT_EQ(transport.send(nullptr), 2);
    EXPECT_EQ(transport.run_block(nullptr), 0) << "not registered: at once";
    EXPECT_EQ(registerAs("one"), 0);
    EXPECT_EQ(registerAs("two"), 9) << "one name only";
    EXPECT_TRUE(log.contains("register client failed 1"));
    EXPECT_FALSE(std::filesystem::exists(pathOf("two")));
}

TEST_F(Transport, AliasesReplaceFilesAndDanglingLinksButNotTheOwnSocket) {
    TestClient watcher("watcher");
    ASSERT_EQ(registerAs("me"), 0);
    EXPECT_EQ(watcher.receiveAny()->getString("CLIENT"), "me");
    test_support::writeFile(pathOf("alias"), "");
    std::filesystem::create_symlink("/nowhere", pathOf("dangling"));
    std::filesystem::create_directory(pathOf("folder"));
    for (const char* alias : {"alias", "dangling", "new"}) {
        EXPECT_EQ(addAlias(alias), 0);
        EXPECT_EQ(std::filesystem::read_symlink(pathOf(alias)), pathOf("me"));
    }
    EXPECT_EQ(addAlias("me") + addAlias("folder"), 10 + 10);
    EXPECT_EQ(log.count("add alias failed 4"), 2U);
}

TEST_F(Transport, LinksAreFollowedWithinTheDirectoryOnly) {
    TestClient outside("../outside");
    TestClient inside("inside");
    std::filesystem::create_symlink(pathOf("../outside"), pathOf("astray"));
    std::filesystem::create_symlink("inside", pathOf("link"));
    std::filesystem::create_symlink(pathOf("link"), pathOf("link-of-link"));
    (void)send({{"TO", "astray"}, {"FROM", "x"}});
    EXPECT_FALSE(outside.receiveAny(std::chrono::milliseconds(100)).has_value());
    EXPECT_TRUE(log.contains("/astray leads out of the socket directory"));
    for (const char* name : {"link", "link-of-link"}) {
        EXPECT_EQ(send({{"TO", name}, {"FROM", "x"}}), 0);
        EXPECT_TRUE(inside.receiveAny().has_value()) << name;
    }
}

TEST_F(Transport, CleanUpForgetsSendersWhoseSocketHasGone) {
    {
        TestClient gone(std::string(75, 'n'));
        EXPECT_EQ(send({{"TO", std::string(80, 'n')}, {"FROM", "x"}}), 0);
        EXPECT_TRUE(gone.receive().has_value()) << "names are cut where the path is full";
    }
    transport.cleanupIpcSenders();
    transport.cleanupIpcSenders();
    EXPECT_EQ(log.count("Socket file doesn't exit, erese it from mIpcSendersMap"), 1U);
}

TEST_F(Transport, StopIsStickyAndComesFromAnyThread) {
    ASSERT_EQ(registerAs("stopped"), 0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] { EXPECT_EQ(transport.shutdown(), 0); });
    }
    EXPECT_EQ(transport.run_block(nullptr), 0);
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(transport.run_block(nullptr), 0);

    removeSocketDirectory();
    MessageQueueClientImpl homeless;
    EXPECT_EQ(
        homeless.send(mq_test::cardOf({{"TO", "SERVER"}, {"REQ", "REGISTER"}, {"FROM", "x"}})->getEncodedBuffer()), 13);
    EXPECT_TRUE(log.contains("error setting permission for socket file: 2, [")) << "and goes on";
}

}  // namespace
