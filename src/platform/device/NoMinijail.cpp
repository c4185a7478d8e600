#include <android/log.h>

#include "platform/Minijail.h"

namespace android {

/// For builds apart from the platform's tree, such as one with the NDK: the platform's SetUpMinijail takes strings of
/// the platform's own C++ library, which no other can make. To bring a board up; not to be shipped.
void SetUpMinijail(const std::string& base_policy_path, const std::string& /*additional_policy_path*/) {
    __android_log_print(ANDROID_LOG_WARN, "Minijail", "built without the platform: not confined, whatever %s says",
                        base_policy_path.c_str());
}

}  // namespace android
