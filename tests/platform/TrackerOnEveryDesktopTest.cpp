// `ombrelo run` drives the same session on every desktop back-end it can run
// here, and must write the same rows: an application with its document, a
// switch, a new title, idle time and the return from it, then nothing in
// front. X11 is Xvfb with openbox; Wayland is a headless Sway, KWin or GNOME
// Shell, where the tracker runs as the unprivileged account the compositor
// runs as.
#include "platform/DesktopFixture.h"
#include "platform/TrackerRows.h"
#include "platform/WaylandSession.h"
#include "testing/TestSupport.h"

#include <csignal>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <thread>

namespace ombrelo::testing {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

// An application of the session: its Wayland app_id and its X11 class.
struct App {
    std::string appID, windowClass;
};
const App editor{"org.example.Editor", "ExampleEdit"};
const App other{"other", "Other"};

// A desktop the tracker runs on, with the windows of the session.
class SessionDesktop {
public:
    virtual ~SessionDesktop() = default;
    // What the tracker needs to see this desktop.
    virtual std::vector<std::string> environment() const = 0;
    // `argv` as run in this session.
    virtual std::vector<std::string> wrap(std::vector<std::string> argv) const { return argv; }
    // Gives the files of the test to who runs in this session.
    virtual void handOver(const fs::path&) const {}
    virtual void open(const App& app, const std::string& title) = 0;
    virtual void activate(const App& app) = 0;
    virtual void setTitle(const App& app, const std::string& title) = 0;
    virtual void showNothing() = 0;
    virtual void input() = 0;
};

class X11Session final : public SessionDesktop {
public:
    explicit X11Session(XServer& server) : server_(server) {}
    std::vector<std::string> environment() const override {
        return {"XDG_SESSION_TYPE=x11", "DISPLAY=" + server_.display()};
    }
    void open(const App& app, const std::string& title) override {
        windows_.try_emplace(app.appID, server_,
                             TestWindow::Properties{.instance = app.windowClass, .className = app.windowClass,
                                                    .utf8Title = title});
    }
    void activate(const App& app) override { windows_.at(app.appID).activate(); }
    void setTitle(const App& app, const std::string& title) override { windows_.at(app.appID).setTitle(title); }
    void showNothing() override { server_.announceActive(0); }
    void input() override {
        static int x = 0;
        x = (x + 37) % 500;
        runProgram({"xdotool", "mousemove", std::to_string(100 + x), "300"}, {"DISPLAY=" + server_.display()});
    }

private:
    XServer& server_;
    std::map<std::string, TestWindow> windows_;
};

// A Wayland session: the compositor, its windows and the tracker run as the
// test account; the session's variables name the desktop.
template <typename Session, typename Window>
class WaylandDesktop : public SessionDesktop {
public:
    WaylandDesktop(std::unique_ptr<Session> session, std::string desktopName)
        : session_(std::move(session)), desktopName_(std::move(desktopName)) {}
    // The session's entries first: its bus, where there is one, is the tracker's.
    std::vector<std::string> environment() const override {
        std::vector<std::string> list = session_->environment();
        list.insert(list.end(), {"XDG_SESSION_TYPE=wayland", "XDG_CURRENT_DESKTOP=" + desktopName_});
        return list;
    }
    std::vector<std::string> wrap(std::vector<std::string> argv) const override {
        return TestUser::get().wrap(std::move(argv));
    }
    void handOver(const fs::path& path) const override { TestUser::get().own(path); }
    void open(const App& app, const std::string& title) override {
        windows_.try_emplace(app.appID, *session_, app.appID, title);
    }
    void setTitle(const App& app, const std::string& title) override { windows_.at(app.appID).setTitle(title); }

protected:
    std::unique_ptr<Session> session_;
    std::string desktopName_;
    std::map<std::string, Window> windows_;
};

class SwayDesktop final : public WaylandDesktop<SwaySession, SwayWindow> {
public:
    explicit SwayDesktop(std::unique_ptr<SwaySession> sway) : WaylandDesktop(std::move(sway), "sway") {}
    void activate(const App& app) override { windows_.at(app.appID).activate(); }
    void showNothing() override { session_->command("workspace 9"); }
    void input() override { session_->pressKey(); }
};

// KWin or GNOME Shell: what a user does there is done from inside the shell.
class ShellDesktop final : public WaylandDesktop<DesktopShellSession, WaylandWindow> {
public:
    using WaylandDesktop::WaylandDesktop;
    void activate(const App& app) override { session_->activate(app.appID); }
    void showNothing() override { session_->minimizeAll(); }
    void input() override { session_->input(); }
};

class TrackerOnEveryDesktopTest : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override {
        if (GetParam() == "x11") {
            XServer* server = nullptr;
            OMBRELO_REQUIRE_X(server);
            desktop = std::make_unique<X11Session>(*server);
        } else if (GetParam() == "sway") {
            std::unique_ptr<SwaySession> sway;
            OMBRELO_REQUIRE_SWAY(sway);
            desktop = std::make_unique<SwayDesktop>(std::move(sway));
        } else {
            bool kwin = GetParam() == "kwin";
            std::unique_ptr<DesktopShellSession> shell;
            OMBRELO_REQUIRE_SESSION(shell, DesktopShellSession::start(kwin ? DesktopShellSession::Shell::kwin
                                                                           : DesktopShellSession::Shell::gnome,
                                                                      whyItFailed));
            desktop = std::make_unique<ShellDesktop>(std::move(shell), kwin ? "KDE" : "GNOME");
        }
        writeFile(home / "share/applications/org.example.Editor.desktop",
                  "[Desktop Entry]\nType=Application\nName=Editor\nExec=example-edit\nStartupWMClass=ExampleEdit\n");
        writeFile(home / "config/ombrelo/settings.json", R"({"language": "en", "idleSeconds": 2, "uiPort": 0})");
        writeFile(home / "project/notes.txt", "x");
        fs::create_directories(home / "run");
        fs::permissions(home / "run", fs::perms::owner_all);
        fs::create_directories(database.parent_path());
        desktop->handOver(home.path());
    }

    void TearDown() override {
        if (fs::is_regular_file(database)) expectActivityInvariants(database);
    }

    // The session's environment first: its XDG_RUNTIME_DIR wins over the home's.
    std::vector<std::string> environment() const {
        std::vector<std::string> list = desktop->environment();
        list.insert(list.end(), {"HOME=" + home.path().string(), "XDG_DATA_HOME=" + (home / "data").string(),
                                 "XDG_CONFIG_HOME=" + (home / "config").string(),
                                 "XDG_RUNTIME_DIR=" + (home / "run").string(),
                                 "XDG_DATA_DIRS=" + (home / "share").string(),
                                 "DBUS_SESSION_BUS_ADDRESS=" + sessionBus.address(),
                                 "OMBRELO_SYSTEM_BUS=unix:path=/nonexistent/system_bus_socket",
                                 "OMBRELO_DB=" + database.string(), "OMBRELO_LOG=info"});
        return list;
    }

    void waitForRows(const std::function<bool(const std::vector<Row>&)>& condition, const char* what) {
        if (eventually([&] { return condition(rows(database)); }, {}, 15s)) return;
        FAIL() << "never reached: " << what << "\nrows:\n" << describe(rows(database)) << "log:\n"
               << readFile(home / "tracker.log");
    }

    std::unique_ptr<SessionDesktop> desktop;
    TempDir home;
    fs::path database = home / "data/ombrelo/test.sqlite";
    PrivateBus sessionBus;
};

double wallClock() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

bool endsWith(const std::vector<Row>& list, const std::string& kind, const std::string& title) {
    return !list.empty() && list.back().kind == kind && list.back().title == title;
}

TEST_P(TrackerOnEveryDesktopTest, RecordsTheSameRowsForTheSameSession) {
    desktop->open(other, "Other window");
    desktop->open(editor, "notes.txt (~/project) - Editor");
    desktop->activate(editor);
    desktop->input();
    std::vector<std::string> env = environment();
    env.insert(env.begin(), "OMBRELO_SAMPLE_SECONDS=0.2");
    ChildProcess tracker(desktop->wrap({OMBRELO_BINARY, "run"}), env, home / "tracker.log");
    waitForRows([](const auto& list) { return endsWith(list, "app", "notes.txt (~/project) - Editor"); },
                "the editor's row");

    // Each stays in front over a second: shorter activities are dropped.
    std::this_thread::sleep_for(1200ms);
    desktop->activate(other);
    desktop->input();
    waitForRows([](const auto& list) { return endsWith(list, "app", "Other window"); }, "the switch");
    std::this_thread::sleep_for(1200ms);
    desktop->setTitle(other, "Other window, renamed");
    desktop->input();
    waitForRows([](const auto& list) { return endsWith(list, "app", "Other window, renamed"); }, "the new title");
    // Idle time counts from the last input: this one keeps the new title's
    // activity longer than a second.
    std::this_thread::sleep_for(1200ms);
    desktop->input();

    // No input for longer than idleSeconds (2), then input again.
    waitForRows([](const auto& list) { return !list.empty() && list.back().kind == "idle"; }, "an idle row");
    desktop->input();
    waitForRows([](const auto& list) { return endsWith(list, "app", "Other window, renamed"); }, "back from idle");
    std::this_thread::sleep_for(1200ms);

    std::vector<std::string> quiet = env;
    quiet.insert(quiet.begin(), "OMBRELO_LOG=error");  // its output is the JSON alone
    std::optional<std::string> status = programOutput(desktop->wrap({OMBRELO_BINARY, "status", "--json"}), quiet);
    ASSERT_TRUE(status) << readFile(home / "tracker.log");
    nlohmann::json source = nlohmann::json::parse(*status)["window_source"];
    EXPECT_EQ(source["backend"], GetParam() == "sway" ? "wlroots" : GetParam()) << *status;
    EXPECT_TRUE(source["missing"].is_null()) << *status;

    // Nothing in front: the activity in progress ends there.
    desktop->showNothing();
    double nothingAt = wallClock();
    std::this_thread::sleep_for(1200ms);
    desktop->input();
    EXPECT_EQ(tracker.stop(SIGTERM), 0);

    std::vector<Row> list = rows(database);
    std::vector<std::string> seen;
    for (const Row& row : list) seen.push_back(row.kind + " " + row.bundleID + " \"" + row.title + "\" " + row.path);
    const std::string path = (home / "project/notes.txt").string();
    EXPECT_EQ(seen, (std::vector<std::string>{"app org.example.editor \"notes.txt (~/project) - Editor\" " + path,
                                              "app other \"Other window\" ", "app other \"Other window, renamed\" ",
                                              "idle  \"\" ", "app other \"Other window, renamed\" "}))
        << describe(list) << readFile(home / "tracker.log");
    // Contiguous up to the end, which is when nothing came to the front.
    for (std::size_t i = 1; i < list.size(); ++i) EXPECT_NEAR(list[i].start, list[i - 1].end, 0.1) << "row " << i;
    ASSERT_FALSE(list.empty());
    EXPECT_NEAR(list.back().end, nothingAt, 0.5);
}

INSTANTIATE_TEST_SUITE_P(Desktops, TrackerOnEveryDesktopTest, ::testing::Values("x11", "sway", "kwin", "gnome"),
                         [](const auto& test) { return test.param; });

} // namespace
} // namespace ombrelo::testing
