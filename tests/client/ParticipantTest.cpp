#include "client/Participant.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <set>

#include "support/DeviceFiles.h"
#include "support/TestClient.h"
#include "support/files.h"

namespace zv_loc_fw {
namespace {

using test_support::Card;
using test_support::TestClient;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

std::string pathOf(const std::string& name) {
    return std::string(test_support::device_files::kSocketDirectory) + "/" + name;
}

std::set<std::string> names() {
    std::set<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(test_support::device_files::kSocketDirectory)) {
        found.insert(entry.path().filename());
    }
    return found;
}

Participant::Clock::time_point soon() {
    return Participant::Clock::now() + std::chrono::seconds(30);
}

ParticipantOptions aliases(std::vector<std::string> list, bool replace = false) {
    ParticipantOptions options;
    options.aliases = std::move(list);
    options.replaceLive = replace;
    return options;
}

class ParticipantTest : public testing::Test {
protected:
    ParticipantTest() { test_support::device_files::reset(); }
    std::string mError;
};

TEST_F(ParticipantTest, ListensUnderEveryName) {
    auto participant = Participant::create("one", aliases({"two", "three"}), &mError);
    ASSERT_NE(participant, nullptr) << mError;
    EXPECT_THAT(names(), UnorderedElementsAre("one", "two", "three"));
    TestClient other("other");
    for (const char* name : {"one", "two", "three"}) {
        EXPECT_EQ(lookUpParticipant(name), ParticipantState::kLive);
        ASSERT_EQ(other.send(name, Card().string("TO", name)), 0);
        const auto message = participant->receive(soon());
        ASSERT_NE(message, nullptr);
        const char* to = nullptr;
        ASSERT_EQ(message->getString("TO", &to), 0);
        EXPECT_STREQ(to, name);
    }
    participant.reset();
    EXPECT_THAT(names(), UnorderedElementsAre("other"));
}

TEST_F(ParticipantTest, FailureLeavesNothingBehind) {
    TestClient live("live");
    const std::set<std::string> before = names();
    const struct {
        const char* name;
        std::vector<std::string> aliases;
        const char* error;
    } cases[] = {
        {"", {}, "no name"},
        {"..", {}, "no name"},
        {"SERVER", {}, "no name"},
        {"a/b", {}, "no name"},
        {"live", {}, "taken"},
        {"me", {"ok", "live"}, "taken"},
        {"me", {"ok", "x/y"}, "no name"},
        {"me", {"ok", "me"}, "alias of itself"},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(Participant::create(test.name, aliases(test.aliases), &mError), nullptr) << test.name;
        EXPECT_THAT(mError, HasSubstr(test.error));
        EXPECT_EQ(names(), before) << test.name;
    }
    EXPECT_EQ(Participant::create(std::string(76, 'n'), {}, &mError), nullptr);
    EXPECT_NE(Participant::create(std::string(75, 'n'), {}, &mError), nullptr) << mError;

    // Known only when it is made: a directory cannot be replaced.
    std::filesystem::create_directory(pathOf("directory"));
    EXPECT_EQ(Participant::create("me", aliases({"ok", "directory/"}), &mError), nullptr);
    test_support::writeFile(pathOf("directory") + "/full", "");
    EXPECT_EQ(Participant::create("me", aliases({"ok", "directory"}), &mError), nullptr);
    EXPECT_THAT(mError, HasSubstr("directory"));
    EXPECT_EQ(Participant::create("directory", {}, &mError), nullptr);
    std::filesystem::remove_all(pathOf("directory"));
    EXPECT_EQ(names(), before);
}

TEST_F(ParticipantTest, LeavesAloneWhatOthersTookOver) {
    auto first = Participant::create("name", aliases({"alias", "own"}), &mError);
    ASSERT_NE(first, nullptr) << mError;
    auto second = Participant::create("name", aliases({"alias"}, true), &mError);
    ASSERT_NE(second, nullptr) << mError;
    first.reset();
    EXPECT_THAT(names(), UnorderedElementsAre("name", "alias"));
    EXPECT_EQ(lookUpParticipant("name"), ParticipantState::kLive);
    EXPECT_EQ(lookUpParticipant("alias"), ParticipantState::kLive);
    second.reset();
    EXPECT_THAT(names(), testing::IsEmpty());
}

TEST_F(ParticipantTest, AnnouncementsAreLeftOutUnlessAskedFor) {
    auto deaf = Participant::create("deaf", {}, &mError);
    ParticipantOptions options;
    options.keepAnnouncements = true;
    auto curious = Participant::create("curious", options, &mError);
    auto late = Participant::create("late", {}, &mError);
    ASSERT_TRUE(deaf != nullptr && curious != nullptr && late != nullptr) << mError;
    const char* client = nullptr;
    auto message = curious->receive(soon());
    ASSERT_NE(message, nullptr);
    ASSERT_EQ(message->getString("CLIENT", &client), 0);
    EXPECT_STREQ(client, "curious");  // it hears of itself first
    message = curious->receive(soon());
    ASSERT_NE(message, nullptr);
    ASSERT_EQ(message->getString("CLIENT", &client), 0);
    EXPECT_STREQ(client, "late");
    EXPECT_EQ(deaf->receive(Participant::Clock::now()), nullptr);
}

}  // namespace
}  // namespace zv_loc_fw
