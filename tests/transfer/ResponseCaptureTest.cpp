#include "transfer/ResponseCapture.h"

#include <gtest/gtest.h>

#include <climits>
#include <csignal>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/log.h"
#include "support/LogCapture.h"
#include "transfer/CurlPerformer.h"

namespace {

using namespace zv_loc_fw;
using test_support::LogCapture;

class ResponseCaptureTest : public testing::Test {
protected:
    void SetUp() override {
        log_set_global_level(EL_VERBOSE);
        ASSERT_TRUE(capture.begin());
    }

    LogCapture log;
    ResponseCapture capture{"worker"};
};

TEST_F(ResponseCaptureTest, RetryAfterIsTheFirstUsableLine) {
    const struct {
        std::vector<std::string> lines;
        std::optional<int32_t> seconds;
        const char* complaint = nullptr;
    } cases[] = {
        {{"Retry-After: 120\r\n"}, 120},
        {{"Retry-After:120"}, 120},
        {{"Retry-After:\t 7 seconds\r\n"}, 7},
        {{"Retry-After: -5\r\n"}, -5},
        {{"Retry-After: 2147483647\r\n"}, INT_MAX},
        {{"Retry-After: -2147483648\r\n"}, INT_MIN},
        {{"Retry-After: 1\r\n", "Retry-After: 2\r\n"}, 1},
        {{"HTTP/1.1 302 Found\r\n", "Retry-After: 3\r\n", "\r\n", "HTTP/1.1 200 OK\r\n", "Retry-After: 4\r\n"}, 3},
        {{"Retry-After: Wed, 21 Oct 2026 07:28:00 GMT\r\n"}, 0},
        {{"Retry-After: \r\n"}, 0},
        {{"retry-after: 120\r\n"}, std::nullopt},
        {{"RETRY-AFTER: 120\r\n"}, std::nullopt},
        {{"Retry-After : 120\r\n"}, std::nullopt},
        {{"X-Retry-After: 120\r\n"}, std::nullopt},
        {{"Retry-After:"}, std::nullopt},  // 12 characters: not looked at
        {{"Retry-After", "\r\n", ""}, std::nullopt},
        {{"Retry-After: 2147483648\r\n"}, std::nullopt, "_str_to_int failed. error 105"},
        {{"Retry-After: -2147483649\r\n"}, std::nullopt, "_str_to_int failed. error 105"},
        {{"Retry-After: 9223372036854775807\r\n"}, std::nullopt, "_str_to_int failed. error 102"},
        {{"Retry-After: 99999999999999999999\r\n"}, std::nullopt, "_str_to_int failed. error 102"},
        {{"Retry-After: -99999999999999999999\r\n"}, std::nullopt, "_str_to_int failed. error 102"},
        {{"Retry-After: 2147483648\r\n", "Retry-After: 9\r\n"}, 9, "_str_to_int failed. error 105"},
    };
    for (const auto& test : cases) {
        log.clear();
        ASSERT_TRUE(capture.begin());  // forgets the case before
        for (const std::string& line : test.lines) {
            // Exactly these bytes, on the heap: reading on behind them does not go unnoticed.
            std::vector<char> bytes(line.begin(), line.end());
            EXPECT_EQ(capture.takeHeader(bytes.data(), 1, bytes.size()), line.size());
        }
        EXPECT_EQ(capture.retryAfterSeen(), test.seconds.has_value()) << test.lines[0];
        EXPECT_EQ(capture.retryAfterSeconds(), test.seconds.value_or(0)) << test.lines[0];
        EXPECT_EQ(log.lines().size(), test.complaint != nullptr ? 1U : 0U) << test.lines[0];
        EXPECT_TRUE(test.complaint == nullptr || log.contains(test.complaint)) << test.lines[0];
    }
    ASSERT_TRUE(capture.begin());
    EXPECT_EQ(capture.takeHeader(nullptr, 1, 20), 20U);
    std::string line = "Retry-After: 12\r\n ";
    EXPECT_EQ(capture.takeHeader(line.data(), 9, 2), 18U) << "size times count";
    EXPECT_EQ(capture.retryAfterSeconds(), 12);
}

TEST_F(ResponseCaptureTest, BodyGrowsByChunks) {
    EXPECT_EQ(capture.body()->getBuffer(), nullptr);
    EXPECT_EQ(capture.takeBody("abcdef", 2, 3), 6U);
    const std::string big(100000, 'x');
    EXPECT_EQ(capture.takeBody(big.data(), 1, big.size()), big.size());
    EXPECT_EQ(std::string(static_cast<const char*>(capture.body()->getBuffer()), capture.body()->getSize()),
              "abcdef" + big);
    ASSERT_TRUE(capture.begin());
    EXPECT_EQ(capture.body()->getSize(), 0U);
}

TEST_F(ResponseCaptureTest, RefusedChunksTakeNothing) {
    EXPECT_EQ(capture.takeBody("abc", 1, 3), 3U);
    EXPECT_EQ(capture.takeBody("abc", 0, 3), 0U);
    EXPECT_EQ(capture.takeBody(nullptr, 1, 0), 0U);
    EXPECT_EQ(log.count("[worker] dataHandler : empty file content"), 2U);
    EXPECT_EQ(capture.takeBody("abc", 1, kMaxBodySize - 2), 0U) << "one byte beyond the limit";
    EXPECT_EQ(capture.takeBody("abc", 1, kMaxBodySize + 1), 0U);
    EXPECT_EQ(log.count("[worker] dataHandler : append failed"), 2U);
    EXPECT_EQ(capture.body()->getSize(), 3U);
    capture.end();
    EXPECT_EQ(capture.takeBody("abc", 1, 3), 0U);
    EXPECT_EQ(log.count("[worker] dataHandler: null data buffer"), 1U);
}

TEST_F(ResponseCaptureTest, CallbacksWithoutAWorkerTakeNothing) {
    char data[] = "Retry-After: 120\r\n";
    EXPECT_EQ(CurlPerformer::curl_data_handler(data, 1, 5, nullptr), 0U);
    EXPECT_EQ(CurlPerformer::curl_header_handler(data, 1, 18, nullptr), 0U);
    EXPECT_EQ(log.count("[InetAgentService-Static] curl_data_handler null pointer"), 1U);
    EXPECT_EQ(log.count("[InetAgentService-Static] curl_header_handler null pointer"), 1U);
}

TEST(ResponseCaptureDeathTest, SizesThatOverflowEndTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ResponseCapture capture("worker");
    ASSERT_TRUE(capture.begin());
    EXPECT_EXIT((void)capture.takeBody("abc", SIZE_MAX, 2), testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT((void)capture.takeHeader("abc", SIZE_MAX / 2 + 1, 2), testing::KilledBySignal(SIGABRT), "");
}

}  // namespace
