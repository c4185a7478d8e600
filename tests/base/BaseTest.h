#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/LogCapture.h"

#if defined(__SANITIZE_THREAD__)
#define UNDER_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define UNDER_TSAN 1
#endif
#endif

namespace base_test {

/// Everything is logged, captured, and reset afterwards.
class BaseTest : public testing::Test {
protected:
    BaseTest();
    ~BaseTest() override;

    test_support::LogCapture mLog;
};

}  // namespace base_test
