#pragma once

#include <string>

namespace mqctl {

/// The time of day, "12:03:01.250".
[[nodiscard]] std::string localTime();

}  // namespace mqctl
