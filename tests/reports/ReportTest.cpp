// The report model: lines per project and day priced one day at a time, their
// order, the client filter, totals, periods and their labels, working days.
#include "reports/Report.h"
#include "reports/ReportFormat.h"
#include "reports/ReportItems.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

namespace ombrelo {
namespace {

class ReportTest : public ::testing::Test {
protected:
    testing::ScopedTimeZone paris{"Europe/Paris"};
    testing::ScopedLanguage french{"fr"};
    testing::ReportItems make;
    Holidays france{HolidayCountry::france};
    Instant october = local::make(2026, 10, 1);
    Instant november = local::make(2026, 11, 1);

    Report build(const ClassifiedList& items, std::optional<Client> client = std::nullopt) {
        return Report::build(items, october, november, client, {make.dupont, make.other}, france);
    }
};

TEST_F(ReportTest, StatementExamplePricesEachDayOnItsOwn) {
    Report report = build(make.statementExample(), make.dupont);
    ASSERT_EQ(report.lines.size(), 2u);
    EXPECT_EQ(report.lines[0].day, local::make(2026, 10, 5));
    EXPECT_DOUBLE_EQ(report.lines[0].days, 0.5);
    EXPECT_EQ(report.lines[0].amountCents, 27'500);
    EXPECT_EQ(report.lines[0].client->name, "Atelier Dupont");
    EXPECT_DOUBLE_EQ(report.lines[1].days, 1.0);
    EXPECT_EQ(report.lines[1].amountCents, 55'000);
    EXPECT_DOUBLE_EQ(report.active, 8 * 3600);
    EXPECT_DOUBLE_EQ(report.billable, 8 * 3600);
    EXPECT_DOUBLE_EQ(report.billedDays, 1.5);
    EXPECT_EQ(report.amountCents, 82'500);
    ASSERT_EQ(report.projects.size(), 1u);
    EXPECT_EQ(report.projects[0].amountCents, 82'500);
    EXPECT_EQ(report.daily.size(), 31u);
}

TEST_F(ReportTest, TotalsAreSumsOfRoundedDaysNeverReRounded) {
    // A quarter-hour started on each of two days bills two quarters; two
    // stretches on one day bill one.
    Project hourly = make.project(11, "Support", make.dupont.id, 10'000, Project::RateKind::hour,
                                  Project::Rounding::quarterHour);
    Instant day1 = local::make(2026, 10, 12, 9, 0), day2 = local::make(2026, 10, 13, 9, 0);
    Report twoDays = build({make.item(day1, 600, hourly), make.item(day2, 600, hourly)});
    EXPECT_EQ(twoDays.amountCents, 5'000);
    Report oneDay = build({make.item(day1, 300, hourly), make.item(day1 + 3600, 300, hourly)});
    ASSERT_EQ(oneDay.lines.size(), 1u);
    EXPECT_EQ(oneDay.amountCents, 2'500);
    EXPECT_EQ(oneDay.lines[0].activityIDs.size(), 2u);
}

TEST_F(ReportTest, LinesSortByDayClientAndProjectInCodePointOrder) {
    Instant day = local::make(2026, 10, 6, 9, 0);
    Project zeta = make.project(20, "Zeta", make.dupont.id, 0);
    Project alpha = make.project(21, "Alpha", make.dupont.id, 0);
    Project lower = make.project(22, "alpha", make.dupont.id, 0);
    Project zinc = make.project(23, "Atelier", make.other.id, 0);
    Project alone = make.project(24, "Perso", std::nullopt, 0);
    Report report = build({make.item(day, 60, zinc), make.item(day, 60, lower), make.item(day, 60, zeta),
                           make.item(day, 60, alone), make.item(day, 60, alpha),
                           make.item(day - 86'400, 60, zinc)});
    std::vector<std::string> order;
    for (const ReportLine& line : report.lines) order.push_back(line.project.name);
    // The day before first; then no client (the empty name), Atelier Dupont's
    // Alpha < Zeta < alpha, then Zinc & Co.
    EXPECT_EQ(order, (std::vector<std::string>{"Atelier", "Perso", "Alpha", "Zeta", "alpha", "Atelier"}));
}

TEST_F(ReportTest, ClientFilterAndTimeWithoutProject) {
    Instant day = local::make(2026, 10, 6, 9, 0);
    Project zinc = make.project(23, "Atelier", make.other.id, 0);
    ClassifiedList items{make.item(day, 3600, make.refonte, "Maquettes"), make.item(day + 3600, 1800, zinc),
                         make.item(day + 5400, 600, std::nullopt),
                         make.item(day + 6000, 900, make.refonte, "Maquettes"),
                         make.item(day + 6900, 300, make.refonte, "Revue"),
                         make.item(day + 7200, 1200, make.refonte, {}, Activity::Kind::idle)};
    Report all = build(items);
    EXPECT_DOUBLE_EQ(all.active, 3600 + 1800 + 600 + 900 + 300);  // idle counts nowhere
    EXPECT_EQ(all.lines.size(), 2u);                                 // no line without project
    EXPECT_EQ(all.projects.front().project.id, make.refonte.id);      // largest first

    Report dupont = build(items, make.dupont);
    ASSERT_EQ(dupont.lines.size(), 1u);
    EXPECT_DOUBLE_EQ(dupont.active, 3600 + 900 + 300);
    EXPECT_EQ(dupont.lines[0].notes, (std::vector<std::string>{"Maquettes", "Revue"}));
    EXPECT_EQ(dupont.clientName(), "Atelier Dupont");
    EXPECT_EQ(all.clientName(), "Tous les clients");
}

TEST_F(ReportTest, EmptyPeriodStillCountsWorkingDaysAndHolidays) {
    Report report = Report::build({}, november, local::make(2026, 12, 1), std::nullopt, {}, france);
    EXPECT_TRUE(report.lines.empty());
    EXPECT_EQ(report.amountCents, 0);
    EXPECT_EQ(report.workingDays, 20);
    // 1 November is a Sunday: only the Armistice falls on a weekday.
    ASSERT_EQ(report.holidays.size(), 1u);
    EXPECT_EQ(report.holidays[0].name, "Armistice");
}

TEST_F(ReportTest, PeriodsFollowTheReportCalendar) {
    Instant wednesday = local::make(2026, 10, 21, 15, 0);
    ReportInterval week = interval(ReportPeriod::thisWeek, wednesday);
    EXPECT_EQ(week.start, local::make(2026, 10, 19));
    EXPECT_EQ(week.end, local::make(2026, 10, 26));
    EXPECT_EQ(interval(ReportPeriod::lastWeek, wednesday).start, local::make(2026, 10, 12));
    {
        testing::ScopedLanguage english{"en"};
        testing::ScopedEnvironment us{"LC_ALL", "en_US.UTF-8"};
        EXPECT_EQ(interval(ReportPeriod::thisWeek, wednesday).start, local::make(2026, 10, 18));
        EXPECT_EQ(interval(ReportPeriod::thisWeek, wednesday).end, local::make(2026, 10, 25));
        testing::ScopedEnvironment uk{"LC_ALL", "en_GB.UTF-8"};
        EXPECT_EQ(interval(ReportPeriod::thisWeek, wednesday).start, local::make(2026, 10, 19));
    }
    ReportInterval lastMonth = interval(ReportPeriod::lastMonth, local::make(2027, 1, 15, 12, 0));
    EXPECT_EQ(lastMonth.start, local::make(2026, 12, 1));
    EXPECT_EQ(lastMonth.end, local::make(2027, 1, 1));
    ReportInterval custom = interval(ReportPeriod::custom, 0, local::make(2026, 10, 31, 18, 0),
                                     local::make(2026, 10, 1, 9, 0));
    EXPECT_EQ(custom.start, october);
    EXPECT_EQ(custom.end, november);
    // The day of the change to winter time lasts 25 hours and is included whole.
    EXPECT_EQ(interval(ReportPeriod::custom, 0, local::make(2026, 10, 25), local::make(2026, 10, 25)).end,
              local::make(2026, 10, 26));
}

TEST_F(ReportTest, PeriodLabels) {
    ReportFormat inFrench("fr_FR", "EUR");
    Report month = build({});
    EXPECT_EQ(month.periodLabel(inFrench), "du 1er octobre au 31 octobre 2026");
    Report acrossYears = Report::build({}, local::make(2026, 12, 28), local::make(2027, 1, 4), std::nullopt, {}, france);
    EXPECT_EQ(acrossYears.periodLabel(inFrench), "du 28 décembre 2026 au 3 janvier 2027");
    testing::ScopedLanguage english{"en"};
    EXPECT_EQ(month.periodLabel(ReportFormat("en_US", "USD")), "from October 1 to October 31, 2026");
    EXPECT_EQ(month.periodLabel(ReportFormat("en_GB", "GBP")), "from 1 October to 31 October 2026");
}

} // namespace
} // namespace ombrelo
