#include "platform/Minijail.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <initializer_list>
#include <string>

#include "support/LogCapture.h"
#include "support/files.h"

#ifdef COUNT_LINES
extern "C" void __gcov_dump();
#endif

namespace android {
namespace {

/// What a child of these tests does, what a sanitizer or the count of covered lines needs included.
const std::string kBase =
    "openat: 1\nclose: 1\nread: 1\nlseek: 1\nfcntl: 1\nnewfstatat: 1\nbrk: 1\ngetrandom: 1\numask: 1\n"
    "write: 1\nexit_group: 1\nrt_sigaction: 1\nrt_sigprocmask: 1\nrt_sigreturn: 1\ngetpid: 1\ngettid: 1\ntgkill: 1\n"
    "mmap: 1\nmunmap: 1\nmadvise: 1\nfutex: 1\nsched_yield: 1\nsigaltstack: 1\n";

/// Ends a child without anything that a runtime does at exit.
[[noreturn]] void leave(long status) {
#ifdef COUNT_LINES
    __gcov_dump();
#endif
    for (;;) {
        syscall(SYS_exit_group, status);
    }
}

TEST(Minijail, WithoutPolicyNothingIsConfined) {
    const test_support::LogCapture log;
    const int before = prctl(PR_GET_SECCOMP, 0, 0, 0, 0);  // a container's own, or an emulator that knows of none
    SetUpMinijail("/nowhere/absent", "");
    EXPECT_TRUE(log.contains("this process is not confined"));
    EXPECT_EQ(prctl(PR_GET_SECCOMP, 0, 0, 0, 0), before);
}

TEST(MinijailDeathTest, BothPoliciesAreObeyed) {
    const test_support::TempDir dir;
    const std::string base = dir.write("base", kBase + "getuid: return ENOTTY\npread64: arg0 == 1\n");
    const std::string additional = dir.write("additional", "getppid: 1\npread64: arg0 == 0xffffffff\n@include more\n");
    dir.write("more", "getgid: return 4095\n");
    EXPECT_EXIT(
        {
            SetUpMinijail(base, additional);
            const bool as_told = syscall(SYS_getppid) > 0 && syscall(SYS_getuid) == -1 && errno == ENOTTY &&
                                 syscall(SYS_getgid) == -1 && errno == 4095 &&
                                 syscall(SYS_pread64, 0xffffffffU, 0L, 0L, 0L) == -1 && errno == EBADF;
            leave(as_told ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EXIT(
        {
            SetUpMinijail(base, "");
            syscall(SYS_getppid);
            leave(1);
        },
        testing::KilledBySignal(SIGSYS), "seccomp: system call " + std::to_string(SYS_getppid) + " is not allowed");
}

TEST(MinijailDeathTest, KernelJudgesArgumentsAsThePolicySays) {
    constexpr long kHigh = 0x100000000;
    const struct {
        const char* expression;
        std::initializer_list<long> allowed;
        std::initializer_list<long> denied;
    } cases[] = {
        {"arg1 == 0x100000005", {kHigh + 5}, {5, kHigh + 4, kHigh, 0}},
        {"arg1 != 0x100000005", {5, kHigh + 4, kHigh, 0, -1}, {kHigh + 5}},
        {"arg1 < 0x100000005", {0, 9, kHigh + 4}, {kHigh + 5, kHigh + 6, 2 * kHigh, -1}},
        {"arg1 <= 0x100000005", {0, 9, kHigh + 5}, {kHigh + 6, 2 * kHigh, -1}},
        {"arg1 > 0x100000005", {kHigh + 6, 2 * kHigh, -1}, {0, 9, kHigh + 5}},
        {"arg1 >= 0x100000005", {kHigh + 5, 2 * kHigh, -1}, {0, 9, kHigh + 4}},
        {"arg1 & 0x100000006", {2, 4, kHigh, 7, -1}, {0, 1, 8, 2 * kHigh}},
        {"arg1 in 0x100000006", {0, 2, 6, kHigh + 4}, {1, 7, 2 * kHigh, -1}},
        {"arg1 > 2 && arg1 < 9 && arg1 != 5 || arg1 == 20 && arg2 == 0", {3, 4, 6, 8, 20}, {2, 5, 9, 0, 21}},
        {"arg1 == 20 && arg2 == 1 || arg1 == 7", {7}, {20}},
    };
    const test_support::TempDir dir;
    for (const auto& each : cases) {
        const std::string base = dir.write("base", kBase + "pread64: " + each.expression + "; return ENOTTY\n");
        EXPECT_EXIT(
            {
                SetUpMinijail(base, "");
                int wrong = 0;
                for (const long value : each.allowed) {
                    wrong += syscall(SYS_pread64, -1L, value, 0L, 0L) == -1 && errno == EBADF ? 0 : 1;
                }
                for (const long value : each.denied) {
                    wrong += syscall(SYS_pread64, -1L, value, 0L, 0L) == -1 && errno == ENOTTY ? 0 : 1;
                }
                leave(wrong);
            },
            testing::ExitedWithCode(0), "")
            << each.expression;
    }
}

TEST(MinijailDeathTest, PolicyThatCannotBeUsedAborts) {
    const test_support::TempDir dir;
    const std::string good = dir.write("good", kBase);
    const std::string bad = dir.write("bad", "write: 1\nnonsense\n");
    EXPECT_EXIT(SetUpMinijail(good, bad), testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(SetUpMinijail(dir.path(), ""), testing::KilledBySignal(SIGABRT), "");
}

}  // namespace
}  // namespace android
