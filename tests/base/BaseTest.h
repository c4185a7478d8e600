#pragma once

#include <gmock/gmock.h>
#include <pthread.h>

#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "base/log.h"
#include "support/LogCapture.h"

namespace base_test {

/// Everything is logged and captured; afterwards nothing is.
class BaseTest : public testing::Test {
protected:
    BaseTest() {
        zv_loc_fw::log_set_global_level(static_cast<zv_loc_fw::ERROR_LEVEL>(100));
        zv_loc_fw::log_set_global_tag("TEST");
    }
    ~BaseTest() override {
        zv_loc_fw::log_clear_local_levels();
        zv_loc_fw::log_set_global_level(static_cast<zv_loc_fw::ERROR_LEVEL>(0));
    }

    test_support::LogCapture mLog;
};

}  // namespace base_test
