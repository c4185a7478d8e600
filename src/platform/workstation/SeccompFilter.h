#pragma once

#include <linux/filter.h>

#include <vector>

#include "platform/workstation/SeccompPolicy.h"

namespace platform {

/// The program by which the kernel judges each system call: what the rules say, and a trap for every call that they do
/// not name. A call of an architecture but this one ends the process.
/// @return empty when it would be longer than the kernel takes
std::vector<sock_filter> makeSeccompFilter(const SeccompPolicy::Rules& rules,
                                           SeccompArchitecture architecture = kSeccompNative);

}  // namespace platform
