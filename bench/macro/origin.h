#pragma once

#include <string>

#include "macro/process.h"

namespace bench {

/// The web server that everybody asks: fixed answers, kept connections, HTTP and HTTPS, a process of its own.
///
///   /bytes/N   N bytes
///   /held      200 bytes, as soon as release() has been called
class Origin {
public:
    /// @param certificateFile, keyFile as PEM texts
    Origin(const std::string& certificateFile, const std::string& keyFile);
    ~Origin();
    Origin(const Origin&) = delete;
    Origin& operator=(const Origin&) = delete;

    [[nodiscard]] std::string http(const std::string& path) const;
    [[nodiscard]] std::string https(const std::string& path) const;
    /// Lets one request for /held have its answer.
    void release();

private:
    int mHttpPort = 0;
    int mHttpsPort = 0;
    int mRelease = -1;
    Process mProcess;
};

}  // namespace bench
