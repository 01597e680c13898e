#include "support/Money.h"

#include "support/Fold.h"
#include "support/L10n.h"
#include "support/Log.h"
#include "support/Preferences.h"
#include "support/Region.h"
#include "support/Settings.h"

#include <unicode/numberformatter.h>
#include <unicode/ucurr.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <limits>

namespace ombrelo {

namespace {

bool known(std::string_view code) {
    return std::find(std::begin(knownCurrencies), std::end(knownCurrencies), code) != std::end(knownCurrencies);
}

std::optional<std::string> regionCurrency(const std::string& region) {
    if (region.empty()) return std::nullopt;
    UErrorCode status = U_ZERO_ERROR;
    UChar code[4] = {};
    int32_t length = ucurr_forLocale(("und_" + region).c_str(), code, 4, &status);
    if (U_FAILURE(status) || length != 3) return std::nullopt;
    std::string text;
    icu::UnicodeString(code, length).toUTF8String(text);
    return text;
}

} // namespace

std::string chooseCurrency(const std::optional<std::string>& setting, std::string_view localeName) {
    if (setting) {
        std::string code(trim(*setting));
        std::transform(code.begin(), code.end(), code.begin(), [](unsigned char c) { return std::toupper(c); });
        if (known(code)) return code;
    }
    if (auto code = regionCurrency(regionOf(localeName)); code && known(*code)) return *code;
    return "EUR";
}

std::string currencyCode(const Preferences& preferences) {
    return chooseCurrency(preferences.text(settings::currency.name), environmentLocale());
}

std::string environmentLocale() {
    for (const char* name : {"LC_ALL", "LC_MONETARY", "LANG"}) {
        const char* value = std::getenv(name);
        if (value && *value) return value;
    }
    return {};
}

std::string moneyLocale() {
    if (L10n::french()) return "fr_FR";
    std::string region = regionOf(environmentLocale());
    return region.empty() ? "en" : "en_" + region;
}

std::string centsText(std::int64_t cents) {
    // The magnitude as unsigned, so the most negative amount has one too.
    std::uint64_t magnitude = cents < 0 ? 0 - static_cast<std::uint64_t>(cents) : static_cast<std::uint64_t>(cents);
    std::string fraction = std::to_string(magnitude % 100);
    if (fraction.size() < 2) fraction.insert(0, "0");
    return (cents < 0 ? "-" : "") + std::to_string(magnitude / 100) + "." + fraction;
}

std::string formatMoney(std::int64_t cents, std::string_view currencyCode) {
    return formatMoney(cents, currencyCode, moneyLocale());
}

std::string formatMoney(std::int64_t cents, std::string_view currencyCode, std::string_view icuLocale) {
    std::string decimal = centsText(cents);
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString code = icu::UnicodeString::fromUTF8(icu::StringPiece(currencyCode.data(), currencyCode.size()));
    icu::CurrencyUnit unit(code.getTerminatedBuffer(), status);
    if (U_SUCCESS(status)) {
        // Exactly two decimals: the text already is the exact amount, so ICU must
        // neither round it nor drop its zeros.
        auto formatter = icu::number::NumberFormatter::withLocale(icu::Locale(std::string(icuLocale).c_str()))
                             .unit(unit)
                             .precision(icu::number::Precision::fixedFraction(2));
        icu::UnicodeString result = formatter.formatDecimal(decimal.c_str(), status).toString(status);
        if (U_SUCCESS(status)) {
            std::string text;
            return result.toUTF8String(text);
        }
    }
    Log::get("billing")->warn("Format monétaire indisponible : {}", u_errorName(status));
    return decimal + " " + std::string(currencyCode);
}

ParsedMoney parseMoney(std::string_view text) {
    text = trim(text);
    auto mark = text.find_first_of(".,");
    std::string_view units = text.substr(0, mark);
    std::string_view decimals = mark == std::string_view::npos ? std::string_view() : text.substr(mark + 1);
    auto digitsOnly = [](std::string_view part) {
        return std::all_of(part.begin(), part.end(), [](char c) { return c >= '0' && c <= '9'; });
    };
    bool wellFormed = !units.empty() && digitsOnly(units) && digitsOnly(decimals) &&
                      (mark == std::string_view::npos || !decimals.empty());
    if (!wellFormed) return {std::nullopt, MoneyProblem::malformed};
    if (decimals.size() > 2) return {std::nullopt, MoneyProblem::tooManyDecimals};

    std::int64_t cents = 0;
    std::string fraction(decimals);
    fraction.resize(2, '0');
    for (char digit : std::string(units) + fraction) {
        if (__builtin_mul_overflow(cents, 10, &cents) || __builtin_add_overflow(cents, digit - '0', &cents))
            return {std::nullopt, MoneyProblem::tooLarge};
    }
    return {cents, std::nullopt};
}

std::int64_t addCents(std::int64_t a, std::int64_t b) {
    std::int64_t sum;
    if (__builtin_add_overflow(a, b, &sum)) moneyOverflow("somme " + std::to_string(a) + " + " + std::to_string(b));
    return sum;
}

void moneyOverflow(std::string_view what) {
    Log::get("billing")->critical("Montant hors limites, arrêt pour ne pas écrire un faux montant : {}", what);
    Log::get("billing")->flush();
    std::abort();
}

} // namespace ombrelo
