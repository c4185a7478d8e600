#include "base/ModuleLog.h"

#include <sys/syscall.h>
#include <unistd.h>

#include "base/BaseTest.h"
#include "platform/posutil/pos_log.h"

namespace {

int32_t level = 0;
int level_questions = 0;
std::string level_tag;
std::vector<std::pair<int, std::string>> inserted;
std::vector<std::pair<int, std::string>> called_back;

}  // namespace

extern "C++" int32_t wrappedLevel(const char* tag) __asm__("__wrap__Z17get_tag_log_levelPKc");
extern "C++" void wrappedInsert(char* text, size_t size, int code) __asm__("__wrap__Z17log_buffer_insertPcmi");

int32_t wrappedLevel(const char* tag) {
    ++level_questions;
    level_tag = tag != nullptr ? tag : "(null)";
    return level;
}

void wrappedInsert(char* text, size_t size, int code) {
    EXPECT_EQ(size, 1024U);
    inserted.emplace_back(code, text);
}

namespace {

using testing::ElementsAre;
using testing::Pair;
using zv_loc_fw::ModuleLog;

class ModuleLogTest : public base_test::BaseTest {};

void logAll(ModuleLog& log) {
    log.error("f", 1, "number %d", 1);
    log.warning("f", 2, "number %d", 2);
    log.debug("f", 3, "number %d", 3);
}

TEST_F(ModuleLogTest, LevelDecidesWhatPasses) {
    const std::pair<int32_t, std::vector<int>> cases[] = {
        {0, {}}, {1, {6}}, {2, {6, 5}}, {3, {6, 5}}, {4, {6, 5, 3}}, {5, {6, 5, 3}}, {6, {}}, {-2, {}},
    };
    for (const auto& [value, priorities] : cases) {
        mLog.clear();
        level = value;
        level_questions = 0;
        ModuleLog log("module", nullptr);
        logAll(log);
        EXPECT_EQ(level_questions, 1) << "asked once, then remembered";
        std::vector<int> seen;
        for (const auto& line : mLog.lines()) {
            seen.push_back(line.priority);
        }
        EXPECT_EQ(seen, priorities) << value;
    }
}

TEST_F(ModuleLogTest, EveryOutputGetsTheLineCutToItsBuffer) {
    level = 5;
    pos_logger.buffer_enabled = true;
    pos_logger.output = [](int code, const char* text) { called_back.emplace_back(code, text); };
    ModuleLog log("module", "asked");
    logAll(log);
    EXPECT_EQ(level_tag, "asked");
    EXPECT_THAT(mLog.texts(), ElementsAre("f:1] number 1", "f:2] number 2", "f:3] number 3"));
    EXPECT_THAT(called_back, ElementsAre(Pair(3, "f:1] number 1"), Pair(3, "f:2] number 2"), Pair(1, "f:3] number 3")));
    const auto line = [](int code, int number) {
        const std::string text = std::to_string(number);
        return Pair(code, testing::EndsWith(" " + std::to_string(getpid()) + " " + std::to_string(syscall(SYS_gettid)) +
                                            " module :f:" + text + "] number " + text + "\n"));
    };
    EXPECT_THAT(inserted, ElementsAre(line(0, 1), line(1, 2), line(3, 3)));
    MODULE_LOG_ERROR(log, "%s", std::string(3000, 'x').c_str());
    pos_logger = {};
    EXPECT_EQ(inserted.back().second.size(), 1023U);
    EXPECT_EQ(called_back.back().second.size(), 1023U);
    EXPECT_THAT(mLog.texts().back(), testing::StartsWith("TestBody:"));
}

}  // namespace
