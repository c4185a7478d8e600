#include "transfer/ResponseCapture.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "base/checked.h"
#include "base/log.h"

namespace zv_loc_fw {

namespace {

constexpr char kRetryAfter[] = "Retry-After:";
constexpr size_t kRetryAfterLength = sizeof(kRetryAfter) - 1;

/// @return 0; 102 beyond 64 bits; 103 conversion error, logged; 105 beyond 32 bits
int toInt32(const char* name, const char* text, int32_t* value) {
    errno = 0;
    char* end = nullptr;
    const long long number = std::strtoll(text, &end, 10);  // the line end behind the number does not matter
    const int error = end != text ? errno : 0;              // no digits count as 0, whatever the library says of them
    if (number == std::numeric_limits<long long>::max() || number == std::numeric_limits<long long>::min()) {
        return 102;
    }
    if (error != 0) {
        log_error(name, "conversion error [%d] [%s]", error, std::strerror(error));
        return 103;
    }
    if (number > std::numeric_limits<int32_t>::max() || number < std::numeric_limits<int32_t>::min()) {
        return 105;
    }
    *value = static_cast<int32_t>(number);
    return 0;
}

}  // namespace

bool ResponseCapture::begin() {
    mRetryAfterSeen = false;
    mRetryAfterSeconds = 0;
    mBody.reset(new (std::nothrow) OutMemoryStreamImpl);
    return mBody != nullptr;
}

void ResponseCapture::expectBody(int64_t length) {
    if (mBody != nullptr && length > 0 && length <= static_cast<int64_t>(kMaxBodySize)) {
        // One byte more: append() grows a stream that would become quite full. Without memory it grows as it goes.
        (void)mBody->reserve(static_cast<size_t>(length) + 1);
    }
}

size_t ResponseCapture::takeBody(const char* data, size_t size, size_t count) {
    if (mBody == nullptr) {
        log_error(mName, "dataHandler: null data buffer");
        return 0;
    }
    const size_t total = checkedMul(size, count);
    if (total == 0) {
        log_warning(mName, "dataHandler : empty file content");
        return 0;
    }
    if (total > kMaxBodySize - mBody->getSize() || mBody->append(data, total) != 0) {
        log_warning(mName, "dataHandler : append failed");
        return 0;
    }
    return total;
}

size_t ResponseCapture::takeHeader(const char* line, size_t size, size_t count) {
    const size_t total = checkedMul(size, count);
    if (total > kRetryAfterLength && line != nullptr && !mRetryAfterSeen &&
        std::memcmp(line, kRetryAfter, kRetryAfterLength) == 0) {
        captureRetryAfter(line + kRetryAfterLength, total - kRetryAfterLength);
    }
    return total;
}

void ResponseCapture::captureRetryAfter(const char* value, size_t length) {
    const std::unique_ptr<char[]> text(new (std::nothrow) char[length + 1]);
    if (text == nullptr) {
        log_error(mName, "headerHandler: memory allocation error");
        return;
    }
    std::memcpy(text.get(), value, length);
    text[length] = '\0';
    const int result = toInt32(mName, text.get(), &mRetryAfterSeconds);
    if (result != 0) {
        log_error(mName, "_str_to_int failed. error %d", result);
        return;
    }
    mRetryAfterSeen = true;
}

}  // namespace zv_loc_fw
