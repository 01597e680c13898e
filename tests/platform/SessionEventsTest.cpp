// The D-Bus side of the back-end against private buses where the test plays
// logind, the notification server and GNOME's session: sleep, lock and session
// switches, display-awake holders, notifications, Wayland, lost buses.
#include "platform/StandIns.h"
#include "platform/linux/Notifier.h"
#include "platform/linux/LinuxDesktop.h"
#include "support/Preferences.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

namespace ombrelo::platform {
namespace {

using namespace std::chrono_literals;
using testing::eventually;
using testing::PrivateBus;
using testing::RecordingObserver;
using testing::StandInLogind;
using testing::TempDir;
using testing::TestWindow;
using testing::writeFile;
namespace fs = std::filesystem;

class SessionEventsTest : public ::testing::Test {
protected:
    void SetUp() override {
        OMBRELO_REQUIRE_X(server);
        options.display = server->display();
        options.systemBus = systemBus.address();
        options.sessionBus = sessionBus.address();
        options.sessionID = StandInLogind::sessionID;
        options.applicationFolders = {dir / "applications"};
        options.locale = "en";
        options.home = dir.path();
    }

    std::unique_ptr<LinuxDesktop> makeDesktop() { return std::make_unique<LinuxDesktop>(options, preferences); }

    // Lets the desktop read its buses until `events` holds `expected`, then a
    // little more, so that an event too many would show.
    void expectEvents(LinuxDesktop& desktop, const RecordingObserver& observer, const std::vector<std::string>& expected) {
        auto pump = [&] { desktop.dispatchPending(); };
        eventually([&] { return observer.events.size() >= expected.size(); }, pump, 5s);
        std::this_thread::sleep_for(50ms);
        pump();
        EXPECT_EQ(observer.events, expected);
    }

    testing::XServer* server = nullptr;
    TempDir dir;
    PrivateBus systemBus, sessionBus;
    Preferences preferences{dir / "settings.json"};
    DesktopOptions options;
};

TEST_F(SessionEventsTest, SleepLockAndSessionSwitchSuspendAndResume) {
    StandInLogind logind(systemBus.address());
    auto desktop = makeDesktop();
    RecordingObserver observer;
    desktop->subscribe(&observer);
    EXPECT_TRUE(observer.events.empty());  // an unlocked, active session

    logind.prepareForSleep(true);
    logind.prepareForSleep(false);
    logind.lock();
    logind.setLockedHint(true);  // the locker confirms: no second suspension
    logind.unlock();
    logind.setLockedHint(false);
    logind.setActive(false);  // another user's session, or the login screen
    logind.setActive(true);
    expectEvents(*desktop, observer,
                 {"suspend sleep", "resume wake", "suspend locked", "resume unlocked", "suspend session",
                  "resume session"});
}

// logind waits for the delay lock before suspending: it is released only once
// the observer has closed the activity, and taken again on wake.
TEST_F(SessionEventsTest, TheSleepDelayLockIsReleasedOnlyAfterTheSuspension) {
    StandInLogind logind(systemBus.address());
    auto desktop = makeDesktop();
    ASSERT_EQ(logind.heldSleepDelays(), 1);

    struct Observer : RecordingObserver {
        StandInLogind* logind = nullptr;
        int heldWhenSuspended = -1;
        void suspend(const std::string& why) override {
            heldWhenSuspended = logind->heldSleepDelays();
            RecordingObserver::suspend(why);
        }
    } observer;
    observer.logind = &logind;
    desktop->subscribe(&observer);

    logind.prepareForSleep(true);
    expectEvents(*desktop, observer, {"suspend sleep"});
    EXPECT_EQ(observer.heldWhenSuspended, 1);
    EXPECT_EQ(logind.heldSleepDelays(), 0);

    logind.prepareForSleep(false);
    expectEvents(*desktop, observer, {"suspend sleep", "resume wake"});
    EXPECT_EQ(logind.heldSleepDelays(), 1);
}

// No logind at all (a container, a session without systemd): the screen
// saver's signal on the session bus stands for the lock.
TEST_F(SessionEventsTest, WithoutLogindTheScreenSaverStandsForTheLock) {
    options.systemBus.reset();
    auto desktop = makeDesktop();
    testing::StandInScreenSaver screenSaver(sessionBus.address());
    RecordingObserver observer;
    desktop->subscribe(&observer);
    screenSaver.setActive(true);
    screenSaver.setActive(false);
    expectEvents(*desktop, observer, {"suspend locked", "resume unlocked"});
}

TEST_F(SessionEventsTest, OverlappingCausesResumeOnlyWhenAllHaveEnded) {
    StandInLogind logind(systemBus.address());
    auto desktop = makeDesktop();
    RecordingObserver observer;
    desktop->subscribe(&observer);

    logind.lock();  // locking before sleeping, as most desktops do
    logind.prepareForSleep(true);
    logind.prepareForSleep(false);  // awake, but still locked
    logind.setActive(false);
    logind.unlock();  // unlocked, but another session is in front
    logind.setActive(true);
    expectEvents(*desktop, observer, {"suspend locked", "resume session"});
}

TEST_F(SessionEventsTest, ALockedSessionSuspendsTheObserverAtOnce) {
    StandInLogind logind(systemBus.address(), /*startActive=*/true, /*startLocked=*/true);
    auto desktop = makeDesktop();
    RecordingObserver observer;
    desktop->subscribe(&observer);
    EXPECT_EQ(observer.events, (std::vector<std::string>{"suspend locked"}));
}

TEST_F(SessionEventsTest, DisplayAwakeHoldersAreNamedByApplication) {
    std::string program = fs::read_symlink("/proc/self/exe").filename().string();
    writeFile(dir / "applications/org.example.Films.desktop",
              "[Desktop Entry]\nType=Application\nName=Films\nExec=" + program + " %U\n");
    writeFile(dir / "applications/org.gnome.Totem.desktop", "[Desktop Entry]\nType=Application\nName=Videos\nExec=totem\n");
    testing::ChildProcess sleeper({"sleep", "60"});
    std::uint32_t me = ::getuid(), self = std::uint32_t(::getpid());

    StandInLogind logind(systemBus.address());
    logind.setInhibitors({{"sleep:idle", me, self},                          // this test program: "Films"
                          {"idle", me, std::uint32_t(sleeper.pid())},       // no entry: its program's name
                          {"sleep:shutdown", me, self + 1},                 // not idle
                          {"idle", me + 1, self + 2},                       // another user's
                          {"idle", me, std::uint32_t(::getpid() + 999999)}}); // ended since
    testing::StandInGnomeSession gnome(sessionBus.address(),
                                       {{"org.gnome.Totem.desktop", 8}, {"org.example.Backup", 4}}, 0);
    auto desktop = makeDesktop();
    EXPECT_EQ(desktop->displayAwakeHolders(), (std::set<std::string>{"org.example.films", "sleep", "org.gnome.totem"}));

    logind.setInhibitors({});
    EXPECT_EQ(desktop->displayAwakeHolders(), (std::set<std::string>{"org.gnome.totem"}));
}

TEST_F(SessionEventsTest, NotificationsReachTheServerOrAreSkipped) {
    {
        auto desktop = makeDesktop();  // no notification server on this bus
        EXPECT_TRUE(desktop->notifier().notify("Pause", "Levez-vous"));
        desktop->dispatchPending();
    }
    testing::StandInNotifications notifications(sessionBus.address());
    auto desktop = makeDesktop();
    EXPECT_TRUE(desktop->notifier().notify("Pause", "Levez-vous un instant"));
    ASSERT_TRUE(eventually([&] { return !notifications.received().empty(); }, [&] { desktop->dispatchPending(); }));
    auto received = notifications.received().front();
    EXPECT_EQ(received.appName, "Ombrelo");
    EXPECT_EQ(received.summary, "Pause");
    EXPECT_EQ(received.body, "Levez-vous un instant");

    EXPECT_FALSE(Notifier(nullptr).notify("Pause", "nobody hears"));
}

// The break's notice: buttons where the server shows them, answered through
// ActionInvoked; closed when the break ends; a plain notice elsewhere.
TEST_F(SessionEventsTest, BreakNoticesOfferTheirButtonsWhereTheServerShowsThem) {
    testing::StandInNotifications notifications(sessionBus.address());
    auto desktop = makeDesktop();
    Notifier& notifier = desktop->notifier();
    ASSERT_TRUE(notifier.offersActions());
    std::optional<std::uint32_t> shownID;
    std::vector<std::pair<std::uint32_t, std::string>> chosen;
    notifier.onAction([&](std::uint32_t id, const std::string& key) { chosen.emplace_back(id, key); });
    ASSERT_TRUE(notifier.notify("Pause", "Cinq minutes", {{"skip-break", "Passer la pause"}},
                                [&](std::uint32_t id) { shownID = id; }));
    ASSERT_TRUE(eventually([&] { return shownID.has_value(); }, [&] { desktop->dispatchPending(); }));
    EXPECT_EQ(notifications.received().at(0).actions, (std::vector<std::string>{"skip-break", "Passer la pause"}));

    notifications.invoke(*shownID, "skip-break");
    ASSERT_TRUE(eventually([&] { return !chosen.empty(); }, [&] { desktop->dispatchPending(); }));
    EXPECT_EQ(chosen.at(0), std::pair(*shownID, std::string("skip-break")));
    notifier.close(*shownID);
    EXPECT_TRUE(eventually([&] { return !notifications.closedIDs().empty(); }, [&] { desktop->dispatchPending(); }));

    {
        std::lock_guard lock(notifications.mutex);
        notifications.showsActions = false;
    }
    EXPECT_FALSE(notifier.offersActions());
}

TEST_F(SessionEventsTest, UnderWaylandNativeWindowsSuspendAndIdleComesFromTheCompositor) {
    testing::StandInGnomeSession gnome(sessionBus.address(), {}, 42'000);
    options.sessionType = "wayland";  // a compositor with no source of its own: XWayland only
    TestWindow first(*server, {.instance = "first", .className = "First"});
    TestWindow second(*server, {.instance = "second", .className = "Second"});
    first.activate();
    auto desktop = makeDesktop();
    RecordingObserver observer;
    desktop->subscribe(&observer);
    EXPECT_DOUBLE_EQ(desktop->secondsSinceLastInput(), 42.0);

    // A native Wayland window in front: XWayland's active window becomes None.
    server->announceActive(0);
    expectEvents(*desktop, observer, {"suspend wayland"});
    second.activate();
    expectEvents(*desktop, observer, {"suspend wayland", "resume wayland", "activate second"});
}

TEST_F(SessionEventsTest, MissingBusesAreNamedAndALostBusIsSurvived) {
    auto missing = [&](auto change) {
        DesktopOptions broken = options;
        change(broken);
        try {
            LinuxDesktop desktop(broken, preferences);
        } catch (const DesktopUnavailable& error) {
            return std::optional(error.piece);
        }
        return std::optional<DesktopUnavailable::Piece>();
    };
    EXPECT_EQ(missing([](DesktopOptions& o) { o.sessionBus = "unix:path=/nonexistent/bus"; }),
              DesktopUnavailable::Piece::sessionBus);
    // Without a system bus the tracker still tracks (see below).
    EXPECT_EQ(missing([](DesktopOptions& o) { o.systemBus = "unix:path=/nonexistent/bus"; }), std::nullopt);

    auto gone = std::make_unique<PrivateBus>();
    options.systemBus = gone->address();
    auto desktop = makeDesktop();
    gone.reset();  // the system bus goes away under the running tracker
    desktop->dispatchPending();
    desktop->dispatchPending();
    EXPECT_TRUE(desktop->displayAwakeHolders().empty());
}

} // namespace
} // namespace ombrelo::platform
