// X11Desktop: the Linux desktop as the capture loop sees it. X11 gives the
// window in front (followed through _NET_ACTIVE_WINDOW, never polled), its
// title and the idle time; logind on the system bus gives sleep, lock and
// session switches; logind and the session manager give the applications
// keeping the display awake; .desktop files and /proc name applications.
//
// Without logind (containers, minimal sessions, systems without systemd, or no
// system bus at all) it still tracks: the tracker notices sleep from the time
// no sample ran, and the screen saver's signal on the session bus stands for
// the lock. One warning says what is missing.
//
// Under Wayland only XWayland windows are visible: while a native Wayland
// window is in front, capture is suspended (reason "wayland") rather than
// credited to the last X window, and idle time comes from the compositor when
// it offers it (GNOME's Mutter, the ScreenSaver interface on Plasma).
//
// Owned by `ombrelo run`; main loop thread only. Events are read when the
// event loop finds a descriptor readable (attach) or when dispatchPending()
// is called; observers are notified from there.
#pragma once

#include "capture/BrowserPages.h"

#include "capture/Desktop.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace asio {
class io_context;
}

namespace ombrelo {
class Preferences;
}

namespace ombrelo::platform {

class Bus;
class Notifier;

// A piece the tracker cannot work without is missing.
class DesktopUnavailable : public std::runtime_error {
public:
    enum class Piece { display, sessionBus };
    DesktopUnavailable(Piece missing, const std::string& detail) : std::runtime_error(detail), piece(missing) {}
    const Piece piece;
};

struct DesktopOptions {
    std::string display;                    // empty: $DISPLAY
    std::optional<std::string> systemBus;   // D-Bus addresses; absent: not used (a missing
                                            // system bus is no reason not to track)
    std::optional<std::string> sessionBus;
    std::optional<std::string> sessionID;   // logind session ($XDG_SESSION_ID)
    std::vector<std::filesystem::path> applicationFolders;
    std::string locale;                     // for application names
    bool wayland = false;                   // $XDG_SESSION_TYPE is "wayland"
    std::filesystem::path home;             // for "~" in titles
    bool requireSessionBus = false;         // a session bus the environment does not name is missing

    // Everything from the environment, as `ombrelo run` uses it: the session
    // bus is required.
    static DesktopOptions fromEnvironment();
};

class X11Desktop final : public Desktop {
public:
    // Connects to the display and to the buses the options name. Throws
    // DesktopUnavailable naming the first piece that failed; a system bus that
    // does not answer is only warned about.
    X11Desktop(const DesktopOptions& options, const Preferences& preferences);
    ~X11Desktop() override;
    X11Desktop(const X11Desktop&) = delete;
    X11Desktop& operator=(const X11Desktop&) = delete;

    std::optional<FrontApp> frontmostApp() override;
    std::optional<std::string> windowTitle(const FrontApp& app) override;
    std::optional<std::string> documentPath(const FrontApp& app) override;
    double secondsSinceLastInput() override;
    std::set<std::string> displayAwakeHolders() override;
    bool hasPageContext(const FrontApp& app) override;
    bool contextReplacesTitle(const FrontApp& app) override;
    std::optional<PageContext> currentPage(const FrontApp& app) override;
    bool isPrivate(const std::optional<std::string>& appID, const std::optional<std::string>& domain,
                   const std::optional<std::string>& title) override;
    // A suspended desktop (asleep, locked, switched away) tells the new
    // observer at once.
    void subscribe(DesktopObserver* observer) override;

    // Watches the X connection and the buses on `io` until destroyed.
    void attach(asio::io_context& io);
    // Handles every event already received or queued, without waiting.
    void dispatchPending();

    // Browsers' pages as their extension reports them; without, a browser's
    // activity has its window title only.
    void readPagesFrom(const BrowserPages* pages) { pages_ = pages; }

    // Notifications over the session bus (a no-op notifier without one).
    Notifier& notifier();
    // What is followed and where idle time comes from, for the start-up log.
    std::string describeSources() const;

private:
    struct Parts;
    void activeWindowMayHaveChanged();
    void updateSuspension(const std::string& why);
    void connectSystemBus(const DesktopOptions& options);
    // Says once what cannot be followed without logind, and falls back to the
    // screen saver's signal for the lock.
    void followLockWithoutLogind(const std::string& missing);

    std::unique_ptr<Parts> parts_;
    const BrowserPages* pages_ = nullptr;
    const Preferences& preferences_;
    DesktopObserver* observer_ = nullptr;
};

} // namespace ombrelo::platform
