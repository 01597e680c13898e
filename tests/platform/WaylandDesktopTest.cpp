// The desktop back-end under a real headless Sway, beyond what the tracker's
// session on every desktop shows: each switch reported once, never as nothing
// in between, and a window closed giving the front to another. Also which
// source each kind of session gets.
#include "platform/DesktopFixture.h"
#include "platform/WaylandSession.h"
#include "platform/linux/LinuxDesktop.h"
#include "platform/linux/WindowSources.h"
#include "support/Preferences.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>
#include <thread>

namespace ombrelo::platform {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using testing::RecordingObserver;
using testing::SwaySession;
using testing::TempDir;
using testing::SwayWindow;

class WaylandDesktopTest : public ::testing::Test {
protected:
    void SetUp() override {
        OMBRELO_REQUIRE_SWAY(sway);
        options.sessionType = "wayland";
        options.currentDesktop = "sway";
        options.waylandDisplay = sway->socket();
        options.sessionBus = sessionBus.address();
        options.locale = "en";
    }

    std::unique_ptr<LinuxDesktop> makeDesktop() { return std::make_unique<LinuxDesktop>(options, preferences); }

    // Lets the desktop read the compositor until `observer` holds `expected`,
    // then a little more, so that an event too many would show.
    void expectEvents(LinuxDesktop& desktop, const RecordingObserver& observer, const std::vector<std::string>& expected) {
        auto pump = [&] { desktop.dispatchPending(); };
        testing::eventually([&] { return observer.events.size() >= expected.size(); }, pump, 5s);
        std::this_thread::sleep_for(100ms);
        pump();
        EXPECT_EQ(observer.events, expected);
    }

    std::unique_ptr<SwaySession> sway;
    TempDir dir;
    testing::PrivateBus sessionBus;
    Preferences preferences{dir / "settings.json"};
    DesktopOptions options;
};

TEST_F(WaylandDesktopTest, ReportsEachSwitchOnceAndNothingOnAnEmptyWorkspace) {
    SwayWindow editor(*sway, "org.example.Editor", "Draft");
    SwayWindow other(*sway, "other", "Other window");
    auto desktop = makeDesktop();
    RecordingObserver observer;
    desktop->subscribe(&observer);

    editor.activate();
    expectEvents(*desktop, observer, {"activate org.example.editor"});
    editor.setTitle("Draft 2");  // a title is no activation
    other.activate();
    expectEvents(*desktop, observer, {"activate org.example.editor", "activate other"});

    ASSERT_TRUE(sway->command("workspace 9"));
    expectEvents(*desktop, observer, {"activate org.example.editor", "activate other", "nothing"});
    EXPECT_EQ(desktop->frontmostApp(), std::nullopt);

    other.activate();
    expectEvents(*desktop, observer, {"activate org.example.editor", "activate other", "nothing", "activate other"});
    other.close();  // Sway gives the focus to the editor left on the workspace
    expectEvents(*desktop, observer,
                 {"activate org.example.editor", "activate other", "nothing", "activate other",
                  "activate org.example.editor"});
}

TEST(WindowSourcesTest, EachSessionGetsItsCompositorsSource) {
    auto backends = [](std::string type, std::string desktop, std::string chosen = "", std::string wayland = "") {
        DesktopOptions options;
        options.sessionType = std::move(type);
        options.currentDesktop = std::move(desktop);
        options.windowSource = std::move(chosen);
        options.waylandDisplay = std::move(wayland);
        options.display = ":0";
        return windowBackendsFor(options);
    };
    using enum WindowBackend;
    EXPECT_EQ(backends("x11", "GNOME"), std::vector{x11});
    EXPECT_EQ(backends("wayland", "ubuntu:GNOME"), std::vector{gnome});
    EXPECT_EQ(backends("wayland", "KDE"), std::vector{kwin});
    EXPECT_EQ(backends("wayland", "sway"), (std::vector{wlroots, x11}));
    EXPECT_EQ(backends("wayland", "Hyprland"), (std::vector{wlroots, x11}));
    // "GNOME-Flashback" and the like are not GNOME Shell's Wayland session.
    EXPECT_EQ(backends("wayland", "GNOME-Flashback:Unity"), (std::vector{wlroots, x11}));
    // A source chosen by hand wins. Where the session type is unsaid (a
    // systemd user unit), a Wayland socket makes it Wayland, XWayland or not.
    EXPECT_EQ(backends("wayland", "GNOME", "x11"), std::vector{x11});
    EXPECT_EQ(backends("", "", "", "wayland-1"), (std::vector{wlroots, x11}));
    EXPECT_EQ(backends("", "KDE", "", "wayland-0"), std::vector{kwin});
    EXPECT_EQ(backends("", "KDE"), std::vector{x11});

    DesktopOptions wrong;
    wrong.windowSource = "mutter";
    Preferences preferences{"/nonexistent/settings.json"};
    try {
        LinuxDesktop desktop(wrong, preferences);
        FAIL() << "expected DesktopUnavailable";
    } catch (const DesktopUnavailable& error) {
        EXPECT_EQ(error.piece, DesktopUnavailable::Piece::compositor);
        EXPECT_NE(std::string(error.what()).find("mutter"), std::string::npos);
    }
}

TEST_F(WaylandDesktopTest, ACompositorThatDoesNotAnswerIsNamed) {
    options.waylandDisplay = (dir / "no-compositor").string();
    options.windowSource = "wlroots";
    try {
        makeDesktop();
        FAIL() << "expected DesktopUnavailable";
    } catch (const DesktopUnavailable& error) {
        EXPECT_EQ(error.piece, DesktopUnavailable::Piece::compositor);
        EXPECT_NE(std::string(error.what()).find("no-compositor"), std::string::npos) << error.what();
    }
}

} // namespace
} // namespace ombrelo::platform
