#include "support/BootClock.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <ctime>

namespace {

constexpr int64_t kNanosecondsPerSecond = 1'000'000'000;

constexpr int64_t kBroken = -1;

/// 0 while the clock runs.
std::atomic<int64_t> stoppedAt{0};

}  // namespace

extern "C" {

int __real_clock_gettime(clockid_t clock, timespec* time);

int __wrap_clock_gettime(clockid_t clock, timespec* time) {
    const int64_t stopped = stoppedAt;
    if (clock != CLOCK_BOOTTIME || stopped == 0) {
        return __real_clock_gettime(clock, time);
    }
    if (stopped == kBroken) {
        errno = EINVAL;
        return -1;
    }
    *time = {stopped / kNanosecondsPerSecond, stopped % kNanosecondsPerSecond};
    return 0;
}

}  // extern "C"

namespace test_support {

BootClock::BootClock() {
    timespec now{};
    (void)__real_clock_gettime(CLOCK_BOOTTIME, &now);
    stoppedAt = now.tv_sec * kNanosecondsPerSecond + now.tv_nsec;
}

BootClock::~BootClock() {
    stoppedAt = 0;
}

void BootClock::advance(double seconds) {
    stoppedAt += static_cast<int64_t>(seconds * static_cast<double>(kNanosecondsPerSecond));
}

void BootClock::fail() {
    stoppedAt = kBroken;
}

}  // namespace test_support
