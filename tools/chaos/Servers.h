#pragma once

#include <string>

#include "support/CertificateAuthority.h"
#include "support/HttpServer.h"
#include "support/RawServer.h"

namespace chaos {

/// Everything that the agent is sent to: good servers, and those that misbehave in every phase. Writes the device's
/// authority, key and certificate.
///
/// Paths of `raw`, quick ones:
///
///     /reset, /reset-head, /reset-body   a reset after the request, in the answer's head, in its body
///     /empty, /cut-head, /cut-body       an orderly end in the same places
///     /endless-line                      a header line without an end
///     /garbage-status, /bad-length, /bad-chunk
///     /loop, /to-file, /to-ftp           redirects that lead nowhere
///     /drip, /short-length, /chunked, /until-close   answers of their own kind that are to be taken, see kept()
///
/// slow ones, which end when the agent's patience does:
///
///     /stall, /stall-head, /stall-body, /drip-slow, /endless-head
class Servers {
public:
    Servers();
    ~Servers();
    Servers(const Servers&) = delete;
    Servers& operator=(const Servers&) = delete;

    /// The body that the agent has to take from a path of `raw` that is to succeed.
    [[nodiscard]] static std::string kept(const std::string& path);
    [[nodiscard]] std::string refusedUrl() const { return "http://127.0.0.1:" + std::to_string(mRefusedPort) + "/"; }

private:
    test_support::CertificateAuthority mAuthority;
    test_support::CertificateAuthority mStranger{"A Stranger"};
    int mRefused = -1;
    int mRefusedPort = 0;

public:
    test_support::HttpServer http;
    test_support::HttpServer https{{mAuthority.issueServer()}};
    test_support::HttpServer expired{
        {mAuthority.issueServer({"localhost"}, test_support::CertificateAuthority::Validity::Expired)}};
    test_support::HttpServer unknown{{mStranger.issueServer()}};
    test_support::HttpServer wrongName{{mAuthority.issueServer({"other.example"})}};
    /// Want the device's certificate; the second one's authority is not its own.
    test_support::HttpServer service{{mAuthority.issueServer(), mAuthority.pem()}};
    test_support::HttpServer refusingService{{mAuthority.issueServer(), mStranger.pem()}};
    test_support::RawServer raw;
    /// Reset, and answer with no sense, before anything was asked.
    test_support::RawServer resetting;
    test_support::RawServer blurting;
};

}  // namespace chaos
