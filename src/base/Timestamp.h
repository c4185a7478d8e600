#pragma once

#include <cstdint>
#include <ctime>

namespace zv_loc_fw {

/// A signed span of time. An invalid one means "no time limit" to waits; arithmetic with it ends the process.
/// A value type without shared state: any thread.
class TimeDiff {
public:
    /// An invalid zero span.
    constexpr TimeDiff() = default;
    /// A valid span of whole seconds.
    constexpr explicit TimeDiff(int64_t seconds) : mValid(true), mSeconds(seconds) {}

    /// Adds seconds and nanoseconds, carrying so that nanoseconds stay within 0 to 999999999. Overflow aborts.
    TimeDiff& add(int64_t seconds, int64_t nanoseconds);

    [[nodiscard]] constexpr bool isValid() const { return mValid; }
    [[nodiscard]] constexpr int64_t seconds() const { return mSeconds; }
    [[nodiscard]] constexpr int64_t nanoseconds() const { return mNanoseconds; }

    /// The whole span in seconds, in single precision. Invalid: -1, logged as "get_total_sec failed %d" 2.
    [[nodiscard]] float get_total_sec() const;

private:
    bool mValid = false;
    int64_t mSeconds = 0;
    int64_t mNanoseconds = 0;
};

/// A point in time on one kernel clock. Mixing clocks, or using an invalid stamp in arithmetic, is a programming error
/// and ends the process with status -1 at once (_exit: other threads may be running). A value type: any thread.
class Timestamp {
public:
    /// Reads CLOCK_BOOTTIME, which runs on in suspend; a failure is logged and leaves the stamp invalid.
    /// @param unused has no effect on the clock chosen
    explicit Timestamp(bool unused = true);

    /// Reads the given clock; a failure is logged and leaves the stamp invalid.
    [[nodiscard]] static Timestamp now(int32_t clock_id);
    /// A valid stamp of given value, normalised; for stamps that do not come from a clock.
    [[nodiscard]] static Timestamp at(int32_t clock_id, int64_t seconds, int64_t nanoseconds);

    /// Reads the given clock. A failure is logged and leaves the stamp invalid.
    void reset_to_clock_id(int32_t clock_id);

    [[nodiscard]] bool isValid() const { return mValid; }
    [[nodiscard]] int32_t clockId() const { return mClockId; }
    [[nodiscard]] int64_t seconds() const { return mSeconds; }
    [[nodiscard]] int64_t nanoseconds() const { return mNanoseconds; }

    /// The stamp as the kernel wants deadlines. An invalid stamp is logged as a warning and copied all the same.
    [[nodiscard]] timespec getTimestampPtr() const;

    /// Same clock, later by the span. Invalid operands: _exit(-1), no message. Overflow aborts.
    [[nodiscard]] Timestamp operator+(const TimeDiff& span) const;
    /// The span from other to this, its seconds and nanoseconds narrowed to 32 bits (beyond about 68 years it wraps:
    /// deliberate). A negative result is logged and returned. Invalid operands or different clocks: _exit(-1).
    [[nodiscard]] TimeDiff operator-(const Timestamp& other) const;
    /// Not earlier than other; compared in 64 bits, without a log line. Invalid
    /// operands or different clocks: _exit(-1).
    [[nodiscard]] bool operator>=(const Timestamp& other) const;

private:
    struct Unset {};
    explicit Timestamp(Unset /*tag*/) {}

    bool mValid = false;
    int32_t mClockId = -1;
    int64_t mSeconds = 0;
    int64_t mNanoseconds = 0;
};

}  // namespace zv_loc_fw
