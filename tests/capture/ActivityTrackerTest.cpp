#include "capture/ActivityTracker.h"
#include "capture/PrivacyRules.h"
#include "capture/ScriptedDesktop.h"
#include "storage/ActivityStore.h"
#include "support/LocalTime.h"
#include "support/Settings.h"
#include "testing/TestSupport.h"

#include <functional>
#include <gtest/gtest.h>

namespace ombrelo {
namespace {

using testing::ScopedTimeZone;
using testing::TempDir;

class TrackerTest : public ::testing::Test {
protected:
    ScopedTimeZone zone{"Europe/Paris"};
    TempDir dir;
    Preferences preferences{dir / "settings.json"};
    Database db{dir / "ombrelo.sqlite"};
    ActivityStore store{db};
    ManualClock clock{local::make(2025, 3, 10, 9, 0, 0)};  // a Monday
    PrivacyRules privacy{preferences};
    ScriptedDesktop desktop{clock, privacy};
    ActivityTracker tracker{&store, desktop, clock, preferences};

    // A tracker of its own on a fresh file, with Code in front from `start`,
    // for tests that play one scenario several ways.
    struct Rig {
        Rig(Instant start, const PrivacyRules& privacy, Preferences& preferences)
            : time(start), screen(time, privacy), loop(&activities, screen, time, preferences) {
            screen.bringToFront(window("code", "Code"));
            loop.start();
        }
        TempDir folder;
        Database database{folder / "rig.sqlite"};
        ActivityStore activities{database};
        ManualClock time;
        ScriptedDesktop screen;
        ActivityTracker loop;
    };

    // Whatever a test does, the rows it leaves keep the activity table's rules.
    void TearDown() override { testing::expectActivityInvariants(db.path()); }

    static ScriptedWindow window(const std::string& id, const std::string& name,
                                 std::optional<std::string> title = std::nullopt) {
        return {{id, name, std::nullopt}, std::move(title), std::nullopt, std::nullopt};
    }

    void startWith(const ScriptedWindow& first) {
        desktop.bringToFront(first);
        tracker.start();
    }

    // Samples every 5 seconds for `seconds`, the clock moving first.
    void sampleFor(double seconds) {
        for (double elapsed = 0; elapsed < seconds; elapsed += tracker.sampleInterval()) {
            clock.advance(tracker.sampleInterval());
            tracker.tick();
        }
    }

    std::vector<Activity> rows() { return store.activities(0, 1e10); }

    Instant at(int hour, int minute, int second = 0) { return local::make(2025, 3, 10, hour, minute, second); }
};

TEST_F(TrackerTest, switchingTwiceWithinASecondKeepsNoRowForTheMiddleApplication) {
    startWith(window("code", "Code", "main.cpp"));
    sampleFor(60);
    desktop.bringToFront(window("org.gnome.Terminal", "Terminal"));
    clock.advance(0.6);
    desktop.bringToFront(window("firefox", "Firefox"));
    sampleFor(30);
    tracker.close(clock.now());

    auto activities = rows();
    ASSERT_EQ(activities.size(), 2u);
    EXPECT_EQ(activities[0].appName, "Code");
    EXPECT_EQ(activities[0].end, at(9, 1));
    EXPECT_EQ(activities[1].appName, "Firefox");
    EXPECT_DOUBLE_EQ(activities[1].start, at(9, 1) + 0.6);
}

TEST_F(TrackerTest, idleCutsBackToTheLastInputAtThreshold) {
    for (double setting : {-1.0, 0.0}) {  // absent, then stored as 0: both mean 300 s
        SCOPED_TRACE(setting);
        if (setting == 0) preferences.set(settings::idleSeconds.name, 0.0);
        Rig rig{at(9, 0), privacy, preferences};

        rig.time.advance(60);
        rig.loop.tick();
        rig.screen.inputStopped(at(9, 1));
        rig.time.set(at(9, 1) + 299);
        rig.loop.tick();
        EXPECT_EQ(rig.loop.current()->appName, "Code") << "299 s without input is not yet absence";

        rig.time.set(at(9, 1) + 300);
        rig.loop.tick();
        auto rows = rig.activities.activities(0, 1e10);
        ASSERT_EQ(rows.size(), 2u);
        EXPECT_EQ(rows[0].end, at(9, 1)) << "cut back to the last input";
        EXPECT_EQ(rows[1].kind, Activity::Kind::idle);
        EXPECT_EQ(rows[1].appName, "Inactif");
        EXPECT_EQ(rows[1].start, at(9, 1));
        EXPECT_EQ(rows[1].end, at(9, 6));
    }
}

TEST_F(TrackerTest, idleThresholdComesFromTheSettings) {
    preferences.set(settings::idleSeconds.name, 120.0);
    startWith(window("code", "Code"));
    desktop.inputStopped(clock.now());
    sampleFor(115);
    EXPECT_EQ(tracker.current()->kind, Activity::Kind::app);
    sampleFor(5);
    EXPECT_EQ(tracker.current()->kind, Activity::Kind::idle);
    EXPECT_EQ(tracker.current()->start, at(9, 0));
}

TEST_F(TrackerTest, anAbsenceNeverStartsBeforeTheActivityItCuts) {
    startWith(window("org.gnome.Evolution", "Evolution", "Boîte de réception"));
    desktop.inputStopped(at(9, 0));
    sampleFor(120);
    desktop.setTitle("Boîte de réception (1)");  // a new mail while the user is away
    sampleFor(240);

    // The retitled row is cut back to nothing and deleted; the absence starts
    // where it started, not at the last input, so no two rows overlap.
    auto activities = rows();
    ASSERT_EQ(activities.size(), 2u);
    EXPECT_EQ(activities[0].end, at(9, 2, 5));
    EXPECT_EQ(activities[1].kind, Activity::Kind::idle);
    EXPECT_EQ(activities[1].start, at(9, 2, 5));
}

TEST_F(TrackerTest, aFilmHoldingTheDisplayAwakeIsNotAbsence) {
    startWith(window("org.videolan.vlc", "VLC", "Film.mkv"));
    desktop.setDisplayAwake({"org.videolan.vlc"});
    desktop.inputStopped(clock.now());
    sampleFor(2 * 3600);
    auto activities = rows();
    ASSERT_EQ(activities.size(), 1u);
    EXPECT_EQ(activities[0].appName, "VLC");
    EXPECT_EQ(activities[0].end, at(11, 0));

    // Once the film ends, the absence counts from the last input as usual.
    desktop.setDisplayAwake({});
    sampleFor(5);
    EXPECT_EQ(tracker.current()->kind, Activity::Kind::idle);
}

TEST_F(TrackerTest, returnFromIdleReopensTheFrontApplicationWhenInputResumedAndReportsOnce) {
    std::vector<Activity> returns;
    tracker.onReturnFromIdle = [&](const Activity& idle) { returns.push_back(idle); };
    startWith(window("code", "Code"));
    desktop.inputStopped(at(9, 0));
    sampleFor(20 * 60);
    ASSERT_EQ(tracker.current()->kind, Activity::Kind::idle);

    clock.advance(3);  // input resumed 2 s before the next sample
    desktop.inputResumed();
    desktop.inputStopped(clock.now());
    clock.advance(2);
    tracker.tick();
    sampleFor(30);

    ASSERT_EQ(returns.size(), 1u);
    EXPECT_EQ(returns[0].kind, Activity::Kind::idle);
    EXPECT_EQ(returns[0].start, at(9, 0));
    EXPECT_EQ(returns[0].end, at(9, 20, 3));
    auto activities = rows();
    ASSERT_EQ(activities.size(), 2u);  // the first Code row was cut to nothing and deleted
    EXPECT_EQ(activities[0].kind, Activity::Kind::idle);
    EXPECT_EQ(activities[1].appName, "Code");
    EXPECT_EQ(activities[1].start, at(9, 20, 3));
}

TEST_F(TrackerTest, comingBackByActivatingAnotherApplicationAlsoEndsTheAbsence) {
    int returns = 0;
    tracker.onReturnFromIdle = [&](const Activity&) { ++returns; };
    startWith(window("code", "Code"));
    desktop.inputStopped(clock.now());
    sampleFor(10 * 60);
    desktop.bringToFront(window("firefox", "Firefox"));
    sampleFor(60);
    EXPECT_EQ(returns, 1);
    EXPECT_EQ(tracker.current()->appName, "Firefox");
}

TEST_F(TrackerTest, anActivityRunningAtMidnightIsSplitThere) {
    clock.set(local::make(2025, 3, 29, 23, 58, 0));  // the next day is 23 hours long
    startWith(window("code", "Code"));
    sampleFor(4 * 60);
    tracker.close(clock.now());

    auto activities = rows();
    ASSERT_EQ(activities.size(), 2u);
    Instant midnight = local::make(2025, 3, 30);
    EXPECT_EQ(activities[0].end, midnight);
    EXPECT_EQ(activities[1].start, midnight);
    EXPECT_EQ(activities[1].end, local::make(2025, 3, 30, 0, 2));
    EXPECT_TRUE(activities[1].sameDetails(activities[0]));
    EXPECT_NE(activities[1].id, activities[0].id);
}

TEST_F(TrackerTest, workingHoursStopTrackingAt19AndOnSaturday) {
    preferences.set(settings::workHoursEnabled.name, true);
    clock.set(local::make(2025, 3, 14, 18, 59, 0));  // a Friday
    startWith(window("code", "Code"));
    sampleFor(60);
    EXPECT_FALSE(tracker.current());
    EXPECT_TRUE(tracker.outsideWorkHours());
    auto activities = rows();
    ASSERT_EQ(activities.size(), 1u);
    EXPECT_EQ(activities[0].end, local::make(2025, 3, 14, 19, 0));

    clock.set(local::make(2025, 3, 15, 10, 0));  // Saturday morning
    desktop.bringToFront(window("firefox", "Firefox"));
    sampleFor(60);
    EXPECT_EQ(rows().size(), 1u);

    clock.set(local::make(2025, 3, 17, 7, 59, 55));  // Monday
    sampleFor(10);
    ASSERT_TRUE(tracker.current());
    EXPECT_EQ(tracker.current()->start, local::make(2025, 3, 17, 8, 0));

    preferences.set(settings::workHoursEnabled.name, false);
    clock.set(local::make(2025, 3, 15, 23, 0));
    EXPECT_TRUE(ActivityTracker::isWithinWorkHours(clock.now(), preferences));
}

TEST_F(TrackerTest, aPauseClosesAtOnceAndTrackingResumesAtTheFirstSampleAfterItsEnd) {
    clock.set(at(13, 0));
    startWith(window("code", "Code"));
    sampleFor(60);
    tracker.pause(at(14, 0));
    EXPECT_FALSE(tracker.current());
    EXPECT_EQ(preferences.number(settings::pausedUntil), at(14, 0));

    desktop.bringToFront(window("firefox", "Firefox"));  // ignored while paused
    sampleFor(3600 - 65);
    EXPECT_FALSE(tracker.current());
    EXPECT_TRUE(tracker.isPaused());
    sampleFor(5);  // 14:00:00: the deadline is reached

    ASSERT_TRUE(tracker.current());
    EXPECT_EQ(tracker.current()->appName, "Firefox");
    EXPECT_EQ(tracker.current()->start, at(14, 0));
    EXPECT_FALSE(tracker.pausedUntil());
    EXPECT_FALSE(preferences.number(settings::pausedUntil));
    auto activities = rows();
    ASSERT_EQ(activities.size(), 2u);
    EXPECT_EQ(activities[0].end, at(13, 1));
}

TEST_F(TrackerTest, aPauseSetOrClearedByAnotherProcessIsFollowed) {
    startWith(window("code", "Code"));
    sampleFor(30);
    Preferences command{preferences.path()};
    command.set(settings::pausedUntil, ActivityTracker::indefinitely);
    sampleFor(5);
    EXPECT_FALSE(tracker.current());
    EXPECT_TRUE(tracker.isPaused());

    command.remove(settings::pausedUntil);
    sampleFor(5);
    ASSERT_TRUE(tracker.current());
    EXPECT_EQ(tracker.current()->start, at(9, 0, 40));

    // Told that the settings changed, the tracker acts at that moment.
    clock.advance(2);
    command.set(settings::pausedUntil, ActivityTracker::indefinitely);
    tracker.takeInSettings();
    EXPECT_FALSE(tracker.current());
    EXPECT_EQ(rows().back().end, at(9, 0, 42));
    clock.advance(1);
    command.remove(settings::pausedUntil);
    tracker.takeInSettings();
    ASSERT_TRUE(tracker.current());
    EXPECT_EQ(tracker.current()->start, at(9, 0, 43));
}

TEST_F(TrackerTest, lockingClosesAtTheLockTimeAndNothingIsWrittenUntilUnlock) {
    startWith(window("code", "Code"));
    sampleFor(62);
    clock.advance(1);
    desktop.notifySuspend(reason::locked);
    EXPECT_TRUE(tracker.suspended());
    auto before = rows();
    ASSERT_EQ(before.size(), 1u);
    EXPECT_EQ(before[0].end, at(9, 1, 6));

    desktop.bringToFront(window("firefox", "Firefox"));
    sampleFor(600);
    EXPECT_EQ(rows(), before);

    desktop.notifyResume(reason::unlocked);
    EXPECT_FALSE(tracker.suspended());
    ASSERT_TRUE(tracker.current());
    EXPECT_EQ(tracker.current()->start, clock.now());
    EXPECT_EQ(rows().size(), 2u);
}

TEST_F(TrackerTest, theLoginWindowSuspendsCapture) {
    startWith(window("code", "Code"));
    sampleFor(30);
    desktop.bringToFront(window("com.apple.loginwindow", "loginwindow"));
    EXPECT_TRUE(tracker.suspended());
    EXPECT_FALSE(tracker.current());
}

TEST_F(TrackerTest, privateTimeCountsWithoutItsDetails) {
    preferences.set(settings::privateApps.name, std::vector<std::string>{"org.keepassxc.KeePassXC"});
    preferences.set(settings::privateTitleWords.name, std::vector<std::string>{"médical"});
    startWith({{"org.keepassxc.keepassxc", "KeePassXC", std::nullopt}, "Banque — KeePassXC", "/home/lea/mots.kdbx",
               PageContext{"bank.fr", "https://bank.fr/"}});
    sampleFor(60);
    desktop.setTitle("Autre coffre — KeePassXC");  // still private: no new row
    sampleFor(60);
    desktop.bringToFront(window("code", "Code", "Dossier MEDICAL.txt"));
    sampleFor(30);
    tracker.close(clock.now());

    auto activities = rows();
    ASSERT_EQ(activities.size(), 2u);
    for (const Activity& activity : activities) {
        EXPECT_EQ(activity.kind, Activity::Kind::privateTime);
        EXPECT_FALSE(activity.title || activity.domain || activity.path || activity.url);
    }
    EXPECT_EQ(activities[0].appName, "KeePassXC");
    EXPECT_EQ(activities[0].end, at(9, 2));
}

TEST_F(TrackerTest, titleAndPageChangesStartNewActivitiesAtTheSample) {
    startWith({{"firefox", "Firefox", std::nullopt}, "Pull requests", std::nullopt,
               PageContext{"github.com", "https://github.com/pulls"}});
    sampleFor(20);
    desktop.setPage({"en.cppreference.com", "https://en.cppreference.com/w/"});
    sampleFor(20);
    desktop.setTitle(std::nullopt);
    sampleFor(20);
    tracker.close(clock.now());

    auto activities = rows();
    ASSERT_EQ(activities.size(), 3u);
    EXPECT_EQ(activities[0].domain, "github.com");
    EXPECT_EQ(activities[0].url, "https://github.com/pulls");
    EXPECT_EQ(activities[1].domain, "en.cppreference.com");
    EXPECT_EQ(activities[1].title, "Pull requests");
    EXPECT_EQ(activities[1].start, at(9, 0, 25));
    EXPECT_FALSE(activities[2].title) << "a title that disappears is a change too";
}

TEST_F(TrackerTest, theUsersCutLeavesTwoRowsWithTheSameDetails) {
    std::vector<Activity> recorded;
    tracker.onRecorded = [&](const Activity& a) { recorded.push_back(a); };
    startWith(window("code", "Code", "devis.md"));
    sampleFor(60);
    tracker.splitNow();
    sampleFor(30);

    auto activities = rows();
    ASSERT_EQ(activities.size(), 2u);
    EXPECT_EQ(activities[0].end, at(9, 1));
    EXPECT_EQ(activities[1].start, at(9, 1));
    EXPECT_EQ(activities[1].end, at(9, 1, 30));
    EXPECT_TRUE(activities[1].sameDetails(activities[0]));
    ASSERT_EQ(recorded.size(), 2u);
    EXPECT_EQ(recorded[1].id, activities[1].id);
}

TEST_F(TrackerTest, callsOfAMinuteOrMoreAreReportedOnceWhenTheyEnd) {
    std::vector<std::tuple<std::string, Instant, Instant>> calls;
    tracker.onCallEnded = [&](const std::string& name, Instant start, Instant end) {
        calls.emplace_back(name, start, end);
    };
    startWith(window("com.apple.FaceTime", "FaceTime"));
    desktop.setDisplayAwake({"com.apple.FaceTime"});
    sampleFor(45);
    desktop.setDisplayAwake({});
    sampleFor(5);
    EXPECT_TRUE(calls.empty());

    desktop.bringToFront(window("us.zoom.xos", "Zoom"));
    desktop.setDisplayAwake({"us.zoom.xos", "org.videolan.vlc"});
    Instant start = clock.now() + 5;
    sampleFor(120);
    desktop.setDisplayAwake({"org.videolan.vlc"});
    sampleFor(30);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0], std::make_tuple(std::string("Zoom"), start, start + 120));
}

TEST_F(TrackerTest, aFailedWriteIsRetriedSoNoActivityIsLost) {
    db.execute("CREATE TRIGGER refuse_insert BEFORE INSERT ON activity BEGIN SELECT RAISE(ABORT, 'disque plein'); END");
    startWith(window("code", "Code"));
    sampleFor(30);
    ASSERT_TRUE(tracker.current());
    EXPECT_EQ(tracker.current()->id, 0);
    EXPECT_EQ(tracker.unsavedWrites(), 1u);

    db.execute("DROP TRIGGER refuse_insert");
    desktop.bringToFront(window("firefox", "Firefox"));
    sampleFor(30);
    auto activities = rows();
    ASSERT_EQ(activities.size(), 2u);
    EXPECT_EQ(activities[0].appName, "Code") << "the activity whose insert failed still gets its row";
    EXPECT_EQ(activities[0].start, at(9, 0));
    EXPECT_EQ(activities[0].end, at(9, 0, 30));
    EXPECT_EQ(activities[1].appName, "Firefox");
    EXPECT_EQ(activities[1].end, at(9, 1));

    // Another process holds the write lock while the user switches: the end
    // of one row and the insert of the next wait for the following sample.
    db.setBusyTimeout(0);
    Database other{db.path()};
    other.execute("BEGIN IMMEDIATE");
    clock.advance(2);
    desktop.bringToFront(window("code", "Code"));
    sampleFor(10);
    EXPECT_EQ(tracker.unsavedWrites(), 2u);
    other.execute("COMMIT");
    sampleFor(5);
    EXPECT_EQ(tracker.unsavedWrites(), 0u);
    activities = rows();
    ASSERT_EQ(activities.size(), 3u);
    EXPECT_EQ(activities[1].end, at(9, 1, 2));
    EXPECT_EQ(activities[2].appName, "Code");
    EXPECT_EQ(activities[2].start, at(9, 1, 2));
    EXPECT_EQ(activities[2].end, at(9, 1, 17));
}

// Another program changes the row being recorded (manual time put over its
// end): the tracker goes on in a new row instead of stretching it back.
TEST_F(TrackerTest, aRowChangedByAnotherProgramIsNotStretchedOverItsTime) {
    startWith(window("code", "Code"));
    sampleFor(60);
    std::int64_t id = tracker.current()->id;
    Database other{db.path()};
    ActivityStore otherStore{other};
    other.run("UPDATE activity SET end = ? WHERE id = ?", {at(9, 0, 30), id});
    otherStore.insert({0, at(9, 0, 30), at(9, 1), std::nullopt, "Réunion", std::nullopt, std::nullopt,
                       Activity::Kind::manual});
    sampleFor(30);
    tracker.quit();

    auto activities = rows();
    ASSERT_EQ(activities.size(), 3u);
    EXPECT_EQ(activities[0].end, at(9, 0, 30)) << "left as the other program made it";
    EXPECT_EQ(activities[1].appName, "Réunion");
    EXPECT_EQ(activities[2].appName, "Code");
    EXPECT_EQ(activities[2].start, at(9, 1));
    EXPECT_EQ(activities[2].end, at(9, 1, 30));
}

// The machine went to sleep (or the process was stopped) without a word from
// the desktop beforehand. Whatever reaches the tracker first afterwards, the
// night is a gap: the activity ends at the last sample before it.
TEST_F(TrackerTest, timeTheProcessDidNotRunIsAGapWhateverArrivesFirst) {
    const std::vector<std::pair<const char*, std::function<void(ScriptedDesktop&)>>> orders = {
        {"a sample", [](ScriptedDesktop&) {}},
        {"an activation", [](ScriptedDesktop& screen) { screen.bringToFront(window("firefox", "Firefox")); }},
        {"the sleep signal, then wake",
         [](ScriptedDesktop& screen) {
             screen.notifySuspend(reason::sleep);
             screen.notifyResume(reason::wake);
         }},
        {"wake alone", [](ScriptedDesktop& screen) { screen.notifyResume(reason::wake); }},
        {"nothing in front", [](ScriptedDesktop& screen) { screen.clearFront(); }},
    };
    for (const auto& [name, firstAfterwards] : orders) {
        SCOPED_TRACE(name);
        Rig rig{at(22, 0), privacy, preferences};
        for (int i = 0; i < 12; ++i) {
            rig.time.advance(5);
            rig.loop.tick();
        }
        rig.time.passFrozen(9 * 3600);  // 22:01 to 07:01, the process frozen
        firstAfterwards(rig.screen);
        for (int i = 0; i < 6; ++i) {
            rig.time.advance(5);
            rig.loop.tick();
        }
        rig.loop.quit();

        auto rows = rig.activities.activities(0, 1e10);
        ASSERT_FALSE(rows.empty());
        EXPECT_EQ(rows[0].end, at(22, 1));
        for (std::size_t i = 1; i < rows.size(); ++i) EXPECT_GE(rows[i].start, at(22, 1) + 9 * 3600) << i;
        testing::expectActivityInvariants(rig.database.path());
    }
}

TEST_F(TrackerTest, nothingInFrontEndsTheActivityUntilAWindowComesBack) {
    startWith(window("code", "Code"));
    sampleFor(60);
    desktop.clearFront();  // the last window closed
    EXPECT_FALSE(tracker.current());
    sampleFor(60);
    desktop.bringToFront(window("code", "Code"));
    sampleFor(30);
    tracker.quit();

    auto activities = rows();
    ASSERT_EQ(activities.size(), 2u);
    EXPECT_EQ(activities[0].end, at(9, 1));
    EXPECT_EQ(activities[1].start, at(9, 2));
    EXPECT_EQ(activities[1].end, at(9, 2, 30));
}

// Midnight cuts the row whatever writes the end: a sample, an event that comes
// before the first sample of the day, an absence noticed after midnight.
TEST_F(TrackerTest, noRowSpansMidnightWhateverWritesIt) {
    Instant midnight = local::make(2025, 3, 11);
    clock.set(midnight - 60);
    startWith(window("code", "Code"));
    sampleFor(55);  // the last sample of the day is at 23:59:55
    clock.set(midnight + 2);
    desktop.bringToFront(window("firefox", "Firefox"));

    auto activities = rows();
    ASSERT_EQ(activities.size(), 3u);
    EXPECT_EQ(activities[0].end, midnight);
    EXPECT_EQ(activities[1].appName, "Code");
    EXPECT_EQ(activities[1].start, midnight);
    EXPECT_EQ(activities[1].end, midnight + 2);
    EXPECT_EQ(activities[2].appName, "Firefox");

    // The next evening the user leaves at 23:50; the absence runs past
    // midnight and is split there too.
    Instant nextMidnight = local::make(2025, 3, 12);
    clock.set(nextMidnight - 605);
    tracker.tick();
    desktop.inputStopped(nextMidnight - 600);
    while (clock.now() < nextMidnight + 200) {
        clock.advance(5);
        tracker.tick();
    }
    tracker.quit();
    activities = rows();
    ASSERT_GE(activities.size(), 2u);
    const Activity& afterMidnight = activities.back();
    const Activity& beforeMidnight = activities[activities.size() - 2];
    EXPECT_EQ(beforeMidnight.kind, Activity::Kind::idle);
    EXPECT_EQ(beforeMidnight.start, nextMidnight - 600);
    EXPECT_EQ(beforeMidnight.end, nextMidnight);
    EXPECT_EQ(afterMidnight.kind, Activity::Kind::idle);
    EXPECT_EQ(afterMidnight.start, nextMidnight);
}

TEST_F(TrackerTest, withoutAStoreThePublishedStateStillFollowsTheUser) {
    ActivityTracker unstored{nullptr, desktop, clock, preferences};
    desktop.bringToFront(window("code", "Code"));
    unstored.start();
    clock.advance(5);
    unstored.tick();
    desktop.bringToFront(window("firefox", "Firefox"));
    ASSERT_TRUE(unstored.current());
    EXPECT_EQ(unstored.current()->appName, "Firefox");
    EXPECT_EQ(unstored.unsavedWrites(), 0u);
}

TEST_F(TrackerTest, publishedViewsFollowTheRows) {
    startWith(window("code", "Code"));
    sampleFor(60);
    desktop.bringToFront(window("firefox", "Firefox"));
    sampleFor(30);
    EXPECT_DOUBLE_EQ(tracker.todayActive(), 90);
    ASSERT_EQ(tracker.todayApps().size(), 2u);
    EXPECT_EQ(tracker.todayApps()[0].appName, "Code");
    ASSERT_EQ(tracker.recent().size(), 2u);
    EXPECT_EQ(tracker.recent()[0].appName, "Firefox");
}

} // namespace
} // namespace ombrelo
