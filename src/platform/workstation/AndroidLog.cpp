#include "platform/AndroidLog.h"

// Weak: a program that brings its own __android_log_print may do without liblog, and older libraries lack the call.
extern "C" int __android_log_set_minimum_priority(int priority)  // NOLINT(readability-redundant-declaration): now weak
    __attribute__((weak));

namespace platform {

void prepareAndroidLog() {
    // A host build of liblog drops debug and verbose lines until it is told otherwise.
    if (__android_log_set_minimum_priority != nullptr) {
        __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    }
}

}  // namespace platform
