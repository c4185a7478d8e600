#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "postcard/InPostcard.h"
#include "postcard/OutPostcard.h"

/// Cards of texts, for the message-queue tests.
namespace mq_test {

using Texts = std::vector<std::pair<std::string, std::string>>;

inline std::unique_ptr<zv_loc_fw::OutPostcard> cardOf(const Texts& fields) {
    std::unique_ptr<zv_loc_fw::OutPostcard> card(zv_loc_fw::OutPostcard::createInstance());
    bool good = card->init() == 0;
    for (const auto& [name, value] : fields) {
        good = good && card->addString(name.c_str(), value.c_str()) == 0;
    }
    good = good && card->finalize() == 0;
    return good ? std::move(card) : nullptr;
}

inline std::string textOf(zv_loc_fw::InPostcard& card, const char* name) {
    const char* value = nullptr;
    return card.getString(name, &value) == 0 ? value : "(absent)";
}

/// Takes the socket directory away for the length of a scope.
class MissingSocketDirectory {
public:
    MissingSocketDirectory() { EXPECT_EQ(std::rename(kDirectory, kAway), 0); }
    ~MissingSocketDirectory() { EXPECT_EQ(std::rename(kAway, kDirectory), 0); }

private:
    static constexpr const char* kDirectory = "/dev/socket/location/mq";
    static constexpr const char* kAway = "/dev/socket/location/away";
};

}  // namespace mq_test
