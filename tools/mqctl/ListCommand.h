#pragma once

namespace mqctl {

/// Prints the participants of the socket directory. @return an ExitCode
int runList();

}  // namespace mqctl
