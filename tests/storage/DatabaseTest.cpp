#include "storage/Database.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

namespace ombrelo {
namespace {

using testing::TempDir;

// Sets user_version behind the program's back, as a newer release would.
void stampVersion(const std::filesystem::path& file, int version) {
    sqlite3* raw = nullptr;
    ASSERT_EQ(sqlite3_open(file.c_str(), &raw), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(raw, ("PRAGMA user_version = " + std::to_string(version)).c_str(), nullptr, nullptr, nullptr),
              SQLITE_OK);
    sqlite3_close(raw);
}

TEST(Database, CreatesFolderAndMigratesNewFileToCurrentSchema) {
    TempDir dir;
    auto file = dir / "a/b/ombrelo.sqlite";
    Database db(file);
    EXPECT_TRUE(std::filesystem::exists(file));
    EXPECT_EQ(db.userVersion(), Database::schemaVersion);
    // A brand-new database gets no category from the migrations: the catalogue seeds it.
    EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM category"), 0);
}

TEST(Database, ReopeningCurrentFileRunsNoStep) {
    TempDir dir;
    { Database db(dir / "x.sqlite"); db.run("INSERT INTO sync_meta (key, value) VALUES ('marker', '1')"); }
    Database again(dir / "x.sqlite");
    EXPECT_EQ(again.queryInt("SELECT COUNT(*) FROM sync_meta WHERE key = 'device'"), 1);
}

TEST(Database, RefusesNewerFileWithoutTouchingIt) {
    TempDir dir;
    auto file = dir / "newer.sqlite";
    { Database db(file); db.execute("PRAGMA journal_mode = DELETE"); }
    stampVersion(file, Database::schemaVersion + 1);
    std::string before = testing::readFile(file);
    try {
        Database db(file);
        FAIL() << "a newer file was opened";
    } catch (const NewerDatabaseError& error) {
        EXPECT_EQ(error.version, Database::schemaVersion + 1);
    }
    EXPECT_EQ(testing::readFile(file), before);
    EXPECT_FALSE(std::filesystem::exists(dir / "newer.sqlite-wal"));
}

TEST(Database, UnopenableFileIsADatabaseError) {
    TempDir dir;
    std::filesystem::create_directories(dir / "folder.sqlite");
    EXPECT_THROW(Database(dir / "folder.sqlite"), DatabaseError);
}

TEST(Database, StatementErrorsCarrySQLiteMessage) {
    TempDir dir;
    Database db(dir / "x.sqlite");
    try {
        db.prepare("SELECT missing FROM nowhere");
        FAIL();
    } catch (const DatabaseError& error) {
        EXPECT_NE(std::string(error.what()).find("no such table"), std::string::npos);
    }
    EXPECT_THROW(db.execute("NOT SQL"), DatabaseError);
    EXPECT_FALSE(DatabaseError("").description().empty());
}

TEST(Database, RunReturnsRowIdAndDumpLeavesNullColumnsOut) {
    TempDir dir;
    Database db(dir / "x.sqlite");
    auto id = db.run("INSERT INTO client (name, color) VALUES (?, ?)", {std::string("Dupont"), nullptr});
    auto rows = db.dump("client");
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(std::get<std::int64_t>(rows[0].at("id")), id);
    EXPECT_EQ(std::get<std::string>(rows[0].at("name")), "Dupont");
    EXPECT_FALSE(rows[0].count("color"));
    EXPECT_TRUE(rows[0].count("modified"));
}

TEST(Database, DefaultURLFollowsOverrideAndDataHome) {
    {
        testing::ScopedEnvironment database("OMBRELO_DB", "/somewhere/else.sqlite");
        EXPECT_EQ(Database::defaultURL(), "/somewhere/else.sqlite");
    }
    testing::ScopedEnvironment noOverride("OMBRELO_DB", std::nullopt);
    testing::ScopedEnvironment data("XDG_DATA_HOME", "/data");
    EXPECT_EQ(Database::defaultURL(), "/data/ombrelo/ombrelo-dev.sqlite");
}

TEST(Transaction, RollsBackUnlessCommittedAndNests) {
    TempDir dir;
    Database db(dir / "x.sqlite");
    {
        Transaction outer(db);
        db.run("INSERT INTO client (name) VALUES ('kept')");
        {
            Transaction inner(db);
            db.run("INSERT INTO client (name) VALUES ('dropped')");
        }  // not committed: only the inner work goes
        {
            Transaction inner(db);
            db.run("INSERT INTO client (name) VALUES ('nested')");
            inner.commit();
        }
        outer.commit();
    }
    {
        Transaction abandoned(db);
        db.run("INSERT INTO client (name) VALUES ('abandoned')");
    }
    Statement s = db.prepare("SELECT name FROM client ORDER BY id");
    std::vector<std::string> names;
    while (s.step()) names.push_back(*s.text(0));
    EXPECT_EQ(names, (std::vector<std::string>{"kept", "nested"}));
    EXPECT_FALSE(db.inTransaction());
}

} // namespace
} // namespace ombrelo
