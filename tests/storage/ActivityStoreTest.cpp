#include "storage/ActivityStore.h"
#include "support/LocalTime.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

namespace ombrelo {
namespace {

class ActivityStoreTest : public ::testing::Test {
protected:
    testing::ScopedTimeZone paris{"Europe/Paris"};
    testing::TempDir dir;
    Database db{dir / "x.sqlite"};
    ActivityStore store{db};

    std::int64_t add(Instant start, Instant end, std::string app = "Editor",
                     Activity::Kind kind = Activity::Kind::app, std::optional<std::string> title = std::nullopt) {
        Activity a;
        a.start = start;
        a.end = end;
        a.appName = std::move(app);
        a.kind = kind;
        a.title = std::move(title);
        return store.insert(a);
    }
};

TEST_F(ActivityStoreTest, InsertReadsBackEveryField) {
    Activity a;
    a.start = 1000.25;
    a.end = 2000.5;
    a.bundleID = "org.mozilla.firefox";
    a.appName = "Firefox";
    a.title = "Devis 42";
    a.domain = "github.com";
    a.kind = Activity::Kind::privateTime;
    a.path = "/home/moi/devis";
    a.url = "https://github.com/x";
    a.id = store.insert(a);
    auto back = store.activity(a.id);
    ASSERT_TRUE(back);
    EXPECT_TRUE(back->device.has_value());
    back->device.reset();
    EXPECT_EQ(*back, a);
    EXPECT_FALSE(store.activity(a.id + 1));
}

TEST_F(ActivityStoreTest, ActivityAcrossMidnightBelongsToBothDays) {
    Instant day1 = local::make(2026, 10, 14), day2 = local::make(2026, 10, 15), day3 = local::make(2026, 10, 16);
    add(local::make(2026, 10, 14, 23, 50), local::make(2026, 10, 15, 0, 20));
    EXPECT_EQ(store.activities(day1, day2).size(), 1u);
    EXPECT_EQ(store.activities(day2, day3).size(), 1u);
    EXPECT_DOUBLE_EQ(store.activeSeconds(day2, day3), 20 * 60);
    EXPECT_DOUBLE_EQ(store.activeSeconds(day1, day2), 10 * 60);
}

// The range bound must follow the longest row, or long rows silently vanish
// from the ranges that start after them.
TEST_F(ActivityStoreTest, RangeBoundFollowsLongestRow) {
    Instant start = local::make(2026, 10, 14, 9, 0);
    add(start, start + 3 * 3600);
    Instant later = start + 2 * 3600 + 59 * 60;
    EXPECT_EQ(store.activities(later, later + 60).size(), 1u);

    auto id = add(start + 4 * 3600, start + 4 * 3600 + 60);
    store.updateEnd(id, start + 9 * 3600);
    Instant late = start + 8 * 3600;
    EXPECT_EQ(store.activities(late, late + 60).size(), 1u);

    // A store opened afterwards (another process) learns the bound from the table.
    ActivityStore fresh(db);
    EXPECT_DOUBLE_EQ(fresh.longest(), 5 * 3600);
    EXPECT_EQ(fresh.activities(late, late + 60).size(), 1u);
}

TEST_F(ActivityStoreTest, SearchTakesWildcardsLiterallyAndSkipsIdle) {
    add(100, 200, "Tableur", Activity::Kind::app, "Remise 50%");
    add(200, 300, "Tableur", Activity::Kind::app, "Remise 500");
    add(300, 400, "Notes", Activity::Kind::app, "acb");
    add(400, 500, "Notes", Activity::Kind::app, "a\\b");
    add(500, 600, "Inactif", Activity::Kind::idle, "50% idle");
    auto found = store.search("50%", 0, 1000, 10);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].title, "Remise 50%");
    EXPECT_TRUE(store.search("a_b", 0, 1000, 10).empty());
    EXPECT_EQ(store.search("a\\b", 0, 1000, 10).size(), 1u);
    EXPECT_EQ(store.search("REMISE", 0, 1000, 10).size(), 2u);  // ASCII case-insensitive, newest first
    EXPECT_EQ(store.search("remise", 0, 1000, 1)[0].title, "Remise 500");
}

TEST_F(ActivityStoreTest, TotalsClipAndCountOnlyWhatTheyShould) {
    add(0, 100, "Editor");
    add(100, 250, "Editor");
    add(250, 400, "Terminal");
    add(400, 1000, "Inactif", Activity::Kind::idle);
    add(1000, 1100, "Saisie", Activity::Kind::manual);
    EXPECT_DOUBLE_EQ(store.activeSeconds(50, 1050), 50 + 150 + 150 + 50);
    auto totals = store.appTotals(50, 1050);
    ASSERT_EQ(totals.size(), 2u);
    EXPECT_EQ(totals[0].appName, "Editor");
    EXPECT_DOUBLE_EQ(totals[0].seconds, 200);
    EXPECT_EQ(totals[1].appName, "Terminal");
}

TEST_F(ActivityStoreTest, UnknownKindReadsAsApp) {
    db.run("INSERT INTO activity (start, end, app_name, kind) VALUES (1, 2, 'X', 'hologram')");
    EXPECT_EQ(store.recent(1)[0].kind, Activity::Kind::app);
}

TEST_F(ActivityStoreTest, EmptyTable) {
    EXPECT_FALSE(store.firstStart());
    store.refresh();
    EXPECT_EQ(store.longest(), 0);
    EXPECT_FALSE(store.severalDevices());
    EXPECT_EQ(store.activeSeconds(0, 100), 0);
}

TEST_F(ActivityStoreTest, FingerprintChangesWithEveryEditOfTheRange) {
    std::string empty = store.fingerprint(0, 1000);
    auto id = add(100, 200, "Editor", Activity::Kind::app, "a");
    std::string base = store.fingerprint(0, 1000);
    EXPECT_EQ(store.fingerprint(0, 1000), base);
    store.updateEnd(id, 200.5);
    std::string extended = store.fingerprint(0, 1000);
    EXPECT_NE(extended, base);
    Activity retitled = *store.activity(id);
    retitled.title = "ab";
    store.updateDetails(retitled);
    EXPECT_NE(store.fingerprint(0, 1000), extended);
    std::string before = store.fingerprint(0, 1000);
    add(2000, 2100);  // outside the range
    EXPECT_EQ(store.fingerprint(0, 1000), before);
    store.remove(id);
    EXPECT_EQ(store.fingerprint(0, 1000), empty);
}

// The workspace keeps the fingerprint of the rows it classified and later
// compares it with the query's: any difference would reclassify the day at
// every read.
TEST_F(ActivityStoreTest, FingerprintOfTheRowsReadEqualsTheQuerys) {
    EXPECT_EQ(ActivityStore::fingerprint(store.activities(0, 86400)), store.fingerprint(0, 86400));
    add(10.25, 2000.000001, "Éditeur", Activity::Kind::app, "Réunion « équipe » 🎯");
    add(2000.000001, 2999.9999995, "Inactif", Activity::Kind::idle);
    add(3000, 86400 + 5, "Mail", Activity::Kind::manual, "");
    add(86390.5, 86399.75, "Terminal", Activity::Kind::privateTime, "ssh 日本");
    for (auto [from, to] : {std::pair(0.0, 86400.0), std::pair(2500.0, 3500.0), std::pair(86395.0, 90000.0)})
        EXPECT_EQ(ActivityStore::fingerprint(store.activities(from, to)), store.fingerprint(from, to)) << from;
}

TEST_F(ActivityStoreTest, SeveralDevicesNeverCountTheSameMinutesTwice) {
    add(0, 600, "Editor");
    db.run("INSERT INTO activity (start, end, app_name, kind, device) VALUES (300, 900, 'Mail', 'app', 'laptop-2')");
    store.refresh();
    ASSERT_TRUE(store.severalDevices());
    EXPECT_DOUBLE_EQ(store.activeSeconds(0, 1000), 900);
    auto totals = store.appTotals(0, 1000);
    ASSERT_EQ(totals.size(), 2u);
    EXPECT_EQ(totals[0].appName, "Mail");
    EXPECT_DOUBLE_EQ(totals[0].seconds, 600);
    EXPECT_DOUBLE_EQ(totals[1].seconds, 300);
    EXPECT_EQ(store.activities(0, 1000).size(), 2u);  // raw rows stay raw
}

} // namespace
} // namespace ombrelo
