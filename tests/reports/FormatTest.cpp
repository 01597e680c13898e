// Screen durations, decimal hours and the first day of the report week.
#include "reports/Format.h"
#include "support/LocalTime.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

namespace ombrelo {
namespace {

TEST(Format, ScreenDurationsRoundMinutesDown) {
    EXPECT_EQ(Format::duration(0), "< 1 min");
    EXPECT_EQ(Format::duration(59), "< 1 min");
    EXPECT_EQ(Format::duration(-30), "< 1 min");
    EXPECT_EQ(Format::duration(60), "1 min");
    EXPECT_EQ(Format::duration(59 * 60 + 59), "59 min");
    EXPECT_EQ(Format::duration(3600), "1 h 00");
    EXPECT_EQ(Format::duration(65 * 60), "1 h 05");
    EXPECT_EQ(Format::duration(27 * 3600 + 5 * 60 + 59), "27 h 05");
}

TEST(Format, ClockAndDecimalHours) {
    EXPECT_EQ(Format::clock(3.5 * 3600), "3:30");
    EXPECT_EQ(Format::clock(27 * 3600 + 5 * 60), "27:05");
    EXPECT_EQ(Format::clock(89), "0:01");  // nearest minute
    EXPECT_EQ(Format::clock(90), "0:02");  // halves up
    testing::ScopedLanguage french{"fr"};
    EXPECT_EQ(Format::hours(3.5 * 3600), "3,50");
    testing::ScopedLanguage english{"en"};
    EXPECT_EQ(Format::hours(3.5 * 3600), "3.50");
    EXPECT_EQ(Format::hours(61 * 60), "1.02");
}

TEST(Format, WeekStartsOnMondayInFrenchAndByRegionInEnglish) {
    testing::ScopedTimeZone paris{"Europe/Paris"};
    EXPECT_EQ(Format::firstWeekday("en_US"), 1);
    EXPECT_EQ(Format::firstWeekday("en_GB"), 2);
    testing::ScopedLanguage french{"fr"};
    EXPECT_EQ(Format::firstWeekday(), 2);
    // The week of Wednesday 21 October 2026 runs from Monday 19.
    EXPECT_EQ(Format::weekStart(local::make(2026, 10, 21, 15, 0)), local::make(2026, 10, 19));
}

} // namespace
} // namespace ombrelo
