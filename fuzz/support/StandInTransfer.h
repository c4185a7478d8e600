#pragma once

#include <curl/curl.h>

#include <cstdint>
#include <string>

namespace fuzz {

/// What a server and the network do to the next transfers, in place of libcurl's own transfer: no network is used. A
/// target wraps curl_easy_setopt, curl_easy_perform and curl_easy_getinfo, so that the options are libcurl's own, and
/// the transfer only calls back as libcurl would.
///
/// The script is a row of steps: header lines, pieces of the body, questions for progress; and how it ends.
class StandInTransfer {
public:
    /// Before the transfers begin.
    static void setScript(std::string steps);
    /// A transfer that begins while they are held goes on only when they are let go, or its worker interrupts it.
    static void hold(bool held);

    /// What came of the last transfer, for a comparison. The thread that performed it.
    struct Outcome {
        CURLcode code = CURLE_OK;
        long status = 0;
        std::string body;
        bool retryAfterSeen = false;
        int32_t retryAfterSeconds = 0;
        std::string error;
    };
    static const Outcome& outcome();
};

}  // namespace fuzz
