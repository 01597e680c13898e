// A real Wayland session for the tests: a headless Sway (pixman rendering, no
// input devices), native windows made by a tiny xdg-shell client, wtype for
// key presses. Sway refuses to run as root, and CI runs as root: there the
// compositor, its clients and the tracker under test run as an unprivileged
// account the fixture makes once, in a runtime folder that account owns.
#pragma once

#include "testing/Processes.h"
#include "testing/TestSupport.h"

#include <filesystem>
#include <memory>
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

class SwaySession {
public:
    // Null when Sway cannot start here; `why` says why.
    static std::unique_ptr<SwaySession> start(std::string& why);
    ~SwaySession();

    // What a client of this session needs: XDG_RUNTIME_DIR, WAYLAND_DISPLAY, SWAYSOCK.
    std::vector<std::string> environment() const;
    // The compositor's socket, as an absolute path.
    std::string socket() const { return (runtime_ / display_).string(); }
    const std::filesystem::path& runtimeFolder() const { return runtime_; }

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
    SwaySession() = default;
    std::optional<std::string> tree() const;

    TempDir folder_;
    std::filesystem::path runtime_;
    std::string display_, ipcSocket_;
    std::unique_ptr<ChildProcess> sway_;
};

// A native Wayland window, mapped when constructed (and then in front).
class WaylandWindow {
public:
    WaylandWindow(SwaySession& session, const std::string& appID, const std::string& title);
    ~WaylandWindow();

    void activate();
    void setTitle(const std::string& title);
    void close();

private:
    void send(const std::string& line);

    SwaySession& session_;
    std::string appID_;
    TempDir folder_;
    std::filesystem::path commands_;
    std::unique_ptr<ChildProcess> client_;
};

// The Sway session of a test; without one the test is skipped, except in CI
// (CI set), where a compositor that cannot start must fail the suite.
#define OMBRELO_REQUIRE_SWAY(session)                                                                     \
    do {                                                                                                  \
        std::string whySwayFailed;                                                                        \
        session = ::ombrelo::testing::SwaySession::start(whySwayFailed);                                  \
        if (!session && std::getenv("CI")) FAIL() << "Sway cannot start: " << whySwayFailed;              \
        if (!session) GTEST_SKIP() << "Sway cannot start here: " << whySwayFailed;                        \
    } while (false)

} // namespace ombrelo::testing
