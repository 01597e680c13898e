#include "support/LocalTime.h"

#include <charconv>
#include <cmath>
#include <ctime>
#include <fmt/format.h>

namespace ombrelo::local {

namespace {

std::tm brokenDown(Instant t) {
    std::time_t seconds = static_cast<std::time_t>(std::floor(t));
    std::tm tm{};
    localtime_r(&seconds, &tm);
    return tm;
}

// Seconds east of UTC of local time at `t`.
long offsetAt(std::time_t t) {
    std::tm tm{};
    localtime_r(&t, &tm);
    return tm.tm_gmtoff;
}

// What mktime gives (tm_isdst = −1), without its cost: the C library's mktime
// reads the zone file's status again at every call, and a replayed year made
// over a million of them. localtime_r keeps the zone it has read until
// followTimeZoneChanges().
Instant fromBrokenDown(std::tm tm) {
    std::time_t wall = timegm(&tm);  // the fields as if they were UTC, normalised
    long before = offsetAt(wall - 86400), after = offsetAt(wall + 86400);
    std::time_t early = wall - before, late = wall - after;
    // A wall time exists once, twice when the clocks went back (the earlier
    // counts), or not at all when they went forward: then it is read with the
    // offset of before the change, so it lands that much after the jump.
    if (offsetAt(early) == before) return static_cast<Instant>(early);
    if (offsetAt(late) == after) return static_cast<Instant>(late);
    return static_cast<Instant>(early);
}

bool readInt(std::string_view text, std::size_t at, std::size_t width, int& out) {
    if (at + width > text.size()) return false;
    auto piece = text.substr(at, width);
    for (char c : piece)
        if (c < '0' || c > '9') return false;
    std::from_chars(piece.data(), piece.data() + piece.size(), out);
    return true;
}

bool validDate(int year, int month, int day) {
    if (month < 1 || month > 12 || day < 1) return false;
    static constexpr int lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    int length = lengths[month - 1] + (month == 2 && leap ? 1 : 0);
    return day <= length;
}

} // namespace

void followTimeZoneChanges() { tzset(); }

DateParts parts(Instant t) {
    std::tm tm = brokenDown(t);
    return {tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, tm.tm_wday + 1};
}

Instant make(int year, int month, int day, int hour, int minute, int second) {
    std::tm tm{};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    return fromBrokenDown(tm);
}

Instant startOfDay(Instant t) {
    std::tm tm = brokenDown(t);
    return make(tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday);
}

Instant addDays(Instant t, int days) {
    std::tm tm = brokenDown(t);
    return make(tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday + days);
}

Instant startOfMonth(Instant t) {
    std::tm tm = brokenDown(t);
    return make(tm.tm_year + 1900, tm.tm_mon + 1, 1);
}

Instant addMonths(Instant monthStart, int months) {
    std::tm tm = brokenDown(monthStart);
    return make(tm.tm_year + 1900, tm.tm_mon + 1 + months, 1);
}

Instant startOfWeek(Instant t, int firstWeekday) {
    int back = (weekday(t) - firstWeekday + 7) % 7;
    return addDays(t, -back);
}

int weekday(Instant t) { return brokenDown(t).tm_wday + 1; }

int minuteOfDay(Instant t) {
    std::tm tm = brokenDown(t);
    return tm.tm_hour * 60 + tm.tm_min;
}

bool sameDay(Instant a, Instant b) {
    std::tm x = brokenDown(a), y = brokenDown(b);
    return x.tm_year == y.tm_year && x.tm_yday == y.tm_yday;
}

std::optional<Instant> parseDay(std::string_view text) {
    int year, month, day;
    if (text.size() != 10 || text[4] != '-' || text[7] != '-') return std::nullopt;
    if (!readInt(text, 0, 4, year) || !readInt(text, 5, 2, month) || !readInt(text, 8, 2, day))
        return std::nullopt;
    if (!validDate(year, month, day)) return std::nullopt;
    return make(year, month, day);
}

std::optional<Instant> parseDateTime(std::string_view text) {
    if (text.size() != 16 && text.size() != 19) return std::nullopt;
    auto day = text.substr(0, 10);
    if (!parseDay(day) || text[10] != 'T' || text[13] != ':') return std::nullopt;
    int hour, minute, second = 0;
    if (!readInt(text, 11, 2, hour) || !readInt(text, 14, 2, minute)) return std::nullopt;
    if (text.size() == 19 && (text[16] != ':' || !readInt(text, 17, 2, second))) return std::nullopt;
    if (hour > 23 || minute > 59 || second > 59) return std::nullopt;
    DateParts d = parts(*parseDay(day));
    return make(d.year, d.month, d.day, hour, minute, second);
}

std::string formatDay(Instant t) {
    DateParts d = parts(t);
    return fmt::format("{:04}-{:02}-{:02}", d.year, d.month, d.day);
}

std::string formatTime(Instant t) {
    DateParts d = parts(t);
    return fmt::format("{:02}:{:02}", d.hour, d.minute);
}

std::string formatDateTime(Instant t) {
    DateParts d = parts(t);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}", d.year, d.month, d.day, d.hour, d.minute, d.second);
}

} // namespace ombrelo::local
