// The focus, forget and mistyped-command paths of the real binary, with no
// tracker running: what they print, their exit statuses, and what they leave in
// the database.
#include "storage/Database.h"
#include "support/LocalTime.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

namespace ombrelo::testing {
namespace {

class LiveCommandsTest : public ::testing::Test {
protected:
    CommandResult ombrelo(const std::vector<std::string>& arguments, const char* language = "LANG=en_GB.UTF-8") {
        std::vector<std::string> withDatabase{"--db", file.string()};
        withDatabase.insert(withDatabase.end(), arguments.begin(), arguments.end());
        return runOmbrelo(home.path(), withDatabase, {language, "TZ=Europe/Paris"});
    }
    std::int64_t count(const char* sql) { return Database(file).queryInt(sql).value_or(-1); }

    ScopedTimeZone paris{"Europe/Paris"};
    TempDir home;
    std::filesystem::path file = home / "live.sqlite";
    Instant monday = local::make(2026, 10, 19);
};

TEST_F(LiveCommandsTest, FocusStatsSayHowManyBreaksWereTakenInTheUsersLanguage) {
    {
        Database db(file);
        db.run("INSERT INTO focus_session (start, planned_end, end, outcome) VALUES (?, ?, ?, 'completed')",
               {monday + 9 * 3600, monday + 9 * 3600 + 1500, monday + 9 * 3600 + 1500});
        for (int taken : {1, 0, 0})
            db.run("INSERT INTO pause (start, end, taken) VALUES (?, ?, ?)",
                   {monday + 10 * 3600 + taken * 600, monday + 10 * 3600 + taken * 600 + 300, std::int64_t(taken)});
    }
    CommandResult french = ombrelo({"focus", "stats", "--from", "2026-10-19", "--to", "2026-10-19"}, "LANG=fr_FR.UTF-8");
    ASSERT_EQ(french.status, 0) << french.err;
    EXPECT_NE(french.out.find("Pauses : 1 prise, 2 sautées"), std::string::npos) << french.out;
    CommandResult english = ombrelo({"focus", "stats", "--from", "2026-10-19", "--to", "2026-10-19", "--json"});
    EXPECT_NE(english.out.find("\"breaks_skipped\": 2"), std::string::npos) << english.out;
    EXPECT_NE(english.out.find("\"focus_seconds\": 1500.0"), std::string::npos) << english.out;
}

TEST_F(LiveCommandsTest, ForgetDeletesOnlyWithYesAndNeverBilledTime) {
    {
        Database db(file);
        auto activity = [&](double hour) {
            return db.run("INSERT INTO activity (start, end, app_name, kind) VALUES (?, ?, 'Editor', 'app')",
                          {monday + hour * 3600, monday + hour * 3600 + 1800});
        };
        std::int64_t morning = activity(9);
        db.run("INSERT INTO assignment (activity_id, source) VALUES (?, 'manual')", {morning});
        std::int64_t billed = activity(14);
        db.run("INSERT INTO billing (activity_id, status) VALUES (?, 'billed')", {billed});
        activity(18);
        db.run("INSERT INTO focus_session (start, planned_end) VALUES (?, ?)", {monday + 9.5 * 3600, monday + 10 * 3600});
        db.run("INSERT INTO pause (start) VALUES (?)", {monday + 9.8 * 3600});
    }
    CommandResult dryRun = ombrelo({"forget", "--from", "2026-10-19T08:00", "--to", "2026-10-19T12:00"});
    ASSERT_EQ(dryRun.status, 0) << dryRun.err;
    EXPECT_NE(dryRun.out.find("1 activity, 1 focus session(s), 1 break(s)"), std::string::npos) << dryRun.out;
    EXPECT_EQ(count("SELECT COUNT(*) FROM activity"), 3);

    CommandResult overBilled = ombrelo({"forget", "--from", "2026-10-19T08:00", "--to", "2026-10-19T16:00", "--yes"});
    EXPECT_EQ(overBilled.status, 2);
    EXPECT_NE(overBilled.err.find("billed or paid"), std::string::npos) << overBilled.err;
    EXPECT_EQ(count("SELECT COUNT(*) FROM activity"), 3);

    ASSERT_EQ(ombrelo({"forget", "--from", "2026-10-19T08:00", "--to", "2026-10-19T12:00", "--yes"}).status, 0);
    EXPECT_EQ(count("SELECT COUNT(*) FROM activity"), 2);
    EXPECT_EQ(count("SELECT COUNT(*) FROM assignment"), 0);
    EXPECT_EQ(count("SELECT COUNT(*) FROM focus_session") + count("SELECT COUNT(*) FROM pause"), 0);
    EXPECT_EQ(ombrelo({"forget", "--from", "2026-10-19T12:00", "--to", "2026-10-19T08:00"}).status, 1);
}

TEST_F(LiveCommandsTest, AMistypedCommandNamesTheNearestOnes) {
    CommandResult top = ombrelo({"foucs"}, "LANG=fr_FR.UTF-8");
    EXPECT_EQ(top.status, 1);
    EXPECT_NE(top.err.find("Commande inconnue : ombrelo foucs. Commandes proches : ombrelo focus"), std::string::npos)
        << top.err;
    CommandResult nested = ombrelo({"focus", "strat", "--minutes", "5"});
    EXPECT_EQ(nested.status, 1);
    EXPECT_NE(nested.err.find("ombrelo focus start"), std::string::npos) << nested.err;
    // Option values and positional arguments are not commands.
    EXPECT_EQ(ombrelo({"focus", "start", "--minutes", "25"}).status, 0);
    EXPECT_EQ(ombrelo({"open", "ombrelo://focus/stop"}).status, 0);
}

} // namespace
} // namespace ombrelo::testing
