#include "reports/ReportFormat.h"

#include "support/LocalTime.h"
#include "support/Money.h"

#include <cmath>
#include <fmt/format.h>
#include <memory>
#include <unicode/dcfmtsym.h>
#include <unicode/dtfmtsym.h>
#include <unicode/dtptngen.h>
#include <unicode/ucurr.h>

namespace ombrelo {

namespace {

constexpr std::string_view frenchDatePattern = "dd/MM/yyyy";

icu::Locale icuLocale(const std::string& name) { return icu::Locale(name.c_str()); }

std::string utf8(const icu::UnicodeString& text) {
    std::string out;
    return text.toUTF8String(out);
}

char decimalSeparatorOf(const std::string& locale) {
    UErrorCode status = U_ZERO_ERROR;
    icu::DecimalFormatSymbols symbols(icuLocale(locale), status);
    if (U_FAILURE(status)) return '.';
    return utf8(symbols.getSymbol(icu::DecimalFormatSymbols::kDecimalSeparatorSymbol)) == "," ? ',' : '.';
}

std::string datePatternOf(const std::string& locale) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::DateTimePatternGenerator> generator(
        icu::DateTimePatternGenerator::createInstance(icuLocale(locale), status));
    if (U_FAILURE(status) || !generator) return std::string(frenchDatePattern);
    icu::UnicodeString pattern = generator->getBestPattern(icu::UnicodeString("ddMMyyyy"), status);
    if (U_FAILURE(status) || pattern.isEmpty()) return std::string(frenchDatePattern);
    return utf8(pattern);
}

// Two decimals of a whole number of hundredths, with `separator`.
std::string hundredthsText(std::int64_t hundredths, char separator) {
    std::uint64_t magnitude = hundredths < 0 ? 0 - static_cast<std::uint64_t>(hundredths)
                                             : static_cast<std::uint64_t>(hundredths);
    return fmt::format("{}{}{}{:02}", hundredths < 0 ? "-" : "", magnitude / 100, separator, magnitude % 100);
}

// Runs of d, M and y in `pattern` become the day, month and year; anything else
// is copied, quotes apart.
std::string renderDate(std::string_view pattern, int year, int month, int day) {
    std::string out;
    for (std::size_t i = 0; i < pattern.size();) {
        char c = pattern[i];
        std::size_t run = 1;
        while (i + run < pattern.size() && pattern[i + run] == c) ++run;
        if (c == 'd' || c == 'M') {
            int value = c == 'd' ? day : month;
            out += run >= 2 ? fmt::format("{:02}", value) : fmt::format("{}", value);
        } else if (c == 'y') {
            out += run == 2 ? fmt::format("{:02}", year % 100) : fmt::format("{}", year);
        } else if (c != '\'') {
            out.append(run, c);
        }
        i += run;
    }
    return out;
}

} // namespace

std::string_view rawValue(DurationStyle style) { return style == DurationStyle::clock ? "clock" : "decimal"; }

std::optional<DurationStyle> parseDurationStyle(std::string_view raw) {
    if (raw == "decimal") return DurationStyle::decimal;
    if (raw == "clock") return DurationStyle::clock;
    return std::nullopt;
}

ReportFormat ReportFormat::current(std::string currencyCode) { return {moneyLocale(), std::move(currencyCode)}; }

ReportFormat::ReportFormat(std::string icuLocale, std::string currencyCode)
    : locale_(std::move(icuLocale)), currency_(std::move(currencyCode)) {
    bool french = locale_.rfind("fr", 0) == 0;
    decimal_ = french ? ',' : decimalSeparatorOf(locale_);
    datePattern_ = french ? std::string(frenchDatePattern) : datePatternOf(locale_);
}

std::string ReportFormat::decimal(double value, int digits) const {
    if (!std::isfinite(value)) value = 0;
    double scale = std::pow(10.0, digits);
    auto scaled = static_cast<std::int64_t>(std::llround(value * scale));
    if (digits == 2) return hundredthsText(scaled, decimal_);
    std::uint64_t magnitude = scaled < 0 ? 0 - static_cast<std::uint64_t>(scaled) : static_cast<std::uint64_t>(scaled);
    auto unit = static_cast<std::uint64_t>(scale);
    std::string text = fmt::format("{}{}", scaled < 0 ? "-" : "", magnitude / unit);
    if (digits > 0) text += fmt::format("{}{:0{}}", decimal_, magnitude % unit, digits);
    return text;
}

std::string ReportFormat::units(std::int64_t cents) const { return hundredthsText(cents, decimal_); }

std::string ReportFormat::date(Instant day) const {
    local::DateParts p = local::parts(day);
    return renderDate(datePattern_, p.year, p.month, p.day);
}

std::string ReportFormat::time(Instant t) const {
    local::DateParts p = local::parts(t);
    return fmt::format("{:02}:{:02}:{:02}", p.hour, p.minute, p.second);
}

std::string ReportFormat::hours(double seconds) const {
    // Rounded from whole hundredths of an hour (36 s), as the screen shows them.
    return hundredthsText(std::llround(std::isfinite(seconds) ? seconds / 36 : 0), decimal_);
}

std::string ReportFormat::duration(double seconds, DurationStyle style) const {
    if (style == DurationStyle::decimal) return hours(seconds);
    std::int64_t minutes = std::llround(std::isfinite(seconds) ? std::abs(seconds) / 60 : 0);
    return fmt::format("{}{}:{:02}", seconds < 0 ? "-" : "", minutes / 60, minutes % 60);
}

std::string ReportFormat::money(std::int64_t cents) const { return formatMoney(cents, currency_, locale_); }

std::string ReportFormat::currencySymbol() const {
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString code = icu::UnicodeString::fromUTF8(currency_);
    UBool isChoiceFormat = false;
    int32_t length = 0;
    const UChar* name = ucurr_getName(code.getTerminatedBuffer(), locale_.c_str(), UCURR_SYMBOL_NAME,
                                      &isChoiceFormat, &length, &status);
    if (U_FAILURE(status) || !name) return currency_;
    return utf8(icu::UnicodeString(name, length));
}

std::string ReportFormat::monthName(int month) const {
    UErrorCode status = U_ZERO_ERROR;
    icu::DateFormatSymbols symbols(icuLocale(locale_), status);
    int32_t count = 0;
    const icu::UnicodeString* names =
        symbols.getMonths(count, icu::DateFormatSymbols::STANDALONE, icu::DateFormatSymbols::WIDE);
    if (U_FAILURE(status) || month < 1 || month > count) return std::to_string(month);
    return utf8(names[month - 1]);
}

std::string ReportFormat::dayLabel(Instant day) const {
    local::DateParts p = local::parts(day);
    UErrorCode status = U_ZERO_ERROR;
    icu::DateFormatSymbols symbols(icuLocale(locale_), status);
    int32_t count = 0;
    const icu::UnicodeString* names =
        symbols.getWeekdays(count, icu::DateFormatSymbols::FORMAT, icu::DateFormatSymbols::ABBREVIATED);
    std::string weekday = U_SUCCESS(status) && p.weekday < count ? utf8(names[p.weekday]) : "";
    bool monthFirst = datePattern_.find('M') < datePattern_.find('d');
    std::string date = monthFirst ? fmt::format("{:02}/{:02}", p.month, p.day)
                                  : fmt::format("{:02}/{:02}", p.day, p.month);
    return weekday.empty() ? date : weekday + " " + date;
}

} // namespace ombrelo
