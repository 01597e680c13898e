// The desktop back-end under real KWin and GNOME Shell, run headless, beyond
// what the tracker's session on every desktop shows: the front as windows
// open and close, idle time, and what a shell that does not report says.
#include "platform/DesktopFixture.h"
#include "platform/WaylandSession.h"
#include "platform/linux/LinuxDesktop.h"
#include "support/Preferences.h"

#include <gtest/gtest.h>
#include <thread>

namespace ombrelo::platform {
namespace {

using namespace std::chrono_literals;
using testing::DesktopShellSession;
using testing::RecordingObserver;
using testing::WaylandWindow;
using Shell = DesktopShellSession::Shell;

// A shell started for the test, and the desktop back-end following it.
class ShellFixture {
protected:
    void follow() {
        testing::writeFile(dir / "applications/org.example.Editor.desktop",
                           "[Desktop Entry]\nType=Application\nName=Editor\nExec=example-edit\n");
        options.sessionType = "wayland";
        // Unsaid: the shell shows itself by its Wayland globals.
        options.currentDesktop = "";
        options.waylandDisplay = shell->socket();
        options.sessionBus = shell->busAddress();
        options.applicationFolders = {dir / "applications"};
        options.locale = "en";
        options.home = dir.path();
        desktop = std::make_unique<LinuxDesktop>(options, preferences);
        desktop->subscribe(&observer);
    }

    // Lets the desktop read its sources until the observer's last event is
    // `last`; then shows every event.
    void expectLast(const std::string& last) {
        bool reached = testing::eventually(
            [&] { return !observer.events.empty() && observer.events.back() == last; },
            [&] { desktop->dispatchPending(); }, 10s);
        std::string seen;
        for (const std::string& event : observer.events) seen += event + "; ";
        EXPECT_TRUE(reached) << "never came: " << last << "\nevents: " << seen;
    }

    std::unique_ptr<DesktopShellSession> shell;
    testing::TempDir dir;
    Preferences preferences{dir / "settings.json"};
    DesktopOptions options;
    std::unique_ptr<LinuxDesktop> desktop;
    RecordingObserver observer;
};

class DesktopShellsTest : public ShellFixture, public ::testing::TestWithParam<Shell> {
protected:
    void SetUp() override {
        OMBRELO_REQUIRE_SESSION(shell, DesktopShellSession::start(GetParam(), whyItFailed));
        follow();
    }
};

class GnomeExtensionInShellTest : public ShellFixture, public ::testing::Test {
protected:
    void SetUp() override {
        OMBRELO_REQUIRE_SESSION(shell, DesktopShellSession::start(Shell::gnome, whyItFailed));
        follow();
    }
};

TEST_P(DesktopShellsTest, FollowsTheFrontAsWindowsOpenAndClose) {
    EXPECT_EQ(desktop->windowSourceState().backend, GetParam() == Shell::kwin ? "kwin" : "gnome");
    EXPECT_EQ(desktop->windowSourceState().missing, std::nullopt);

    std::optional<WaylandWindow> editor(std::in_place, *shell, "org.example.Editor", "Draft");
    expectLast("activate org.example.editor");
    std::optional<WaylandWindow> other(std::in_place, *shell, "other", "Other window");
    expectLast("activate other");
    // A new title is no activation.
    other->setTitle("Other window, renamed");
    desktop->dispatchPending();
    other->close();
    expectLast("activate org.example.editor");
    editor->close();
    expectLast("nothing");
    // Each switch once, and the title no activation. (KWin says no window is
    // active before it activates the next, which the back-end takes as one
    // switch when both reports come together: not a promise of the protocol.)
    std::vector<std::string> activations;
    for (const std::string& event : observer.events)
        if (event != "nothing") activations.push_back(event);
    EXPECT_EQ(activations, (std::vector<std::string>{"activate org.example.editor", "activate other",
                                                     "activate org.example.editor"}));

    // No input at all in a headless session.
    EXPECT_TRUE(testing::eventually([&] { return desktop->secondsSinceLastInput() >= 1.5; },
                                    [&] { desktop->dispatchPending(); }, 10s))
        << desktop->secondsSinceLastInput();
}

TEST_F(GnomeExtensionInShellTest, TurnedOffItStopsCaptureAndSaysHowToTurnItOn) {
    WaylandWindow editor(*shell, "org.example.Editor", "Draft");
    expectLast("activate org.example.editor");
    ASSERT_EQ(shell->run({"gnome-extensions", "disable", "ombrelo@ombrelo.fr"}), 0);
    expectLast("suspend wayland");
    std::optional<std::string> missing = desktop->windowSourceState().missing;
    ASSERT_TRUE(missing);
    EXPECT_NE(missing->find("gnome-extensions enable ombrelo@ombrelo.fr"), std::string::npos) << *missing;

    ASSERT_EQ(shell->run({"gnome-extensions", "enable", "ombrelo@ombrelo.fr"}), 0);
    expectLast("activate org.example.editor");
    EXPECT_EQ(desktop->windowSourceState().missing, std::nullopt);
}

TEST(DesktopShellsAbsentTest, AShellThatDoesNotReportSaysWhatIsMissingAndRecordsNothing) {
    testing::PrivateBus bus;
    testing::TempDir dir;
    Preferences preferences{dir / "settings.json"};
    for (const auto& [desktopName, expected] :
         {std::pair{"KDE", "KWin does not answer"}, std::pair{"GNOME", "gnome-extensions enable ombrelo@ombrelo.fr"}}) {
        DesktopOptions options;
        options.sessionType = "wayland";
        options.currentDesktop = desktopName;
        options.waylandDisplay = (dir / "no-compositor").string();
        options.sessionBus = bus.address();
        options.locale = "en";
        LinuxDesktop desktop(options, preferences);
        std::optional<std::string> missing = desktop.windowSourceState().missing;
        ASSERT_TRUE(missing) << desktopName;
        EXPECT_NE(missing->find(expected), std::string::npos) << *missing;
        RecordingObserver observer;
        desktop.subscribe(&observer);
        EXPECT_EQ(observer.events, std::vector<std::string>{"suspend wayland"});
        EXPECT_EQ(desktop.frontmostApp(), std::nullopt);
    }
}

INSTANTIATE_TEST_SUITE_P(Shells, DesktopShellsTest, ::testing::Values(Shell::kwin, Shell::gnome),
                         [](const auto& test) { return test.param == Shell::kwin ? "KWin" : "GnomeShell"; });

} // namespace
} // namespace ombrelo::platform
