#include "support/Fold.h"
#include "support/L10n.h"
#include "support/LocalTime.h"
#include "support/Preferences.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>

namespace ombrelo {
namespace {

TEST(LocalTime, DaysFollowTheCalendarAcrossDaylightSaving) {
    testing::ScopedTimeZone paris("Europe/Paris");
    Instant march29 = local::make(2026, 3, 29);  // clocks go forward: a 23-hour day
    EXPECT_EQ(local::addDays(march29, 1) - march29, 23 * 3600);
    Instant october25 = local::make(2026, 10, 25);  // back: 25 hours
    EXPECT_EQ(local::addDays(october25, 1) - october25, 25 * 3600);
    EXPECT_EQ(local::startOfDay(october25 + 20 * 3600), october25);
    EXPECT_EQ(local::weekday(local::make(2026, 10, 21)), 4);  // a Wednesday
    EXPECT_EQ(local::startOfWeek(local::make(2026, 10, 21, 15), 2), local::make(2026, 10, 19));
    EXPECT_EQ(local::startOfWeek(local::make(2026, 10, 21, 15), 1), local::make(2026, 10, 18));
    EXPECT_EQ(local::addMonths(local::make(2026, 12, 1), 1), local::make(2027, 1, 1));
}

// Wall-clock times become the instants the C library's mktime gives, in zones
// with daylight saving at night, at midnight, by half an hour, south of the
// equator, and a zone that skipped a whole day (Samoa, end of 2011): every
// quarter of an hour of those years, the clocks' changes included.
TEST(LocalTime, WallTimesResolveAsTheCLibraryDoes) {
    for (const char* zone : {"Europe/Paris", "America/New_York", "America/Santiago", "Australia/Lord_Howe",
                             "Asia/Kolkata", "Pacific/Apia"}) {
        ASSERT_TRUE(std::filesystem::exists(std::string("/usr/share/zoneinfo/") + zone)) << zone;
        testing::ScopedTimeZone scoped(zone);
        for (int year : {2011, 2026}) {
            for (int day = 1; day <= 366; ++day) {
                for (int minute = 0; minute < 24 * 60; minute += 15) {
                    std::tm tm{};
                    tm.tm_year = year - 1900;
                    tm.tm_mday = day;  // day 32 of January is 1 February
                    tm.tm_min = minute;
                    tm.tm_isdst = -1;
                    auto expected = static_cast<Instant>(std::mktime(&tm));
                    ASSERT_EQ(local::make(year, 1, day, 0, minute), expected)
                        << zone << " " << year << " day " << day << " minute " << minute;
                }
            }
        }
    }
}

TEST(LocalTime, ParsesOnlyRealDates) {
    testing::ScopedTimeZone newYork("America/New_York");
    EXPECT_EQ(local::parseDay("2026-10-05"), local::make(2026, 10, 5));
    EXPECT_EQ(local::parseDateTime("2026-10-05T09:30"), local::make(2026, 10, 5, 9, 30));
    EXPECT_EQ(local::parseDateTime("2026-10-05T09:30:15"), local::make(2026, 10, 5, 9, 30, 15));
    for (const char* bad : {"2026-02-30", "2026-13-01", "2026-1-05", "20261005", "", "2026-10-05x"})
        EXPECT_FALSE(local::parseDay(bad)) << bad;
    for (const char* bad : {"2026-10-05T24:00", "2026-10-05 09:30", "2026-10-05T9:30", "2026-10-05T09:60"})
        EXPECT_FALSE(local::parseDateTime(bad)) << bad;
    EXPECT_EQ(local::formatDateTime(local::make(2026, 10, 5, 9, 3, 7)), "2026-10-05T09:03:07");
}

TEST(Fold, IgnoresCaseAndAccents) {
    EXPECT_EQ(fold("Réunion Dupont — Devis 42"), fold("REUNION DUPONT — devis 42"));
    EXPECT_EQ(fold("Éléphant"), "elephant");
    EXPECT_EQ(fold("GitHub"), "github");
    EXPECT_EQ(trim("  a b \n"), "a b");
    EXPECT_EQ(trim(" \t"), "");
}

TEST(L10n, SettingBeatsLocaleAndOnlyFrenchIsFrench) {
    testing::TempDir dir;
    Preferences prefs(dir / "settings.json");
    testing::ScopedEnvironment lang("LANG", "fr_FR.UTF-8");
    testing::ScopedEnvironment all("LC_ALL", std::nullopt);
    testing::ScopedEnvironment messages("LC_MESSAGES", std::nullopt);
    EXPECT_EQ(L10n::resolve(prefs), "fr");
    prefs.set("language", std::string("de"));
    EXPECT_EQ(L10n::resolve(prefs), "de");
    testing::ScopedLanguage german("de");
    EXPECT_FALSE(L10n::french());
    EXPECT_EQ(L10n::text("oui", "yes"), "yes");
}

} // namespace
} // namespace ombrelo
