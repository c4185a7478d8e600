#include "support/StandInTransfer.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>
#include <thread>
#include <utility>

#include "support/Input.h"

namespace fuzz {

namespace {

constexpr std::string_view kRetryAfter = "Retry-After:";

/// Enough for a body that grows, few enough for many inputs in a second.
constexpr size_t kMaxLargePieces = 16;

/// What the handle was told.
struct Options {
    curl_write_callback takeBody = nullptr;
    void* bodyUser = nullptr;
    curl_write_callback takeHeader = nullptr;
    void* headerUser = nullptr;
    curl_xferinfo_callback ask = nullptr;
    void* askUser = nullptr;
    char* error = nullptr;
};

std::string& script() {
    static std::string text;
    return text;
}

std::atomic<bool> transfers_held{false};

// Each worker has a thread and a handle of its own.
thread_local Options options;
thread_local StandInTransfer::Outcome last;

/// An exact copy, so that a sanitizer sees what reads beyond it.
size_t callBack(curl_write_callback callback, std::string_view bytes, size_t size, size_t count, void* user) {
    const std::unique_ptr<char[]> copy(new char[std::max<size_t>(bytes.size(), 1)]);
    std::copy(bytes.begin(), bytes.end(), copy.get());
    return callback(copy.get(), size, count, user);
}

/// The first header of that spelling whose number fits.
void noteRetryAfter(std::string_view line) {
    if (last.retryAfterSeen || line.size() <= kRetryAfter.size() || !line.starts_with(kRetryAfter)) {
        return;
    }
    const std::string value(line.substr(kRetryAfter.size()));
    errno = 0;
    const long long number = std::strtoll(value.c_str(), nullptr, 10);
    if (number >= std::numeric_limits<int32_t>::min() && number <= std::numeric_limits<int32_t>::max()) {
        last.retryAfterSeen = true;
        last.retryAfterSeconds = static_cast<int32_t>(number);
    }
}

CURLcode takeHeader(std::string_view line) {
    const size_t taken = callBack(options.takeHeader, line, 1, line.size(), options.headerUser);
    FUZZ_CHECK(taken == line.size());  // headers never stop a transfer
    noteRetryAfter(line);
    return CURLE_OK;
}

CURLcode takeBody(std::string_view bytes, size_t size) {
    const size_t taken = callBack(options.takeBody, bytes, size, bytes.size() / size, options.bodyUser);
    FUZZ_CHECK(taken == bytes.size());
    last.body += bytes;
    return bytes.empty() ? CURLE_WRITE_ERROR : CURLE_OK;
}

CURLcode fail(CURLcode code) {
    last.error = curl_easy_strerror(code);
    last.error.resize(std::min<size_t>(last.error.size(), CURL_ERROR_SIZE - 1));
    std::memcpy(options.error, last.error.c_str(), last.error.size() + 1);
    return code;
}

CURLcode ask() {
    return options.ask(options.askUser, 0, 0, 0, 0) == 0 ? CURLE_OK : CURLE_ABORTED_BY_CALLBACK;
}

CURLcode waitUntilLetGo() {
    CURLcode code = CURLE_OK;
    while (transfers_held && code == CURLE_OK) {
        std::this_thread::sleep_for(std::chrono::microseconds(50));
        code = ask();
    }
    return code;
}

CURLcode perform() {
    last = {};
    Input input(reinterpret_cast<const uint8_t*>(script().data()), script().size());
    const auto status = input.number<uint16_t>();
    const auto end = input.number<uint8_t>();
    size_t large_pieces = 0;
    CURLcode code = waitUntilLetGo();
    while (!input.empty() && code == CURLE_OK) {
        const auto step = input.number<uint8_t>();
        switch (step % 8) {
            case 0:
            case 1:
                code = takeHeader(input.piece());
                break;
            case 2:
                code = takeHeader(std::string(kRetryAfter) + std::string(input.piece()));
                break;
            case 3:
            case 4:
                code = takeBody(input.piece(), 1);
                break;
            case 5: {
                const std::string_view piece = input.piece();
                code = takeBody(piece.substr(0, piece.size() / 4 * 4), 4);
                break;
            }
            case 6:
                if (++large_pieces > kMaxLargePieces) {
                    break;
                }
                code = takeBody(std::string(CURL_MAX_WRITE_SIZE, static_cast<char>(step)), 1);
                break;
            default:
                code = ask();
        }
    }
    if (code == CURLE_OK && end < 100) {
        code = static_cast<CURLcode>(end);
    }
    last.status = status % 1000;
    last.code = code == CURLE_OK ? CURLE_OK : fail(code);
    return code;
}

}  // namespace

void StandInTransfer::setScript(std::string steps) {
    script() = std::move(steps);
}

void StandInTransfer::hold(bool held) {
    transfers_held = held;
}

const StandInTransfer::Outcome& StandInTransfer::outcome() {
    return last;
}

}  // namespace fuzz

#undef curl_easy_setopt
#undef curl_easy_getinfo

extern "C" CURLcode __real_curl_easy_setopt(CURL* handle, CURLoption option, ...);
extern "C" CURLcode __real_curl_easy_getinfo(CURL* handle, CURLINFO info, ...);

// An int, as an enumeration cannot stand before "...". Every value is a long or a pointer: the same size, passed on as it came.
extern "C" CURLcode __wrap_curl_easy_setopt(CURL* handle, int option, ...) {
    static_assert(sizeof(long) == sizeof(void*));
    va_list args;
    va_start(args, option);
    void* const value = va_arg(args, void*);
    va_end(args);
    switch (option) {
        case CURLOPT_WRITEFUNCTION:
            fuzz::options.takeBody = reinterpret_cast<curl_write_callback>(value);
            break;
        case CURLOPT_WRITEDATA:
            fuzz::options.bodyUser = value;
            break;
        case CURLOPT_HEADERFUNCTION:
            fuzz::options.takeHeader = reinterpret_cast<curl_write_callback>(value);
            break;
        case CURLOPT_HEADERDATA:
            fuzz::options.headerUser = value;
            break;
        case CURLOPT_XFERINFOFUNCTION:
            fuzz::options.ask = reinterpret_cast<curl_xferinfo_callback>(value);
            break;
        case CURLOPT_XFERINFODATA:
            fuzz::options.askUser = value;
            break;
        case CURLOPT_ERRORBUFFER:
            fuzz::options.error = static_cast<char*>(value);
            break;
        default:
            break;
    }
    return __real_curl_easy_setopt(handle, static_cast<CURLoption>(option), value);
}

extern "C" CURLcode __wrap_curl_easy_perform(CURL* /*handle*/) {
    return fuzz::perform();
}

extern "C" CURLcode __wrap_curl_easy_getinfo(CURL* handle, int info, ...) {
    va_list args;
    va_start(args, info);
    void* const out = va_arg(args, void*);
    va_end(args);
    if (info == CURLINFO_RESPONSE_CODE) {
        *static_cast<long*>(out) = fuzz::last.status;
        return CURLE_OK;
    }
    return __real_curl_easy_getinfo(handle, static_cast<CURLINFO>(info), out);
}
