// Removing a project and repricing it, against a real database: what counts as
// the project's time, what is refused, and what a forced change leaves behind.
// The classification is given as Workspace would give it.
#include "billing/BillingStore.h"
#include "billing/ProjectChanges.h"
#include "storage/ActivityStore.h"
#include "support/LocalTime.h"
#include "testing/BillingInvariant.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

namespace ombrelo {
namespace {

class ProjectChangesTest : public ::testing::Test {
protected:
    testing::ScopedTimeZone paris{"Europe/Paris"};
    testing::ScopedLanguage french{"fr"};
    testing::TempDir dir;
    Database db{dir / "ombrelo.sqlite"};
    Preferences preferences{dir / "settings.json"};

    void TearDown() override { testing::expectBillingAddsUp(db.path()); }
    ManualClock clock{local::make(2026, 3, 10, 12, 0)};
    ProjectStore store{db, preferences, clock};
    ActivityStore activities{db};
    BillingStore billing{db, clock};
    std::vector<Classified> classified;
    int historyReads = 0;
    ProjectChanges changes{db, store, [this](Instant from, Instant to) {
                               ++historyReads;
                               std::vector<Classified> items;
                               for (const Classified& item : classified)
                                   if (item.activity.end > from && item.activity.start < to) items.push_back(item);
                               return items;
                           }};
    Instant monday = local::make(2026, 3, 2, 9, 0);
    // 550,00 a day of 7 hours: one hour is 78,57, half an hour 39,29.
    Project refonte = saved(55000, Project::RateKind::day, Project::Rounding::none, "Refonte");
    Project other = saved(6000, Project::RateKind::hour, Project::Rounding::none, "Autre");

    Project saved(std::int64_t rate, Project::RateKind kind, Project::Rounding rounding, const std::string& name) {
        Project p;
        p.name = name;
        p.rateCents = rate;
        p.rateKind = kind;
        p.rounding = rounding;
        SaveResult result = store.save(p);
        EXPECT_TRUE(result);
        return *store.project(result.id);
    }

    // An activity the classification gives `project`; with `source`, it also has
    // a stored assignment naming `stored` (by default that same project).
    std::int64_t add(Instant start, double seconds, std::optional<Project> project,
                     std::optional<std::string> source = std::nullopt,
                     std::optional<std::int64_t> stored = std::nullopt) {
        Classified item;
        item.activity.start = start;
        item.activity.end = start + seconds;
        item.activity.appName = "Atelier";
        item.activity.kind = Activity::Kind::app;
        item.activity.id = activities.insert(item.activity);
        if (project) item.project = std::make_shared<const Project>(*project);
        if (source)
            db.run("INSERT INTO assignment (activity_id, project_id, source) VALUES (?, ?, ?)",
                   {item.activity.id, sqlInt(stored ? stored : (project ? std::optional(project->id) : std::nullopt)),
                    *source});
        classified.push_back(item);
        return item.activity.id;
    }
    std::optional<std::int64_t> assignedProject(std::int64_t activity) {
        return db.queryInt("SELECT project_id FROM assignment WHERE activity_id = ?", {activity});
    }
};

TEST_F(ProjectChangesTest, RemovalCountsEveryActivityThatWouldLoseTheProject) {
    std::int64_t corrected = add(monday, 3600, refonte, "manual");
    std::int64_t claimed = add(monday + 3600, 1800, refonte, "active");
    std::int64_t byRule = add(monday + 86400, 1800, refonte);
    // The model's row names the project without giving it the time; deleting
    // the project still rewrites it.
    add(monday + 2 * 86400, 900, other, "ai", refonte.id);
    add(monday + 3 * 86400, 3600, other, "manual");
    add(monday + 4 * 86400, 3600, std::nullopt);
    ASSERT_TRUE(billing.mark({corrected}, BillingStatus::billed, "F-1"));
    ASSERT_TRUE(billing.mark({byRule}, BillingStatus::paid, std::nullopt));

    RemovalImpact expected{.activities = 4,
                           .fromRules = 1,
                           .seconds = 3600 + 1800 + 1800 + 900,
                           .toBillCents = 3929,
                           .billedCents = 7857,
                           .paidCents = 3929};
    RemovalResult refused = changes.remove(refonte, ProjectChanges::Removal::ifWithoutTime);
    EXPECT_FALSE(refused.error);
    EXPECT_FALSE(refused.removed);
    EXPECT_EQ(refused.impact, expected);
    RemovalResult preview = changes.remove(refonte, ProjectChanges::Removal::preview);
    EXPECT_FALSE(preview.removed);
    EXPECT_EQ(preview.impact, expected);
    EXPECT_TRUE(store.project(refonte.id));
    EXPECT_EQ(assignedProject(claimed), refonte.id);

    // Time given by the rules alone is the project's time too.
    classified.clear();
    Project ruled = saved(0, Project::RateKind::hour, Project::Rounding::none, "Règles");
    add(monday, 600, ruled);
    EXPECT_FALSE(changes.remove(ruled, ProjectChanges::Removal::ifWithoutTime).removed);

    Project empty = saved(0, Project::RateKind::hour, Project::Rounding::none, "Vide");
    RemovalResult removed = changes.remove(empty, ProjectChanges::Removal::ifWithoutTime);
    EXPECT_TRUE(removed.removed);
    EXPECT_FALSE(removed.impact.hasTime());
    EXPECT_FALSE(store.project(empty.id));
}

TEST_F(ProjectChangesTest, ForcedRemovalLeavesTheTimeWithoutProjectAndKeepsTheMarks) {
    std::int64_t corrected = add(monday, 3600, refonte, "manual");
    ASSERT_TRUE(billing.mark({corrected}, BillingStatus::paid, "F-1"));

    db.execute("CREATE TRIGGER keep BEFORE DELETE ON project BEGIN SELECT RAISE(ABORT, 'gardé'); END");
    RemovalResult failed = changes.remove(refonte, ProjectChanges::Removal::force);
    ASSERT_TRUE(failed.error);
    EXPECT_EQ(failed.error->kind, StoreError::Kind::database);
    EXPECT_FALSE(failed.removed);
    EXPECT_TRUE(store.project(refonte.id));
    EXPECT_EQ(assignedProject(corrected), refonte.id);
    EXPECT_FALSE(db.inTransaction());
    db.execute("DROP TRIGGER keep");

    RemovalResult removed = changes.remove(refonte, ProjectChanges::Removal::force);
    ASSERT_FALSE(removed.error) << removed.error->text();
    EXPECT_TRUE(removed.removed);
    EXPECT_EQ(removed.impact.paidCents, 7857);
    EXPECT_FALSE(store.project(refonte.id));
    EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM assignment WHERE activity_id = ? AND project_id IS NULL "
                          "AND source = 'manual'",
                          {corrected}),
              1);
    EXPECT_EQ(billing.rows({corrected}).at(corrected).status, BillingStatus::paid);
}

TEST_F(ProjectChangesTest, PricingEditsThatRepriceBilledTimeAreRefused) {
    std::int64_t billed = add(monday, 3600, refonte, "manual");
    std::int64_t paid = add(monday + 86400, 1800, refonte);
    add(monday + 2 * 86400, 3600, refonte);  // to bill: repriced freely
    ASSERT_TRUE(billing.mark({billed}, BillingStatus::billed, "F-1"));
    ASSERT_TRUE(billing.mark({paid}, BillingStatus::paid, "F-1"));

    Project edited = refonte;
    edited.rateCents = 70000;
    EditResult refused = changes.save(edited, false);
    EXPECT_TRUE(refused.refused);
    EXPECT_EQ(refused.repricing.statuses,
              (std::vector<Repricing>{{BillingStatus::billed, 1, 7857, 10000}, {BillingStatus::paid, 1, 3929, 5000}}));
    EXPECT_EQ(store.project(refonte.id), refonte);
    EXPECT_FALSE(db.inTransaction());

    for (auto change : std::vector<std::function<void(Project&)>>{
             [](Project& p) { p.rateKind = Project::RateKind::hour; },
             [](Project& p) { p.rounding = Project::Rounding::halfDay; },
             [](Project& p) { p.dayHours = 8; },
             [](Project& p) { p.billable = false; },
         }) {
        Project changed = refonte;
        change(changed);
        EXPECT_TRUE(changes.save(changed, false).refused);
    }
    EXPECT_EQ(store.project(refonte.id), refonte);

    EditResult applied = changes.save(edited, true);
    EXPECT_FALSE(applied.refused);
    ASSERT_TRUE(applied.saved);
    EXPECT_EQ(applied.repricing.statuses, refused.repricing.statuses);
    EXPECT_EQ(store.project(refonte.id)->rateCents, 70000);
}

TEST_F(ProjectChangesTest, EditsThatLeaveBilledAmountsAloneAreSaved) {
    std::int64_t billed = add(monday, 3600, refonte, "manual");
    std::int64_t hourly = add(monday, 1800, other, "manual");
    ASSERT_TRUE(billing.mark({billed, hourly}, BillingStatus::billed, "F-1"));

    // Nothing that prices: the history is not even read.
    Project renamed = refonte;
    renamed.name = "Refonte 2026";
    renamed.color = "peach";
    renamed.budgetMinutes = 2400;
    renamed.archived = true;
    EditResult result = changes.save(renamed, false);
    EXPECT_FALSE(result.refused);
    EXPECT_TRUE(result.saved);
    EXPECT_EQ(historyReads, 0);
    EXPECT_EQ(store.project(refonte.id), renamed);

    // The day length of an hourly rate without day rounding prices nothing.
    Project longerDays = other;
    longerDays.dayHours = 8;
    EXPECT_TRUE(changes.save(longerDays, false).saved);
    EXPECT_EQ(store.project(other.id)->dayHours, 8);

    // Marks on a project that is not billable count for nothing until it is
    // billable again.
    Project internal = other;
    internal.dayHours = 8;
    internal.billable = false;
    ASSERT_TRUE(changes.save(internal, true).saved);
    internal.rateCents = 9000;
    EXPECT_TRUE(changes.save(internal, false).saved);
    internal.billable = true;
    EditResult billableAgain = changes.save(internal, false);
    EXPECT_TRUE(billableAgain.refused);
    EXPECT_EQ(billableAgain.repricing.statuses, (std::vector<Repricing>{{BillingStatus::billed, 1, 0, 4500}}));
}

// Billed time is priced per day as the totals price it: two 5-minute stretches
// of one day round to one quarter, not two.
TEST_F(ProjectChangesTest, RepricingPricesEachDayAsTheTotalsDo) {
    Project quarters = saved(6000, Project::RateKind::hour, Project::Rounding::quarterHour, "Quarts");
    std::int64_t a = add(monday, 300, quarters), b = add(monday + 3600, 300, quarters);
    std::int64_t c = add(monday + 86400, 600, quarters);
    ASSERT_TRUE(billing.mark({a, b, c}, BillingStatus::billed, "F-1"));

    Project halves = quarters;
    halves.rounding = Project::Rounding::halfHour;
    EditResult result = changes.save(halves, false);
    ASSERT_EQ(result.repricing.statuses.size(), 1u);
    const Repricing& r = result.repricing.statuses[0];
    EXPECT_EQ(r.days, 2u);
    BillingTotals totals = BillingTotals::compute(classified, billing.statuses(classified), monday, monday + 7 * 86400);
    EXPECT_EQ(r.beforeCents, totals.billedCents);
    EXPECT_EQ(r.beforeCents, 1500 + 1500);
    EXPECT_EQ(r.afterCents, 3000 + 3000);
}

} // namespace
} // namespace ombrelo
