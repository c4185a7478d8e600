#include "app/CommandLine.h"

#include <getopt.h>

#include <cerrno>
#include <cstdlib>

namespace zv_loc_fw {

namespace {

constexpr int kIgnored = 1;
constexpr int kLaunchTriggerMask = 2;

constexpr option kOptions[] = {
    {"cairn-modem-cell", required_argument, nullptr, kIgnored},
    {"cairn-wifi", required_argument, nullptr, kIgnored},
    {"launch-trigger-mask", required_argument, nullptr, kLaunchTriggerMask},
    {nullptr, 0, nullptr, 0},
};

/// The low 32 bits of a hexadecimal number; blanks and a sign before it, 0x, and text behind it are accepted.
int32_t parseMask(const char* text) {
    char* end = nullptr;
    errno = 0;
    const unsigned long long mask = std::strtoull(text, &end, 16);
    if (end == text || errno == ERANGE) {
        std::abort();
    }
    return static_cast<int32_t>(static_cast<uint32_t>(mask));
}

}  // namespace

CommandLine parseCommandLine(int argc, char** argv) {
    CommandLine result;
    while (true) {
        const int option = ::getopt_long(argc, argv, "", kOptions, nullptr);  // NOLINT(concurrency-mt-unsafe)
        if (option == -1) {
            return result;
        }
        if (option == kLaunchTriggerMask) {
            result.launchTriggerMask = parseMask(optarg);
        }
    }
}

}  // namespace zv_loc_fw
