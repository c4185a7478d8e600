#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "harness/harness.h"

/// What every codec writes and reads: the ten fields of a POST request as the client library fills it, and the fields
/// of a reply. Names and values are the same for all; a codec that numbers its fields leaves the names out.
namespace bench {

inline constexpr const char* kTo = "inet-agent-cs";
inline constexpr const char* kFrom = "position-engine";
inline constexpr const char* kReq = "POST";
inline constexpr std::int32_t kTxId = 4711;
inline constexpr const char* kUrl = "https://posit.example.net/v1/assistance?format=2";
inline constexpr std::int32_t kTimeoutSec = 30;
inline constexpr bool kForceNew = true;
inline constexpr const char* kContentType = "application/octet-stream";
inline constexpr const char* kVersion = "1.2";
inline constexpr unsigned char kPostData[64] = {1, 2, 3};

inline constexpr const char* kResp = "HTTP-RESULT";
inline constexpr std::int32_t kStatus = 200;
inline constexpr std::size_t kSmallBody = 200;
inline constexpr std::size_t kLargeBody = 4U << 20U;

/// A body of zeros, as large as the largest.
const unsigned char* body();

/// A text in the reader's bytes; one with a terminating zero may come without its length.
struct Text {
    const char* data = nullptr;
    std::size_t size = static_cast<std::size_t>(-1);

    [[nodiscard]] bool is(std::string_view wanted) const {
        return data != nullptr &&
               std::string_view(data, size == static_cast<std::size_t>(-1) ? std::strlen(data) : size) == wanted;
    }
};

/// The fields of a request as a reader got them.
struct ReadRequest {
    Text to;
    Text from;
    Text req;
    std::int32_t tx_id = 0;
    Text url;
    std::int32_t timeout_sec = 0;
    bool force_new = false;
    Text content_type;
    Text version;
    const void* data = nullptr;
    std::size_t size = 0;
    bool look = false;  ///< whether the reader is to require that all of it is right

    [[nodiscard]] bool routed() const { return from.is(kFrom) && req.is(kReq) && tx_id == kTxId; }
    [[nodiscard]] bool complete() const {
        return routed() && to.is(kTo) && url.is(kUrl) && timeout_sec == kTimeoutSec && force_new == kForceNew &&
               content_type.is(kContentType) && version.is(kVersion) && size == sizeof(kPostData) &&
               std::memcmp(data, kPostData, size) == 0;
    }
};

/// A loop over reads, the first of which is looked at, as long as the reader is there.
template <typename Read>
Loop reading(Read read) {
    ReadRequest first;
    first.look = true;
    read(&first);
    return [read](std::size_t n) {
        ReadRequest request;
        for (; n > 0; --n) {
            read(&request);
            keep(request);
        }
    };
}

}  // namespace bench
