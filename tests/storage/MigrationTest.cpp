#include "classify/Catalog.h"
#include "storage/Database.h"
#include "storage/Schema.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

namespace ombrelo {
namespace {

using testing::TempDir;

std::string text(Database& db, const std::string& sql) {
    Statement s = db.prepare(sql);
    return s.step() ? s.text(0).value_or("") : "";
}

const std::string schema = "SELECT group_concat(sql, ';') FROM (SELECT sql FROM sqlite_master ORDER BY name)";

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
        EXPECT_EQ(db.userVersion(), Database::schemaVersion);
        if (version >= 1) {
            EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM activity WHERE app_name = 'Editor'"), 1);
            // Old rows are stamped with this installation's device and get a uid.
            EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM activity WHERE device = (SELECT value FROM sync_meta WHERE "
                                  "key = 'device') AND uid IS NOT NULL AND modified IS NOT NULL"),
                      1);
            EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM category WHERE name = 'Code' AND uid IS NOT NULL"), 1);
        }
        // Categories from before step 3 gain the program's own category and rule.
        std::int64_t expected = version >= 1 && version < 3 ? 1 : 0;
        EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM category WHERE name = 'Ombrelo'"), expected);
    }
}

// A database that already had categories is not seeded again, so the program's
// own time must still find its category, and must not count as a distraction.
TEST(Migration, OwnCategoryOnlyForDatabasesThatHaveCategories) {
    TempDir dir;
    {
        Database v2(dir / "with.sqlite", 2);
        v2.run("INSERT INTO category (name, color) VALUES ('Design', 'carmine')");
        Database empty(dir / "without.sqlite", 2);
    }
    Database with(dir / "with.sqlite");
    Catalog catalog(with);
    Activity own;
    own.bundleID = "fr.ombrelo.app";
    auto category = catalog.ruleCategory(own);
    EXPECT_TRUE(category && category->name == "Ombrelo" && !category->isDistraction);

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
    std::string before;
    {
        Database v5(file, 5);
        v5.execute("ALTER TABLE rule ADD COLUMN hours TEXT");  // step 6 adds it too, after other changes
        before = text(v5, schema);
    }
    EXPECT_THROW(Database{file}, DatabaseError);
    {
        Database v5(file, 5);
        EXPECT_EQ(v5.userVersion(), 5);
        EXPECT_EQ(text(v5, schema), before);
        v5.execute("ALTER TABLE rule DROP COLUMN hours");
    }
    Database repaired(file);
    EXPECT_EQ(repaired.userVersion(), Database::schemaVersion);
}

// Rows that existed before sync get the identity a new row of the same name
// gets on another machine, so both machines' copies merge; a second row with
// the same identity, and rows without one, get unique random ones.
TEST(Migration, BackFillGivesNaturalIdentityOnceThenUniqueOnes) {
    TempDir dir;
    {
        Database v8(dir / "x.sqlite", 8);
        v8.run("INSERT INTO category (name) VALUES ('Code')");
        v8.run("INSERT INTO category (name) VALUES ('code')");
        v8.run("INSERT INTO focus_session (start, planned_end) VALUES (1, 2)");
    }
    Database db(dir / "x.sqlite");
    Database elsewhere(dir / "new.sqlite");
    elsewhere.run("INSERT INTO category (name) VALUES ('Code')");
    std::string first = text(db, "SELECT uid FROM category ORDER BY id");
    EXPECT_EQ(first, text(elsewhere, "SELECT uid FROM category"));
    std::string second = text(db, "SELECT uid FROM category ORDER BY id DESC");
    EXPECT_FALSE(second.empty());
    EXPECT_NE(second, first);
    EXPECT_FALSE(text(db, "SELECT uid FROM focus_session").empty());
    EXPECT_THROW(db.run("UPDATE category SET uid = ? WHERE name = 'code'", {first}), DatabaseError);
}

} // namespace
} // namespace ombrelo
