#include "report/LogStamp.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <tuple>

namespace mqctl::report {

namespace {

constexpr int64_t kUsPerSecond = 1000000;
constexpr std::time_t kDay = 86400;

/// Reads a text from its front; every step says whether it succeeded, and a failed one leaves nothing to rely on.
class Cursor {
public:
    explicit Cursor(std::string_view text) : mText(text) {}

    /// Between `least` and `most` digits.
    bool number(size_t least, size_t most, int* value) {
        size_t length = 0;
        while (length < mText.size() && length < most && isDigit(mText[length])) {
            ++length;
        }
        if (length < least) {
            return false;
        }
        (void)std::from_chars(mText.data(), mText.data() + length, *value);
        mText.remove_prefix(length);
        return true;
    }
    bool one(std::string_view allowed) {
        if (mText.empty() || allowed.find(mText.front()) == std::string_view::npos) {
            return false;
        }
        mText.remove_prefix(1);
        return true;
    }
    void blanks() {
        while (one(" \t")) {
        }
    }
    /// The digits behind a point, as microseconds. @return whether there was a point with a digit
    bool fraction(int32_t* microseconds) {
        if (mText.size() < 2 || (mText[0] != '.' && mText[0] != ',') || !isDigit(mText[1])) {
            return false;
        }
        mText.remove_prefix(1);
        int32_t value = 0;
        int digits = 0;
        while (!mText.empty() && isDigit(mText.front())) {
            if (digits < 6) {
                value = value * 10 + (mText.front() - '0');
                ++digits;
            }
            mText.remove_prefix(1);
        }
        for (; digits < 6; ++digits) {
            value *= 10;
        }
        *microseconds = value;
        return true;
    }
    [[nodiscard]] std::string_view rest() const { return mText; }
    static bool isDigit(char c) { return c >= '0' && c <= '9'; }

private:
    std::string_view mText;
};

bool takeClock(Cursor* cursor, LogStamp* stamp) {
    if (!cursor->number(2, 2, &stamp->hour) || !cursor->one(":") || !cursor->number(2, 2, &stamp->minute) ||
        !cursor->one(":") || !cursor->number(2, 2, &stamp->second)) {
        return false;
    }
    stamp->wholeSeconds = !cursor->fraction(&stamp->microsecond);
    return stamp->hour < 24 && stamp->minute < 60 && stamp->second <= 60;
}

/// "Z", "+01:00", "+0100", with or without a blank before it; nothing is fine, too.
void takeZone(Cursor* cursor, LogStamp* stamp) {
    Cursor trial = *cursor;
    if (trial.one("Z")) {
        stamp->zoneMinutes = 0;
        *cursor = trial;
        return;
    }
    (void)trial.one(" ");
    const bool west = !trial.rest().empty() && trial.rest().front() == '-';
    int hours = 0;
    int minutes = 0;
    if (!trial.one("+-") || !trial.number(2, 2, &hours)) {
        return;
    }
    (void)trial.one(":");
    if (trial.number(2, 2, &minutes)) {
        const int total = hours * 60 + minutes;
        stamp->zoneMinutes = west ? -total : total;
        *cursor = trial;
    }
}

bool takeEpoch(Cursor* cursor, LogStamp* stamp) {
    const std::string_view text = cursor->rest();
    int64_t seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + std::min<size_t>(text.size(), 12), seconds);
    const auto length = static_cast<size_t>(end - text.data());
    if (error != std::errc{} || length < 9 || seconds < 0) {
        return false;
    }
    *cursor = Cursor(text.substr(length));
    stamp->wholeSeconds = !cursor->fraction(&stamp->microsecond);
    stamp->epochUs = seconds * kUsPerSecond + stamp->microsecond;
    return true;
}

bool takeYearFirst(Cursor* cursor, LogStamp* stamp) {
    if (!cursor->number(4, 4, &stamp->year) || !cursor->one("-") || !cursor->number(2, 2, &stamp->month) ||
        !cursor->one("-") || !cursor->number(2, 2, &stamp->day) || !cursor->one("T ") || !takeClock(cursor, stamp)) {
        return false;
    }
    takeZone(cursor, stamp);
    return true;
}

bool takeMonthFirst(Cursor* cursor, LogStamp* stamp) {
    if (!cursor->number(2, 2, &stamp->month) || !cursor->one("-") || !cursor->number(2, 2, &stamp->day) ||
        !cursor->one(" ") || !takeClock(cursor, stamp)) {
        return false;
    }
    takeZone(cursor, stamp);
    return true;
}

bool takeMonthName(Cursor* cursor, LogStamp* stamp) {
    constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
    const std::string_view name = cursor->rest().substr(0, 3);
    const size_t at = name.size() == 3 ? kMonths.find(name) : std::string_view::npos;
    if (at == std::string_view::npos || at % 3 != 0) {
        return false;
    }
    stamp->month = static_cast<int>(at / 3) + 1;
    *cursor = Cursor(cursor->rest().substr(3));
    cursor->blanks();
    return cursor->number(1, 2, &stamp->day) && cursor->one(" ") && takeClock(cursor, stamp);
}

bool plausibleDate(const LogStamp& stamp) {
    return stamp.month >= 0 && stamp.month <= 12 && stamp.day >= 0 && stamp.day <= 31 &&
           (stamp.month == 0) == (stamp.day == 0);
}

int64_t toEpoch(const LogStamp& stamp, int year) {
    std::tm broken{};
    broken.tm_year = year - 1900;
    broken.tm_mon = stamp.month - 1;
    broken.tm_mday = stamp.day;
    broken.tm_hour = stamp.hour;
    broken.tm_min = stamp.minute;
    broken.tm_sec = stamp.second;
    broken.tm_isdst = -1;
    const std::time_t seconds =
        stamp.zoneMinutes ? timegm(&broken) - static_cast<std::time_t>(*stamp.zoneMinutes) * 60 : std::mktime(&broken);
    return static_cast<int64_t>(seconds) * kUsPerSecond + stamp.microsecond;
}

bool lacksYear(const LogStamp& stamp) {
    return !stamp.epochUs && stamp.year == 0;
}

std::tm localTime(int64_t us, int64_t* fraction) {
    int64_t seconds = us / kUsPerSecond;
    *fraction = us % kUsPerSecond;
    if (*fraction < 0) {
        *fraction += kUsPerSecond;
        --seconds;
    }
    const auto when = static_cast<std::time_t>(seconds);
    std::tm broken{};
    (void)localtime_r(&when, &broken);
    return broken;
}

}  // namespace

std::optional<LogStamp> takeStamp(std::string_view* text) {
    constexpr std::array kForms = {takeYearFirst, takeMonthFirst, takeMonthName, takeEpoch, takeClock};
    for (const auto form : kForms) {
        Cursor cursor(*text);
        LogStamp stamp;
        if (form(&cursor, &stamp) && plausibleDate(stamp)) {
            *text = cursor.rest();
            return stamp;
        }
    }
    return std::nullopt;
}

std::vector<int64_t> resolveStamps(const std::vector<LogStamp>& stamps, std::time_t now) {
    // Years relative to the first line's, and the latest line among those without a year.
    std::vector<int> years(stamps.size(), 0);
    const LogStamp* previous = nullptr;
    int year = 0;
    const LogStamp* latest = nullptr;
    int latest_year = 0;
    for (size_t i = 0; i < stamps.size(); ++i) {
        const LogStamp& stamp = stamps[i];
        if (!lacksYear(stamp)) {
            continue;
        }
        if (previous != nullptr && previous->month - stamp.month > 6) {
            ++year;
        } else if (previous != nullptr && stamp.month - previous->month > 6) {
            --year;  // a line of the old year came late
        }
        previous = &stamp;
        years[i] = year;
        const auto key = [](int y, const LogStamp& s) { return std::tuple(y, s.month, s.day, s.secondOfDay()); };
        if (latest == nullptr || key(year, stamp) > key(latest_year, *latest)) {
            latest = &stamp;
            latest_year = year;
        }
    }
    std::tm today{};
    (void)localtime_r(&now, &today);
    int base = today.tm_year + 1900 - latest_year;
    if (latest != nullptr && toEpoch(*latest, base + latest_year) > static_cast<int64_t>(now + kDay) * kUsPerSecond) {
        --base;
    }
    std::vector<int64_t> times;
    times.reserve(stamps.size());
    for (size_t i = 0; i < stamps.size(); ++i) {
        const LogStamp& stamp = stamps[i];
        times.push_back(stamp.epochUs ? *stamp.epochUs
                                      : toEpoch(stamp, lacksYear(stamp) ? base + years[i] : stamp.year));
    }
    return times;
}

std::string timeText(int64_t us, int digits, bool withDate) {
    int64_t fraction = 0;
    const std::tm broken = localTime(us, &fraction);
    char text[64];
    size_t length = std::strftime(text, sizeof(text), withDate ? "%Y-%m-%d %H:%M:%S" : "%H:%M:%S", &broken);
    if (digits > 0) {
        char micro[16];
        (void)std::snprintf(micro, sizeof(micro), ".%06d", static_cast<int>(fraction));
        return std::string(text, length) + std::string(micro, static_cast<size_t>(std::min(digits, 6)) + 1);
    }
    return std::string(text, length);
}

std::string isoTime(int64_t us) {
    int64_t fraction = 0;
    const std::tm broken = localTime(us, &fraction);
    char text[64];
    char zone[16];
    (void)std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S", &broken);
    (void)std::strftime(zone, sizeof(zone), "%z", &broken);
    char whole[96];
    (void)std::snprintf(whole, sizeof(whole), "%s.%03d%.3s:%s", text, static_cast<int>(fraction / 1000), zone,
                        zone + 3);
    return whole;
}

}  // namespace mqctl::report
