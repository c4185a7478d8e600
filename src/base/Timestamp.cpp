#include "base/Timestamp.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/checked.h"
#include "base/log.h"

namespace zv_loc_fw {

namespace {

constexpr char kTag[] = "Timestamp";
constexpr int64_t kNanosecondsPerSecond = 1'000'000'000;

/// Brings nanoseconds into 0 to 999999999 and carries the rest into seconds.
void normalise(int64_t& seconds, int64_t& nanoseconds) {
    int64_t carry = nanoseconds / kNanosecondsPerSecond;
    nanoseconds %= kNanosecondsPerSecond;
    if (nanoseconds < 0) {
        nanoseconds += kNanosecondsPerSecond;
        --carry;
    }
    seconds = checkedAdd(seconds, carry);
}

/// Misuse is a programming error. Other threads may be running, so no destructor runs.
[[noreturn]] void endProcess() {
    _exit(-1);
}

}  // namespace

TimeDiff& TimeDiff::add(int64_t seconds, int64_t nanoseconds) {
    if (!mValid) {
        endProcess();
    }
    mSeconds = checkedAdd(mSeconds, seconds);
    mNanoseconds = checkedAdd(mNanoseconds, nanoseconds);
    normalise(mSeconds, mNanoseconds);
    return *this;
}

float TimeDiff::get_total_sec() const {
    if (!mValid) {
        log_error("TimerDiff", "get_total_sec failed %d", 2);  // "TimerDiff": deliberate
        return -1.0F;
    }
    return static_cast<float>(mSeconds) + static_cast<float>(static_cast<double>(mNanoseconds) / 1e9);
}

Timestamp::Timestamp([[maybe_unused]] bool unused) {
    reset_to_clock_id(CLOCK_BOOTTIME);
}

Timestamp Timestamp::now(int32_t clock_id) {
    Timestamp stamp{Unset{}};
    stamp.reset_to_clock_id(clock_id);
    return stamp;
}

Timestamp Timestamp::at(int32_t clock_id, int64_t seconds, int64_t nanoseconds) {
    Timestamp stamp{Unset{}};
    stamp.mValid = true;
    stamp.mClockId = clock_id;
    stamp.mSeconds = seconds;
    stamp.mNanoseconds = nanoseconds;
    normalise(stamp.mSeconds, stamp.mNanoseconds);
    return stamp;
}

void Timestamp::reset_to_clock_id(int32_t clock_id) {
    *this = Timestamp{Unset{}};
    timespec time{};
    if (clock_gettime(clock_id, &time) != 0) {
        const int error = errno;
        log_error(kTag, "reset_to_clock_id failed: id(%d) errno(%d)(%s)", clock_id, error, std::strerror(error));
        return;
    }
    mValid = true;
    mClockId = clock_id;
    mSeconds = time.tv_sec;
    mNanoseconds = time.tv_nsec;
}

timespec Timestamp::getTimestampPtr() const {
    if (!mValid) {
        log_warning(kTag, "getTimestampPtr timestamp is invalid");
    }
    timespec time{};
    time.tv_sec = static_cast<time_t>(mSeconds);
    time.tv_nsec = static_cast<long>(mNanoseconds);
    return time;
}

Timestamp Timestamp::operator+(const TimeDiff& span) const {
    if (!mValid || !span.isValid()) {
        endProcess();
    }
    return at(mClockId, checkedAdd(mSeconds, span.seconds()), checkedAdd(mNanoseconds, span.nanoseconds()));
}

TimeDiff Timestamp::operator-(const Timestamp& other) const {
    if (!mValid || !other.mValid) {
        endProcess();
    }
    if (mClockId != other.mClockId) {
        log_error(kTag, "operator - ts: my clock id: %d, his clock id: %d", mClockId, other.mClockId);
        endProcess();
    }
    int64_t seconds = checkedSub(mSeconds, other.mSeconds);
    int64_t nanoseconds = checkedSub(mNanoseconds, other.mNanoseconds);
    normalise(seconds, nanoseconds);
    if (seconds < 0) {
        log_error(kTag, "operator - ts returning -ve value probable time rollover: sec:%d/%d/%d, nsec:%d/%d/%d",
                  static_cast<int32_t>(mSeconds), static_cast<int32_t>(other.mSeconds), static_cast<int32_t>(seconds),
                  static_cast<int32_t>(mNanoseconds), static_cast<int32_t>(other.mNanoseconds),
                  static_cast<int32_t>(nanoseconds));
    }
    return TimeDiff(static_cast<int32_t>(seconds)).add(0, static_cast<int32_t>(nanoseconds));
}

bool Timestamp::operator>=(const Timestamp& other) const {
    if (!mValid || !other.mValid) {
        endProcess();
    }
    if (mClockId != other.mClockId) {
        log_error(kTag, "operator >=: my clock id: %d, his clock id: %d", mClockId, other.mClockId);
        endProcess();
    }
    int64_t seconds = checkedSub(mSeconds, other.mSeconds);
    int64_t nanoseconds = checkedSub(mNanoseconds, other.mNanoseconds);
    normalise(seconds, nanoseconds);
    return seconds >= 0;
}

}  // namespace zv_loc_fw
