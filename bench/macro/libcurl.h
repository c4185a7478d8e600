#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <string>

namespace bench {

/// A warm handle of libcurl whose bodies go into a growing text.
class Libcurl {
public:
    Libcurl();
    ~Libcurl();
    Libcurl(const Libcurl&) = delete;
    Libcurl& operator=(const Libcurl&) = delete;

    [[nodiscard]] CURL* handle() const { return mHandle; }
    void trust(const std::string& caFile);
    /// Replaces `body`. Ends the program when that fails.
    void get(const std::string& url, std::string* body);

private:
    CURL* mHandle;
};

}  // namespace bench
