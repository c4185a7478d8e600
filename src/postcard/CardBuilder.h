#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "postcard/OutPostcard.h"

namespace zv_loc_fw {

/// Writes a card step by step, each with the code that its caller wants for a failure: the first step that fails
/// decides the result, and the steps after it do nothing.
///
///   CardBuilder reply(21, 10);           // 21 no memory for the card, 10 its init failed
///   reply.addString(11, "FROM", name);
///   reply.finalize(17);
///   if (reply.result() != 0) ...
///
/// One thread at a time.
class CardBuilder {
public:
    CardBuilder(int no_memory, int init_failed) : mCard(OutPostcard::createInstance()) {
        if (mCard == nullptr) {
            mResult = no_memory;
        } else {
            step(init_failed, [this] { return mCard->init(); });
        }
    }

    void addString(int code, const char* name, const char* value) {
        step(code, [&] { return mCard->addString(name, value); });
    }
    void addInt32(int code, const char* name, int32_t value) {
        step(code, [&] { return mCard->addInt32(name, value); });
    }
    void addBool(int code, const char* name, bool value) {
        step(code, [&] { return mCard->addBool(name, value); });
    }
    void addBlob(int code, const char* name, const void* data, size_t size) {
        step(code, [&] { return mCard->addBlob(name, data, size); });
    }
    void addCard(int code, const char* name, const OutPostcard* card) {
        step(code, [&] { return mCard->addCard(name, card); });
    }
    void addArrayInt32(int code, const char* name, int count, const int32_t* elements) {
        step(code, [&] { return mCard->addArrayInt32(name, count, elements); });
    }
    void finalize(int code) {
        step(code, [this] { return mCard->finalize(); });
    }

    /// 0, or the code of the first step that failed.
    [[nodiscard]] int result() const { return mResult; }
    /// The card, this builder's; null without memory. To be sent only when result() is 0.
    [[nodiscard]] OutPostcard* card() const { return mCard.get(); }
    [[nodiscard]] std::unique_ptr<OutPostcard> takeCard() { return std::move(mCard); }

private:
    template <typename Operation>
    void step(int code, Operation operation) {
        if (mResult == 0 && operation() != 0) {
            mResult = code;
        }
    }

    std::unique_ptr<OutPostcard> mCard;
    int mResult = 0;
};

}  // namespace zv_loc_fw
