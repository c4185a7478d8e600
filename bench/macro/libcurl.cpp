// libcurl in the client's own process: the limit.

#include "macro/libcurl.h"

#include "macro/macro.h"

namespace bench {

namespace {

std::size_t take(char* data, std::size_t size, std::size_t count, void* body) {
    static_cast<std::string*>(body)->append(data, size * count);
    return size * count;
}

class InProcess : public Getter {
public:
    explicit InProcess(const Stage& stage) { mCurl.trust(stage.caFile); }
    std::size_t get(const std::string& url) override {
        std::string body;
        mCurl.get(url, &body);
        return body.size();
    }

protected:
    Libcurl mCurl;
};

class NewConnection : public InProcess {
public:
    /// @param builtIn with the directory of authorities that libcurl was built with, too
    NewConnection(const Stage& stage, bool builtIn) : InProcess(stage) {
        curl_easy_setopt(mCurl.handle(), CURLOPT_FRESH_CONNECT, 1L);
        if (builtIn) {
            curl_easy_setopt(mCurl.handle(), CURLOPT_CAPATH, "/etc/ssl/certs");
        }
    }
};

template <bool kBuiltIn>
std::unique_ptr<Getter> makeNewConnection(const Stage& stage, std::string* /*why*/) {
    return std::make_unique<NewConnection>(stage, kBuiltIn);
}

const RegisterExchange kRows[] = {
    RegisterExchange(
        gettingRow("libcurl in process", kEverywhere,
                   [](const Stage& stage, std::string* /*why*/) { return std::make_unique<InProcess>(stage); })),
    RegisterExchange(gettingRow("libcurl in process", {"connection/https"}, makeNewConnection<false>)),
    RegisterExchange(gettingRow("libcurl in process, CA directory too", {"connection/https"}, makeNewConnection<true>)),
};

}  // namespace

Libcurl::Libcurl() : mHandle(curl_easy_init()) {
    curl_easy_setopt(mHandle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(mHandle, CURLOPT_TIMEOUT, 60L);
    curl_easy_setopt(mHandle, CURLOPT_WRITEFUNCTION, &take);
}

Libcurl::~Libcurl() {
    curl_easy_cleanup(mHandle);
}

void Libcurl::trust(const std::string& caFile) {
    curl_easy_setopt(mHandle, CURLOPT_CAINFO, caFile.c_str());
    curl_easy_setopt(mHandle, CURLOPT_CAPATH, nullptr);
}

void Libcurl::get(const std::string& url, std::string* body) {
    body->clear();
    curl_easy_setopt(mHandle, CURLOPT_WRITEDATA, body);
    curl_easy_setopt(mHandle, CURLOPT_URL, url.c_str());
    if (const CURLcode result = curl_easy_perform(mHandle); result != CURLE_OK) {
        die(std::string("libcurl: ") + curl_easy_strerror(result));
    }
}

}  // namespace bench
