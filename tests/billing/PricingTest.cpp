// Pricing one day of a project, the limits that keep amounts in range, and the
// money text around them.
#include "billing/Project.h"
#include "support/Money.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

#include <limits>

namespace ombrelo {
namespace {

using Rounding = Project::Rounding;
using RateKind = Project::RateKind;

Project priced(RateKind kind, std::int64_t rateCents, Rounding rounding, double dayHours = 7) {
    Project p;
    p.id = 1;
    p.name = "Refonte";
    p.rateKind = kind;
    p.rateCents = rateCents;
    p.rounding = rounding;
    p.dayHours = dayHours;
    return p;
}

constexpr double threeTen = 3 * 3600 + 10 * 60;
constexpr double fiftyMinutes = 50 * 60;

TEST(Pricing, DayRateExamples) {
    EXPECT_EQ(priced(RateKind::day, 50000, Rounding::halfDay).amountCents(threeTen), 25000);
    EXPECT_DOUBLE_EQ(priced(RateKind::day, 50000, Rounding::halfDay).billedDays(threeTen), 0.5);
    EXPECT_EQ(priced(RateKind::day, 50000, Rounding::day).amountCents(threeTen), 50000);
    EXPECT_DOUBLE_EQ(priced(RateKind::day, 50000, Rounding::day).billedDays(threeTen), 1);
    EXPECT_EQ(priced(RateKind::day, 50000, Rounding::none).amountCents(threeTen), 22619);
    EXPECT_NEAR(priced(RateKind::day, 50000, Rounding::none).billedDays(threeTen), 11400.0 / 25200, 1e-12);
    // Quarter and half hours of a day rate: 3 h 15 and 3 h 30 out of 7 h.
    EXPECT_EQ(priced(RateKind::day, 50000, Rounding::quarterHour).amountCents(threeTen), 23214);  // 23 214.29
    EXPECT_EQ(priced(RateKind::day, 50000, Rounding::halfHour).amountCents(threeTen), 25000);
    // A full day of 5 h at 550 € with half days: 1 day; 3 h: ½ day.
    EXPECT_EQ(priced(RateKind::day, 55000, Rounding::halfDay).amountCents(5 * 3600), 55000);
    EXPECT_EQ(priced(RateKind::day, 55000, Rounding::halfDay).amountCents(3 * 3600), 27500);
}

TEST(Pricing, HourRateExamples) {
    EXPECT_EQ(priced(RateKind::hour, 6000, Rounding::none).amountCents(fiftyMinutes), 5000);
    EXPECT_EQ(priced(RateKind::hour, 6000, Rounding::quarterHour).amountCents(fiftyMinutes), 6000);
    EXPECT_EQ(priced(RateKind::hour, 6000, Rounding::halfHour).amountCents(fiftyMinutes), 6000);
    // Day fractions of an hourly rate bill H/2 or H hours.
    EXPECT_EQ(priced(RateKind::hour, 6000, Rounding::halfDay).amountCents(fiftyMinutes), 21000);  // 3.5 h
    EXPECT_EQ(priced(RateKind::hour, 6000, Rounding::day).amountCents(fiftyMinutes), 42000);      // 7 h
    EXPECT_DOUBLE_EQ(priced(RateKind::hour, 6000, Rounding::halfDay).billedDays(fiftyMinutes), 0.5);
    EXPECT_NEAR(priced(RateKind::hour, 6000, Rounding::none).billedDays(fiftyMinutes), 50.0 / 420, 1e-12);
}

TEST(Pricing, RoundsUpOnlyPastEachUnit) {
    Project quarter = priced(RateKind::hour, 10000, Rounding::quarterHour);
    EXPECT_EQ(quarter.amountCents(900), 2500);    // exactly one quarter stays one
    EXPECT_EQ(quarter.amountCents(900.5), 5000);  // half a second more starts the next
    EXPECT_EQ(quarter.amountCents(1), 2500);
    Project halfDay = priced(RateKind::day, 70000, Rounding::halfDay, 7.5);
    EXPECT_EQ(halfDay.amountCents(3.75 * 3600), 35000);
    EXPECT_EQ(halfDay.amountCents(3.75 * 3600 + 1), 70000);
    EXPECT_EQ(halfDay.amountCents(9 * 3600), 105000);  // 1.5 days on a long day
}

TEST(Pricing, HalvesRoundAwayFromZero) {
    // 30 min at 1 cent per hour is exactly half a cent.
    EXPECT_EQ(priced(RateKind::hour, 1, Rounding::none).amountCents(1800), 1);
    EXPECT_EQ(priced(RateKind::hour, 1, Rounding::none).amountCents(1799), 0);
    // 3 cents per hour for 30 min: 1.5 → 2; 1 h 30 at 3 cents: 4.5 → 5.
    EXPECT_EQ(priced(RateKind::hour, 3, Rounding::none).amountCents(1800), 2);
    EXPECT_EQ(priced(RateKind::hour, 3, Rounding::none).amountCents(5400), 5);
    // A day rate of 1 cent over 3 h 30 of a 7 h day: ½ → 1.
    EXPECT_EQ(priced(RateKind::day, 1, Rounding::none).amountCents(3.5 * 3600), 1);
}

TEST(Pricing, BillsNothingWithoutTimeRateOrBillability) {
    for (Rounding rounding : {Rounding::none, Rounding::quarterHour, Rounding::halfHour, Rounding::halfDay,
                              Rounding::day}) {
        for (RateKind kind : {RateKind::hour, RateKind::day}) {
            Project free = priced(kind, 0, rounding);
            EXPECT_EQ(free.amountCents(threeTen), 0);
            EXPECT_GT(free.billedDays(threeTen), 0);  // days still count without a rate
            Project p = priced(kind, 50000, rounding);
            EXPECT_EQ(p.amountCents(0), 0);
            EXPECT_EQ(p.amountCents(-60), 0);
            EXPECT_EQ(p.amountCents(std::numeric_limits<double>::quiet_NaN()), 0);
            EXPECT_EQ(p.billedDays(0), 0);
            p.billable = false;
            EXPECT_EQ(p.amountCents(threeTen), 0);
            EXPECT_EQ(p.billedDays(threeTen), 0);
        }
    }
    Project noDay = priced(RateKind::day, 50000, Rounding::none, 0);
    EXPECT_EQ(noDay.billedDays(threeTen), 0);
    EXPECT_EQ(noDay.amountCents(threeTen), 0);
}

TEST(Pricing, LargestSavedRateStaysExact) {
    Project p = priced(RateKind::hour, Project::maxRateCents, Rounding::none);
    ASSERT_FALSE(p.problem());
    EXPECT_EQ(p.amountCents(86400), 24 * Project::maxRateCents);
    p.rateKind = RateKind::day;
    p.dayHours = 1.0 / 3600;  // one second, the shortest day there is
    EXPECT_EQ(p.amountCents(86400), 86400 * Project::maxRateCents);
}

TEST(PricingDeathTest, AnAmountBeyondRangeStopsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // A rate no save would accept, as a damaged row could carry it.
    Project p = priced(RateKind::hour, std::int64_t{1} << 62, Rounding::none);
    EXPECT_EQ(p.amountCents(3600), std::int64_t{1} << 62);
    EXPECT_DEATH(p.amountCents(7200), "Montant hors limites");
    EXPECT_DEATH(priced(RateKind::hour, 100, Rounding::none).amountCents(1e12), "Montant hors limites");
    EXPECT_DEATH(addCents(std::numeric_limits<std::int64_t>::max(), 1), "Montant hors limites");
}

TEST(Pricing, SavingRefusesValuesThatCouldOverflow) {
    Project p = priced(RateKind::hour, 6000, Rounding::none);
    EXPECT_FALSE(p.problem());
    p.rateCents = Project::maxRateCents + 1;
    EXPECT_EQ(p.problem(), RecordProblem::rateOutOfRange);
    p.rateCents = -1;
    EXPECT_EQ(p.problem(), RecordProblem::rateOutOfRange);
    p.rateCents = 6000;
    for (double hours : {0.0, -7.0, 24.01, 1e300, std::numeric_limits<double>::quiet_NaN(), 7.0001}) {
        p.dayHours = hours;
        EXPECT_EQ(p.problem(), RecordProblem::dayHoursOutOfRange) << hours;
    }
    p.dayHours = 22.0 / 3;  // 7 h 20 is whole seconds even if its double is not exact
    EXPECT_FALSE(p.problem());
    p.budgetMinutes = 0;
    EXPECT_EQ(p.problem(), RecordProblem::budgetOutOfRange);
    p.budgetMinutes = Project::maxBudgetMinutes + 1;
    EXPECT_EQ(p.problem(), RecordProblem::budgetOutOfRange);
    p.budgetMinutes = 2400;
    p.name = "  ";
    EXPECT_EQ(p.problem(), RecordProblem::emptyName);
    p.name = "Refonte";
    p.color = "Bleu vif";
    EXPECT_EQ(p.problem(), RecordProblem::badColor);
}

TEST(Pricing, LabelsAndGauge) {
    testing::ScopedLanguage french("fr");
    EXPECT_EQ(priced(RateKind::hour, 0, Rounding::none).rateLabel("EUR"), "Sans taux");
    EXPECT_EQ(priced(RateKind::day, 55000, Rounding::none).rateLabel("EUR"), "TJM 550,00\u00A0€");
    EXPECT_EQ(priced(RateKind::hour, 6250, Rounding::none).rateLabel("EUR"), "62,50\u00A0€");
    EXPECT_EQ(roundingLabel(Rounding::quarterHour), "Au ¼ d'heure");

    Project p = priced(RateKind::hour, 6000, Rounding::none);
    EXPECT_FALSE(BudgetGauge::of(p, 3600));
    p.budgetMinutes = 600;  // 10 h
    EXPECT_EQ(BudgetGauge::of(p, 4.5 * 3600)->text(), "Budget consommé : 45\u202F%");
    EXPECT_EQ(BudgetGauge::of(p, 9.999 * 3600)->text(), "Budget consommé : 99\u202F%");
    EXPECT_EQ(BudgetGauge::of(p, 10 * 3600)->text(), "Budget consommé : 100\u202F%");
    EXPECT_EQ(BudgetGauge::of(p, 12 * 3600 + 300)->text(), "Budget dépassé de 2 h 05");
    EXPECT_EQ(BudgetGauge::of(p, 10 * 3600 + 45 * 60)->text(), "Budget dépassé de 45 min");

    testing::ScopedLanguage english("en");
    EXPECT_EQ(priced(RateKind::hour, 0, Rounding::none).rateLabel("EUR"), "No rate");
    EXPECT_EQ(BudgetGauge::of(p, 4.5 * 3600)->text(), "Budget used: 45%");
}

TEST(Pricing, ProjectLabel) {
    testing::ScopedLanguage french("fr");
    std::vector<Client> clients{{3, "Atelier Dupont", "teal"}};
    Project p = priced(RateKind::hour, 0, Rounding::none);
    EXPECT_EQ(projectLabel(&p, clients), "Refonte");
    p.clientID = 3;
    EXPECT_EQ(projectLabel(&p, clients), "Atelier Dupont › Refonte");
    p.clientID = 4;  // a client that is gone
    EXPECT_EQ(projectLabel(&p, clients), "Refonte");
    EXPECT_EQ(projectLabel(nullptr, clients), "Sans projet");
    testing::ScopedLanguage english("en");
    EXPECT_EQ(projectLabel(nullptr, clients), "No project");
}

TEST(Money, FormatsExactCentsInTheInterfaceLocale) {
    EXPECT_EQ(formatMoney(82500, "EUR", "fr_FR"), "825,00\u00A0€");
    EXPECT_EQ(formatMoney(123456789, "EUR", "fr_FR"), "1\u202F234\u202F567,89\u00A0€");
    EXPECT_EQ(formatMoney(82500, "EUR", "en_US"), "€825.00");
    EXPECT_EQ(formatMoney(-5, "GBP", "en_GB"), "-£0.05");
    // Beyond a double's exact integers, the digits are still the stored ones.
    EXPECT_EQ(formatMoney(std::numeric_limits<std::int64_t>::max(), "USD", "en_US"), "$92,233,720,368,547,758.07");
    EXPECT_EQ(centsText(std::numeric_limits<std::int64_t>::min()), "-92233720368547758.08");
    testing::ScopedLanguage french("fr");
    EXPECT_EQ(formatMoney(27500, "EUR"), "275,00\u00A0€");
}

TEST(Money, ParsesDecimalAmountsExactly) {
    EXPECT_EQ(parseMoney("550").cents, 55000);
    EXPECT_EQ(parseMoney("62.50").cents, 6250);
    EXPECT_EQ(parseMoney(" 62,5 ").cents, 6250);
    EXPECT_EQ(parseMoney("0.07").cents, 7);
    EXPECT_EQ(parseMoney("92233720368547758.07").cents, std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(parseMoney("62.505").problem, MoneyProblem::tooManyDecimals);
    EXPECT_EQ(parseMoney("92233720368547758.08").problem, MoneyProblem::tooLarge);
    for (const char* bad : {"", "abc", "-5", "5.", ".5", "1.2.3", "1 000", "5€", "1e3"})
        EXPECT_EQ(parseMoney(bad).problem, MoneyProblem::malformed) << bad;
}

TEST(Money, CurrencyFromSettingThenLocale) {
    EXPECT_EQ(chooseCurrency(std::string("chf"), "en_US.UTF-8"), "CHF");
    EXPECT_EQ(chooseCurrency(std::string("JPY"), "en_US.UTF-8"), "USD");  // unknown setting: the locale's
    EXPECT_EQ(chooseCurrency(std::nullopt, "en_GB.UTF-8"), "GBP");
    EXPECT_EQ(chooseCurrency(std::nullopt, "fr_CA.UTF-8"), "CAD");
    EXPECT_EQ(chooseCurrency(std::nullopt, "ja_JP.UTF-8"), "EUR");  // a currency outside the five
    EXPECT_EQ(chooseCurrency(std::nullopt, "C"), "EUR");
    EXPECT_EQ(chooseCurrency(std::nullopt, ""), "EUR");
}

} // namespace
} // namespace ombrelo
