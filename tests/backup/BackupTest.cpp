// Backups taken beside a writer, the checks that keep a bad file from being
// restored, the retention over a year, and the restore swapped in at an opening.
#include "backup/AutoBackup.h"
#include "backup/Backups.h"
#include "storage/Database.h"
#include "storage/PendingRestore.h"
#include "support/LocalTime.h"
#include "support/Preferences.h"
#include "testing/Processes.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <random>
#include <sqlite3.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace ombrelo {
namespace {

using testing::TempDir;
namespace fs = std::filesystem;

std::int64_t count(const fs::path& file, const std::string& sql) {
    sqlite3* db = nullptr;
    std::int64_t value = -1;
    if (sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_busy_timeout(db, 2000);
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK &&
            sqlite3_step(statement) == SQLITE_ROW)
            value = sqlite3_column_int64(statement, 0);
        sqlite3_finalize(statement);
    }
    sqlite3_close(db);
    return value;
}

void addActivities(Database& db, int rows, double from = 1.7e9) {
    for (int i = 0; i < rows; ++i)
        db.run("INSERT INTO activity (start, end, app_name, kind, title) VALUES (?, ?, 'Editor', 'app', ?)",
               {from + i * 60.0, from + i * 60.0 + 50, std::string(120, 'a' + i % 26)});
}

// Writes a pair of rows per transaction, numbered from 0, until killed.
[[noreturn]] void writeForever(const fs::path& file) {
    sqlite3* db = nullptr;
    if (sqlite3_open(file.c_str(), &db) != SQLITE_OK) ::_exit(1);
    sqlite3_busy_timeout(db, 5000);
    for (std::int64_t n = 0;; ++n) {
        std::string sql = "BEGIN IMMEDIATE; INSERT INTO activity (start, end, app_name, kind) VALUES (" +
                          std::to_string(n) + ", " + std::to_string(n) +
                          ".5, 'writer', 'app'); INSERT INTO assignment (activity_id, source) "
                          "VALUES (last_insert_rowid(), 'manual'); COMMIT;";
        if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
            sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
        ::usleep(2000);
    }
}

TEST(BackupFile, CopiesTakenWhileAnotherProcessWritesAreIntactPrefixes) {
    TempDir dir;
    fs::path live = dir / "live.sqlite";
    { Database created(live); }
    pid_t writer = ::fork();
    ASSERT_GE(writer, 0);
    if (writer == 0) writeForever(live);
    auto stopWriter = [&] {
        ::kill(writer, SIGKILL);
        ::waitpid(writer, nullptr, 0);
    };
    std::int64_t previous = 0;
    for (int copy = 0; copy < 4; ++copy) {
        ASSERT_TRUE(testing::eventually([&] {
            return count(live, "SELECT COUNT(*) FROM activity WHERE app_name = 'writer'") > previous + 20;
        })) << "the writer stopped writing";
        fs::path file = dir / ("copy" + std::to_string(copy) + ".sqlite");
        BackupContents contents;
        try {
            contents = copyDatabase(live, file);
        } catch (const BackupError& error) {
            stopWriter();
            FAIL() << error.what();
        }
        std::int64_t rows = count(file, "SELECT COUNT(*) FROM activity WHERE app_name = 'writer'");
        EXPECT_EQ(contents.activities, rows);
        EXPECT_GT(rows, previous);
        // Rows 0 … n-1 and nothing else: no transaction seen in part.
        EXPECT_EQ(count(file, "SELECT MAX(start) FROM activity WHERE app_name = 'writer'"), rows - 1);
        EXPECT_EQ(count(file, "SELECT COUNT(*) FROM activity a LEFT JOIN assignment s ON s.activity_id = a.id "
                              "WHERE s.activity_id IS NULL"),
                  0);
        EXPECT_EQ(testing::integrityCheck(file), "ok");
        previous = rows;
    }
    stopWriter();
}

class BackupChecks : public ::testing::Test {
protected:
    void SetUp() override {
        Database db(good);
        addActivities(db, 400);
    }

    // The refusal's message, or "" when the file passed.
    std::string refusal(const fs::path& file) {
        try {
            inspectBackup(file);
            return "";
        } catch (const BackupError& error) {
            return error.what();
        }
    }

    testing::ScopedLanguage english{"en"};
    TempDir dir;
    fs::path good = dir / "good.sqlite";
};

TEST_F(BackupChecks, OnlyAnIntactDatabaseOfOursNoNewerIsAccepted) {
    EXPECT_EQ(refusal(good), "");
    EXPECT_NE(refusal(dir / "missing.sqlite").find("does not exist"), std::string::npos);

    std::string bytes = testing::readFile(good);
    testing::writeFile(dir / "truncated.sqlite", bytes.substr(0, bytes.size() / 2));
    EXPECT_NE(refusal(dir / "truncated.sqlite").find("damaged"), std::string::npos) << refusal(dir / "truncated.sqlite");

    std::string noise(64 * 1024, '\0');
    std::mt19937 random(7);
    for (char& byte : noise) byte = char(random());
    testing::writeFile(dir / "random.sqlite", noise);
    EXPECT_NE(refusal(dir / "random.sqlite").find("not a database"), std::string::npos);

    {
        sqlite3* foreign = nullptr;
        sqlite3_open((dir / "foreign.sqlite").c_str(), &foreign);
        sqlite3_exec(foreign, "CREATE TABLE activity (x); PRAGMA user_version = 3;", nullptr, nullptr, nullptr);
        sqlite3_close(foreign);
    }
    EXPECT_NE(refusal(dir / "foreign.sqlite").find("not an Ombrelo database"), std::string::npos);

    fs::copy_file(good, dir / "newer.sqlite");
    {
        sqlite3* newer = nullptr;
        sqlite3_open((dir / "newer.sqlite").c_str(), &newer);
        std::string bump = "PRAGMA user_version = " + std::to_string(Database::schemaVersion + 1);
        sqlite3_exec(newer, bump.c_str(), nullptr, nullptr, nullptr);
        sqlite3_close(newer);
    }
    EXPECT_NE(refusal(dir / "newer.sqlite").find("newer version"), std::string::npos);
}

TEST_F(BackupChecks, ABadFileIsNeverScheduledAndAGoodOneIsSwappedInAtTheNextFreeOpening) {
    fs::path database = dir / "ombrelo.sqlite";
    {
        Database db(database);
        addActivities(db, 3, 1.8e9);
    }
    testing::writeFile(dir / "junk.sqlite", "not a database at all, not even close to one............");
    EXPECT_THROW(scheduleRestore(database, dir / "junk.sqlite"), BackupError);
    EXPECT_FALSE(scheduledRestore(database));

    Instant now = local::make(2026, 11, 23, 9, 30);
    {
        // Another process has the file open, as the tracker does: the restore
        // waits for it to be free.
        int ready[2];
        ASSERT_EQ(::pipe(ready), 0);
        pid_t holder = ::fork();
        ASSERT_GE(holder, 0);
        if (holder == 0) {
            Database held(database);
            (void)!::write(ready[1], "x", 1);
            ::pause();
            ::_exit(0);
        }
        char byte;
        ASSERT_EQ(::read(ready[0], &byte, 1), 1);
        scheduleRestore(database, good);
        RestoreResult waiting = applyPendingRestore(database, now);
        ::kill(holder, SIGKILL);
        ::waitpid(holder, nullptr, 0);
        ::close(ready[0]);
        ::close(ready[1]);
        EXPECT_EQ(waiting.outcome, RestoreOutcome::nothingToDo);
        EXPECT_NE(waiting.message.find("another process"), std::string::npos);
        EXPECT_TRUE(scheduledRestore(database));
    }
    ASSERT_EQ(applyPendingRestore(database, now).outcome, RestoreOutcome::restored);
    EXPECT_FALSE(scheduledRestore(database));
    EXPECT_EQ(count(database, "SELECT COUNT(*) FROM activity"), 400);
    std::optional<RestoreResult> done = lastRestore(database);
    ASSERT_TRUE(done);
    EXPECT_EQ(done->outcome, RestoreOutcome::restored);
    EXPECT_EQ(done->keptAside, dir / "ombrelo.sqlite.replaced-2026-11-23-093000");
    ASSERT_TRUE(fs::exists(done->keptAside));
    EXPECT_EQ(count(done->keptAside, "SELECT COUNT(*) FROM activity"), 3);
    EXPECT_EQ(testing::integrityCheck(done->keptAside), "ok");
    // The backup itself stays where it was.
    EXPECT_EQ(count(good, "SELECT COUNT(*) FROM activity"), 400);
}

TEST_F(BackupChecks, ABackupDamagedAfterItWasScheduledFailsAndLeavesTheDatabase) {
    fs::path database = dir / "ombrelo.sqlite";
    { Database db(database); }
    fs::copy_file(good, dir / "chosen.sqlite");
    scheduleRestore(database, dir / "chosen.sqlite");
    testing::writeFile(dir / "chosen.sqlite", "gone bad");
    RestoreResult result = applyPendingRestore(database, 1.9e9);
    EXPECT_EQ(result.outcome, RestoreOutcome::failed);
    EXPECT_FALSE(result.message.empty());
    EXPECT_FALSE(scheduledRestore(database));
    EXPECT_EQ(lastRestore(database)->outcome, RestoreOutcome::failed);
    EXPECT_EQ(count(database, "SELECT COUNT(*) FROM activity"), 0);
    EXPECT_EQ(applyPendingRestore(database, 1.9e9).outcome, RestoreOutcome::nothingToDo);
}

// ---- retention ---------------------------------------------------------------

std::set<std::string> days(const std::vector<BackupEntry>& entries) {
    std::set<std::string> names;
    for (const BackupEntry& entry : entries) names.insert(local::formatDateTime(entry.takenAt));
    return names;
}

class BackupRetention : public ::testing::Test {
protected:
    testing::ScopedTimeZone zone{"Europe/Paris"};
};

TEST_F(BackupRetention, AYearOfDailyBackupsKeepsTwoWeeksAndTheFirstOfTwelveMonths) {
    std::vector<BackupEntry> kept;
    auto morning = [](Instant day) { return day + 9 * 3600; };
    Instant last = local::make(2026, 11, 22);
    // As the tracker does: a backup, then the pruning, every day for a year,
    // with a destructive command's own backup now and then.
    int n = 0;
    for (Instant day = local::make(2025, 11, 1); day <= last; day = local::addDays(day, 1), ++n) {
        kept.push_back({"", morning(day), "", 1});
        if (n % 45 == 0) kept.push_back({"", morning(day) + 3600, "forget", 1});
        std::vector<BackupEntry> gone = beyondRetention(kept, {14, 12});
        std::erase_if(kept, [&](const BackupEntry& entry) {
            return std::any_of(gone.begin(), gone.end(), [&](const auto& g) { return g.takenAt == entry.takenAt; });
        });
    }
    std::set<std::string> expected;
    for (Instant d = local::make(2026, 11, 9); d <= last; d = local::addDays(d, 1))
        expected.insert(local::formatDateTime(morning(d)));
    expected.insert("2025-12-01T09:00:00");
    for (int month = 1; month <= 11; ++month) expected.insert(local::formatDateTime(local::make(2026, month, 1, 9, 0)));
    EXPECT_EQ(days(kept), expected);
}

TEST_F(BackupRetention, WeeksWithTheComputerOffDoNotEmptyTheHistory) {
    std::vector<BackupEntry> entries;
    for (int d = 1; d <= 20; ++d) entries.push_back({"", local::make(2026, 3, d, 9, 0), "", 1});
    // Back in November after eight months away.
    entries.push_back({"", local::make(2026, 11, 20, 9, 0), "", 1});
    std::vector<BackupEntry> gone = beyondRetention(entries, {14, 12});
    // March's last 13 days with backups, March's first, and November's.
    EXPECT_EQ(gone.size(), 6u);
    EXPECT_EQ(days(gone), (std::set<std::string>{"2026-03-02T09:00:00", "2026-03-03T09:00:00", "2026-03-04T09:00:00",
                                                 "2026-03-05T09:00:00", "2026-03-06T09:00:00",
                                                 "2026-03-07T09:00:00"}));
}

// ---- the folder and the tracker's daily backup -------------------------------

class DailyBackup : public ::testing::Test {
protected:
    void SetUp() override {
        Database db(database);
        addActivities(db, 50);
    }

    testing::ScopedTimeZone zone{"Europe/Paris"};
    TempDir dir;
    fs::path database = dir / "ombrelo.sqlite";
    Preferences preferences{dir / "settings.json"};
    ManualClock clock{local::make(2026, 11, 22, 8, 59, 30)};
    Backups backups{database};
};

TEST_F(DailyBackup, OneADayNamedByTimeAndOnlyThisDatabasesFilesListed) {
    AutoBackup daily(database, preferences, clock);
    daily.tick();
    daily.wait();
    clock.advance(3600);
    daily.tick();  // same day: nothing more
    daily.wait();
    ASSERT_EQ(backups.list().size(), 1u);
    EXPECT_EQ(backups.list()[0].file.filename(), "ombrelo-2026-11-22-085930.sqlite");

    // Another database's backups, a stray file and a partial copy are not ours.
    testing::writeFile(backups.folder() / "ombrelo-dev-2026-11-21-100000.sqlite", "x");
    testing::writeFile(backups.folder() / "notes.txt", "x");
    testing::writeFile(backups.folder() / "ombrelo-2026-11-21-100000.sqlite.partial", "x");
    clock.set(local::make(2026, 11, 23, 0, 0, 5));
    daily.tick();
    daily.wait();
    std::vector<BackupEntry> entries = backups.list();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].file.filename(), "ombrelo-2026-11-23-000005.sqlite");
    EXPECT_EQ(count(entries[0].file, "SELECT COUNT(*) FROM activity"), 50);
    // Two in one second do not overwrite each other, and the number is no reason.
    EXPECT_EQ(backups.take(clock.now(), "forget").file.filename(), "ombrelo-2026-11-23-000005-forget.sqlite");
    EXPECT_EQ(backups.take(clock.now(), "forget").file.filename(), "ombrelo-2026-11-23-000005-forget-2.sqlite");
    EXPECT_EQ(backups.take(clock.now()).file.filename(), "ombrelo-2026-11-23-000005-2.sqlite");
    for (const BackupEntry& entry : backups.onDay(clock.now()))
        EXPECT_TRUE(entry.reason == "" || entry.reason == "forget") << entry.reason;
}

TEST_F(DailyBackup, RetentionSparesTheBackupAwaitingItsRestore) {
    BackupEntry old = backups.take(clock.now());
    clock.advance(86400);
    backups.take(clock.now());
    scheduleRestore(database, old.file);
    EXPECT_TRUE(backups.prune({1, 0}).empty());
    cancelRestore(database);
    ASSERT_EQ(backups.prune({1, 0}).size(), 1u);
    EXPECT_FALSE(fs::exists(old.file));
}

TEST_F(DailyBackup, AFailureIsRecordedUntilABackupSucceedsAndZeroDaysTurnsItOff) {
    testing::writeFile(backups.folder(), "a file where the folder should be");
    {
        AutoBackup daily(database, preferences, clock);
        daily.tick();
        daily.wait();
    }
    std::optional<BackupFailure> failure = backups.lastFailure();
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->at, clock.now());
    EXPECT_FALSE(failure->message.empty());

    fs::remove(backups.folder());
    clock.advance(86400);
    {
        AutoBackup daily(database, preferences, clock);
        daily.tick();
    }  // the end of tracking waits for it
    EXPECT_FALSE(backups.lastFailure());
    EXPECT_EQ(backups.list().size(), 1u);

    preferences.set("backupDays", std::int64_t{0});
    clock.advance(86400);
    AutoBackup daily(database, preferences, clock);
    daily.tick();
    daily.wait();
    EXPECT_EQ(backups.list().size(), 1u);
}

} // namespace
} // namespace ombrelo
