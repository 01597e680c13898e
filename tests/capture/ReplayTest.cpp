#include "capture/ActivityTracker.h"
#include "capture/Replay.h"
#include "storage/ActivityStore.h"
#include "support/LocalTime.h"
#include "support/Settings.h"
#include "testing/TestSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

namespace ombrelo {
namespace {

using testing::ScopedLanguage;
using testing::ScopedTimeZone;
using testing::TempDir;

const std::filesystem::path exampleDay = std::filesystem::path(OMBRELO_SOURCE_DIR) / "data" / "replay-example.jsonl";

class ReplayTest : public ::testing::Test {
protected:
    ScopedTimeZone zone{"Europe/Paris"};
    ScopedLanguage language{"en"};
    TempDir dir;
    Preferences userSettings{dir / "settings.json"};
    Database db{dir / "ombrelo.sqlite"};
    ActivityStore store{db};

    void TearDown() override { testing::expectActivityInvariants(db.path()); }

    Replay::Outcome replay(const std::string& text, const Replay::Configure& configure = {}) {
        std::istringstream in(text);
        return Replay::run(Replay::parse(in), store, userSettings, configure);
    }

    std::vector<Activity> rows() { return store.activities(0, 1e10); }

    // One row as "HH:MM-HH:MM app|title|domain|kind".
    static std::string line(const Activity& a) {
        return local::formatTime(a.start) + "-" + local::formatTime(a.end) + " " + a.appName + "|" +
               a.title.value_or("") + "|" + a.domain.value_or("") + "|" + std::string(rawValue(a.kind));
    }
    std::vector<std::string> lines() {
        std::vector<std::string> out;
        for (const Activity& a : rows()) out.push_back(line(a));
        return out;
    }
};

TEST_F(ReplayTest, aFreelancersDayIsRecordedAsLiveTrackingWould) {
    Activity earlier{0, local::make(2025, 3, 10, 9, 0), local::make(2025, 3, 10, 10, 0), "code", "Code"};
    store.insert(earlier);

    int recorded = 0, returns = 0;
    std::vector<std::tuple<std::string, Instant, Instant>> calls;
    Replay::Outcome outcome = Replay::run(Replay::read(exampleDay), store, userSettings, [&](ActivityTracker& tracker, Preferences&, Clock&) {
        tracker.onRecorded = [&](const Activity& a) {
            EXPECT_NE(a.id, 0);
            ++recorded;
        };
        tracker.onReturnFromIdle = [&](const Activity& idle) {
            EXPECT_EQ(local::formatTime(idle.start) + "-" + local::formatTime(idle.end), "12:10-13:25");
            ++returns;
        };
        tracker.onCallEnded = [&](const std::string& name, Instant start, Instant end) {
            calls.emplace_back(name, start, end);
        };
    });

    EXPECT_EQ(outcome.written, 14) << "rows that were there before do not count";
    EXPECT_EQ(outcome.from, local::make(2025, 3, 11, 8, 58));
    EXPECT_EQ(outcome.to, local::make(2025, 3, 11, 17, 30));
    EXPECT_EQ(recorded, 14);
    EXPECT_EQ(returns, 1);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0], std::make_tuple(std::string("Zoom"), local::make(2025, 3, 11, 10, 30),
                                        local::make(2025, 3, 11, 11, 15)));

    std::vector<Activity> all = rows();
    ASSERT_EQ(all.size(), 15u);
    all.erase(all.begin());
    std::vector<std::string> day;
    for (const Activity& a : all) day.push_back(line(a));
    EXPECT_THAT(day, ::testing::ElementsAre(
                         "08:58-09:20 Code|devis.md — client-durant||app",
                         "09:20-09:24 Terminal|~/durant: make test||app",
                         "09:24-09:31 Firefox|Pull requests · durant/site|github.com|app",
                         "09:31-09:40 Firefox|Grille CSS - CSS | MDN|developer.mozilla.org|app",
                         "09:40-10:05 Code|style.css — client-durant||app",
                         "10:05-10:30 Code|grid.css — client-durant||app",  // a title change
                         "10:30-11:15 Zoom|Réunion Zoom||app",              // no input, display held awake
                         "11:15-11:20 Slack|#client-durant||app",
                         "11:20-12:10 Code|grid.css — client-durant||app",  // cut back to the last input
                         "12:10-13:25 Inactif|||idle",                      // lunch
                         "13:25-13:40 Code|grid.css — client-durant||app",  // locked at 13:40
                         "13:52-14:30 Code|grid.css — client-durant||app",
                         "14:30-14:45 Firefox|Facture 2025-03 — Durant|mail.proton.me|app",
                         "14:45-17:30 Code|grid.css — client-durant||app"));
    EXPECT_EQ(all[0].bundleID, "code");
    EXPECT_EQ(all[0].path, "/home/lea/durant");
    EXPECT_EQ(all[3].url, "https://developer.mozilla.org/fr/docs/Web/CSS/grid");
    EXPECT_EQ(all[5].path, "/home/lea/durant/style.css") << "a title event leaves the document as it was";
    EXPECT_FALSE(all[9].bundleID);
}

TEST_F(ReplayTest, theUsersSettingsApplyButTheirPauseNeitherStopsNorReceivesTheReplay) {
    userSettings.set(settings::privateDomains.name, std::vector<std::string>{"proton.me"});
    userSettings.set(settings::pausedUntil, ActivityTracker::indefinitely);  // the user paused their tracker
    userSettings.set(settings::workHoursEnabled.name, true);
    userSettings.set(settings::workHoursEnd.name, std::int64_t{17});

    replay(R"({"t": "2025-03-11T16:00:00", "front": {"name": "Firefox", "domain": "mail.proton.me", "title": "Facture"}}
{"t": "2025-03-11T16:10:00", "front": {"id": "code", "name": "Code"}}
{"t": "2025-03-11T16:20:00", "pause": 15}
{"t": "2025-03-11T16:50:00", "pause": null}
{"t": "2025-03-11T16:55:00", "resume": true}
{"t": "2025-03-11T17:30:00", "quit": true}
)");
    EXPECT_THAT(lines(), ::testing::ElementsAre("16:00-16:10 Firefox|||private", "16:10-16:20 Code|||app",
                                                "16:35-16:50 Code|||app", "16:55-17:00 Code|||app"));
    EXPECT_EQ(userSettings.number(settings::pausedUntil), ActivityTracker::indefinitely);
}

TEST_F(ReplayTest, theSessionEndsAtTheLastEventWithoutQuit) {
    auto outcome = replay(R"({"t": 1741683600, "front": {"name": "Code", "title": "a"}}
{"t": "2025-03-11T10:02:00", "away": true}
{"t": "2025-03-11T10:10:00", "title": "b"}
{"t": "2025-03-11T10:12:02", "title": "c"}
)");
    EXPECT_EQ(outcome.written, 2);
    EXPECT_THAT(lines(), ::testing::ElementsAre("10:00-10:02 Code|a||app", "10:02-10:12 Inactif|||idle"));
    EXPECT_EQ(rows().back().end, local::make(2025, 3, 11, 10, 12, 2));
}

TEST_F(ReplayTest, badLinesAreRefusedWithTheirLineNumber) {
    const std::string good = R"({"t": "2025-03-11T09:00:00", "front": {"name": "Code"}})";
    struct Case {
        std::string text;
        ReplayError::Problem problem;
    };
    using P = ReplayError::Problem;
    std::vector<Case> cases = {
        {R"({"t": "2025-03-11T09:01:00", "front": {"name": "Code"})", P::notJSON},
        {R"(["t", 1])", P::notObject},
        {R"({"front": {"name": "Code"}})", P::missingTime},
        {R"({"t": "2025-13-01T09:00:00", "back": true})", P::badTime},
        {R"({"t": "hier", "back": true})", P::badTime},
        {R"({"t": "2025-03-11T08:59:59", "back": true})", P::outOfOrder},
        {R"({"t": "2025-03-11T09:01:00"})", P::noEvent},
        {R"({"t": "2025-03-11T09:01:00", "away": true, "back": true})", P::severalEvents},
        {R"({"t": "2025-03-11T09:01:00", "focus": true})", P::unknownKey},
        {R"({"t": "2025-03-11T09:01:00", "front": {"name": "Code", "pid": 12}})", P::unknownKey},
        {R"({"t": "2025-03-11T09:01:00", "front": {"id": "code"}})", P::badValue},
        {R"({"t": "2025-03-11T09:01:00", "title": 3})", P::badValue},
        {R"({"t": "2025-03-11T09:01:00", "away": false})", P::badValue},
        {R"({"t": "2025-03-11T09:01:00", "awake": ["zoom", 1]})", P::badValue},
        {R"({"t": "2025-03-11T09:01:00", "pause": -5})", P::badValue},
        {R"({"t": "2025-03-11T09:01:00", "site": "github.com"})", P::badValue},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        std::istringstream in(good + "\n\n" + c.text + "\n" + good + "\n");
        try {
            Replay::parse(in);
            ADD_FAILURE() << "accepted";
        } catch (const ReplayError& error) {
            EXPECT_EQ(error.problem, c.problem) << error.what();
            EXPECT_EQ(error.line, 3) << "blank lines count";
            EXPECT_THAT(error.what(), ::testing::StartsWith("Line 3: "));
        }
    }

    std::istringstream afterQuit(good + "\n" + R"({"t": "2025-03-11T10:00:00", "quit": true})" + "\n" +
                                 R"({"t": "2025-03-11T11:00:00", "back": true})");
    try {
        Replay::parse(afterQuit);
        ADD_FAILURE() << "an event after quit was accepted";
    } catch (const ReplayError& error) {
        EXPECT_EQ(error.problem, P::afterQuit);
        EXPECT_EQ(error.line, 3);
    }
    std::istringstream empty("\n  \n");
    EXPECT_THROW(Replay::parse(empty), ReplayError);

    ScopedLanguage french("fr");
    std::istringstream bad(R"({"t": "2025-03-11T09:00:00", "away": false})");
    try {
        Replay::parse(bad);
        ADD_FAILURE() << "accepted";
    } catch (const ReplayError& error) {
        EXPECT_STREQ(error.what(), "Ligne 1 : valeur invalide pour « away » (attendu : true)");
    }
}

TEST_F(ReplayTest, aFailedWriteKeepsNothingOfTheSession) {
    store.insert({0, local::make(2025, 3, 10, 9, 0), local::make(2025, 3, 10, 10, 0), "code", "Code"});
    db.execute("CREATE TRIGGER refuse BEFORE INSERT ON activity WHEN NEW.app_name = 'Boom' "
               "BEGIN SELECT RAISE(ABORT, 'disque plein'); END");
    EXPECT_THROW(replay(R"({"t": "2025-03-11T09:00:00", "front": {"name": "Code"}}
{"t": "2025-03-11T09:10:00", "front": {"name": "Terminal"}}
{"t": "2025-03-11T09:20:00", "front": {"name": "Boom"}}
{"t": "2025-03-11T09:30:00", "front": {"name": "Code"}}
)"),
                 DatabaseError);
    ASSERT_EQ(rows().size(), 1u);
    EXPECT_EQ(rows()[0].start, local::make(2025, 3, 10, 9, 0));
    EXPECT_FALSE(db.inTransaction());
}

// Years between two events cost a few samples a day, not one every five seconds,
// and the rows come out as sampling every five seconds would make them.
TEST_F(ReplayTest, aGapOfYearsIsSkippedWithoutChangingTheRows) {
    Replay::Outcome outcome = replay(R"({"t": "2022-01-03T09:00:00", "front": {"name": "Code", "title": "a.cpp"}}
{"t": "2022-01-03T09:10:00", "away": true}
{"t": "2025-01-06T09:30:00", "back": true}
{"t": "2025-01-06T09:31:00", "front": null}
{"t": "2025-01-06T09:32:00", "front": {"name": "Code", "title": "a.cpp"}}
{"t": "2025-01-06T09:33:00", "quit": true}
)");
    std::vector<Activity> activities = rows();
    ASSERT_GT(activities.size(), 1000u);  // the absence, split at each midnight
    EXPECT_EQ(line(activities.front()), "09:00-09:10 Code|a.cpp||app");
    EXPECT_EQ(activities[1].kind, Activity::Kind::idle);
    EXPECT_EQ(activities[1].start, local::make(2022, 1, 3, 9, 10));
    EXPECT_EQ(activities[1].end, local::make(2022, 1, 4));
    EXPECT_EQ(activities[activities.size() - 3].end, local::make(2025, 1, 6, 9, 30));
    EXPECT_EQ(line(activities[activities.size() - 2]), "09:30-09:31 Code|a.cpp||app") << "nothing in front";
    EXPECT_EQ(line(activities.back()), "09:32-09:33 Code|a.cpp||app");
    EXPECT_EQ(outcome.written, static_cast<std::int64_t>(activities.size()));
}

// What an event changes without telling the tracker is seen at the first
// sample after it, however far the next change is.
TEST_F(ReplayTest, theSampleAfterAnEventIsNeverSkipped) {
    replay(R"({"t": "2025-01-06T09:00:00", "front": {"name": "Code", "title": "a.cpp"}}
{"t": "2025-01-06T09:00:02", "title": "b.cpp"}
{"t": "2025-01-06T09:01:00", "away": true}
{"t": "2025-01-06T09:30:02", "back": true}
{"t": "2025-01-06T09:40:00", "quit": true}
)");
    auto at = [](int minute, int second) { return local::make(2025, 1, 6, 9, minute, second); };
    std::vector<Activity> activities = rows();
    ASSERT_EQ(activities.size(), 4u) << ::testing::PrintToString(lines());
    EXPECT_EQ(activities[0].end, at(0, 5)) << "the new title at the next sample";
    EXPECT_EQ(activities[1].title, "b.cpp");
    EXPECT_EQ(activities[2].kind, Activity::Kind::idle);
    EXPECT_EQ(activities[2].start, at(1, 0));
    EXPECT_EQ(activities[2].end, at(30, 5)) << "back at the first sample after input resumed";
    EXPECT_EQ(activities[3].end, at(40, 0));
}

// The real binary: the count it prints and the rows it leaves.
TEST(ReplayCommand, printsTheCountAndWritesTheRows) {
    TempDir home;
    std::filesystem::path file = home / "session.jsonl", database = home / "ombrelo.sqlite";
    testing::writeFile(file, R"({"t": "2025-03-11T09:00:00", "front": {"id": "code", "name": "Code", "title": "a.cpp"}}
{"t": "2025-03-11T09:30:00", "front": {"id": "firefox", "name": "Firefox", "domain": "github.com"}}
{"t": "2025-03-11T09:30:00", "front": {"id": "code", "name": "Code", "title": "b.cpp"}}
{"t": "2025-03-11T10:00:00", "lock": true}
{"t": "2025-03-11T10:15:00", "unlock": true}
{"t": "2025-03-11T10:45:00", "quit": true}
)");
    std::vector<std::string> environment{"TZ=Europe/Paris", "LANG=fr_FR.UTF-8"};
    auto result = testing::runOmbrelo(home.path(), {"--db", database.string(), "replay", file.string()}, environment);
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "3 activités enregistrées\n");

    ScopedTimeZone zone("Europe/Paris");
    Database db{database};
    ActivityStore store{db};
    std::vector<std::string> rows;
    for (const Activity& a : store.activities(0, 1e10))
        rows.push_back(local::formatTime(a.start) + "-" + local::formatTime(a.end) + " " + a.title.value_or(""));
    EXPECT_THAT(rows, ::testing::ElementsAre("09:00-09:30 a.cpp", "09:30-10:00 b.cpp", "10:15-10:45 b.cpp"));

    testing::writeFile(file, R"({"t": "2025-03-12T09:00:00", "front": {"name": "Code"}}
{"t": "2025-03-12T08:00:00", "back": true}
)");
    result = testing::runOmbrelo(home.path(), {"--db", database.string(), "replay", file.string()}, environment);
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, ::testing::HasSubstr("Ligne 2 : heure antérieure"));
    EXPECT_EQ(store.activities(0, 1e10).size(), 3u);

    result = testing::runOmbrelo(home.path(), {"--db", database.string(), "replay", (home / "absent").string()},
                                 environment);
    EXPECT_EQ(result.status, 1);
}

// The active project chosen for the replayed day claims that day's activities;
// the one-day rule is judged on the session's clock, not the real one.
TEST(ReplayCommand, theActiveProjectOfTheReplayedDayClaimsItsActivities) {
    TempDir home;
    std::string database = (home / "ombrelo.sqlite").string();
    std::vector<std::string> environment{"TZ=Europe/Paris", "LANG=C", "OMBRELO_NOW=2025-03-11T08:00:00"};
    ASSERT_EQ(testing::runOmbrelo(home.path(), {"--db", database, "projects", "add", "Site Durant"}, environment).status, 0);
    ASSERT_EQ(testing::runOmbrelo(home.path(), {"--db", database, "work", "Site Durant"}, environment).status, 0);
    environment.pop_back();
    auto result = testing::runOmbrelo(home.path(), {"--db", database, "replay", exampleDay.string()}, environment);
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "14 activities written\n");

    Database db{database};
    EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM assignment WHERE source = 'active'"), 13);
    EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM activity a JOIN assignment s ON s.activity_id = a.id "
                          "WHERE a.kind = 'idle'"),
              0);
}

} // namespace
} // namespace ombrelo
