#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/CertificateAuthority.h"

namespace test_support {

/// One request as the server saw it.
struct SeenRequest {
    std::string method;
    std::multimap<std::string, std::string> headers;  // names in lower case
    std::string body;
    /// Connections are told apart by the client's port.
    int clientPort = 0;
    /// The common name of the client's certificate; empty without one.
    std::string clientCertificate;

    [[nodiscard]] std::string header(const std::string& lower_case_name) const;
};

/// A real HTTP or HTTPS server in the test process, on a free port of 127.0.0.1. Routes:
///
///     GET  /                     a greeting
///     GET  /hello                "hello\n"
///     POST /echo                 the body, under its own content type
///     *    /status/N             status N, body "status N\n" (none for 204)
///     GET  /bytes/N              N bytes: 'a' to 'z' over and over
///     GET  /redirect?to=URL&code=N   to a URL (query-encoded), status N or 302
///     GET  /slow?ms=N            "slow\n" after N milliseconds; ends early when the server stops
///     *    /retry-after?value=V  status 503 with "Retry-After: V", body "later\n"
///
/// Every request is recorded. The destructor stops promptly, whatever clients do.
class HttpServer {
public:
    struct Tls {
        Certificate certificate;
        /// PEM of an authority: clients must show a certificate of it. Empty: none is asked for.
        std::string clientAuthority = {};
    };

    HttpServer();
    explicit HttpServer(const Tls& tls);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    /// "http://127.0.0.1:PORT/hello" for "/hello"; https and another host where asked.
    [[nodiscard]] std::string url(const std::string& path, const std::string& host = "127.0.0.1") const;
    [[nodiscard]] std::vector<SeenRequest> requests() const;
    [[nodiscard]] size_t requestCount() const { return requests().size(); }
    /// Waits until that many requests were seen; false after 30 seconds.
    [[nodiscard]] bool waitForRequests(size_t count) const;

private:
    struct Impl;
    std::unique_ptr<Impl> mImpl;
};

}  // namespace test_support
