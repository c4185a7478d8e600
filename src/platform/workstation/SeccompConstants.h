#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace platform {

/// The names that policies use for arguments of system calls, as this machine numbers them.
std::optional<uint64_t> seccompConstant(std::string_view name);

/// "EPERM" and its like.
std::optional<int> seccompErrorNumber(std::string_view name);

}  // namespace platform
