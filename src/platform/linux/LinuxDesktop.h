// LinuxDesktop: the Linux desktop as the capture loop sees it. A window source
// chosen for the session gives the window in front and its title (X11, or the
// compositor's own way under Wayland: see WindowSources); logind on the system
// bus gives sleep, lock and session switches; logind and the session manager
// give the applications keeping the display awake; the source or the session
// gives idle time; .desktop files and /proc name applications.
//
// Without logind (containers, minimal sessions, systems without systemd, or no
// system bus at all) it still tracks: the tracker notices sleep from the time
// no sample ran, and the screen saver's signal on the session bus stands for
// the lock. One warning says what is missing.
//
// While the source cannot see the window in front (a native Wayland window
// under XWayland, the GNOME extension not enabled), capture is suspended
// (reason "wayland") rather than credited to the last window seen, and the
// source says what is missing.
//
// Owned by `ombrelo run`; main loop thread only. Events are read when the
// event loop finds a descriptor readable (attach) or when dispatchPending()
// is called; observers are notified from there.
#pragma once

#include "capture/BrowserPages.h"
#include "capture/Desktop.h"
#include "platform/linux/DesktopOptions.h"

#include <memory>
#include <optional>
#include <string>

namespace asio {
class io_context;
}

namespace ombrelo {
class Preferences;
}

namespace ombrelo::platform {

class Bus;
class Notifier;
class WindowSource;

class LinuxDesktop final : public Desktop {
public:
    // Connects to the buses the options name and to the session's window
    // source. Throws DesktopUnavailable naming the first piece that failed; a
    // system bus that does not answer is only warned about.
    LinuxDesktop(const DesktopOptions& options, const Preferences& preferences);
    ~LinuxDesktop() override;
    LinuxDesktop(const LinuxDesktop&) = delete;
    LinuxDesktop& operator=(const LinuxDesktop&) = delete;

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

    // Watches the source's connection and the buses on `io` until destroyed.
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
    // Which source follows the windows, and what it misses now.
    WindowSourceState windowSourceState() const;

private:
    struct Parts;
    void frontMayHaveChanged();
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
