// Money: amounts as signed 64-bit integers of cents, the user's currency, and the
// two ways amounts cross the program's edge: formatted for people (ICU currency
// formatter, in the interface language's locale) and parsed from decimal text
// typed on the command line ("62.50", "62,50").
//
// Formatting works from the integer cents written out as a decimal string, so no
// floating-point value ever stands between the stored amount and the printed one.
// Stateless apart from ICU's own data; callable from any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ombrelo {
class Preferences;

// The currencies the program knows; every one has two decimals.
inline constexpr std::string_view knownCurrencies[] = {"EUR", "USD", "GBP", "CHF", "CAD"};

// The currency code: the "currency" setting when it names one of `knownCurrencies`
// (case and surrounding spaces ignored), else the currency of the environment
// locale's region when it is one of them, else "EUR".
std::string currencyCode(const Preferences& preferences);
// The same choice from explicit inputs; `localeName` is a POSIX locale such as
// "de_CH.UTF-8" (an empty name or "C" has no region).
std::string chooseCurrency(const std::optional<std::string>& setting, std::string_view localeName);

// The locale of the environment (LC_ALL, then LC_MONETARY, then LANG), or "".
std::string environmentLocale();
// The ICU locale amounts are printed in: "fr_FR" when the interface language is
// French, else English for the environment's region ("en_GB"), or "en" without one.
std::string moneyLocale();

// "825,00 €" in French (ICU separates thousands with U+202F and puts U+00A0
// before the symbol), "€825.00" in English. `currencyCode` is an ISO 4217 code.
// Never fails: should ICU refuse, the amount is written plainly ("825.00 EUR").
std::string formatMoney(std::int64_t cents, std::string_view currencyCode);
std::string formatMoney(std::int64_t cents, std::string_view currencyCode, std::string_view icuLocale);

// "-1234" cents → "-12.34": the exact decimal text of an amount.
std::string centsText(std::int64_t cents);

enum class MoneyProblem {
    malformed,       // not digits with at most one "." or "," decimal mark
    tooManyDecimals, // a third decimal would be a fraction of a cent
    tooLarge,        // beyond the 64-bit range of cents
};

struct ParsedMoney {
    std::optional<std::int64_t> cents;   // set on success
    std::optional<MoneyProblem> problem; // set on failure
};

// Reads a non-negative decimal amount in currency units ("550", "62.5", "62,50",
// surrounding spaces ignored) into cents exactly, without floating point.
ParsedMoney parseMoney(std::string_view text);

// Sums of amounts. An overflow is a fatal error: it is logged and the process
// aborts rather than carry a wrong amount on.
std::int64_t addCents(std::int64_t a, std::int64_t b);

// Logs `what` (logger "billing") and aborts. For amounts that cannot be
// represented, which the limits on saved rates make unreachable in practice.
[[noreturn]] void moneyOverflow(std::string_view what);

} // namespace ombrelo
