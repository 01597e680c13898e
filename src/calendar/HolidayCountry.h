// HolidayCountry: the countries whose public holidays the program knows, and the
// choice of the one that applies: the "holidayCountry" setting, else the region
// of the environment locale, else France.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ombrelo {
class Preferences;

enum class HolidayCountry { france, belgium, luxembourg, switzerland, canada, unitedKingdom, unitedStates, germany };

inline constexpr HolidayCountry holidayCountries[] = {
    HolidayCountry::france, HolidayCountry::belgium, HolidayCountry::luxembourg, HolidayCountry::switzerland,
    HolidayCountry::canada, HolidayCountry::unitedKingdom, HolidayCountry::unitedStates, HolidayCountry::germany,
};

// The value the setting stores: the lower-case ISO region code ("fr", "gb").
std::string_view rawValue(HolidayCountry country);
// A stored value, case and surrounding spaces ignored.
std::optional<HolidayCountry> parseHolidayCountry(std::string_view text);

// The country's name in the interface language.
std::string_view label(HolidayCountry country);
// One sentence in the interface language on what the built-in list covers, so
// that nobody takes a national list for their region's.
std::string_view scope(HolidayCountry country);

// The choice from explicit inputs; `localeName` is a POSIX locale such as
// "de_CH.UTF-8".
HolidayCountry chooseHolidayCountry(const std::optional<std::string>& setting, std::string_view localeName);
// The same from the settings and the environment locale the currency reads.
HolidayCountry holidayCountry(const Preferences& preferences);

} // namespace ombrelo
