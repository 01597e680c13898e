// Format: how durations, hours, amounts and calendar weeks are shown to people,
// shared by the command line, reports and the agent tools so that the same time
// reads the same everywhere.
//
// Durations on screen are whole minutes rounded down ("< 1 min", "45 min",
// "1 h 05"); the clock style rounds to the nearest minute ("27:05"). Weeks begin
// on Monday in French whatever the region, and on the region's own first day in
// English (Sunday in the United States, Monday in the United Kingdom). Calendar
// days themselves are the process time zone's (support/LocalTime.h).
//
// Stateless apart from ICU's data; callable from any thread.
#pragma once

#include "support/Clock.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace ombrelo {
class Preferences;

namespace Format {

// "< 1 min" under a minute, "N min" up to 59 minutes, then "H h MM"; minutes are
// seconds / 60 rounded down, negative durations read as 0.
std::string duration(double seconds);
// "H:MM" with minutes rounded to the nearest (halves up), hours not limited to 24.
std::string clock(double seconds);
// Decimal hours with two decimals and the interface language's separator:
// "3,50" in French, "3.50" in English.
std::string hours(double seconds);

// The ICU locale of reports: "fr_FR" in French, else English for the user's
// region ("en_GB"), "en" without one.
std::string locale();
// The first day of the week, 1 = Sunday … 7 = Saturday: Monday (2) in French,
// else what ICU's calendar says for `icuLocale` (locale() by default).
int firstWeekday();
int firstWeekday(std::string_view icuLocale);
// Start of the week (by firstWeekday()) containing `t`.
Instant weekStart(Instant t);
// The week number of the day of `t`: weeks from firstWeekday(), the first week
// of a year being the first with at least 4 days of it in French (ISO weeks),
// else as the region counts them (the first with 1 day in the United States).
int weekOfYear(Instant t);

// The user's currency code ("EUR" unless the setting or the region says
// otherwise) and an amount in it, as a person reads it ("825,00 €", "€825.00").
std::string currency(const Preferences& preferences);
std::string money(std::int64_t cents, std::string_view currencyCode);

} // namespace Format
} // namespace ombrelo
