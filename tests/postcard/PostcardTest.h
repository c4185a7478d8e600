#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/log.h"
#include "postcard/InPostcard.h"
#include "postcard/OutPostcard.h"
#include "support/LogCapture.h"

namespace zv_loc_fw {

using Bytes = std::vector<uint8_t>;
using Writer = std::unique_ptr<OutPostcard>;
using Reader = std::unique_ptr<InPostcard>;

/// "0C 00 41" as bytes.
inline Bytes hex(const std::string& text) {
    Bytes bytes;
    for (size_t i = 0; i < text.size(); i += 3) {
        bytes.push_back(static_cast<uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

inline Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

inline Bytes word(uint32_t value) {
    Bytes bytes(sizeof(value));
    std::memcpy(bytes.data(), &value, sizeof(value));
    return bytes;
}

/// The fields between a true header and the end byte.
inline Bytes card(const Bytes& fields) {
    return word(static_cast<uint32_t>(fields.size() + 1)) + fields + Bytes{0};
}

template <typename T>
inline constexpr T kSample = static_cast<T>(-42);
template <>
inline constexpr bool kSample<bool> = true;

class PostcardTest : public testing::Test {
protected:
    PostcardTest() { log_set_global_level(EL_ERROR); }

    static Writer finished(const std::function<void(OutPostcard&)>& fill) {
        Writer writer(OutPostcard::createInstance());
        EXPECT_EQ(0, writer->init());
        fill(*writer);
        EXPECT_EQ(0, writer->finalize());
        return writer;
    }

    static Bytes bytesOf(const OutPostcard& writer) {
        const auto* first = static_cast<const uint8_t*>(writer.getEncodedBuffer()->getBuffer());
        return {first, first + writer.getEncodedBuffer()->getSize()};
    }

    static Bytes written(const std::function<void(OutPostcard&)>& fill) { return bytesOf(*finished(fill)); }

    /// A field of every type, all of one name, and a last one to be looked for behind them.
    static Bytes everyType() {
        return written([](OutPostcard& c) {
            const Writer inner = finished([](OutPostcard& i) { EXPECT_EQ(0, i.addString("n", "inner")); });
            EXPECT_EQ(0, c.addCard("n", inner.get()));
            EXPECT_EQ(0, c.addString("n", "text"));
            EXPECT_EQ(0, c.addBlob("n", "blob", 4));
#define ZV_ADD(Suffix, Type, Code) EXPECT_EQ(0, c.add##Suffix("n", kSample<Type>));
            ZV_POSTCARD_SIMPLE_TYPES(ZV_ADD)
#undef ZV_ADD
#define ZV_ADD(Suffix, Type, Code)                        \
    {                                                     \
        const Type values[] = {kSample<Type>, 0};         \
        EXPECT_EQ(0, c.addArray##Suffix("n", 2, values)); \
    }
            ZV_POSTCARD_ARRAY_TYPES(ZV_ADD)
#undef ZV_ADD
            EXPECT_EQ(0, c.addUInt8("last", 1));
        });
    }

    /// A reader over a heap block of exactly these bytes, so that a sanitizer sees a read beyond.
    static Reader reading(const Bytes& bytes) {
        char* block = new char[bytes.size()];
        std::memcpy(block, bytes.data(), bytes.size());
        Reader reader(InPostcard::createInstance());
        EXPECT_EQ(0, reader->init(block, bytes.size(), true));
        return reader;
    }

    /// The lines since the last call, without their tags, joined by "; ".
    std::string said() {
        std::string all;
        for (const std::string& line : mLog.texts()) {
            all += (all.empty() ? "" : "; ") + line.substr(line.find("] ") + 2);
        }
        mLog.clear();
        return all;
    }

    test_support::LogCapture mLog;
};

}  // namespace zv_loc_fw
