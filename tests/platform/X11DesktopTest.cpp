// The X11 side of the back-end on a real X server with a real window manager:
// which application is in front, its title and document, activation as it
// happens, idle time, and windows that vanish underfoot.
#include "platform/linux/LinuxDesktop.h"
#include "platform/DesktopFixture.h"
#include "support/Preferences.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

namespace ombrelo::platform {
namespace {

using namespace std::chrono_literals;
using testing::eventually;
using testing::RecordingObserver;
using testing::TempDir;
using testing::TestWindow;
using testing::writeFile;
namespace fs = std::filesystem;

std::string ownProgram() { return fs::read_symlink("/proc/self/exe").filename().string(); }

class X11DesktopTest : public ::testing::Test {
protected:
    void SetUp() override {
        OMBRELO_REQUIRE_X(server);
        fs::path apps = dir / "applications";
        writeFile(apps / "org.example.Editor.desktop",
                  "[Desktop Entry]\nType=Application\nName=Editor\nName[fr]=Éditeur\nExec=example-edit %F\n"
                  "StartupWMClass=ExampleEdit\n");
        writeFile(apps / "org.gnome.Example.desktop", "[Desktop Entry]\nType=Application\nName=Example\nExec=x\n");
        writeFile(apps / "org.example.Self.desktop",
                  "[Desktop Entry]\nType=Application\nName=Self\nExec=/somewhere/" + ownProgram() + "\n");
        writeFile(apps / "myterm.desktop",
                  "[Desktop Entry]\nType=Application\nName=My Term\nExec=myterm\nStartupWMClass=MyTerm\n"
                  "Categories=System;TerminalEmulator;\n");
        options.display = server->display();
        options.applicationFolders = {apps};
        options.locale = "fr_FR.UTF-8";
        options.home = dir.path();
    }

    std::unique_ptr<LinuxDesktop> makeDesktop() { return std::make_unique<LinuxDesktop>(options, preferences); }

    testing::XServer* server = nullptr;
    TempDir dir;
    Preferences preferences{dir / "settings.json"};
    DesktopOptions options;
};

TEST_F(X11DesktopTest, NamesTheApplicationInFront) {
    auto desktop = makeDesktop();
    TestWindow editor(*server, {.instance = "exampleedit", .className = "ExampleEdit", .pid = 4242});
    TestWindow gtk(*server, {.instance = "unrelated", .className = "Unrelated", .gtkApplicationID = "org.gnome.Example"});
    TestWindow browser(*server, {.instance = "Navigator", .className = "Firefox"});
    TestWindow self(*server, {.pid = int(::getpid())});  // no class: named by its program

    editor.activate();
    auto app = desktop->frontmostApp();
    ASSERT_TRUE(app);
    EXPECT_EQ(*app, (FrontApp{"org.example.editor", "Éditeur", 4242}));
    EXPECT_FALSE(desktop->hasPageContext(*app));

    gtk.activate();
    EXPECT_EQ(desktop->frontmostApp()->id, "org.gnome.example");

    browser.activate();
    app = desktop->frontmostApp();
    EXPECT_EQ(*app, (FrontApp{"firefox", "Firefox", std::nullopt}));  // no entry: the class
    EXPECT_TRUE(desktop->hasPageContext(*app));
    EXPECT_FALSE(desktop->contextReplacesTitle(*app));
    EXPECT_FALSE(desktop->currentPage(*app));

    self.activate();
    EXPECT_EQ(desktop->frontmostApp()->id, "org.example.self");
}

TEST_F(X11DesktopTest, ReportsEachActivationOnceWhenItHappens) {
    auto desktop = makeDesktop();
    RecordingObserver observer;
    desktop->subscribe(&observer);
    TestWindow first(*server, {.instance = "first", .className = "First"});
    TestWindow second(*server, {.instance = "second", .className = "Second"});
    auto pump = [&] { desktop->dispatchPending(); };

    auto seen = [&](const std::string& event) {
        return eventually([&] { return !observer.events.empty() && observer.events.back() == event; }, pump);
    };
    first.activate();
    ASSERT_TRUE(seen("activate first"));
    observer.events.clear();
    second.activate();
    ASSERT_TRUE(seen("activate second"));
    first.activate();
    ASSERT_TRUE(seen("activate first"));
    second.setTitle("A new title is not an activation");
    std::this_thread::sleep_for(100ms);
    pump();
    EXPECT_EQ(observer.events, (std::vector<std::string>{"activate second", "activate first"}));

    // The focus goes to a panel, then to nothing: no application is in front.
    TestWindow dock(*server, {.instance = "panel", .className = "Panel", .dock = true});
    server->announceActive(dock.id());
    ASSERT_TRUE(seen("nothing"));
    second.activate();
    ASSERT_TRUE(seen("activate second"));
    server->announceActive(0);
    ASSERT_TRUE(seen("nothing"));
    first.activate();
    ASSERT_TRUE(seen("activate first"));
    observer.events = {"activate second", "activate first"};

    desktop->subscribe(nullptr);
    second.activate();
    std::this_thread::sleep_for(100ms);
    pump();
    EXPECT_EQ(observer.events.size(), 2u);
}

TEST_F(X11DesktopTest, ReadsTitlesAsValidUTF8) {
    auto desktop = makeDesktop();
    TestWindow modern(*server, {.instance = "a", .className = "A", .utf8Title = "Café — Plan.odt",
                                .latin1Title = "ignored when _NET_WM_NAME is set"});
    modern.activate();
    auto app = desktop->frontmostApp();
    ASSERT_TRUE(app);
    EXPECT_EQ(desktop->windowTitle(*app), "Café — Plan.odt");
    modern.setTitle("Renamed");
    EXPECT_EQ(desktop->windowTitle(*app), "Renamed");  // read at each call
    modern.setTitle("Bad \xC3\x28 bytes");
    EXPECT_EQ(desktop->windowTitle(*app), "Bad \xEF\xBF\xBD( bytes");

    TestWindow old(*server, {.instance = "b", .className = "B", .latin1Title = "Caf\xE9"});
    old.activate();
    EXPECT_EQ(desktop->windowTitle(*desktop->frontmostApp()), "Café");

    TestWindow untitled(*server, {.instance = "c", .className = "C"});
    untitled.activate();
    EXPECT_FALSE(desktop->windowTitle(*desktop->frontmostApp()));
}

TEST_F(X11DesktopTest, DocksVanishedWindowsAndNothingAreNoApplication) {
    auto desktop = makeDesktop();
    TestWindow dock(*server, {.instance = "panel", .className = "Panel", .dock = true});
    server->announceActive(dock.id());
    EXPECT_FALSE(desktop->frontmostApp());
    server->announceActive(0);
    EXPECT_FALSE(desktop->frontmostApp());
    server->announceActive(0x3fffff0);  // an id no window has
    EXPECT_FALSE(desktop->frontmostApp());

    // A window closing between the question and the next one is ordinary.
    TestWindow closing(*server, {.instance = "closing", .className = "Closing", .utf8Title = "Bye"});
    closing.activate();
    auto app = desktop->frontmostApp();
    ASSERT_TRUE(app);
    closing.destroy();
    EXPECT_FALSE(desktop->windowTitle(*app));
    EXPECT_FALSE(desktop->documentPath(*app));
    desktop->dispatchPending();
}

TEST_F(X11DesktopTest, IdleTimeCountsFromTheLastInput) {
    auto desktop = makeDesktop();
    std::vector<std::string> display{"DISPLAY=" + server->display()};
    testing::runProgram({"xdotool", "mousemove", "100", "100"}, display);
    double fresh = desktop->secondsSinceLastInput();
    EXPECT_LT(fresh, 1.0);
    std::this_thread::sleep_for(1200ms);
    EXPECT_GE(desktop->secondsSinceLastInput(), 1.0);
    testing::runProgram({"xdotool", "mousemove", "200", "200"}, display);
    EXPECT_LT(desktop->secondsSinceLastInput(), 1.0);
}

TEST_F(X11DesktopTest, DocumentsOfTerminalsAndEditors) {
    auto desktop = makeDesktop();
    fs::create_directories(dir / "project/src");
    writeFile(dir / "project/notes.txt", "x");

    // A terminal whose shell runs a job in project/src.
    int terminal = ::fork();
    if (terminal == 0) {
        ::setpgid(0, 0);
        if (::fork() == 0) {
            if (::chdir((dir / "project/src").c_str()) != 0) ::_exit(1);
            ::execlp("sleep", "sleep", "60", nullptr);
            ::_exit(1);
        }
        ::execlp("sleep", "sleep", "60", nullptr);
        ::_exit(1);
    }
    struct KillGroup {
        int pid;
        ~KillGroup() { ::kill(-pid, SIGKILL); }
    } killer{terminal};
    ::setpgid(terminal, terminal);

    TestWindow term(*server, {.instance = "myterm", .className = "MyTerm", .utf8Title = "marie@poste: ~", .pid = terminal});
    term.activate();
    auto app = desktop->frontmostApp();
    ASSERT_TRUE(app);
    EXPECT_TRUE(eventually([&] { return desktop->documentPath(*app) == (dir / "project/src").string(); }));

    TestWindow editor(*server, {.instance = "exampleedit", .className = "ExampleEdit",
                                .utf8Title = "notes.txt (~/project) - Editor"});
    editor.activate();
    EXPECT_EQ(desktop->documentPath(*desktop->frontmostApp()), (dir / "project/notes.txt").string());
    editor.setTitle("Untitled 1 - Editor");
    EXPECT_FALSE(desktop->documentPath(*desktop->frontmostApp()));
}

TEST_F(X11DesktopTest, PrivacyFollowsTheSettings) {
    auto desktop = makeDesktop();
    EXPECT_FALSE(desktop->isPrivate(std::string("org.example.editor"), std::nullopt, std::string("Journal")));
    preferences.set("privateApps", std::vector<std::string>{"org.example.editor"});
    EXPECT_TRUE(desktop->isPrivate(std::string("org.example.editor"), std::nullopt, std::nullopt));
}

TEST_F(X11DesktopTest, AMissingDisplayIsNamed) {
    options.display = ":4999";
    try {
        makeDesktop();
        FAIL() << "expected DesktopUnavailable";
    } catch (const DesktopUnavailable& error) {
        EXPECT_EQ(error.piece, DesktopUnavailable::Piece::display);
    }
}

} // namespace
} // namespace ombrelo::platform
