#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "base/Timestamp.h"
#include "mq/MqMsgWrapper.h"
#include "postcard/InPostcard.h"
#include "support/Card.h"

/// Cards of the tests as messages of the product.
namespace transfer_test {

inline std::unique_ptr<zv_loc_fw::MqMsgWrapper> messageOf(const std::string& bytes) {
    auto* copy = new char[bytes.size()];  // the reader's
    std::memcpy(copy, bytes.data(), bytes.size());
    zv_loc_fw::InPostcard* reader = zv_loc_fw::InPostcard::createInstance();
    EXPECT_EQ(reader->init(copy, bytes.size(), true), 0);
    return std::make_unique<zv_loc_fw::MqMsgWrapper>(reader, zv_loc_fw::Timestamp());
}

inline std::unique_ptr<zv_loc_fw::MqMsgWrapper> messageOf(const test_support::Card& card) {
    return messageOf(card.encode());
}

inline test_support::Card without(const test_support::Card& card, const std::string& name) {
    test_support::Card rest;
    for (const test_support::Field& field : card.fields()) {
        if (field.name != name) {
            rest.add(field.name, field.type, field.value);
        }
    }
    return rest;
}

}  // namespace transfer_test
