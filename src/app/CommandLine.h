#pragma once

#include <cstdint>

namespace zv_loc_fw {

struct CommandLine {
    /// Greater than 0: the process may end itself when the device has been idle (its low 16 bits are the timer's mask).
    int32_t launchTriggerMask = 0;
};

/// Reads the three long options, each with an argument: "cairn-modem-cell" and "cairn-wifi" (no effect) and
/// "launch-trigger-mask" (hexadecimal). Anything else is skipped, with getopt_long's own message on stderr; there is no
/// "--help". A mask that is no number, or beyond 64 bits, ends the process by abort(). Main thread.
[[nodiscard]] CommandLine parseCommandLine(int argc, char** argv);

}  // namespace zv_loc_fw
