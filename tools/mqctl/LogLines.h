#pragma once

#include <string>

namespace mqctl {

/// The framework under mqctl writes log lines; they must not mix with what mqctl says. Shown on standard error with -v
/// alone.
void showLogLines(bool show);

/// The text of the last one without its place in the source: why a message was dropped. Any thread.
[[nodiscard]] std::string lastLogLine();

}  // namespace mqctl
