// The classified workspace over a real database: clipping, the day cache and
// what empties it, search, and the writes it shares.
#include "classify/Workspace.h"
#include "support/LocalTime.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

namespace ombrelo {
namespace {

using Field = Rule::Field;

class WorkspaceTest : public ::testing::Test {
protected:
    testing::ScopedTimeZone paris{"Europe/Paris"};
    testing::ScopedLanguage french{"fr"};
    testing::TempDir dir;
    Database db{dir / "workspace.sqlite"};
    Preferences preferences{dir / "settings.json"};
    ManualClock clock{local::make(2026, 3, 4, 12, 0)};  // a Wednesday
    ActivityStore store{db};
    Catalog catalog{db};
    ProjectStore projects{db, preferences, clock};
    Workspace workspace{&store, catalog, projects, clock};

    Instant monday = local::make(2026, 3, 2);
    Instant tuesday = local::make(2026, 3, 3);
    Instant wednesday = local::make(2026, 3, 4);

    std::int64_t record(Instant start, Instant end, std::string bundleID = "org.gnome.Terminal",
                        std::optional<std::string> title = std::nullopt, Activity::Kind kind = Activity::Kind::app) {
        Activity a;
        a.start = start;
        a.end = end;
        a.bundleID = std::move(bundleID);
        a.appName = "Terminal";
        a.title = std::move(title);
        a.kind = kind;
        return store.insert(a);
    }
    Project addProject(const std::string& name) {
        Project p;
        p.name = name;
        p.color = "teal";
        SaveResult saved = projects.save(p);
        EXPECT_TRUE(saved);
        return *projects.project(saved.id);
    }
    std::int64_t addRule(Field field, std::string pattern, std::int64_t projectID,
                         std::optional<Rule::Operator> op = std::nullopt) {
        Rule rule;
        rule.field = field;
        rule.pattern = std::move(pattern);
        rule.projectID = projectID;
        rule.op = op;
        auto id = catalog.save(rule);
        EXPECT_TRUE(id);
        return id.value_or(0);
    }
    static std::string projectOf(const Classified& item) { return item.project ? item.project->name : "-"; }
};

TEST_F(WorkspaceTest, EmptyPeriodsAndEmptyDatabaseGiveNothing) {
    EXPECT_TRUE(workspace.items(monday, wednesday).empty());
    record(monday + 9 * 3600, monday + 10 * 3600);
    EXPECT_TRUE(workspace.items(monday + 9 * 3600, monday + 9 * 3600).empty());
    EXPECT_TRUE(workspace.items(tuesday, monday).empty());
    EXPECT_EQ(workspace.items(monday, tuesday).size(), 1u);
}

TEST_F(WorkspaceTest, ItemsAlreadyHandedOutNeverChange) {
    record(monday + 9 * 3600, monday + 10 * 3600);
    ClassifiedList before = workspace.items(monday, tuesday);
    record(monday + 11 * 3600, monday + 12 * 3600);
    ClassifiedList after = workspace.items(monday, tuesday);
    EXPECT_EQ(before.size(), 1u);  // the cached day was replaced, not changed in place
    EXPECT_EQ(after.size(), 2u);
}

TEST_F(WorkspaceTest, AOneShotWorkspaceHandsOverTheSameItemsDayByDayAndKeepsNone) {
    record(monday + 9 * 3600, monday + 10 * 3600);
    record(tuesday - 600, tuesday + 600);
    record(wednesday + 8 * 3600, wednesday + 9 * 3600);
    using Span = std::pair<Instant, Instant>;
    std::vector<Span> kept, once;
    for (const Classified& item : workspace.items(monday - 86400, wednesday + 86400))
        kept.emplace_back(item.activity.start, item.activity.end);

    Workspace oneShot{&store, catalog, projects, clock, Workspace::DayCache::none};
    std::vector<Instant> days;
    oneShot.eachDay(monday - 86400, wednesday + 86400, [&](const ClassifiedList::Run& day) {
        days.push_back(local::startOfDay(day->front().activity.start));
        for (const Classified& item : *day) once.emplace_back(item.activity.start, item.activity.end);
    });
    EXPECT_EQ(once, kept);
    EXPECT_EQ(kept.size(), 4u);  // the night's activity once on each side of midnight
    EXPECT_EQ(days, (std::vector<Instant>{monday, tuesday, wednesday}));
    EXPECT_EQ(oneShot.daysComputed(), 0u);
}

TEST_F(WorkspaceTest, ActivityAcrossMidnightIsClippedToEachDay) {
    std::int64_t id = record(tuesday - 600, tuesday + 600);  // 23:50 to 00:10
    auto first = workspace.day(monday);
    auto second = workspace.day(tuesday);
    ASSERT_EQ(first.size(), 1u);
    ASSERT_EQ(second.size(), 1u);
    EXPECT_EQ(first[0].activity.id, id);
    EXPECT_EQ(first[0].activity.start, tuesday - 600);
    EXPECT_EQ(first[0].activity.end, tuesday);
    EXPECT_EQ(second[0].activity.start, tuesday);
    EXPECT_EQ(second[0].activity.end, tuesday + 600);
    // Over both days it is two pieces, one per day.
    auto both = workspace.items(monday, wednesday);
    ASSERT_EQ(both.size(), 2u);
    EXPECT_EQ(both[0].activity.duration() + both[1].activity.duration(), 1200);
}

TEST_F(WorkspaceTest, WholePastDaysAreClassifiedOnceUntilTheirRowsChange) {
    Project refonte = addProject("Refonte");
    std::int64_t id = record(monday + 9 * 3600, monday + 10 * 3600);
    ASSERT_EQ(workspace.day(monday).size(), 1u);
    ASSERT_EQ(workspace.day(monday).size(), 1u);
    EXPECT_EQ(workspace.daysComputed(), 1u);

    // A correction written behind the workspace's back leaves the day's rows
    // unchanged, so the cached classification is served.
    db.run("INSERT INTO assignment (activity_id, project_id, source) VALUES (?, ?, 'manual')", {id, refonte.id});
    EXPECT_EQ(projectOf(workspace.day(monday).front()), "-");
    EXPECT_EQ(workspace.daysComputed(), 1u);

    // A new row on that day changes its fingerprint.
    record(monday + 11 * 3600, monday + 11 * 3600 + 60);
    auto recomputed = workspace.day(monday);
    ASSERT_EQ(recomputed.size(), 2u);
    EXPECT_EQ(projectOf(recomputed.front()), "Refonte");
    EXPECT_EQ(workspace.daysComputed(), 2u);
}

TEST_F(WorkspaceTest, RowsWrittenByAnotherProcessAreNoticed) {
    record(monday + 9 * 3600, monday + 10 * 3600);
    ASSERT_EQ(workspace.day(monday).size(), 1u);
    {
        // An import or a sync in another process, on its own connection.
        Database other{dir / "workspace.sqlite"};
        ActivityStore otherStore{other};
        Activity a;
        a.start = monday + 14 * 3600;
        a.end = monday + 15 * 3600;
        a.appName = "Terminal";
        otherStore.insert(a);
    }
    EXPECT_EQ(workspace.day(monday).size(), 2u);
    EXPECT_EQ(workspace.daysComputed(), 2u);
    workspace.day(monday);
    EXPECT_EQ(workspace.daysComputed(), 2u);
}

TEST_F(WorkspaceTest, RuleOrProjectEditEmptiesTheCache) {
    Project refonte = addProject("Refonte");
    record(monday + 9 * 3600, monday + 10 * 3600);
    EXPECT_EQ(projectOf(workspace.day(monday).front()), "-");

    std::int64_t rule = addRule(Field::app, "org.gnome.terminal", refonte.id);
    EXPECT_EQ(projectOf(workspace.day(monday).front()), "Refonte");

    refonte.name = "Refonte 2";
    ASSERT_TRUE(projects.save(refonte));
    EXPECT_EQ(projectOf(workspace.day(monday).front()), "Refonte 2");

    Rule removed;
    removed.id = rule;
    ASSERT_TRUE(catalog.remove(removed));
    EXPECT_EQ(projectOf(workspace.day(monday).front()), "-");
    EXPECT_EQ(workspace.daysComputed(), 4u);

    // A correction through the catalogue changes no row of the day: its
    // announcement empties the cache.
    std::int64_t id = workspace.day(monday).front().activity.id;
    ASSERT_TRUE(catalog.assign({id}, refonte.id, std::nullopt, source::manual));
    EXPECT_EQ(projectOf(workspace.day(monday).front()), "Refonte 2");
    ASSERT_TRUE(catalog.setNote({id}, std::string("devis")));
    EXPECT_EQ(workspace.day(monday).front().note, "devis");
    EXPECT_EQ(workspace.daysComputed(), 6u);
}

TEST_F(WorkspaceTest, PartialAndCurrentDaysAreNeverCached) {
    record(monday + 9 * 3600, monday + 12 * 3600);
    record(tuesday + 9 * 3600, tuesday + 12 * 3600);
    record(wednesday + 9 * 3600, wednesday + 10 * 3600);
    // 10:00 Monday to 10:00 Tuesday: two partial days.
    auto items = workspace.items(monday + 10 * 3600, tuesday + 10 * 3600);
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].activity.start, monday + 10 * 3600);
    EXPECT_EQ(items[1].activity.end, tuesday + 10 * 3600);
    EXPECT_EQ(workspace.daysComputed(), 0u);
    // Today is read afresh each time; only Monday and Tuesday are cached.
    EXPECT_EQ(workspace.items(monday, local::make(2026, 3, 5)).size(), 3u);
    EXPECT_EQ(workspace.items(monday, local::make(2026, 3, 5)).size(), 3u);
    EXPECT_EQ(workspace.daysComputed(), 2u);
}

TEST_F(WorkspaceTest, OverlapsBetweenDevicesAreMergedIntoOneTimeline) {
    std::int64_t a = record(monday + 10 * 3600, monday + 11 * 3600);
    std::int64_t b = record(monday + 10.5 * 3600, monday + 10.75 * 3600);
    db.run("UPDATE activity SET device = 'A' WHERE id = ?", {a});
    db.run("UPDATE activity SET device = 'B' WHERE id = ?", {b});
    store.refresh();
    ASSERT_TRUE(store.severalDevices());
    double total = 0;
    for (const Classified& item : workspace.day(monday)) total += item.activity.duration();
    EXPECT_EQ(total, 3600);
}

TEST_F(WorkspaceTest, SearchFindsNewestFirstAndStopsAtTheLimit) {
    for (int i = 0; i < 2100; ++i) record(monday + i * 10, monday + i * 10 + 5, "mail", "Devis Dupont");
    record(monday + 30000, monday + 30010, "mail", "Autre chose");
    auto found = workspace.search("  dupont ", monday, wednesday);
    ASSERT_EQ(found.size(), 2000u);
    EXPECT_GT(found.front().activity.start, found.back().activity.start);
    EXPECT_TRUE(workspace.search("   ", monday, wednesday).empty());
}

TEST_F(WorkspaceTest, ManualTimeKeepsItsProjectAgainstRules) {
    Project refonte = addProject("Refonte");
    Project autre = addProject("Autre");
    addRule(Field::app, "réunion", autre.id, Rule::Operator::contains);

    auto id = workspace.addManual(monday + 14 * 3600, monday + 15 * 3600, "Réunion", refonte.id);
    ASSERT_TRUE(id);
    auto withoutProject = workspace.addManual(monday + 16 * 3600, monday + 17 * 3600, " Réunion ", std::nullopt);
    ASSERT_TRUE(withoutProject);
    auto items = workspace.day(monday);
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].activity.kind, Activity::Kind::manual);
    EXPECT_EQ(items[0].activity.appName, "Réunion");
    EXPECT_EQ(projectOf(items[0]), "Refonte");
    EXPECT_TRUE(items[0].manual);
    EXPECT_EQ(projectOf(items[1]), "-");  // the rule would say Autre
    EXPECT_TRUE(items[1].manual);

    EXPECT_FALSE(workspace.addManual(monday + 18 * 3600, monday + 18 * 3600, "x", std::nullopt));
    EXPECT_FALSE(workspace.addManual(monday + 18 * 3600, monday + 19 * 3600, "  ", std::nullopt));
}

TEST_F(WorkspaceTest, ManualTimeAcrossMidnightIsOneRowPerDay) {
    Project refonte = addProject("Refonte");
    auto ids = workspace.addManual(tuesday - 3600, tuesday + 3600, "Mise en production", refonte.id);
    ASSERT_TRUE(ids);
    ASSERT_EQ(ids->size(), 2u);
    auto before = store.activity(ids->at(0)), after = store.activity(ids->at(1));
    EXPECT_EQ(before->start, tuesday - 3600);
    EXPECT_EQ(before->end, tuesday);
    EXPECT_EQ(after->start, tuesday);
    EXPECT_EQ(after->end, tuesday + 3600);
    for (const auto& item : workspace.items(monday, wednesday)) {
        EXPECT_EQ(projectOf(item), "Refonte");
        EXPECT_TRUE(item.manual);
    }
    testing::expectActivityInvariants(db.path());
}

// Manual time over recorded time would count and bill the same hour twice.
TEST_F(WorkspaceTest, ManualTimeOverRecordedTimeIsRefusedOrReplacesItButNeverBilledTime) {
    Project refonte = addProject("Refonte");
    auto hour = [&](double h) { return monday + h * 3600; };
    std::int64_t morning = record(hour(9), hour(12));
    record(hour(12), hour(13), "", {}, Activity::Kind::idle);
    ASSERT_TRUE(catalog.assign({morning}, refonte.id, std::nullopt, source::manual));

    EXPECT_FALSE(workspace.addManual(hour(11), hour(12.5), "Réunion", refonte.id));
    ASSERT_EQ(workspace.countedUnder(hour(11), hour(12.5)).size(), 1u);
    EXPECT_EQ(store.activeSeconds(monday, tuesday), 3 * 3600) << "nothing written";

    // Over an absence alone it is accepted, and the absence under it is cut away.
    ASSERT_TRUE(workspace.addManual(hour(12.25), hour(12.75), "Déjeuner client", refonte.id));
    // Replacing inside a tracked row splits it; both parts keep their correction.
    ASSERT_TRUE(workspace.addManual(hour(10), hour(11), "Appel", std::nullopt, Workspace::Overlap::replace));
    auto items = workspace.day(monday);
    std::vector<std::string> shown;
    for (const Classified& item : items)
        shown.push_back(local::formatTime(item.activity.start) + "-" + local::formatTime(item.activity.end) + " " +
                        item.activity.label() + " " + projectOf(item));
    EXPECT_EQ(shown, (std::vector<std::string>{"09:00-10:00 Terminal Refonte", "10:00-11:00 Appel -",
                                               "11:00-12:00 Terminal Refonte", "12:00-12:15 Inactif -",
                                               "12:15-12:45 Déjeuner client Refonte", "12:45-13:00 Inactif -"}));
    EXPECT_EQ(store.activeSeconds(monday, tuesday), 3.5 * 3600);

    // Billed time is never cut, even when asked.
    db.run("INSERT INTO billing (activity_id, status, invoice) VALUES (?, 'billed', 'F-1')", {morning});
    EXPECT_FALSE(workspace.addManual(hour(9.5), hour(9.75), "Appel", std::nullopt, Workspace::Overlap::replace));
    ASSERT_TRUE(workspace.writeError());
    EXPECT_NE(workspace.writeError()->find("facturé"), std::string::npos);
    EXPECT_EQ(store.activeSeconds(monday, tuesday), 3.5 * 3600);
    testing::expectActivityInvariants(db.path());
}

// A long-lived process (the tracker, the interface) shares the file with
// commands: their corrections, rules and projects must show on cached days.
TEST_F(WorkspaceTest, CachedDaysFollowAnotherProcesssCorrectionsRulesAndProjects) {
    Project refonte = addProject("Refonte");
    std::int64_t id = record(monday + 9 * 3600, monday + 10 * 3600, "org.gnome.Terminal", "deploy.sh");
    ASSERT_EQ(projectOf(workspace.day(monday).at(0)), "-");

    Database other{db.path()};
    Catalog otherCatalog{other};
    otherCatalog.assign({id}, refonte.id, std::nullopt, source::manual);
    EXPECT_EQ(projectOf(workspace.day(monday).at(0)), "Refonte") << "another process's correction";

    otherCatalog.clearAssignments({id});
    Rule rule;
    rule.field = Field::title;
    rule.pattern = "deploy";
    rule.projectID = refonte.id;
    ASSERT_TRUE(otherCatalog.save(rule));
    EXPECT_EQ(projectOf(workspace.day(monday).at(0)), "Refonte") << "another process's rule";

    other.run("UPDATE project SET name = 'Refonte 2026' WHERE id = ?", {refonte.id});
    EXPECT_EQ(projectOf(workspace.day(monday).at(0)), "Refonte 2026") << "another process's project edit";
    EXPECT_EQ(workspace.search("deploy", monday, wednesday).at(0).project->name, "Refonte 2026");
}

TEST_F(WorkspaceTest, QualifiedAbsenceBecomesManualTimeOnTheProject) {
    Project refonte = addProject("Refonte");
    std::int64_t work = record(monday + 9 * 3600, monday + 10 * 3600);
    std::int64_t away1 = record(monday + 10 * 3600, monday + 10.5 * 3600, "", {}, Activity::Kind::idle);
    std::int64_t away2 = record(monday + 10.5 * 3600, monday + 11 * 3600, "", {}, Activity::Kind::idle);
    workspace.day(monday);

    auto qualified = workspace.qualifyIdle({away1, away2, work}, "Appel client", refonte.id);
    ASSERT_EQ(qualified, std::optional<std::size_t>(2));
    auto items = workspace.day(monday);
    ASSERT_EQ(items.size(), 3u);
    EXPECT_EQ(items[0].activity.kind, Activity::Kind::app);  // not an absence: untouched
    EXPECT_EQ(projectOf(items[0]), "-");
    for (int i : {1, 2}) {
        EXPECT_EQ(items[i].activity.kind, Activity::Kind::manual);
        EXPECT_EQ(items[i].activity.appName, "Appel client");
        EXPECT_EQ(projectOf(items[i]), "Refonte");
        EXPECT_TRUE(items[i].manual);
    }
    EXPECT_EQ(store.activeSeconds(monday, tuesday), 2 * 3600);
}

TEST_F(WorkspaceTest, FailedWriteRollsBackAndIsReported) {
    bool written = workspace.write("Essai", [&] {
        record(monday, monday + 60);
        db.run("INSERT INTO no_such_table VALUES (1)");
    });
    EXPECT_FALSE(written);
    ASSERT_TRUE(workspace.writeError());
    EXPECT_NE(workspace.writeError()->find("no_such_table"), std::string::npos);
    EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM activity"), 0);
    // A project that does not exist fails the manual write as a whole.
    EXPECT_FALSE(workspace.addManual(monday, monday + 60, "Réunion", 999));
    EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM activity"), 0);
    EXPECT_TRUE(workspace.write("Essai", [] {}));
    EXPECT_FALSE(workspace.writeError());
}

TEST_F(WorkspaceTest, DemonstrationServesItsOwnListAndWritesNothing) {
    record(monday + 9 * 3600, monday + 10 * 3600);
    Activity demo;
    demo.id = 1;
    demo.start = tuesday + 8 * 3600;
    demo.end = tuesday + 9 * 3600;
    demo.appName = "Figma";
    demo.title = "Maquette Dupont";
    workspace.setDemo(std::vector<Activity>{demo});
    EXPECT_TRUE(workspace.day(monday).empty());
    ASSERT_EQ(workspace.day(tuesday).size(), 1u);
    EXPECT_EQ(workspace.search("DUPONT", monday, wednesday).size(), 1u);
    EXPECT_FALSE(workspace.addManual(monday, monday + 60, "x", std::nullopt));
    workspace.setDemo(std::nullopt);
    EXPECT_EQ(workspace.day(monday).size(), 1u);
    EXPECT_TRUE(workspace.day(tuesday).empty());
}

} // namespace
} // namespace ombrelo
