#include "base/BaseTest.h"

#include "base/log.h"

namespace base_test {

BaseTest::BaseTest() {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    zv_loc_fw::log_set_global_level(static_cast<zv_loc_fw::ERROR_LEVEL>(100));
    zv_loc_fw::log_set_global_tag("TEST");
}

BaseTest::~BaseTest() {
    zv_loc_fw::log_clear_local_levels();
    zv_loc_fw::log_set_global_level(static_cast<zv_loc_fw::ERROR_LEVEL>(0));
}

}  // namespace base_test
