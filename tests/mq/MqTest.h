#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/log.h"
#include "postcard/OutPostcard.h"
#include "support/DeviceFiles.h"
#include "support/LogCapture.h"

namespace mq_test {

using Texts = std::vector<std::pair<std::string, std::string>>;

inline std::unique_ptr<zv_loc_fw::OutPostcard> cardOf(const Texts& fields) {
    std::unique_ptr<zv_loc_fw::OutPostcard> card(zv_loc_fw::OutPostcard::createInstance());
    EXPECT_EQ(card->init(), 0);
    for (const auto& [name, value] : fields) {
        EXPECT_EQ(card->addString(name.c_str(), value.c_str()), 0);
    }
    EXPECT_EQ(card->finalize(), 0);
    return card;
}

/// With everything logged.
class MqTest : public testing::Test {
protected:
    MqTest() { zv_loc_fw::log_set_global_level(zv_loc_fw::EL_VERBOSE); }

    ~MqTest() override { std::filesystem::create_directories(test_support::device_files::kSocketDirectory); }

    static void removeSocketDirectory() { std::filesystem::remove_all(test_support::device_files::kSocketDirectory); }

    test_support::LogCapture log;
};

}  // namespace mq_test
