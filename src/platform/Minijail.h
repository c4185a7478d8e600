#pragma once

#include <string>

namespace android {

/// Confines the calling process, and every thread it will start, to the system calls that two seccomp policies allow.
/// On the device this is the platform's. Main thread, before any other thread exists.
///
/// On a workstation: no base policy file, no confinement, and one log line that says so; a policy that cannot be
/// understood or loaded is logged with file and line, and the process ends by abort().
/// @param additional_policy_path may be empty, and the file may be absent
void SetUpMinijail(const std::string& base_policy_path, const std::string& additional_policy_path);

}  // namespace android
