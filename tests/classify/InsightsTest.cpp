// Blocks of a day and totals of a period, from hand-made classified items.
#include "classify/Insights.h"
#include "support/LocalTime.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

namespace ombrelo {
namespace {

using Kind = Activity::Kind;

class InsightsTest : public ::testing::Test {
protected:
    testing::ScopedTimeZone paris{"Europe/Paris"};
    testing::ScopedLanguage french{"fr"};
    Instant nine = local::make(2026, 3, 2, 9, 0);
    Category code{1, "Code", "teal", "hammer", false};
    Category videos{2, "Vidéos", "carmine", "play", true};
    Project refonte = project(10, "Refonte", 6000, Project::Rounding::quarterHour);
    std::int64_t nextID = 1;

    static Project project(std::int64_t id, std::string name, std::int64_t rate, Project::Rounding rounding,
                           Project::RateKind kind = Project::RateKind::hour) {
        Project p;
        p.id = id;
        p.name = std::move(name);
        p.rateCents = rate;
        p.rounding = rounding;
        p.rateKind = kind;
        return p;
    }

    // An item from `offset` seconds after nine, lasting `seconds`.
    Classified item(double offset, double seconds, std::optional<Project> p, std::optional<Category> c,
                    Kind kind = Kind::app, std::string app = "Xcode") {
        Classified it;
        it.activity.id = nextID++;
        it.activity.start = nine + offset;
        it.activity.end = nine + offset + seconds;
        it.activity.appName = std::move(app);
        it.activity.kind = kind;
        if (p) it.project = std::make_shared<const Project>(std::move(*p));
        if (c) it.category = std::make_shared<const Category>(std::move(*c));
        return it;
    }
    Classified idle(double offset, double seconds) { return item(offset, seconds, {}, {}, Kind::idle, "Inactif"); }

    static std::vector<std::size_t> sizes(const std::vector<Block>& blocks) {
        std::vector<std::size_t> result;
        for (const Block& block : blocks) result.push_back(block.items.size());
        return result;
    }
};

TEST_F(InsightsTest, GapUnderTwoMinutesJoinsAndTwoMinutesSplits) {
    auto joined = Insights::blocks({item(0, 600, refonte, code), item(600 + 119, 600, refonte, code)});
    EXPECT_EQ(sizes(joined), (std::vector<std::size_t>{2}));
    auto split = Insights::blocks({item(0, 600, refonte, code), item(600 + 120, 600, refonte, code)});
    EXPECT_EQ(sizes(split), (std::vector<std::size_t>{1, 1}));
}

TEST_F(InsightsTest, ShortInterruptionIsAbsorbedButNotAnAbsence) {
    auto interrupted = Insights::blocks(
        {item(0, 600, refonte, code), item(600, 90, {}, videos, Kind::app, "Safari"), item(690, 600, refonte, code)});
    ASSERT_EQ(sizes(interrupted), (std::vector<std::size_t>{3}));
    // Each item keeps its own classification inside the merged block.
    EXPECT_FALSE(interrupted[0].items[1].project);
    EXPECT_EQ(interrupted[0].seconds(), 1290);

    auto away = Insights::blocks({item(0, 600, refonte, code), idle(600, 90), item(690, 600, refonte, code)});
    EXPECT_EQ(sizes(away), (std::vector<std::size_t>{1, 1, 1}));
    EXPECT_TRUE(away[1].idle());

    // Two minutes of other work is no longer a short interruption.
    auto twoMinutes = Insights::blocks(
        {item(0, 600, refonte, code), item(600, 120, {}, videos), item(720, 600, refonte, code)});
    EXPECT_EQ(sizes(twoMinutes), (std::vector<std::size_t>{1, 1, 1}));
}

TEST_F(InsightsTest, SubSecondItemsAreInNoBlock) {
    auto blocks = Insights::blocks({item(0, 0.5, refonte, code)});
    EXPECT_TRUE(blocks.empty());
    // Nor do they separate their neighbours.
    blocks = Insights::blocks({item(0, 60, refonte, code), item(60, 0.5, {}, videos), item(61, 60, refonte, code)});
    EXPECT_EQ(sizes(blocks), (std::vector<std::size_t>{2}));
}

TEST_F(InsightsTest, SameWorkComparesProjectCategoryAndNotes) {
    Classified first = item(0, 60, refonte, code);
    EXPECT_TRUE(Insights::sameWork({first}, item(60, 60, refonte, code)));
    EXPECT_FALSE(Insights::sameWork({first}, item(60, 60, {}, code)));
    EXPECT_FALSE(Insights::sameWork({first}, item(60, 60, refonte, {})));
    EXPECT_FALSE(Insights::sameWork({first}, idle(60, 60)));
    EXPECT_TRUE(Insights::sameWork({idle(0, 60)}, idle(60, 60)));

    Classified noted = item(60, 60, refonte, code);
    noted.note = "devis";
    Classified other = item(120, 60, refonte, code);
    other.note = "maquette";
    // A missing note never separates; two different notes do.
    EXPECT_TRUE(Insights::sameWork({first}, noted));
    EXPECT_TRUE(Insights::sameWork({first, noted}, item(120, 60, refonte, code)));
    EXPECT_FALSE(Insights::sameWork({first, noted}, other));
}

TEST_F(InsightsTest, BlockDescribesItsWork) {
    Classified a = item(0, 300, refonte, code, Kind::app, "Xcode");
    a.activity.title = "main.swift";
    Classified b = item(300, 900, refonte, code, Kind::app, "Safari");
    b.activity.domain = "github.com";
    b.activity.title = "Pull request";
    b.manual = true;
    Classified c = item(1200, 100, refonte, code, Kind::app, "Xcode");
    auto blocks = Insights::blocks({a, b, c});
    ASSERT_EQ(blocks.size(), 1u);
    const Block& block = blocks.front();
    EXPECT_EQ(block.title(), "Pull request");  // the longest titled item
    EXPECT_TRUE(block.manual());
    EXPECT_EQ(block.activityIDs(), (std::vector<std::int64_t>{a.activity.id, b.activity.id, c.activity.id}));
    auto labels = block.labels();
    ASSERT_EQ(labels.size(), 2u);
    EXPECT_EQ(labels[0].label, "github.com");
    EXPECT_EQ(labels[0].seconds, 900);
    EXPECT_EQ(labels[1].label, "Xcode");
    EXPECT_EQ(labels[1].seconds, 400);
}

TEST_F(InsightsTest, SummaryRoundsEachProjectDayOnItsOwn) {
    // 61 minutes at 60.00/h, quarter hours: 1.25 h = 75.00.
    auto summary = Insights::summary({item(0, 30 * 60, refonte, code), item(3600, 31 * 60, refonte, code)});
    EXPECT_EQ(summary.amountCents, 7500);
    EXPECT_EQ(summary.billable, 61 * 60);
    ASSERT_EQ(summary.byProject.size(), 1u);
    EXPECT_EQ(summary.byProject[0].amountCents, 7500);

    // Two 5-minute stretches on two days bill two quarters; on one day, one.
    Classified monday = item(0, 300, refonte, code);
    Classified tuesday = item(86400, 300, refonte, code);
    EXPECT_EQ(Insights::summary({monday, tuesday}).amountCents, 3000);
    EXPECT_EQ(Insights::summary({monday, item(3600, 300, refonte, code)}).amountCents, 1500);
}

TEST_F(InsightsTest, DayRateHalfDayBillsHalfADayForTwoHours) {
    Project tjm = project(11, "Audit", 55000, Project::Rounding::halfDay, Project::RateKind::day);
    auto summary = Insights::summary({item(0, 2 * 3600, tjm, code)});
    EXPECT_EQ(summary.amountCents, 27500);
    // Without rounding, 2 of 7 hours at 550.00: 157.14.
    tjm.rounding = Project::Rounding::none;
    EXPECT_EQ(Insights::summary({item(0, 2 * 3600, tjm, code)}).amountCents, 15714);
}

TEST_F(InsightsTest, NonBillableAndIdleTime) {
    Project internal = project(12, "Interne", 6000, Project::Rounding::none);
    internal.billable = false;
    auto summary = Insights::summary({item(0, 3600, internal, code), idle(3600, 1800),
                                      item(5400, 600, {}, videos, Kind::app, "Safari")});
    EXPECT_EQ(summary.active, 4200);
    EXPECT_EQ(summary.billable, 0);
    EXPECT_EQ(summary.amountCents, 0);
    EXPECT_EQ(summary.distraction, 600);
    EXPECT_EQ(summary.unassigned(), 600);
    ASSERT_EQ(summary.byProject.size(), 2u);
    EXPECT_EQ(summary.byProject[0].project->name, "Interne");
    EXPECT_EQ(summary.byProject[0].seconds, 3600);
    // Idle time is in no breakdown at all.
    for (const LabelTotal& total : summary.byLabel) EXPECT_NE(total.label, "Inactif");
    for (const LabelTotal& total : summary.byApp) EXPECT_NE(total.label, "Inactif");
    double categorised = 0;
    for (const CategoryTotal& total : summary.byCategory) categorised += total.seconds;
    EXPECT_EQ(categorised, 4200);
}

TEST_F(InsightsTest, BreakdownsByLabelSiteAndDocument) {
    Classified site = item(0, 600, {}, code, Kind::app, "Firefox");
    site.activity.domain = "github.com";
    site.activity.bundleID = "firefox";
    Classified doc = item(600, 300, {}, code, Kind::app, "LibreOffice");
    doc.activity.path = "/home/me/Devis/devis-42.odt";
    Classified folder = item(900, 200, {}, code, Kind::app, "Files");
    folder.activity.path = "/home/me/Devis/";
    Classified secret = item(1100, 100, {}, {}, Kind::privateTime, "Banque");
    auto summary = Insights::summary({site, doc, folder, secret});
    ASSERT_EQ(summary.byLabel.size(), 4u);
    EXPECT_EQ(summary.byLabel[0].label, "github.com");
    EXPECT_EQ(summary.byLabel[0].bundleID, "firefox");
    EXPECT_EQ(summary.byLabel[3].label, secret.activity.label());  // never the app's name
    ASSERT_EQ(summary.byDomain.size(), 1u);
    ASSERT_EQ(summary.byDocument.size(), 2u);
    EXPECT_EQ(summary.byDocument[0].label, "devis-42.odt");
    EXPECT_EQ(summary.byDocument[1].label, "Devis");
    EXPECT_EQ(summary.byApp[0].label, "Firefox");

    // Totals fed day by day, each day's items gone before the next arrives,
    // come out as the totals of all the items at once.
    SummaryBuilder streamed;
    for (const Classified& one : {site, doc, folder, secret}) {
        auto day = std::make_unique<Classified>(one);
        // Texts of their own, not shared with the items above.
        day->activity.domain = std::optional<std::string>(one.activity.domain);
        day->activity.path = std::optional<std::string>(one.activity.path);
        streamed.add(*day);
    }
    Summary again = std::move(streamed).take();
    ASSERT_EQ(again.byLabel.size(), summary.byLabel.size());
    for (std::size_t i = 0; i < again.byLabel.size(); ++i) {
        EXPECT_EQ(again.byLabel[i].label, summary.byLabel[i].label);
        EXPECT_EQ(again.byLabel[i].seconds, summary.byLabel[i].seconds);
    }
    EXPECT_EQ(again.byDocument[1].label, "Devis");
    EXPECT_EQ(again.active, summary.active);
}

TEST_F(InsightsTest, DailyTotalsFollowCalendarDaysAcrossDaylightSaving) {
    // 29 March 2026 lasts 23 hours in Paris.
    nine = local::make(2026, 3, 28, 9, 0);
    Instant saturday = local::make(2026, 3, 28);
    auto totals = Insights::daily({item(0, 3600, refonte, code), item(2 * 86400, 600, refonte, code), idle(7200, 60)},
                                  saturday, 3);
    ASSERT_EQ(totals.size(), 3u);
    EXPECT_EQ(totals[1].day, local::make(2026, 3, 29));
    EXPECT_EQ(totals[2].day, local::make(2026, 3, 30));
    EXPECT_EQ(totals[0].active, 3600);
    EXPECT_EQ(totals[0].amountCents, 6000);
    EXPECT_EQ(totals[1].active, 0);
    // 9:00 + 48 h of clock time is 10:00 on Monday, after the lost hour.
    EXPECT_EQ(totals[2].billable, 600);
    EXPECT_EQ(totals[2].amountCents, 1500);
    EXPECT_EQ(Insights::dayTotal({item(0, 3600, refonte, code)}, nine), totals[0]);
}

} // namespace
} // namespace ombrelo
