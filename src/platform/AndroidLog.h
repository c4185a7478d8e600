#pragma once

#include <android/log.h>

namespace platform {

/// Called once before the first line, before main: makes the Android log of this machine take lines of every priority.
/// The device's log does so by itself.
void prepareAndroidLog();

}  // namespace platform
