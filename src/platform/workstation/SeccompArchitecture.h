#pragma once

#include <linux/audit.h>

#include <cstdint>

namespace platform {

/// How the kernel names the kind of processor that a system call's number is meant for: AUDIT_ARCH_X86_64 and its like.
using SeccompArchitecture = uint32_t;

/// This machine's.
#if defined(__x86_64__)
inline constexpr SeccompArchitecture kSeccompNative = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
inline constexpr SeccompArchitecture kSeccompNative = AUDIT_ARCH_AARCH64;
#else
#error "No seccomp architecture known for this processor"
#endif

}  // namespace platform
