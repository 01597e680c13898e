#include "calendar/Holidays.h"

#include "support/L10n.h"
#include "support/LocalTime.h"
#include "support/Preferences.h"
#include "support/Settings.h"

#include <algorithm>
#include <set>

namespace ombrelo {

using namespace std::chrono;

namespace {

constexpr std::string_view substituteSuffix = " (reporté)";
constexpr std::string_view observedBeforeSuffix = " (anticipé)";

// What a holiday on a weekend gives.
enum class Shift {
    none,
    substitute,  // the next free weekday (United Kingdom, Canada)
    observe,     // the Friday before or the Monday after (United States)
};

struct Dated {
    sys_days day;
    std::string name;
    Shift shift = Shift::none;
};

sys_days on(int y, unsigned m, unsigned d) { return sys_days{year{y} / month{m} / day{d}}; }
sys_days nth(int y, unsigned m, weekday wd, unsigned n) { return sys_days{year{y} / month{m} / wd[n]}; }
sys_days lastOf(int y, unsigned m, weekday wd) { return sys_days{year{y} / month{m} / wd[last]}; }
bool weekend(sys_days d) { return weekday{d} == Saturday || weekday{d} == Sunday; }

// Each country's rules list the fixed dates first: when another rule gives the
// same day (Ascension on 1 May, as in 2008), the day is listed once under the
// first rule, so 1 May keeps the name people expect.

std::vector<Dated> france(int y, sys_days easter, bool alsaceMoselle) {
    std::vector<Dated> list{
        {on(y, 1, 1), "Jour de l'an"},      {on(y, 5, 1), "Fête du Travail"},
        {on(y, 5, 8), "Victoire 1945"},     {on(y, 7, 14), "Fête nationale"},
        {on(y, 8, 15), "Assomption"},       {on(y, 11, 1), "Toussaint"},
        {on(y, 11, 11), "Armistice"},       {on(y, 12, 25), "Noël"},
        {easter + days{1}, "Lundi de Pâques"}, {easter + days{39}, "Ascension"},
        {easter + days{50}, "Lundi de Pentecôte"},
    };
    if (alsaceMoselle) {
        list.push_back({on(y, 12, 26), "Saint-Étienne"});
        list.push_back({easter - days{2}, "Vendredi saint"});
    }
    return list;
}

std::vector<Dated> belgium(int y, sys_days easter) {
    return {
        {on(y, 1, 1), "Jour de l'an"},        {on(y, 5, 1), "Fête du Travail"},
        {on(y, 7, 21), "Fête nationale"},     {on(y, 8, 15), "Assomption"},
        {on(y, 11, 1), "Toussaint"},          {on(y, 11, 11), "Armistice"},
        {on(y, 12, 25), "Noël"},              {easter + days{1}, "Lundi de Pâques"},
        {easter + days{39}, "Ascension"},     {easter + days{50}, "Lundi de Pentecôte"},
    };
}

std::vector<Dated> luxembourg(int y, sys_days easter) {
    std::vector<Dated> list{
        {on(y, 1, 1), "Jour de l'an"},    {on(y, 5, 1), "Fête du Travail"},
        {on(y, 6, 23), "Fête nationale"}, {on(y, 8, 15), "Assomption"},
        {on(y, 11, 1), "Toussaint"},      {on(y, 12, 25), "Noël"},
        {on(y, 12, 26), "Saint-Étienne"},
    };
    if (y >= 2019) list.push_back({on(y, 5, 9), "Journée de l'Europe"});  // a holiday since its 2019 law
    list.push_back({easter + days{1}, "Lundi de Pâques"});
    list.push_back({easter + days{39}, "Ascension"});
    list.push_back({easter + days{50}, "Lundi de Pentecôte"});
    return list;
}

std::vector<Dated> switzerland(int y, sys_days easter) {
    return {
        {on(y, 1, 1), "Nouvel an"},
        {on(y, 8, 1), "Fête nationale"},
        {on(y, 12, 25), "Noël"},
        {easter + days{39}, "Ascension"},
    };
}

std::vector<Dated> germany(int y, sys_days easter) {
    std::vector<Dated> list{
        {on(y, 1, 1), "Jour de l'an"},
        {on(y, 5, 1), "Fête du Travail"},
        {on(y, 10, 3), "Jour de l'Unité allemande"},
        {on(y, 12, 25), "Noël"},
        {on(y, 12, 26), "Deuxième jour de Noël"},
    };
    if (y == 2017) list.push_back({on(y, 10, 31), "500 ans de la Réforme"});
    list.push_back({easter - days{2}, "Vendredi saint"});
    list.push_back({easter + days{1}, "Lundi de Pâques"});
    list.push_back({easter + days{39}, "Ascension"});
    list.push_back({easter + days{50}, "Lundi de Pentecôte"});
    return list;
}

// The last Monday of May, but for the jubilee years that moved it.
sys_days springBankHoliday(int y) {
    switch (y) {
    case 2002: return on(y, 6, 4);
    case 2012: return on(y, 6, 4);
    case 2022: return on(y, 6, 2);
    default: return lastOf(y, 5, Monday);
    }
}

// England and Wales, with the bank holidays moved or added by proclamation.
std::vector<Dated> unitedKingdom(int y, sys_days easter) {
    struct OneOff {
        int y;
        unsigned m, d;
        const char* name;
    };
    static constexpr OneOff oneOffs[] = {
        {2002, 6, 3, "Jubilé d'or de la Reine"},
        {2011, 4, 29, "Mariage du prince William"},
        {2012, 6, 5, "Jubilé de diamant de la Reine"},
        {2022, 6, 3, "Jubilé de platine de la Reine"},
        {2022, 9, 19, "Funérailles de la Reine"},
        {2023, 5, 8, "Couronnement du Roi"},
    };
    // Moved to VE Day's 75th anniversary.
    sys_days earlyMay = y == 2020 ? on(y, 5, 8) : nth(y, 5, Monday, 1);
    std::vector<Dated> list{
        {on(y, 1, 1), "Jour de l'an", Shift::substitute},
        {on(y, 12, 25), "Noël", Shift::substitute},
        {on(y, 12, 26), "Lendemain de Noël", Shift::substitute},
    };
    for (const OneOff& oneOff : oneOffs)
        if (oneOff.y == y) list.push_back({on(y, oneOff.m, oneOff.d), oneOff.name});
    list.push_back({easter - days{2}, "Vendredi saint"});
    list.push_back({easter + days{1}, "Lundi de Pâques"});
    list.push_back({earlyMay, "Jour férié de début mai"});
    list.push_back({springBankHoliday(y), "Jour férié de printemps"});
    list.push_back({lastOf(y, 8, Monday), "Jour férié d'été"});
    return list;
}

// Federal holidays of the Canada Labour Code. Only Canada Day, Christmas and
// Boxing Day move to a fixed weekday here; for the other days on a weekend the
// day in lieu is the employer's to set, so none is guessed.
std::vector<Dated> canada(int y, sys_days easter) {
    std::vector<Dated> list{
        {on(y, 1, 1), "Jour de l'an"},
        {on(y, 7, 1), "Fête du Canada", Shift::substitute},
        {on(y, 11, 11), "Jour du Souvenir"},
        {on(y, 12, 25), "Noël", Shift::substitute},
        {on(y, 12, 26), "Lendemain de Noël", Shift::substitute},
    };
    if (y >= 2021) list.push_back({on(y, 9, 30), "Journée de la vérité et de la réconciliation"});
    sys_days may24 = on(y, 5, 24);
    list.push_back({easter - days{2}, "Vendredi saint"});
    list.push_back({may24 - (weekday{may24} - Monday), "Fête de la Reine Victoria"});  // Monday before 25 May
    list.push_back({nth(y, 9, Monday, 1), "Fête du Travail"});
    list.push_back({nth(y, 10, Monday, 2), "Action de grâce"});
    return list;
}

std::vector<Dated> unitedStates(int y) {
    std::vector<Dated> list{
        {on(y, 1, 1), "Jour de l'an", Shift::observe},
        {on(y, 7, 4), "Jour de l'Indépendance", Shift::observe},
        {on(y, 11, 11), "Jour des anciens combattants", Shift::observe},
        {on(y, 12, 25), "Noël", Shift::observe},
    };
    if (y >= 2021) list.push_back({on(y, 6, 19), "Juneteenth", Shift::observe});
    list.push_back({nth(y, 1, Monday, 3), "Jour de Martin Luther King"});
    list.push_back({nth(y, 2, Monday, 3), "Anniversaire de Washington"});
    list.push_back({lastOf(y, 5, Monday), "Memorial Day"});
    list.push_back({nth(y, 9, Monday, 1), "Fête du Travail"});
    list.push_back({nth(y, 10, Monday, 2), "Jour de Christophe Colomb"});
    list.push_back({nth(y, 11, Thursday, 4), "Action de grâce"});
    return list;
}

std::vector<Dated> rules(HolidayCountry country, int y, bool alsaceMoselle) {
    sys_days easter{Holidays::easter(y)};
    switch (country) {
    case HolidayCountry::france: return france(y, easter, alsaceMoselle);
    case HolidayCountry::belgium: return belgium(y, easter);
    case HolidayCountry::luxembourg: return luxembourg(y, easter);
    case HolidayCountry::switzerland: return switzerland(y, easter);
    case HolidayCountry::canada: return canada(y, easter);
    case HolidayCountry::unitedKingdom: return unitedKingdom(y, easter);
    case HolidayCountry::unitedStates: return unitedStates(y);
    case HolidayCountry::germany: return germany(y, easter);
    }
    return {};
}

// By date, one entry per day: the first rule's, as the lists are written.
void sortByDay(std::vector<Dated>& list) {
    std::stable_sort(list.begin(), list.end(), [](const Dated& a, const Dated& b) { return a.day < b.day; });
    list.erase(std::unique(list.begin(), list.end(), [](const Dated& a, const Dated& b) { return a.day == b.day; }),
               list.end());
}

// Adds the days off that holidays on a weekend give, taken in date order so that
// Christmas claims the first free weekday before Boxing Day does. The holidays
// themselves stay in the list.
void addDaysOff(std::vector<Dated>& list) {
    std::set<sys_days> taken;
    for (const Dated& holiday : list) taken.insert(holiday.day);
    std::vector<Dated> added;
    for (const Dated& holiday : list) {
        if (holiday.shift == Shift::none || !weekend(holiday.day)) continue;
        if (holiday.shift == Shift::substitute) {
            sys_days day = holiday.day + days{1};
            while (weekend(day) || taken.contains(day)) day += days{1};
            taken.insert(day);
            added.push_back({day, holiday.name + std::string(substituteSuffix)});
        } else {
            bool saturday = weekday{holiday.day} == Saturday;
            sys_days day = holiday.day + days{saturday ? -1 : 1};
            // A day that already is a holiday gives nothing more.
            if (taken.insert(day).second)
                added.push_back({day, holiday.name + std::string(saturday ? observedBeforeSuffix : substituteSuffix)});
        }
    }
    list.insert(list.end(), added.begin(), added.end());
    sortByDay(list);
}

// A year's list. Days off can cross a year end (New Year's Day on a Saturday is
// observed on 31 December in the United States), so the neighbouring years'
// holidays take part and each day off goes to the year it falls in.
std::vector<Dated> yearHolidays(HolidayCountry country, int y, bool alsaceMoselle) {
    bool movesDays = country == HolidayCountry::unitedKingdom || country == HolidayCountry::canada ||
                     country == HolidayCountry::unitedStates;
    std::vector<Dated> list;
    for (int each = movesDays ? y - 1 : y; each <= (movesDays ? y + 1 : y); ++each) {
        auto more = rules(country, each, alsaceMoselle);
        list.insert(list.end(), more.begin(), more.end());
    }
    sortByDay(list);
    if (movesDays) addDaysOff(list);
    std::erase_if(list, [y](const Dated& holiday) { return year_month_day{holiday.day}.year() != year{y}; });
    return list;
}

Holiday toHoliday(sys_days day, std::string name) {
    year_month_day date{day};
    return {local::make(int(date.year()), unsigned(date.month()), unsigned(date.day())), std::move(name)};
}

sys_days civilDay(Instant t) {
    local::DateParts p = local::parts(t);
    return sys_days{year{p.year} / month{unsigned(p.month)} / day{unsigned(p.day)}};
}

int yearOf(sys_days day) { return int(year_month_day{day}.year()); }

// The days of [from, to): from the day of `from` to the last day starting before `to`.
std::pair<sys_days, sys_days> dayRange(Instant from, Instant to) {
    sys_days first = civilDay(from);
    sys_days end = civilDay(to);
    if (local::startOfDay(to) < to) end += days{1};
    return {first, std::max(first, end)};
}

} // namespace

Holidays::Holidays(HolidayCountry country, bool alsaceMoselle)
    : country_(country), alsaceMoselle_(alsaceMoselle && country == HolidayCountry::france) {}

Holidays Holidays::fromPreferences(const Preferences& preferences) {
    return Holidays(holidayCountry(preferences), preferences.get(settings::holidayAlsaceMoselle));
}

year_month_day Holidays::easter(int y) {
    // Anonymous Gregorian computus (Meeus, Jones, Butcher).
    int a = y % 19, b = y / 100, c = y % 100;
    int d = b / 4, e = b % 4;
    int f = (b + 8) / 25, g = (b - f + 1) / 3;
    int h = (19 * a + b - d - g + 15) % 30;
    int i = c / 4, k = c % 4;
    int l = (32 + 2 * e + 2 * i - h - k) % 7;
    int m = (a + 11 * h + 22 * l) / 451;
    int n = h + l - 7 * m + 114;
    return year{y} / month{unsigned(n / 31)} / day{unsigned(n % 31 + 1)};
}

std::vector<Holiday> Holidays::builtIn(HolidayCountry country, int y, bool alsaceMoselle) {
    std::vector<Holiday> list;
    for (Dated& holiday : yearHolidays(country, y, alsaceMoselle && country == HolidayCountry::france))
        list.push_back(toHoliday(holiday.day, std::move(holiday.name)));
    return list;
}

const std::vector<Holidays::CivilHoliday>& Holidays::yearList(int y) const {
    auto found = years_.find(y);
    if (found != years_.end()) return found->second;
    std::vector<CivilHoliday> list;
    for (Dated& holiday : yearHolidays(country_, y, alsaceMoselle_))
        list.push_back({holiday.day, std::move(holiday.name)});
    return years_.emplace(y, std::move(list)).first->second;
}

bool Holidays::isHoliday(sys_days day) const {
    const auto& list = yearList(yearOf(day));
    return std::binary_search(list.begin(), list.end(), CivilHoliday{day, {}},
                              [](const CivilHoliday& a, const CivilHoliday& b) { return a.day < b.day; });
}

bool Holidays::isHoliday(Instant day) const { return isHoliday(civilDay(day)); }

std::vector<Holiday> Holidays::holidays(Instant from, Instant to, bool weekdaysOnly) const {
    auto [first, end] = dayRange(from, to);
    std::vector<Holiday> found;
    if (first == end) return found;
    for (int y = yearOf(first); y <= yearOf(end - days{1}); ++y)
        for (const CivilHoliday& holiday : yearList(y))
            if (holiday.day >= first && holiday.day < end && !(weekdaysOnly && weekend(holiday.day)))
                found.push_back(toHoliday(holiday.day, holiday.name));
    return found;
}

std::vector<Holiday> Holidays::holidays(Instant from, Instant to) const { return holidays(from, to, false); }

std::vector<Holiday> Holidays::weekdayHolidays(Instant from, Instant to) const { return holidays(from, to, true); }

int Holidays::workingDays(Instant from, Instant to) const {
    auto [first, end] = dayRange(from, to);
    int count = 0;
    for (sys_days day = first; day < end; day += days{1})
        if (!weekend(day) && !isHoliday(day)) ++count;
    return count;
}

std::vector<Holiday> Holidays::upcoming(int count, Instant from) const {
    std::vector<Holiday> found;
    sys_days first = civilDay(from);
    // Every list has at least four holidays a year: the bound is only a guard.
    for (int y = yearOf(first); int(found.size()) < count && y <= yearOf(first) + count / 4 + 1; ++y)
        for (const CivilHoliday& holiday : yearList(y))
            if (holiday.day >= first && int(found.size()) < count)
                found.push_back(toHoliday(holiday.day, holiday.name));
    return found;
}

std::string Holidays::localizedName(std::string_view name) {
    if (L10n::french()) return std::string(name);
    static constexpr std::pair<std::string_view, std::string_view> english[] = {
        {"Jour de l'an", "New Year's Day"},
        {"Nouvel an", "New Year's Day"},
        {"Vendredi saint", "Good Friday"},
        {"Lundi de Pâques", "Easter Monday"},
        {"Fête du Travail", "Labour Day"},
        {"Victoire 1945", "Victory in Europe Day"},
        {"Journée de l'Europe", "Europe Day"},
        {"Ascension", "Ascension Day"},
        {"Lundi de Pentecôte", "Whit Monday"},
        {"Fête nationale", "National Day"},
        {"Assomption", "Assumption Day"},
        {"Toussaint", "All Saints' Day"},
        {"Armistice", "Armistice Day"},
        {"Noël", "Christmas Day"},
        {"Saint-Étienne", "St Stephen's Day"},
        {"Deuxième jour de Noël", "Second Day of Christmas"},
        {"Jour de l'Unité allemande", "German Unity Day"},
        {"500 ans de la Réforme", "Reformation Day (500th anniversary)"},
        {"Lendemain de Noël", "Boxing Day"},
        {"Jour férié de début mai", "Early May bank holiday"},
        {"Jour férié de printemps", "Spring bank holiday"},
        {"Jour férié d'été", "Summer bank holiday"},
        {"Jubilé d'or de la Reine", "Queen's Golden Jubilee"},
        {"Mariage du prince William", "Royal Wedding"},
        {"Jubilé de diamant de la Reine", "Queen's Diamond Jubilee"},
        {"Jubilé de platine de la Reine", "Queen's Platinum Jubilee"},
        {"Funérailles de la Reine", "State Funeral of Queen Elizabeth II"},
        {"Couronnement du Roi", "Coronation of King Charles III"},
        {"Fête de la Reine Victoria", "Victoria Day"},
        {"Fête du Canada", "Canada Day"},
        {"Journée de la vérité et de la réconciliation", "National Day for Truth and Reconciliation"},
        {"Action de grâce", "Thanksgiving"},
        {"Jour du Souvenir", "Remembrance Day"},
        {"Jour de Martin Luther King", "Martin Luther King Jr. Day"},
        {"Anniversaire de Washington", "Washington's Birthday"},
        {"Memorial Day", "Memorial Day"},
        {"Juneteenth", "Juneteenth"},
        {"Jour de l'Indépendance", "Independence Day"},
        {"Jour de Christophe Colomb", "Columbus Day"},
        {"Jour des anciens combattants", "Veterans Day"},
    };
    std::string_view suffix;
    for (std::string_view candidate : {substituteSuffix, observedBeforeSuffix})
        if (name.ends_with(candidate)) {
            suffix = candidate == substituteSuffix ? " (substitute day)" : " (observed)";
            name.remove_suffix(candidate.size());
            break;
        }
    for (const auto& [french, translated] : english)
        if (french == name) return std::string(translated) + std::string(suffix);
    return std::string(name) + std::string(suffix);
}

} // namespace ombrelo
