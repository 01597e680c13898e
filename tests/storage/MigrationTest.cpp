#include "storage/Database.h"
#include "storage/Schema.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

namespace ombrelo {
namespace {

using testing::TempDir;

bool hasColumn(Database& db, const std::string& table, const std::string& column) {
    return db.queryInt("SELECT COUNT(*) FROM pragma_table_info(?) WHERE name = ?", {table, column}) == 1;
}

// Every older version opens, reaches the current schema and keeps its rows.
TEST(Migration, EveryOlderVersionReachesCurrentKeepingData) {
    for (std::int64_t version = 0; version < Database::schemaVersion; ++version) {
        SCOPED_TRACE("from version " + std::to_string(version));
        TempDir dir;
        auto file = dir / "old.sqlite";
        {
            Database old(file, version);
            EXPECT_EQ(old.userVersion(), version);
            if (version >= 1) {
                old.run("INSERT INTO activity (start, end, app_name, kind) VALUES (100, 200, 'Editor', 'app')");
                old.run("INSERT INTO category (name, color) VALUES ('Code', 'teal')");
            }
        }
        Database db(file);
        EXPECT_EQ(db.userVersion(), 9);
        if (version >= 1) {
            EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM activity WHERE app_name = 'Editor'"), 1);
            // Old rows are stamped with this installation's device and get a uid.
            EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM activity WHERE device = (SELECT value FROM sync_meta WHERE "
                                  "key = 'device') AND uid IS NOT NULL AND modified IS NOT NULL"),
                      1);
            EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM category WHERE uid = 'category:code'"), 1);
        }
        // Categories from before step 3 gain the program's own category and rule.
        std::int64_t expected = version >= 1 && version < 3 ? 1 : 0;
        EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM category WHERE name = 'Ombrelo'"), expected);
    }
}

TEST(Migration, OwnCategoryOnlyForDatabasesThatHaveCategories) {
    TempDir dir;
    {
        Database v2(dir / "with.sqlite", 2);
        v2.run("INSERT INTO category (name, color) VALUES ('Design', 'carmine')");
        Database empty(dir / "without.sqlite", 2);
    }
    Database with(dir / "with.sqlite");
    Statement s = with.prepare(
        "SELECT c.color, c.symbol, c.is_distraction, r.field FROM category c JOIN rule r ON r.category_id = c.id "
        "WHERE c.name = 'Ombrelo' AND r.pattern = 'fr.ombrelo.app'");
    ASSERT_TRUE(s.step());
    EXPECT_EQ(s.text(0), "carmine");
    EXPECT_EQ(s.text(1), "timer");
    EXPECT_EQ(s.int64(2), 0);
    EXPECT_EQ(s.text(3), "app");

    Database without(dir / "without.sqlite");
    EXPECT_EQ(without.queryInt("SELECT COUNT(*) FROM category"), 0);
    EXPECT_EQ(without.queryInt("SELECT COUNT(*) FROM rule"), 0);
}

TEST(Migration, OwnCategoryStepIsIdempotent) {
    TempDir dir;
    Database db(dir / "x.sqlite", 3);
    db.run("INSERT INTO category (name) VALUES ('Code')");
    db.execute("PRAGMA user_version = 2");
    migrateStep(db, 3);
    db.execute("PRAGMA user_version = 2");
    migrateStep(db, 3);
    EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM category WHERE name = 'Ombrelo'"), 1);
    EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM rule WHERE pattern = 'fr.ombrelo.app'"), 1);
}

TEST(Migration, FormerNameIsRenamed) {
    TempDir dir;
    {
        Database v6(dir / "x.sqlite", 6);
        auto id = v6.run("INSERT INTO category (name) VALUES ('Vantor')");
        v6.run("INSERT INTO rule (field, pattern, category_id) VALUES ('app', 'fr.vantor.app', ?)", {id});
    }
    Database db(dir / "x.sqlite");
    EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM category WHERE name = 'Ombrelo'"), 1);
    EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM rule WHERE pattern = 'fr.ombrelo.app'"), 1);
}

// A failing step leaves the file at the previous version with none of its
// changes, and the next opening resumes there.
TEST(Migration, FailedStepRollsBackToPreviousVersion) {
    TempDir dir;
    auto file = dir / "x.sqlite";
    {
        Database v5(file, 5);
        v5.execute("ALTER TABLE rule ADD COLUMN hours TEXT");  // makes step 6's third change fail
    }
    EXPECT_THROW(Database{file}, DatabaseError);
    {
        Database v5(file, 5);
        EXPECT_EQ(v5.userVersion(), 5);
        EXPECT_FALSE(hasColumn(v5, "rule", "operator"));
        EXPECT_FALSE(hasColumn(v5, "rule", "conditions"));
        v5.execute("ALTER TABLE rule DROP COLUMN hours");
    }
    Database repaired(file);
    EXPECT_EQ(repaired.userVersion(), 9);
    EXPECT_TRUE(hasColumn(repaired, "rule", "weekdays"));
}

TEST(Migration, BackFillGivesNaturalIdentityOnceThenRandomUUIDs) {
    TempDir dir;
    {
        Database v8(dir / "x.sqlite", 8);
        v8.run("INSERT INTO category (name) VALUES ('Code')");
        v8.run("INSERT INTO category (name) VALUES ('code')");
        v8.run("INSERT INTO focus_session (start, planned_end) VALUES (1, 2)");
    }
    Database db(dir / "x.sqlite");
    Statement s = db.prepare("SELECT uid FROM category ORDER BY id");
    ASSERT_TRUE(s.step());
    EXPECT_EQ(s.text(0), "category:code");
    ASSERT_TRUE(s.step());
    EXPECT_EQ(s.text(0)->size(), 36u);  // UUID with dashes
    auto session = db.prepare("SELECT uid FROM focus_session");
    ASSERT_TRUE(session.step());
    EXPECT_EQ(session.text(0)->size(), 36u);
    EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM sqlite_master WHERE type = 'index' AND name = 'category_uid'"), 1);
}

} // namespace
} // namespace ombrelo
