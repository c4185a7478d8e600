#pragma once

#include <string>

namespace mqctl {

/// Reads a whole file, or standard input when the path is "-".
/// @param error out: "PATH: reason" when false is returned
[[nodiscard]] bool readWholeFile(const std::string& path, std::string* content, std::string* error);

/// Makes or replaces a file.
[[nodiscard]] bool writeWholeFile(const std::string& path, const void* data, size_t size, std::string* error);

}  // namespace mqctl
