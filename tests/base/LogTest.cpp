#include "base/log.h"

#include <android/log.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "base/BaseTest.h"
#include "base/log_state.h"

namespace {

using namespace zv_loc_fw;
using test_support::LogLine;
using testing::ElementsAre;
using testing::MatchesRegex;

class LogTest : public base_test::BaseTest {};

void vlogAt(int level, const char* format, ...) ZV_PRINTF(2, 3);
void vlogAt(int level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    vlog("T", static_cast<ERROR_LEVEL>(level), format, args);
    va_end(args);
}

TEST_F(LogTest, ThresholdPassesItsOwnSeverityAndThoseAbove) {
    const int priorities[] = {ANDROID_LOG_ERROR, ANDROID_LOG_WARN, ANDROID_LOG_INFO, ANDROID_LOG_DEBUG,
                              ANDROID_LOG_VERBOSE};
    for (const int threshold : {-1, 0, 1, 2, 3, 4, 5, 100}) {
        mLog.clear();
        log_set_global_level(static_cast<ERROR_LEVEL>(threshold));
        log_error("T", "number %d", 1);
        log_warning("T", "number %d", 2);
        log_info("T", "number %d", 3);
        log_debug("T", "number %d", 4);
        log_verbose("T", "number %d", 5);
        const std::vector<LogLine> lines = mLog.lines();
        ASSERT_EQ(lines.size(), static_cast<size_t>(std::clamp(threshold, 0, 5))) << threshold;
        for (size_t i = 0; i < lines.size(); ++i) {
            EXPECT_EQ(lines[i].priority, priorities[i]);
            EXPECT_EQ(lines[i].tag, "TEST");
            EXPECT_EQ(lines[i].text, "[T] number " + std::to_string(i + 1));
        }
    }
}

TEST_F(LogTest, OddMessagesAreReplacedAndLongOnesCut) {
    log_error("T", "%s", "");
    log_error("T", "%ls", L"\x3b1");  // no such character in the C locale
    log_error(nullptr, "plain");
    log_error("T", "%s", std::string(600, 'x').c_str());
    log_error(nullptr, "%s", std::string(511, 'y').c_str());
    log_error(nullptr, "%s", std::string(512, 'z').c_str());
    vlogAt(7, "text");
    EXPECT_THAT(mLog.texts(),
                ElementsAre("[T] log subsystem message format error", "[T] log subsystem message format error", "plain",
                            "[T] " + std::string(507, 'x'), std::string(511, 'y'), std::string(511, 'z'),
                            "Internal error in log subsystem: unknown log level"));
    EXPECT_EQ(mLog.lines().back().priority, ANDROID_LOG_ERROR);
}

TEST_F(LogTest, TagsOwnThresholdAndOutputsReplaceTheGlobalOnes) {
    ASSERT_EQ(log_add_local_level("both", EL_WARNING, 3), 0);
    ASSERT_EQ(log_add_local_level(nullptr, EL_VERBOSE, 3), 0);
    ASSERT_EQ(log_add_local_level("none", EL_VERBOSE, 0), 0);
    ASSERT_EQ(log_add_local_level("out", EL_ERROR, 1), 0);
    ASSERT_EQ(log_add_local_level("out", EL_VERBOSE, 2), 0);  // wins
    log_set_global_level(EL_INFO);

    testing::internal::CaptureStdout();
    log_warning("both", "first");
    log_info("both", "over its threshold");
    log_verbose("out", "%s", std::string(600, 'x').c_str());
    log_error("none", "nowhere");
    log_info("other", "global");
    log_info(nullptr, "no tag");
    const std::string out = testing::internal::GetCapturedStdout();

    EXPECT_THAT(mLog.texts(), ElementsAre("[both] first", "[other] global", "no tag"));
    const std::string time = "[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.000 TEST:";
    EXPECT_THAT(out, MatchesRegex(time + "\\[both\\] first\n" + time + "\\[out\\] x+\n"));
    EXPECT_EQ(out.size() - out.find('\n') - 2, 511U) << "the whole line is cut";

    log_clear_local_levels();
    log_info("both", "global again");
    EXPECT_EQ(mLog.texts().back(), "[both] global again");
}

TEST_F(LogTest, WithoutItsLockLinesAreFramedAndSettersRefuse) {
    MutexImpl* const lock = std::exchange(log_detail::state.lock, nullptr);
    log_error("T", "printed");
    log_set_global_tag("other");
    log_detail::state.lock = lock;
    const char* const before = "[AutoLock] AutoLock: lock error: 2";
    const char* const after = "[AutoLock] AutoLock: unlock error: 2";
    EXPECT_THAT(mLog.texts(),
                ElementsAre(before, "[T] printed", after, before, "[LOG_UTIL] log_set_global_tag failed 2", after));
    EXPECT_EQ(mLog.lines().back().tag, "TEST");
}

TEST_F(LogTest, LongGlobalTagIsCutAndUnlockedReaderNeverSeesATornOne) {
    const std::string tags[] = {std::string(63, 'a'), std::string(40, 'b')};
    log_set_global_tag((tags[0] + "and more").c_str());
    EXPECT_THAT(mLog.texts(), ElementsAre("[LOG_UTIL] log_set_global_tag failed 4"));
    log_set_global_tag(tags[0].c_str());
    EXPECT_EQ(mLog.lines().size(), 1U);
    std::atomic<bool> done{false};
    std::vector<std::thread> loggers;
    for (int i = 0; i < 3; ++i) {
        loggers.emplace_back([&done, i] {
            while (!done) {
                i == 0 ? log_error("T", "locked") : log_error_no_lock("T", "unlocked");
            }
        });
    }
    EXPECT_TRUE(mLog.waitFor("] unlocked"));
    EXPECT_TRUE(mLog.waitFor("] locked"));
    for (size_t i = 0; i < 20000; ++i) {
        log_set_global_tag(tags[i % 2].c_str());
        log_set_global_level(i % 3 == 0 ? EL_VERBOSE : EL_ERROR);
    }
    done = true;
    for (std::thread& logger : loggers) {
        logger.join();
    }
    for (const LogLine& line : mLog.lines()) {
        ASSERT_TRUE(line.tag == tags[0] || line.tag == tags[1]) << line.tag;
    }
}

}  // namespace
