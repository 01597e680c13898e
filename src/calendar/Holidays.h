// Holidays: the public holidays of one country, so that reports count working
// days and expected hours without the days nobody works.
//
// The lists are built in: fixed dates, dates after Easter and "nth weekday of the
// month" rules, as they stand now, plus the one-off changes since 2000. In the
// United Kingdom and Canada a holiday on a weekend gives a substitute weekday; in
// the United States the federal day off is observed on the Friday before or the
// Monday after. Such extra days carry the holiday's name with " (reporté)" or
// " (anticipé)".
//
// Dates are worked out as civil dates, without any time zone, and become local
// days (support/LocalTime.h) only when handed out. Names are French; localizedName
// gives the interface language's.
//
// Each year's list is computed once per object, on first use. Not thread-safe: one
// instance per thread.
#pragma once

#include "calendar/HolidayCountry.h"
#include "support/Clock.h"

#include <chrono>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace ombrelo {
class Preferences;

struct Holiday {
    Instant date;      // start of the local day
    std::string name;  // in French
};

class Holidays {
public:
    // Alsace-Moselle's two extra days apply in France only.
    explicit Holidays(HolidayCountry country, bool alsaceMoselle = false);
    // The country and the Alsace-Moselle choice of the settings.
    static Holidays fromPreferences(const Preferences& preferences);

    HolidayCountry country() const { return country_; }
    bool alsaceMoselle() const { return alsaceMoselle_; }

    // Gregorian Easter Sunday.
    static std::chrono::year_month_day easter(int year);
    // The holidays of `year`, by date, one per day, every one in that year.
    static std::vector<Holiday> builtIn(HolidayCountry country, int year, bool alsaceMoselle = false);

    // The days from the day of `from` up to `to`, excluded, count: a range from
    // one day's start to another's takes the first day and not the last.
    std::vector<Holiday> holidays(Instant from, Instant to) const;
    // The same, Monday to Friday only: the days off a holiday actually gives.
    std::vector<Holiday> weekdayHolidays(Instant from, Instant to) const;
    // Mondays to Fridays of the range that are not holidays.
    int workingDays(Instant from, Instant to) const;
    // Whether the day of `day` is a holiday.
    bool isHoliday(Instant day) const;
    // The next `count` holidays, from the day of `from` on.
    std::vector<Holiday> upcoming(int count, Instant from) const;

    // A name from these lists in the interface language; an unknown name as is.
    static std::string localizedName(std::string_view name);

private:
    struct CivilHoliday {
        std::chrono::sys_days day;
        std::string name;
    };

    const std::vector<CivilHoliday>& yearList(int year) const;
    bool isHoliday(std::chrono::sys_days day) const;
    std::vector<Holiday> holidays(Instant from, Instant to, bool weekdaysOnly) const;

    HolidayCountry country_;
    bool alsaceMoselle_;
    mutable std::map<int, std::vector<CivilHoliday>> years_;
};

} // namespace ombrelo
