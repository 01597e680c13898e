#include "reports/Format.h"

#include "support/L10n.h"
#include "support/LocalTime.h"
#include "support/Money.h"

#include <cmath>
#include <fmt/format.h>
#include <memory>
#include <unicode/calendar.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>

namespace ombrelo::Format {

namespace {
// Durations beyond this (some 11 000 years) are a fault upstream; they print
// clamped rather than overflow the integer conversion.
constexpr double maxSeconds = 3.6e11;

double sane(double seconds) {
    if (!(seconds > 0)) return 0;  // also NaN
    return std::min(seconds, maxSeconds);
}
} // namespace

std::string duration(double seconds) {
    auto minutes = static_cast<std::int64_t>(std::floor(sane(seconds) / 60));
    if (minutes < 1) return "< 1 min";
    if (minutes < 60) return fmt::format("{} min", minutes);
    return fmt::format("{} h {:02}", minutes / 60, minutes % 60);
}

std::string clock(double seconds) {
    std::int64_t minutes = std::llround(sane(seconds) / 60);
    return fmt::format("{}:{:02}", minutes / 60, minutes % 60);
}

std::string hours(double seconds) {
    std::int64_t hundredths = std::llround(sane(seconds) / 36);
    return fmt::format("{}{}{:02}", hundredths / 100, L10n::french() ? ',' : '.', hundredths % 100);
}

std::string locale() { return moneyLocale(); }

int firstWeekday() {
    if (L10n::french()) return 2;
    return firstWeekday(locale());
}

int firstWeekday(std::string_view icuLocale) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Calendar> calendar(
        icu::Calendar::createInstance(icu::Locale(std::string(icuLocale).c_str()), status));
    if (U_FAILURE(status) || !calendar) return 2;
    UCalendarDaysOfWeek first = calendar->getFirstDayOfWeek(status);
    if (U_FAILURE(status)) return 2;
    return static_cast<int>(first);  // UCAL_SUNDAY is 1, as in local::weekday
}

Instant weekStart(Instant t) { return local::startOfWeek(t, firstWeekday()); }

int weekOfYear(Instant t) {
    UErrorCode status = U_ZERO_ERROR;
    // The day's fields in a zone-free calendar: only the date matters here.
    std::unique_ptr<icu::Calendar> calendar(icu::Calendar::createInstance(
        icu::TimeZone::getGMT()->clone(), icu::Locale(locale().c_str()), status));
    if (U_FAILURE(status) || !calendar) return 0;
    if (L10n::french()) {
        calendar->setFirstDayOfWeek(UCAL_MONDAY);
        calendar->setMinimalDaysInFirstWeek(4);
    }
    local::DateParts day = local::parts(t);
    calendar->clear();
    calendar->set(day.year, day.month - 1, day.day, 12, 0, 0);
    int week = calendar->get(UCAL_WEEK_OF_YEAR, status);
    return U_FAILURE(status) ? 0 : week;
}

std::string currency(const Preferences& preferences) { return currencyCode(preferences); }

std::string money(std::int64_t cents, std::string_view currencyCode) { return formatMoney(cents, currencyCode); }

} // namespace Format
