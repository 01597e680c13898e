// ReportFormat: how exported files write numbers, dates, times and amounts —
// the export locale. French exports use the French locale; English ones an
// English locale for the user's region, so a US user gets 10/05/2026 and 3.50, a
// UK user 05/10/2026, and a German-region user 3,50. Times are on 24 hours
// everywhere, amounts exact from their cents, and numbers never grouped, so a
// spreadsheet reads every value back as the number it is.
//
// A plain value; any thread.
#pragma once

#include "support/Clock.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ombrelo {

// How durations appear in exported tables.
enum class DurationStyle {
    decimal,  // hours with two decimals: 3,50
    clock,    // hours:minutes, to the nearest minute: 3:30, 27:05
};
// "decimal", "clock"; parsing gives nothing for any other text.
std::string_view rawValue(DurationStyle style);
std::optional<DurationStyle> parseDurationStyle(std::string_view raw);

class ReportFormat {
public:
    // The export locale of the interface language and the environment's region,
    // with the user's currency.
    static ReportFormat current(std::string currencyCode);
    // An explicit ICU locale ("fr_FR", "en_US", "en_DE").
    ReportFormat(std::string icuLocale, std::string currencyCode);

    const std::string& locale() const { return locale_; }
    const std::string& currencyCode() const { return currency_; }
    char decimalSeparator() const { return decimal_; }
    // ";" where the decimal separator is a comma, else ",".
    char csvSeparator() const { return decimal_ == ',' ? ';' : ','; }
    // The date pattern of exports: "dd/MM/yyyy" in French, else the locale's
    // day-month-year pattern ("MM/dd/yyyy" in the US).
    const std::string& datePattern() const { return datePattern_; }

    // `value` with `digits` decimals (rounded half away from zero), no grouping.
    std::string decimal(double value, int digits = 2) const;
    // cents / 100 with two decimals, exactly: "275,00".
    std::string units(std::int64_t cents) const;
    std::string date(Instant day) const;       // by datePattern()
    std::string time(Instant t) const;         // "14:05:00"
    std::string hours(double seconds) const;   // "3,50"
    std::string duration(double seconds, DurationStyle style) const;
    // The amount as people read it in this locale: "825,00 €", "€825.00".
    std::string money(std::int64_t cents) const;
    // The currency's symbol in this locale ("€", "$", "CHF").
    std::string currencySymbol() const;
    // The standalone month name, 1 = January: "octobre", "October".
    std::string monthName(int month) const;
    // A day without its year, for a column: "lun. 05/10", "Mon 10/05".
    std::string dayLabel(Instant day) const;

private:
    std::string locale_;
    std::string currency_;
    char decimal_ = '.';
    std::string datePattern_;
};

} // namespace ombrelo
