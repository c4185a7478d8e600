#pragma once

#include <cstdint>
#include <string>

namespace mqctl {

struct TransferOptions {
    std::string url;
    std::string controller;  ///< --to
    std::string data;        ///< of a POST: the text itself, or @FILE
    std::string outputFile;  ///< empty: standard output
    int32_t timeoutSec = 60;
    bool isPost = false;
    bool verbose = false;
    bool force = false;
};

/// Sends one request to a controller and waits for its reply: the body to standard output or the file, everything else
/// to standard error. @return an ExitCode
int runTransfer(const TransferOptions& options);

}  // namespace mqctl
