#include "calendar/Holidays.h"
#include "support/LocalTime.h"
#include "support/Preferences.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

namespace ombrelo {
namespace {

using enum HolidayCountry;

// A year's holidays by "YYYY-MM-DD".
std::map<std::string, std::string> daysOf(HolidayCountry country, int year, bool alsaceMoselle = false) {
    std::map<std::string, std::string> days;
    for (const Holiday& holiday : Holidays::builtIn(country, year, alsaceMoselle))
        days[local::formatDay(holiday.date)] = holiday.name;
    return days;
}

// The holiday on a "YYYY-MM-DD" day, looked up in that day's year; "" for none.
std::string nameOn(HolidayCountry country, const std::string& date, bool alsaceMoselle = false) {
    auto days = daysOf(country, std::stoi(date.substr(0, 4)), alsaceMoselle);
    auto found = days.find(date);
    return found == days.end() ? "" : found->second;
}

int workingDaysOfMonth(const Holidays& holidays, int year, int month) {
    Instant start = local::make(year, month, 1);
    return holidays.workingDays(start, local::addMonths(start, 1));
}

struct NamedDay {
    HolidayCountry country;
    std::string date;
    std::string name;  // "" when the day must not be a holiday
};

void expectNamedDays(const std::vector<NamedDay>& cases) {
    for (const NamedDay& day : cases)
        EXPECT_EQ(nameOn(day.country, day.date), day.name) << rawValue(day.country) << " " << day.date;
}

TEST(Holidays, EasterAndTheDaysCountedFromIt) {
    using namespace std::chrono;
    EXPECT_EQ(Holidays::easter(2025), 2025y / April / 20);
    EXPECT_EQ(Holidays::easter(2026), 2026y / April / 5);
    EXPECT_EQ(Holidays::easter(2027), 2027y / March / 28);
    EXPECT_EQ(Holidays::easter(2028), 2028y / April / 16);
    EXPECT_EQ(Holidays::easter(2038), 2038y / April / 25);  // the latest possible
    EXPECT_EQ(Holidays::easter(2285), 2285y / March / 22);  // the earliest possible
    expectNamedDays({
        {france, "2026-05-25", "Lundi de Pentecôte"},
        {france, "2027-05-17", "Lundi de Pentecôte"},
        {france, "2026-05-14", "Ascension"},
        {belgium, "2026-04-06", "Lundi de Pâques"},
        {belgium, "2027-05-06", "Ascension"},
        {belgium, "2025-06-09", "Lundi de Pentecôte"},
        {germany, "2027-03-26", "Vendredi saint"},
        {france, "2027-03-26", ""},
    });
    EXPECT_EQ(nameOn(france, "2027-03-26", true), "Vendredi saint");
    EXPECT_EQ(nameOn(france, "2027-12-26", true), "Saint-Étienne");
}

TEST(Holidays, EachCountryHasItsNumberOfDays) {
    struct Count {
        HolidayCountry country;
        int year;
        bool alsaceMoselle;
        std::size_t days;
    };
    for (const Count& count : std::vector<Count>{
             {france, 2026, false, 11}, {france, 2026, true, 13}, {belgium, 2026, false, 10},
             {belgium, 2026, true, 10},  // Alsace-Moselle is French only
             {luxembourg, 2026, false, 11}, {luxembourg, 2018, false, 10}, {switzerland, 2026, false, 4},
             {germany, 2026, false, 9}, {germany, 2017, false, 10}, {germany, 2018, false, 9}})
        EXPECT_EQ(Holidays::builtIn(count.country, count.year, count.alsaceMoselle).size(), count.days)
            << rawValue(count.country) << " " << count.year << (count.alsaceMoselle ? " Alsace-Moselle" : "");
    EXPECT_FALSE(Holidays(belgium, true).alsaceMoselle());
    expectNamedDays({
        {belgium, "2026-05-08", ""},
        {france, "2026-05-08", "Victoire 1945"},
        {luxembourg, "2026-05-09", "Journée de l'Europe"},
        {luxembourg, "2018-05-09", ""},
        {germany, "2017-10-31", "500 ans de la Réforme"},
        {germany, "2016-10-31", ""},
        {germany, "2018-10-31", ""},
    });
}

TEST(Holidays, WorkingDaysCountCalendarDaysInAnyZone) {
    struct Month {
        HolidayCountry country;
        int year, month, workingDays;
    };
    const std::vector<Month> months{
        {france, 2026, 5, 17},       {france, 2026, 10, 22},       {france, 2026, 11, 20},
        {belgium, 2026, 11, 20},     {luxembourg, 2026, 12, 22},   {switzerland, 2026, 8, 21},
        {unitedKingdom, 2026, 12, 21}, {unitedStates, 2026, 11, 19}, {unitedStates, 2026, 7, 22},
        {germany, 2026, 10, 22},
    };
    for (const char* zone : {"Europe/Paris", "America/New_York"}) {
        testing::ScopedTimeZone scoped(zone);
        for (const Month& month : months)
            EXPECT_EQ(workingDaysOfMonth(Holidays(month.country), month.year, month.month), month.workingDays)
                << zone << " " << rawValue(month.country) << " " << month.year << "-" << month.month;
        Holidays france(HolidayCountry::france);
        // A range ending mid-day takes that day; one starting mid-day takes its own.
        EXPECT_EQ(france.workingDays(local::make(2026, 5, 4, 15), local::make(2026, 5, 7, 9)), 4);
        EXPECT_EQ(france.workingDays(local::make(2026, 5, 4), local::make(2026, 5, 7)), 3);
        EXPECT_EQ(france.workingDays(local::make(2026, 5, 7), local::make(2026, 5, 4)), 0);
        EXPECT_EQ(france.workingDays(local::make(2026, 1, 1), local::make(2027, 1, 1)), 252);
    }
}

TEST(Holidays, WeekendHolidaysGiveSubstituteDays) {
    expectNamedDays({
        {unitedKingdom, "2020-05-08", "Jour férié de début mai"},
        {unitedKingdom, "2020-05-04", ""},
        {unitedKingdom, "2026-12-26", "Lendemain de Noël"},
        {unitedKingdom, "2026-12-28", "Lendemain de Noël (reporté)"},
        {unitedKingdom, "2022-12-26", "Lendemain de Noël"},
        {unitedKingdom, "2022-12-27", "Noël (reporté)"},
        {unitedKingdom, "2028-01-03", "Jour de l'an (reporté)"},
        {unitedKingdom, "2002-06-03", "Jubilé d'or de la Reine"},
        {unitedKingdom, "2002-06-04", "Jour férié de printemps"},
        {unitedKingdom, "2002-05-27", ""},
        {unitedKingdom, "2012-06-04", "Jour férié de printemps"},
        {unitedKingdom, "2012-06-05", "Jubilé de diamant de la Reine"},
        {unitedKingdom, "2022-06-02", "Jour férié de printemps"},
        {unitedKingdom, "2022-06-03", "Jubilé de platine de la Reine"},
        {unitedKingdom, "2022-05-30", ""},
        {unitedKingdom, "2022-09-19", "Funérailles de la Reine"},
        {unitedKingdom, "2023-05-01", "Jour férié de début mai"},
        {unitedKingdom, "2023-05-08", "Couronnement du Roi"},
        {unitedKingdom, "2024-05-27", "Jour férié de printemps"},
        {canada, "2025-05-19", "Fête de la Reine Victoria"},
        {canada, "2026-05-18", "Fête de la Reine Victoria"},
        {canada, "2027-05-24", "Fête de la Reine Victoria"},
        {canada, "2026-10-12", "Action de grâce"},
        {canada, "2029-07-01", "Fête du Canada"},
        {canada, "2029-07-02", "Fête du Canada (reporté)"},
        {canada, "2027-12-27", "Noël (reporté)"},
        {canada, "2027-12-28", "Lendemain de Noël (reporté)"},
        {canada, "2021-09-30", "Journée de la vérité et de la réconciliation"},
        {canada, "2020-09-30", ""},
        {france, "2028-01-03", ""},
    });
}

TEST(Holidays, UnitedStatesObserveWeekendHolidaysOnTheNearestWeekday) {
    expectNamedDays({
        {unitedStates, "2026-11-26", "Action de grâce"},
        {unitedStates, "2026-07-03", "Jour de l'Indépendance (anticipé)"},
        {unitedStates, "2027-07-05", "Jour de l'Indépendance (reporté)"},
        {unitedStates, "2027-06-18", "Juneteenth (anticipé)"},
        {unitedStates, "2020-06-19", ""},
        {unitedStates, "2027-12-31", "Jour de l'an (anticipé)"},
        {unitedStates, "2028-01-01", "Jour de l'an"},
    });
    for (const Holiday& holiday : Holidays::builtIn(unitedStates, 2028, false))
        EXPECT_EQ(local::parts(holiday.date).year, 2028) << holiday.name;
    auto july = Holidays(unitedStates).weekdayHolidays(local::make(2026, 7, 1), local::make(2026, 8, 1));
    ASSERT_EQ(july.size(), 1u);
    EXPECT_EQ(july[0].date, local::make(2026, 7, 3));
}

TEST(Holidays, TwoRulesOnOneDayGiveOneEntry) {
    // Ascension fell on 1 May in 2008.
    for (HolidayCountry country : {france, belgium, germany}) {
        auto days = daysOf(country, 2008);
        EXPECT_EQ(days["2008-05-01"], "Fête du Travail") << rawValue(country);
        EXPECT_EQ(days.size(), Holidays::builtIn(country, 2026).size() - 1) << rawValue(country);
    }
}

TEST(Holidays, EveryListIsSortedDistinctAndInsideItsYear) {
    std::multiset<std::string> britishNames;
    for (HolidayCountry country : holidayCountries)
        for (bool alsaceMoselle : {false, true})
            for (int year = 2000; year <= 2040; ++year) {
                auto list = Holidays::builtIn(country, year, alsaceMoselle);
                ASSERT_FALSE(list.empty());
                for (std::size_t i = 0; i < list.size(); ++i) {
                    SCOPED_TRACE(std::string(rawValue(country)) + " " + list[i].name + " " +
                                 local::formatDay(list[i].date));
                    EXPECT_EQ(local::parts(list[i].date).year, year);
                    EXPECT_EQ(local::startOfDay(list[i].date), list[i].date);
                    if (i > 0) {
                        EXPECT_LT(list[i - 1].date, list[i].date);
                        EXPECT_FALSE(local::sameDay(list[i - 1].date, list[i].date));
                    }
                }
                if (country == unitedKingdom && !alsaceMoselle)
                    for (const Holiday& holiday : list) britishNames.insert(holiday.name);
            }
    for (const char* oneOff : {"Jubilé d'or de la Reine", "Mariage du prince William",
                               "Jubilé de diamant de la Reine", "Jubilé de platine de la Reine",
                               "Funérailles de la Reine", "Couronnement du Roi"})
        EXPECT_EQ(britishNames.count(oneOff), 1u) << oneOff;
}

TEST(Holidays, EveryNameReadsInEnglish) {
    std::set<std::string> names;
    for (HolidayCountry country : holidayCountries)
        for (int year = 2000; year <= 2040; ++year)
            for (const Holiday& holiday : Holidays::builtIn(country, year, true)) names.insert(holiday.name);
    const std::set<std::string> sameInBoth{"Memorial Day", "Juneteenth"};
    {
        testing::ScopedLanguage english("en");
        for (const std::string& name : names) {
            std::string translated = Holidays::localizedName(name);
            EXPECT_TRUE(translated != name || sameInBoth.contains(name)) << name;
            for (unsigned char c : translated) EXPECT_LT(c, 0x80) << name << " → " << translated;
        }
        EXPECT_EQ(Holidays::localizedName("Noël (reporté)"), "Christmas Day (substitute day)");
        EXPECT_EQ(Holidays::localizedName("Jour de l'an (anticipé)"), "New Year's Day (observed)");
    }
    testing::ScopedLanguage french("fr");
    EXPECT_EQ(Holidays::localizedName("Noël (reporté)"), "Noël (reporté)");
}

TEST(Holidays, RangesAndUpcomingCrossTheYearEnd) {
    Holidays france(HolidayCountry::france);
    auto winter = france.holidays(local::make(2026, 12, 1), local::make(2027, 2, 1));
    ASSERT_EQ(winter.size(), 2u);
    EXPECT_EQ(winter[0].date, local::make(2026, 12, 25));
    EXPECT_EQ(winter[1].date, local::make(2027, 1, 1));
    EXPECT_TRUE(france.holidays(local::make(2026, 12, 26), local::make(2027, 1, 1)).empty());

    auto next = france.upcoming(3, local::make(2026, 12, 25, 18));
    ASSERT_EQ(next.size(), 3u);
    EXPECT_EQ(next[0].name, "Noël");
    EXPECT_EQ(next[1].date, local::make(2027, 1, 1));
    EXPECT_EQ(next[2].date, local::make(2027, 3, 29));
    EXPECT_TRUE(france.upcoming(0, local::make(2026, 1, 1)).empty());

    EXPECT_TRUE(france.isHoliday(local::make(2026, 7, 14, 23, 30)));
    EXPECT_FALSE(france.isHoliday(local::make(2026, 7, 15)));
    // Saturday 4 July is the holiday; the day off is on the Friday.
    auto july = Holidays(unitedStates).holidays(local::make(2026, 7, 1), local::make(2026, 8, 1));
    ASSERT_EQ(july.size(), 2u);
    EXPECT_EQ(july[1].date, local::make(2026, 7, 4));
}

TEST(HolidayCountry, SettingThenLocaleRegionThenFrance) {
    for (HolidayCountry country : holidayCountries) EXPECT_EQ(parseHolidayCountry(rawValue(country)), country);
    EXPECT_EQ(parseHolidayCountry(" GB \n"), unitedKingdom);
    EXPECT_EQ(parseHolidayCountry("uk"), std::nullopt);

    EXPECT_EQ(chooseHolidayCountry(" De ", "fr_CH.UTF-8"), germany);
    EXPECT_EQ(chooseHolidayCountry("xx", "de_CH.UTF-8"), switzerland);
    EXPECT_EQ(chooseHolidayCountry("", "en_US.UTF-8@x"), unitedStates);
    EXPECT_EQ(chooseHolidayCountry(std::nullopt, "en_GB"), unitedKingdom);
    EXPECT_EQ(chooseHolidayCountry(std::nullopt, "pt_BR.UTF-8"), france);
    EXPECT_EQ(chooseHolidayCountry(std::nullopt, "C"), france);
    EXPECT_EQ(chooseHolidayCountry(std::nullopt, ""), france);

    testing::TempDir dir;
    Preferences prefs(dir / "settings.json");
    prefs.set("holidayCountry", std::string("fr"));
    prefs.set("holidayAlsaceMoselle", true);
    EXPECT_TRUE(Holidays::fromPreferences(prefs).isHoliday(local::make(2027, 3, 26)));  // Good Friday
    prefs.set("holidayCountry", std::string("ch"));
    Holidays swiss = Holidays::fromPreferences(prefs);
    EXPECT_EQ(swiss.country(), switzerland);
    EXPECT_FALSE(swiss.alsaceMoselle());

    testing::ScopedLanguage french("fr");
    EXPECT_EQ(label(unitedStates), "États-Unis");
    EXPECT_EQ(scope(luxembourg), "Les 11 jours fériés légaux, dont la Journée de l'Europe.");
}

} // namespace
} // namespace ombrelo
