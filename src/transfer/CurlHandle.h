#pragma once

#include <curl/curl.h>

#include <memory>

namespace zv_loc_fw {

struct CurlEasyDeleter {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
using CurlEasyPtr = std::unique_ptr<CURL, CurlEasyDeleter>;

struct CurlListDeleter {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using CurlListPtr = std::unique_ptr<curl_slist, CurlListDeleter>;

/// Sets options step by step, each with the code that its caller wants for a failure: the first that fails decides the
/// result, and those after it are not set. The overloads pass what libcurl's variadic call expects: an int where it
/// takes a long would be undefined, and no compiler would say so.
class CurlOptions {
public:
    explicit CurlOptions(CURL* handle) : mHandle(handle) {}

    void set(int code, CURLoption option, long value) { step(code, option, value); }
    void set(int code, CURLoption option, const char* text) { step(code, option, text); }
    void set(int code, CURLoption option, void* pointer) { step(code, option, pointer); }
    void set(int code, CURLoption option, curl_slist* list) { step(code, option, list); }
    void set(int code, CURLoption option, curl_write_callback callback) { step(code, option, callback); }
    void set(int code, CURLoption option, curl_xferinfo_callback callback) { step(code, option, callback); }
    void set(int code, CURLoption option, curl_opensocket_callback callback) { step(code, option, callback); }
    void set(int code, CURLoption option, curl_closesocket_callback callback) { step(code, option, callback); }

    /// As set, for options that not every libcurl or TLS library has: those do without.
    template <typename T>
    void setIfKnown(int code, CURLoption option, T value) {
        if (mResult != 0) {
            return;
        }
        const CURLcode result = curl_easy_setopt(mHandle, option, value);
        if (result != CURLE_OK && result != CURLE_UNKNOWN_OPTION && result != CURLE_NOT_BUILT_IN) {
            mResult = code;
        }
    }

    /// 0, or the code of the first option that could not be set.
    [[nodiscard]] int result() const { return mResult; }

private:
    template <typename T>
    void step(int code, CURLoption option, T value) {
        if (mResult == 0 && curl_easy_setopt(mHandle, option, value) != CURLE_OK) {
            mResult = code;
        }
    }

    CURL* mHandle;
    int mResult = 0;
};

}  // namespace zv_loc_fw
