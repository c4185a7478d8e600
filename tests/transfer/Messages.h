#pragma once

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "base/Timestamp.h"
#include "mq/MqMsgWrapper.h"
#include "postcard/InPostcard.h"
#include "postcard/MemoryStream.h"
#include "support/Card.h"

/// Cards of the tests as messages of the product, and back.
namespace transfer_test {

inline std::unique_ptr<zv_loc_fw::MqMsgWrapper> messageOf(const std::string& bytes,
                                                          const zv_loc_fw::Timestamp& arrival) {
    auto* copy = new char[bytes.size()];  // the reader's
    std::memcpy(copy, bytes.data(), bytes.size());
    zv_loc_fw::InPostcard* reader = zv_loc_fw::InPostcard::createInstance();
    if (reader->init(copy, bytes.size(), true) != 0) {
        std::abort();
    }
    return std::make_unique<zv_loc_fw::MqMsgWrapper>(reader, arrival);
}

inline std::unique_ptr<zv_loc_fw::MqMsgWrapper> messageOf(const test_support::Card& card) {
    return messageOf(card.encode(), zv_loc_fw::Timestamp());
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

inline std::string bytesOf(zv_loc_fw::InPostcard& card) {
    const zv_loc_fw::InMemoryStream* stream = card.getBuffer();
    return {static_cast<const char*>(stream->getBuffer()), stream->getSize()};
}

}  // namespace transfer_test
