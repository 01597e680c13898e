// LocalTime: calendar arithmetic in the user's time zone (the TZ of the process).
// A day is a calendar day, so a day across a daylight-saving change lasts 23 or
// 25 hours; every function here goes through the C library's zone rules.
#pragma once

#include "support/Clock.h"

#include <optional>
#include <string>
#include <string_view>

namespace ombrelo::local {

// Broken-down local time of an instant.
struct DateParts {
    int year;
    int month;      // 1…12
    int day;        // 1…31
    int hour;
    int minute;
    int second;
    int weekday;    // 1 = Sunday … 7 = Saturday
};

DateParts parts(Instant t);

// Reads the system's time zone again, so that a change made while the process
// runs applies from now on. Everything here keeps the zone it last read; the
// running tracker calls this at each sample.
void followTimeZoneChanges();

// The instant of a local wall-clock time; a time skipped by a daylight-saving
// change resolves to the following valid instant.
Instant make(int year, int month, int day, int hour = 0, int minute = 0, int second = 0);

Instant startOfDay(Instant t);
// The start of the day `days` calendar days after the day of `t`.
Instant addDays(Instant t, int days);
Instant startOfMonth(Instant t);
Instant addMonths(Instant monthStart, int months);
// The start of the week containing `t`, weeks beginning on `firstWeekday`
// (1 = Sunday, 2 = Monday).
Instant startOfWeek(Instant t, int firstWeekday);

int weekday(Instant t);       // 1 = Sunday … 7 = Saturday
int minuteOfDay(Instant t);   // hour × 60 + minute
bool sameDay(Instant a, Instant b);

// "YYYY-MM-DD" → start of that local day; nothing for any other text or an
// impossible date.
std::optional<Instant> parseDay(std::string_view text);
// "YYYY-MM-DDTHH:MM" or "YYYY-MM-DDTHH:MM:SS" in local time.
std::optional<Instant> parseDateTime(std::string_view text);

std::string formatDay(Instant t);       // "YYYY-MM-DD"
std::string formatTime(Instant t);      // "HH:MM"
std::string formatDateTime(Instant t);  // "YYYY-MM-DDTHH:MM:SS"

} // namespace ombrelo::local
