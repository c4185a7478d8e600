#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace mqctl::report {

/// A line's time as it stands in the log. Most forms leave the year and the zone out.
struct LogStamp {
    std::optional<int64_t> epochUs;  ///< the others are not used then
    int year = 0;                    ///< 0: not in the line
    int month = 0;                   ///< 1 to 12; 0: not even a date
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    int32_t microsecond = 0;
    bool wholeSeconds = true;
    std::optional<int> zoneMinutes;  ///< east of Greenwich

    [[nodiscard]] int secondOfDay() const { return (hour * 60 + minute) * 60 + second; }
};

/// Takes a stamp off the front of `text`: seconds since the epoch, "2024-01-31 12:03:01.123 +0100" (with T or blank),
/// "01-31 12:03:01.123", "Jan 31 12:03:01", "12:03:01.123". Leaves `text` as it is when there is none.
std::optional<LogStamp> takeStamp(std::string_view* text);

/// Turns stamps into microseconds since the epoch, in the order of the log: a step back from December to January is a
/// new year, and the last year is the latest one that is not in the future. Local time where no zone is given.
std::vector<int64_t> resolveStamps(const std::vector<LogStamp>& stamps, std::time_t now);

/// The local time of day of a resolved stamp, with the date when asked; fractions as many digits as asked.
std::string timeText(int64_t us, int digits, bool withDate = false);
/// "2024-01-31T12:03:01.123+01:00"
std::string isoTime(int64_t us);

}  // namespace mqctl::report
