// Real Wayland sessions for the tests, headless: Sway (pixman rendering, no
// input devices), KWin (--virtual) and GNOME Shell (--headless) with our
// extension, each with native windows made by a tiny xdg-shell client. Sway
// and its family refuse to run as root, and CI runs as root: there the
// compositor, its clients and the tracker under test run as an unprivileged
// account the fixture makes once, in a runtime folder that account owns.
#pragma once

#include "platform/DesktopFixture.h"
#include "testing/Processes.h"
#include "testing/TestSupport.h"

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace ombrelo::testing {

// The account that runs compositors: this one, or "ombrelo-test" when root.
class TestUser {
public:
    static const TestUser& get();
    // `argv` as run by this account, ended with the test.
    std::vector<std::string> wrap(std::vector<std::string> argv) const;
    // Hands `path` and all below it to this account.
    void own(const std::filesystem::path& path) const;

private:
    std::string name_;  // empty: the current account
    unsigned uid_ = 0, gid_ = 0;
};

// A compositor running for one test, stopped with the object.
class CompositorSession {
public:
    virtual ~CompositorSession();

    // What a client of this session needs: XDG_RUNTIME_DIR, WAYLAND_DISPLAY…
    virtual std::vector<std::string> environment() const;
    // The compositor's socket, as an absolute path.
    std::string socket() const { return (runtime_ / display_).string(); }

    // Waits, where the compositor can be asked, until a new window is in
    // front or has its new title.
    virtual void waitForFront(const std::string& appID) const { (void)appID; }
    virtual void waitForTitle(const std::string& appID, const std::string& title) const { (void)appID, (void)title; }

protected:
    CompositorSession();
    // Starts `argv` (run as the test account) and waits until `ready`; throws
    // with the compositor's log when it does not come.
    void launch(const std::vector<std::string>& argv, const std::vector<std::string>& environment,
                const std::function<bool()>& ready);
    // Finds the compositor's socket in the runtime folder.
    bool foundSocket();

    TempDir folder_;
    std::filesystem::path runtime_;
    std::string display_;
    std::unique_ptr<ChildProcess> compositor_;
};

class SwaySession final : public CompositorSession {
public:
    // Null when Sway cannot start here; `why` says why.
    static std::unique_ptr<SwaySession> start(std::string& why);

    std::vector<std::string> environment() const override;
    void waitForFront(const std::string& appID) const override;
    void waitForTitle(const std::string& appID, const std::string& title) const override;

    // Runs a Sway command ("workspace 9"); false when Sway refused it.
    bool command(const std::string& text) const;
    // The app_id of the focused window, "" when a workspace without one has the
    // focus; absent when Sway does not answer.
    std::optional<std::string> focusedAppID() const;
    // The title of the window with this app_id, absent when there is none.
    std::optional<std::string> titleOf(const std::string& appID) const;
    // A key pressed and released, as a keyboard would: input for idle time.
    void pressKey() const;

private:
    std::optional<std::string> tree() const;
    std::string ipcSocket_;
};

// KWin or GNOME Shell, with their own session bus (which also stands for the
// system bus they ask for).
class DesktopShellSession final : public CompositorSession {
public:
    enum class Shell { kwin, gnome };
    // Null when the shell cannot start here; `why` says why.
    static std::unique_ptr<DesktopShellSession> start(Shell shell, std::string& why);

    ~DesktopShellSession() override;

    std::vector<std::string> environment() const override;
    void waitForFront(const std::string& appID) const override;
    void waitForTitle(const std::string& appID, const std::string& title) const override;
    const std::string& busAddress() const { return bus_.address(); }
    // Runs a program of the session (gnome-extensions…) to its end; its status.
    int run(const std::vector<std::string>& argv) const;

    // What a user would do, done from inside the shell.
    void activate(const std::string& appID) const;
    void minimizeAll() const;
    // Input from a hand on the mouse, for idle time.
    void input() const;

private:
    void activateInShell(const std::string& appID) const;
    // Runs JavaScript inside the shell: as a KWin script (kept running when
    // `keep`), or in GNOME Shell through the tests' own extension. Throws when
    // the shell refuses it.
    void runScript(const std::string& code, bool keep = false) const;
    // The class (app_id) and title of the window in front as the shell sees
    // it; empty when none.
    std::pair<std::string, std::string> front() const;
    // KWin's: a script reports it to a probe of the tests.
    void followKWinsFront();

    void startKWin();
    void startGnomeShell();
    bool owned(const char* name) const;
    bool scriptingReady() const;

    Shell shell_ = Shell::kwin;
    PrivateBus bus_;
    std::unique_ptr<ServiceThread> probe_;
    std::shared_ptr<std::pair<std::mutex, std::pair<std::string, std::string>>> kwinFront_;
    std::vector<std::string> settings_;  // where the shell keeps its settings
};

// A native Wayland window, mapped when constructed (and then in front).
class WaylandWindow {
public:
    WaylandWindow(CompositorSession& session, const std::string& appID, const std::string& title);
    ~WaylandWindow();

    void setTitle(const std::string& title);
    void close();

private:
    void send(const std::string& line);

protected:
    CompositorSession& session_;
    std::string appID_;

private:
    TempDir folder_;
    std::filesystem::path commands_;
    std::unique_ptr<ChildProcess> client_;
};

// A Sway window, which Sway can bring to the front.
class SwayWindow final : public WaylandWindow {
public:
    SwayWindow(SwaySession& session, const std::string& appID, const std::string& title)
        : WaylandWindow(session, appID, title), sway_(session) {}
    void activate();

private:
    SwaySession& sway_;
};

// The session of a test; without one the test is skipped, except in CI (CI
// set), where a compositor that cannot start must fail the suite.
#define OMBRELO_REQUIRE_SESSION(session, starting)                                                        \
    do {                                                                                                  \
        std::string whyItFailed;                                                                          \
        session = starting;                                                                               \
        if (!session && std::getenv("CI")) FAIL() << "the compositor cannot start: " << whyItFailed;      \
        if (!session) GTEST_SKIP() << "the compositor cannot start here: " << whyItFailed;                \
    } while (false)
#define OMBRELO_REQUIRE_SWAY(session) OMBRELO_REQUIRE_SESSION(session, ::ombrelo::testing::SwaySession::start(whyItFailed))

} // namespace ombrelo::testing
