#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/posutil/PosIpc.h"
#include "postcard/OutMemoryStreamImpl.h"

namespace zv_loc_fw {

/// Bytes of a response's body: what fits into one message beside the other fields of its card. A response that grows
/// beyond it fails like one that memory cannot hold.
inline constexpr size_t kMaxBodySize = pos_util::kPosIpcMaxMessage - 64 * 1024;

/// What one transfer leaves behind: the body, and the first Retry-After header. Worker's thread.
class ResponseCapture {
public:
    /// @param name tag of the log lines, not copied
    explicit ResponseCapture(const char* name) : mName(name) {}

    /// Forgets the last response and makes an empty body. @return false without memory
    [[nodiscard]] bool begin();
    /// Releases the body.
    void end() { mBody.reset(); }

    /// Makes room for a body of that many bytes in one go, if the server tells the truth; what it says is not relied on.
    void expectBody(int64_t length);
    /// libcurl's body chunk of size times count bytes.
    /// @return bytes taken; 0 ends the transfer with a write error: no body begun,
    /// nothing in the chunk, no memory for it
    ///         or a body beyond kMaxBodySize
    size_t takeBody(const char* data, size_t size, size_t count);
    /// libcurl's header line, not terminated. Headers never stop a transfer. @return size times count
    /// "Retry-After:" counts in this spelling only, the first of a request (a followed redirect's included); a date
    /// instead of seconds counts as 0.
    size_t takeHeader(const char* line, size_t size, size_t count);

    /// Null before begin and after end.
    [[nodiscard]] const OutMemoryStream* body() const { return mBody.get(); }
    [[nodiscard]] bool retryAfterSeen() const { return mRetryAfterSeen; }
    [[nodiscard]] int32_t retryAfterSeconds() const { return mRetryAfterSeconds; }

private:
    void captureRetryAfter(const char* value, size_t length);

    const char* const mName;
    std::unique_ptr<OutMemoryStreamImpl> mBody;
    bool mRetryAfterSeen = false;
    int32_t mRetryAfterSeconds = 0;
};

}  // namespace zv_loc_fw
