// The focus state machine with a pinned clock and a scripted desktop: sessions
// and their outcomes, recovery after a restart, reminders, breaks and stats.
#include "focus/FocusController.h"
#include "storage/Database.h"
#include "support/Preferences.h"
#include "support/Settings.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

namespace ombrelo::testing {
namespace {

constexpr Instant t0 = 1'780'000'000;

class ScriptedSurroundings final : public FocusSurroundings {
public:
    double idle = 0;
    std::optional<WatchedActivity> current = WatchedActivity{"Editor"};
    bool distracting = false;
    std::vector<std::pair<std::string, std::string>> notices;
    int breaksShown = 0, breaksClosed = 0;

    double secondsSinceLastInput() override { return idle; }
    std::optional<WatchedActivity> currentActivity() override { return current; }
    bool currentIsDistraction() override { return distracting; }
    std::optional<std::string> projectName(std::int64_t id) override {
        return id == 7 ? std::optional<std::string>("Refonte") : std::nullopt;
    }
    void notify(const std::string& title, const std::string& body) override { notices.emplace_back(title, body); }
    void showBreak() override { ++breaksShown; }
    void closeBreak() override { ++breaksClosed; }
};

class FocusControllerTest : public ::testing::Test {
protected:
    FocusControllerTest() { db.run("INSERT INTO project (id, name) VALUES (7, 'Refonte')"); }

    // Ticks every five seconds until `until`, as the tracker's loop does.
    void tickUntil(Instant until) {
        while (clock.now() + FocusController::tickSeconds <= until) {
            clock.advance(FocusController::tickSeconds);
            focus.tick();
        }
    }

    std::optional<std::string> outcome() {
        Statement row = db.prepare("SELECT outcome FROM focus_session ORDER BY id DESC LIMIT 1");
        return row.step() ? row.text(0) : std::nullopt;
    }
    double lastEnd(const char* table) {
        Statement row = db.prepare(std::string("SELECT end FROM ") + table + " ORDER BY id DESC LIMIT 1");
        return row.step() ? row.real(0) : -1;
    }

    ScopedLanguage french{"fr"};
    TempDir folder;
    Database db{folder / "focus.sqlite"};
    Preferences preferences{folder / "settings.json"};
    ManualClock clock{t0};
    ScriptedSurroundings desk;
    FocusController focus{db, preferences, clock, &desk};
};

TEST_F(FocusControllerTest, SessionsEndWithTheirOutcomeAndNeverPastTheirPlan) {
    focus.start();
    focus.startFocus(25, 7, t0);
    EXPECT_EQ(focus.remaining(), 25 * 60);
    // The machine slept through the planned end: the tick after still ends it there.
    clock.set(t0 + 40 * 60);
    focus.tick();
    EXPECT_FALSE(focus.session());
    EXPECT_EQ(outcome(), "completed");
    EXPECT_DOUBLE_EQ(lastEnd("focus_session"), t0 + 25 * 60);
    ASSERT_EQ(desk.notices.size(), 1u);
    EXPECT_EQ(desk.notices[0].first, "Session terminée");

    focus.startFocus(25, std::nullopt, clock.now());
    focus.stop(clock.now() + 600);
    EXPECT_EQ(outcome(), "stopped");
    EXPECT_EQ(db.queryInt("SELECT CAST(end - start AS INTEGER) FROM focus_session ORDER BY id DESC LIMIT 1"), 600);

    // Open-ended, whatever the way of asking for it: always completed.
    for (std::optional<std::int64_t> minutes : {std::optional<std::int64_t>(), std::optional<std::int64_t>(0)}) {
        focus.startFocus(minutes, std::nullopt, clock.now());
        EXPECT_FALSE(focus.remaining());
        focus.stop(clock.now() + 5);
        EXPECT_EQ(outcome(), "completed");
    }

    // A new session ends the running one first.
    focus.startFocus(50, std::nullopt, clock.now());
    focus.startFocus(10, std::nullopt, clock.now() + 60);
    EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM focus_session WHERE end IS NULL"), 1);
    EXPECT_EQ(outcome(), std::nullopt);
}

TEST_F(FocusControllerTest, ARestartTakesUpTheSessionAndBreakLeftRunning) {
    focus.startFocus(25, 7, t0);
    focus.beginBreak(t0 + 10, false);
    focus.startFocus(std::nullopt, std::nullopt, t0 + 20);  // open-ended survives as open-ended

    FocusController restarted(db, preferences, clock, &desk);
    restarted.start();
    ASSERT_TRUE(restarted.session());
    EXPECT_FALSE(restarted.session()->plannedEnd);
    ASSERT_TRUE(restarted.activeBreak());

    // Past their plans, both end at their planned ends.
    focus.startFocus(25, 7, t0 + 30);
    clock.set(t0 + 3 * 3600);
    FocusController later(db, preferences, clock, &desk);
    later.start();
    EXPECT_FALSE(later.activeBreak());
    EXPECT_DOUBLE_EQ(lastEnd("pause"), t0 + 10 + BreakRecord::length);
    EXPECT_EQ(db.queryInt("SELECT taken FROM pause"), 0);
    later.tick();
    EXPECT_FALSE(later.session());
    EXPECT_DOUBLE_EQ(lastEnd("focus_session"), t0 + 30 + 25 * 60);

    // A session started by a command while the tracker ran is seen at its next tick.
    Database other(db.path());
    FocusController command(other, preferences, clock);
    command.startFocus(15, std::nullopt, clock.now());
    later.tick();
    ASSERT_TRUE(later.session());
    EXPECT_EQ(later.remaining(), 15 * 60);
}

TEST_F(FocusControllerTest, OneReminderPerDistractionEpisode) {
    focus.startFocus(std::nullopt, 7, t0);
    desk.current = WatchedActivity{"video.example"};
    desk.distracting = true;
    tickUntil(t0 + 30);
    EXPECT_TRUE(desk.notices.empty()) << "30 seconds are not yet a distraction";
    tickUntil(t0 + 120);
    ASSERT_EQ(desk.notices.size(), 1u);
    EXPECT_EQ(desk.notices[0].first, "Retour à Refonte ?");
    EXPECT_EQ(desk.notices[0].second, "video.example vous a peut-être distrait.");

    desk.current = WatchedActivity{"Editor"};
    desk.distracting = false;
    tickUntil(t0 + 130);
    desk.current = WatchedActivity{"video.example"};
    desk.distracting = true;
    tickUntil(t0 + 200);
    EXPECT_EQ(desk.notices.size(), 2u) << "leaving the category ends the episode";

    ScopedLanguage english("en");
    focus.startFocus(std::nullopt, std::nullopt, clock.now());
    tickUntil(clock.now() + 60);
    ASSERT_EQ(desk.notices.size(), 3u);
    EXPECT_EQ(desk.notices[2].first, "Back to your session?");
}

TEST_F(FocusControllerTest, BreaksFollowTheWorkStretchAndCountOnlyWhenTaken) {
    focus.start();
    focus.tick();
    tickUntil(t0 + 3595);
    EXPECT_FALSE(focus.activeBreak());
    tickUntil(t0 + 3600);
    ASSERT_TRUE(focus.activeBreak()) << "unset, an hour of work proposes a break";
    EXPECT_EQ(desk.breaksShown, 1);

    desk.idle = 400;  // stayed away for the whole break; ended by the tick at its planned end
    tickUntil(t0 + 3600 + 300);
    EXPECT_FALSE(focus.activeBreak());
    EXPECT_EQ(desk.breaksClosed, 1);

    // Back at work: the stretch starts anew, back-dated by the idle time.
    desk.idle = 0;
    Instant back = clock.now();
    focus.beginBreak(back, true);
    tickUntil(back + 100);  // 100 s of a break with the user at the keyboard
    focus.endBreak(clock.now(), false);
    focus.beginBreak(clock.now(), true);
    desk.idle = 60;
    tickUntil(clock.now() + 60);
    focus.endBreak(clock.now(), true);  // dismissed: skipped however idle

    focus.startFocus(25, std::nullopt, t0);
    focus.stop(t0 + 25 * 60);
    FocusStats stats = focus.stats(t0, t0 + 86400);
    EXPECT_EQ(stats.breaksTaken, 1);
    EXPECT_EQ(stats.breaksSkipped, 2);
    EXPECT_EQ(stats.completed, 1);

    // Five minutes without input break the stretch; an away sample leaves it as it was.
    preferences.set(settings::breakEveryMinutes, std::int64_t(10));
    Instant start = clock.now();
    desk.idle = 0;
    desk.current = WatchedActivity{"Inactif", true};
    tickUntil(start + 900);
    EXPECT_FALSE(focus.activeBreak());
    desk.current = WatchedActivity{"Editor"};
    tickUntil(start + 900 + 595);
    desk.idle = 300;
    focus.tick();
    desk.idle = 0;
    tickUntil(clock.now() + 595);
    EXPECT_FALSE(focus.activeBreak()) << "the stretch restarted after five idle minutes";
    tickUntil(clock.now() + 10);
    EXPECT_TRUE(focus.activeBreak());

    preferences.set(settings::breakEveryMinutes, std::int64_t(0));
    focus.endBreak(clock.now(), true);
    tickUntil(clock.now() + 5 * 3600);
    EXPECT_FALSE(focus.activeBreak()) << "0 disables breaks";
}

TEST(FocusStats, CountOnlyThePeriodAndJoinSessionsCloseTogether) {
    TempDir folder;
    Database db(folder / "stats.sqlite");
    FocusRecords records(db);
    auto session = [&](Instant start, Instant end, FocusSession::Outcome outcome) {
        records.endSession(records.insertSession(start, end, std::nullopt), end, outcome);
    };
    session(t0 - 600, t0 + 600, FocusSession::Outcome::completed);  // half inside
    session(t0 + 700, t0 + 1300, FocusSession::Outcome::stopped);   // 100 s after: same stretch
    session(t0 + 1420, t0 + 1500, FocusSession::Outcome::completed);  // 120 s after: a new one
    records.insertSession(t0 + 2000, std::nullopt, std::nullopt);     // running until now
    records.endBreak(records.insertBreak(t0 - 2000), t0 - 1700, true);  // before the period

    FocusStats stats = records.stats(t0, t0 + 86400, t0 + 2100);
    EXPECT_DOUBLE_EQ(stats.focusTime, 600 + 600 + 80 + 100);
    EXPECT_EQ(stats.completed, 2);
    EXPECT_EQ(stats.interrupted, 1);
    EXPECT_DOUBLE_EQ(stats.longestStretch, 1900);
    EXPECT_EQ(stats.breaksTaken + stats.breaksSkipped, 0);

    EXPECT_DOUBLE_EQ(longestStretch({}, 120), 0);
    EXPECT_DOUBLE_EQ(longestStretch({{10, 20}, {0, 5}, {5, 8}}, 120), 20);

    FocusRecords::Counts counts = records.countStartingIn(t0, t0 + 86400);
    EXPECT_EQ(counts.sessions, 3);
    records.forgetStartingIn(t0, t0 + 86400);
    EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM focus_session"), 1);
    EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM pause"), 1);
}

} // namespace
} // namespace ombrelo::testing
