#include "calendar/HolidayCountry.h"

#include "support/Fold.h"
#include "support/L10n.h"
#include "support/Money.h"
#include "support/Preferences.h"
#include "support/Region.h"
#include "support/Settings.h"

namespace ombrelo {

namespace {

struct CountryTexts {
    std::string_view raw;
    std::string_view frenchLabel, englishLabel;
    std::string_view frenchScope, englishScope;
};

// In the order of the enumeration.
constexpr CountryTexts texts[] = {
    {"fr", "France", "France", "Les 11 jours fériés légaux (Code du travail).",
     "The 11 statutory public holidays (French Labour Code)."},
    {"be", "Belgique", "Belgium", "Les 10 jours fériés légaux.", "The 10 statutory public holidays."},
    {"lu", "Luxembourg", "Luxembourg", "Les 11 jours fériés légaux, dont la Journée de l'Europe.",
     "The 11 statutory public holidays, Europe Day included."},
    {"ch", "Suisse", "Switzerland",
     "Jours fériés communs à tous les cantons seulement : les autres (Vendredi saint, lundis de Pâques et de "
     "Pentecôte, 26 décembre…) varient d'un canton à l'autre.",
     "Only the holidays common to every canton: the others (Good Friday, Easter and Whit Mondays, 26 December…) "
     "vary from canton to canton."},
    {"ca", "Canada", "Canada",
     "Jours fériés fédéraux (Code canadien du travail) : les provinces ont leurs propres listes.",
     "Federal holidays (Canada Labour Code): the provinces have their own lists."},
    {"gb", "Royaume-Uni", "United Kingdom",
     "Bank holidays d'Angleterre et du pays de Galles (l'Écosse et l'Irlande du Nord diffèrent).",
     "Bank holidays of England and Wales (Scotland and Northern Ireland differ)."},
    {"us", "États-Unis", "United States",
     "Jours fériés fédéraux, avec le jour chômé quand ils tombent un week-end.",
     "Federal holidays, with the day off observed when they fall on a weekend."},
    {"de", "Allemagne", "Germany", "Jours fériés nationaux seulement : chaque Land en ajoute d'autres.",
     "Nationwide holidays only: each state adds its own."},
};

const CountryTexts& textsOf(HolidayCountry country) { return texts[static_cast<int>(country)]; }

} // namespace

std::string_view rawValue(HolidayCountry country) { return textsOf(country).raw; }

std::optional<HolidayCountry> parseHolidayCountry(std::string_view text) {
    std::string code = lowerASCII(trim(text));
    for (HolidayCountry country : holidayCountries)
        if (rawValue(country) == code) return country;
    return std::nullopt;
}

std::string_view label(HolidayCountry country) {
    return L10n::text(textsOf(country).frenchLabel, textsOf(country).englishLabel);
}

std::string_view scope(HolidayCountry country) {
    return L10n::text(textsOf(country).frenchScope, textsOf(country).englishScope);
}

HolidayCountry chooseHolidayCountry(const std::optional<std::string>& setting, std::string_view localeName) {
    if (setting)
        if (auto country = parseHolidayCountry(*setting)) return *country;
    if (auto country = parseHolidayCountry(regionOf(localeName))) return *country;
    return HolidayCountry::france;
}

HolidayCountry holidayCountry(const Preferences& preferences) {
    return chooseHolidayCountry(preferences.text(settings::holidayCountry.name), environmentLocale());
}

} // namespace ombrelo
