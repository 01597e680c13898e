// ImportParse: the values of other trackers' exports — dates, times and
// date-times as their many exports write them, durations, numbers with decimal
// commas and thousands separators, "Client ▸ Project" paths and billable words
// in the languages those exports come in. Every parser gives nothing for text
// it cannot read; none throws.
//
// Dates and times are local (the process's time zone) unless the text carries
// an offset. A date such as 03/04/2024 is read day first unless the file's
// other dates say month first (see DateOrder).
#pragma once

#include "support/Clock.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace ombrelo::ImportParse {

enum class DateOrder { dayFirst, monthFirst };

struct CivilDate {
    int year = 0, month = 0, day = 0;
    bool operator==(const CivilDate&) const = default;
};

// "2024-03-04", "2024/03/04", "04/03/2024", "04.03.2024", "04/03/24".
std::optional<CivilDate> date(std::string_view text, DateOrder order = DateOrder::dayFirst);
// Seconds after midnight: "14:05:00", "14:05", "9:05", "02:05 PM", "2:05pm",
// with an optional fraction of a second.
std::optional<int> time(std::string_view text);
// A date and a time in one text, "T" or a space between them, with an optional
// UTC offset ("Z", "+02:00") after the time.
std::optional<Instant> dateTime(std::string_view text, DateOrder order = DateOrder::dayFirst);
// The instant of a local date at `secondsAfterMidnight`.
Instant at(const CivilDate& date, int secondsAfterMidnight);
// What an unambiguous slashed or dotted date says of the order: 30/01/2024 is
// day first, 01/30/2024 month first; 03/04/2024 says nothing.
std::optional<DateOrder> orderShownBy(std::string_view text);

// Seconds: "01:30:00", "1:30", "1,5" or "1.5" hours, "1h30", "90m", "1h 15m",
// "45 min". Nothing for empty or unreadable text.
std::optional<double> duration(std::string_view text);
// "2.000,5", "2,000.5", "1,5", "1.5", "12" as a number; nothing otherwise.
std::optional<double> number(std::string_view text);

struct Path {
    std::optional<std::string> client;
    std::string project;
};
// "Studio Brume ▸ Maquettes appli" → client Studio Brume, project Maquettes
// appli; the separators tried are "▸", " > ", "›" and " / ", in that order.
Path splitPath(std::string_view text);

// Billable, not billable, or unknown (empty or any other word).
std::optional<bool> billable(std::string_view text);

// A header or a word as the tables compare it: folded case and accents, trimmed.
std::string normalised(std::string_view text);

} // namespace ombrelo::ImportParse
