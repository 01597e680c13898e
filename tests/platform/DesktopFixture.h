// A real desktop for the back-end's tests: Xvfb with openbox, windows made by a
// tiny Xlib client with chosen classes and titles, xdotool for focus and input,
// private dbus-daemons, and services registered on them from inside the test
// (a stand-in logind, notification server, session manager).
#pragma once

#include "testing/Processes.h"
#include "capture/Desktop.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <exception>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

struct sd_bus;
struct _XDisplay;

namespace ombrelo::testing {

// Xvfb with openbox, started once per test program. `shared()` is null when
// Xvfb cannot start here; `whyUnavailable()` says why.
class XServer {
public:
    static XServer* shared();
    static const std::string& whyUnavailable();
    const std::string& display() const { return display_; }
    // The fixture's own client connection, for making windows.
    _XDisplay* client() const { return client_; }
    // Writes the root window's _NET_ACTIVE_WINDOW as a window manager would (0:
    // none), to show what openbox itself never activates: docks, windows that
    // do not exist, a native Wayland window (XWayland then says none).
    void announceActive(unsigned long window);

    ~XServer();

private:
    XServer();
    std::string display_;
    std::unique_ptr<ChildProcess> xvfb_, windowManager_;
    _XDisplay* client_ = nullptr;
};

// The shared X server; without one the test is skipped, except in CI (CI set),
// where a missing Xvfb or window manager must fail the suite, not thin it.
#define OMBRELO_REQUIRE_X(server)                                                                  \
    server = ::ombrelo::testing::XServer::shared();                                                \
    if (!server && std::getenv("CI")) FAIL() << "Xvfb cannot start: " << ::ombrelo::testing::XServer::whyUnavailable(); \
    if (!server) GTEST_SKIP() << "Xvfb cannot start here: " << ::ombrelo::testing::XServer::whyUnavailable()

// A top-level window of the test client.
class TestWindow {
public:
    struct Properties {
        std::string instance, className;         // WM_CLASS; none when both empty
        std::optional<std::string> utf8Title;    // _NET_WM_NAME
        std::optional<std::string> latin1Title;  // WM_NAME as STRING (bytes as given)
        std::optional<int> pid;                  // _NET_WM_PID
        std::optional<std::string> gtkApplicationID;
        bool dock = false;                       // _NET_WM_WINDOW_TYPE_DOCK
    };
    TestWindow(XServer& server, const Properties& properties);
    ~TestWindow();
    TestWindow(const TestWindow&) = delete;
    TestWindow& operator=(const TestWindow&) = delete;

    unsigned long id() const { return window_; }
    // Brings the window to the front through the window manager (xdotool) and
    // waits until it is active.
    void activate();
    void setTitle(const std::string& utf8Title);
    void destroy();

private:
    XServer& server_;
    unsigned long window_ = 0;
};

// A private dbus-daemon, stopped with the object.
class PrivateBus {
public:
    PrivateBus();
    ~PrivateBus();
    const std::string& address() const { return address_; }

private:
    std::unique_ptr<ChildProcess> daemon_;
    std::string address_;
    std::filesystem::path folder_;
};

// One connection to a bus served on its own thread, where stand-in services
// live: everything touching its sd_bus runs there, through `run`.
class ServiceThread {
public:
    explicit ServiceThread(const std::string& address);
    ~ServiceThread();

    // Runs `work` on the service thread and waits until it is done.
    void run(const std::function<void(sd_bus*)>& work);
    // Asks for a well-known name.
    void own(const std::string& name);

private:
    void loop();

    struct Work {
        std::uint64_t ticket = 0;
        std::function<void(sd_bus*)> task;
    };
    sd_bus* bus_ = nullptr;
    std::mutex mutex_;
    std::condition_variable done_;
    std::deque<Work> work_;
    std::uint64_t submitted_ = 0, completed_ = 0;
    std::exception_ptr failure_;
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

// The observer side of the Desktop interface, as a list of readable events:
// "activate <id>", "nothing", "suspend <why>", "resume <why>".
class RecordingObserver : public DesktopObserver {
public:
    void appDidActivate(const FrontApp& app) override { events.push_back("activate " + app.id); }
    void nothingInFront() override { events.push_back("nothing"); }
    void suspend(const std::string& why) override { events.push_back("suspend " + why); }
    void resume(const std::string& why) override { events.push_back("resume " + why); }
    std::vector<std::string> events;
};

} // namespace ombrelo::testing
