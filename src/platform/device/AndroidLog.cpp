#include "platform/AndroidLog.h"

namespace platform {

/// The log daemon takes every line; its own properties say which it keeps.
void prepareAndroidLog() {}

}  // namespace platform
