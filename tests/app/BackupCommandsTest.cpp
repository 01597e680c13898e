// ombrelo backup, backups and restore as the real binary: a damaged database
// brought back from yesterday's backup with two commands, bad files refused
// with nothing scheduled, a restore waiting for the running tracker, and the
// backup a destructive command takes first.
#include "app/TrackerLock.h"
#include "storage/Database.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace ombrelo {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;

class BackupCommandsTest : public ::testing::Test {
protected:
    void SetUp() override {
        Database db(file);
        for (int i = 0; i < 5; ++i)
            db.run("INSERT INTO activity (start, end, app_name, kind) VALUES (?, ?, 'Editor', 'app')",
                   {1.79e9 + i * 600.0, 1.79e9 + i * 600.0 + 300});
    }

    testing::CommandResult ombrelo(std::vector<std::string> arguments, const std::string& now = "2026-11-23T09:00:00") {
        arguments.insert(arguments.begin(), {"--db", file.string()});
        return testing::runOmbrelo(home.path(), arguments,
                                   {"LANG=en_US.UTF-8", "TZ=Europe/Paris", "OMBRELO_NOW=" + now});
    }
    std::int64_t activities(const fs::path& database) {
        return Database(database).queryInt("SELECT COUNT(*) FROM activity").value_or(-1);
    }

    testing::ScopedTimeZone paris{"Europe/Paris"};
    testing::TempDir home;
    fs::path file = home / "data/ombrelo/ombrelo.sqlite";
    fs::path backups = home / "data/ombrelo/backups";
};

TEST_F(BackupCommandsTest, ADamagedDatabaseComesBackFromYesterdaysBackupWithTwoCommands) {
    auto taken = ombrelo({"backup"}, "2026-11-22T18:00:00");
    ASSERT_EQ(taken.status, 0) << taken.err;
    EXPECT_NE(taken.out.find("ombrelo-2026-11-22-180000.sqlite (5 activities"), std::string::npos) << taken.out;
    {
        Database db(file);
        db.run("INSERT INTO activity (start, end, app_name, kind) VALUES (1.8e9, 1.8e9 + 60, 'Late', 'app')");
    }
    testing::writeFile(file, std::string(8192, 'x'));  // the disk lost it

    auto broken = ombrelo({"status"});
    EXPECT_EQ(broken.status, 4);
    EXPECT_NE(broken.err.find("ombrelo restore DATE"), std::string::npos) << broken.err;

    auto listed = ombrelo({"backups", "--json"});
    ASSERT_EQ(listed.status, 0) << listed.err;
    json list = json::parse(listed.out);
    ASSERT_EQ(list["backups"].size(), 1u);
    EXPECT_EQ(list["backups"][0]["activities"], 5);
    EXPECT_EQ(list["backups"][0]["taken_at"], "2026-11-22T18:00:00");

    auto restored = ombrelo({"restore", "2026-11-22"});
    ASSERT_EQ(restored.status, 0) << restored.err;
    EXPECT_NE(restored.out.find("Backup restored: " + (backups / "ombrelo-2026-11-22-180000.sqlite").string()),
              std::string::npos)
        << restored.out;
    std::string keptAs = "The replaced database is kept as ";
    auto at = restored.out.find(keptAs);
    ASSERT_NE(at, std::string::npos) << restored.out;
    fs::path aside = restored.out.substr(at + keptAs.size(), restored.out.find('\n', at) - at - keptAs.size());
    EXPECT_EQ(aside.parent_path(), file.parent_path());
    EXPECT_EQ(testing::readFile(aside), std::string(8192, 'x'));

    auto status = ombrelo({"status", "--json"});
    ASSERT_EQ(status.status, 0) << status.err;
    json report = json::parse(status.out);
    EXPECT_EQ(report["activities"], 5);
    EXPECT_EQ(report["restore"]["last"]["outcome"], "restored");
    EXPECT_EQ(report["restore"]["scheduled"], nullptr);
    EXPECT_EQ(report["backups"]["newest"]["taken_at"], "2026-11-22T18:00:00");
    EXPECT_DOUBLE_EQ(report["backups"]["newest"]["age_hours"].get<double>(), 15);
}

TEST_F(BackupCommandsTest, AFileThatCannotServeIsRefusedAndNothingScheduled) {
    testing::writeFile(home / "random.sqlite", std::string(4096, '\x7f'));
    fs::path newer = home / "newer.sqlite";
    {
        Database db(newer);
        db.execute("PRAGMA user_version = " + std::to_string(Database::schemaVersion + 1));
    }
    for (const auto& [target, reason] : std::vector<std::pair<std::string, std::string>>{
             {(home / "random.sqlite").string(), "is not a database"},
             {newer.string(), "comes from a newer version of Ombrelo"},
             {"2026-01-01", "No backup of 2026-01-01"},
             {(home / "absent.sqlite").string(), "Neither a file nor a date"}}) {
        auto refused = ombrelo({"restore", target});
        EXPECT_EQ(refused.status, 2) << target;
        EXPECT_NE(refused.err.find(reason), std::string::npos) << refused.err;
    }
    EXPECT_EQ(json::parse(ombrelo({"backups", "--json"}).out)["scheduled_restore"], nullptr);
    EXPECT_FALSE(fs::exists(backups)) << "no backup taken for a refused restore";
    EXPECT_EQ(activities(file), 5);
}

TEST_F(BackupCommandsTest, WhileTheTrackerRunsTheRestoreWaitsForItsRestart) {
    ASSERT_EQ(ombrelo({"backup", "--to", (home / "kept.sqlite").string()}).status, 0);
    {
        Database db(file);
        db.run("DELETE FROM activity");
    }
    // The tracker holds the lock and keeps a connection open.
    std::optional<Database> trackerConnection(std::in_place, file);
    std::optional<TrackerLock> tracker = [&] {
        testing::ScopedEnvironment runtime("XDG_RUNTIME_DIR", (home / "run").string());
        return TrackerLock::acquire(file);
    }();
    ASSERT_TRUE(tracker);
    auto scheduled = ombrelo({"restore", (home / "kept.sqlite").string()});
    ASSERT_EQ(scheduled.status, 0) << scheduled.err;
    EXPECT_NE(scheduled.out.find("stop and start it again"), std::string::npos) << scheduled.out;
    // The current state was backed up first, as before any destructive change.
    EXPECT_NE(scheduled.out.find("Backup of the current database: " + backups.string()), std::string::npos);
    auto status = json::parse(ombrelo({"status", "--json"}).out);
    EXPECT_EQ(status["restore"]["scheduled"], (home / "kept.sqlite").string());

    EXPECT_EQ(ombrelo({"restore", "--cancel"}).out, "Restore cancelled.\n");
    EXPECT_EQ(activities(file), 0);
    ASSERT_EQ(ombrelo({"restore", (home / "kept.sqlite").string()}).status, 0);
    tracker.reset();
    trackerConnection.reset();
    EXPECT_EQ(activities(file), 5);  // the restarted tracker's opening
}

TEST_F(BackupCommandsTest, ForgetBacksUpWhatItDeletes) {
    auto forgot = ombrelo({"forget", "--from", "2026-01-01T00:00", "--to", "2027-01-01T00:00", "--yes"});
    ASSERT_EQ(forgot.status, 0) << forgot.err;
    std::string prefix = "Backup before the change: ";
    auto at = forgot.out.find(prefix);
    ASSERT_NE(at, std::string::npos) << forgot.out;
    fs::path before = forgot.out.substr(at + prefix.size(), forgot.out.find('\n', at) - at - prefix.size());
    EXPECT_EQ(before.filename(), "ombrelo-2026-11-23-090000-forget.sqlite");
    EXPECT_EQ(activities(before), 5);
    EXPECT_EQ(activities(file), 0);

    // Without a backup, nothing is deleted.
    {
        Database db(file);
        db.run("INSERT INTO activity (start, end, app_name, kind) VALUES (1.79e9, 1.79e9 + 60, 'Editor', 'app')");
    }
    fs::remove_all(backups);
    testing::writeFile(backups, "not a folder");
    auto refused = ombrelo({"forget", "--from", "2026-01-01T00:00", "--to", "2027-01-01T00:00", "--yes"});
    EXPECT_EQ(refused.status, 2);
    EXPECT_NE(refused.err.find("Nothing changed, for want of a backup"), std::string::npos) << refused.err;
    EXPECT_EQ(activities(file), 1);
}

} // namespace
} // namespace ombrelo
