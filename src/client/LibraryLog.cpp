#include "platform/AndroidLog.h"

namespace platform {

/// In the agent this opens the log for lines of every priority. A library leaves that threshold to its program. Being
/// among the library's own objects, this one is taken before the platform's.
void prepareAndroidLog() {}

}  // namespace platform
