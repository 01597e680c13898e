// Desktop: everything the capture loop needs to know about the user's desktop,
// behind one interface. The Linux back-end answers from X11 and D-Bus; the
// scripted desktop answers from a recorded session (replay and tests).
//
// All calls happen on the main loop's thread. Notifications are delivered to the
// one subscribed DesktopObserver on that thread too.
#pragma once

#include <optional>
#include <set>
#include <string>

namespace ombrelo {

// The application in front.
struct FrontApp {
    std::string id;    // stable, lower-case on Linux (the .desktop id, else WM_CLASS)
    std::string name;  // display name; "Application" when the desktop has none
    std::optional<int> pid;

    bool operator==(const FrontApp&) const = default;
};

// A browser's current page.
struct PageContext {
    std::optional<std::string> domain;
    std::optional<std::string> url;
    std::optional<std::string> title;  // the tab's, where the context replaces the window title
    bool privateWindow = false;        // a private or incognito window: private time, whatever the rules

    bool operator==(const PageContext&) const = default;
};

// Why capture is suspended or resumed. The texts are the ones logged.
namespace reason {
inline constexpr const char* sleep = "sleep";
inline constexpr const char* wake = "wake";
inline constexpr const char* locked = "locked";
inline constexpr const char* unlocked = "unlocked";
inline constexpr const char* loginWindow = "loginwindow";
inline constexpr const char* sessionInactive = "session";
inline constexpr const char* sessionActive = "session";
inline constexpr const char* screensOff = "screens";
} // namespace reason

// Which source tells the desktop back-end the window in front, as the log and
// `ombrelo status` show it.
struct WindowSourceState {
    std::string backend;                 // "x11", "xwayland", "wlroots", "kwin", "gnome"
    std::string description;             // what it follows, in the user's language
    std::optional<std::string> missing;  // what keeps it from seeing the window in front now
};

class DesktopObserver {
public:
    virtual ~DesktopObserver() = default;
    // Another application came to the front.
    virtual void appDidActivate(const FrontApp& app) = 0;
    // No application is in front any more: the last window closed, or the bare
    // desktop or a panel took the focus.
    virtual void nothingInFront() = 0;
    // Sleep, lock, login screen, session switched away, screens off.
    virtual void suspend(const std::string& why) = 0;
    // Wake, unlock, session back, screens on.
    virtual void resume(const std::string& why) = 0;
};

class Desktop {
public:
    virtual ~Desktop() = default;

    // Absent when nothing with a client window is in front (a desktop, a panel).
    virtual std::optional<FrontApp> frontmostApp() = 0;
    // The focused window's title; absent when the window has none or titles
    // cannot be read.
    virtual std::optional<std::string> windowTitle(const FrontApp& app) = 0;
    // The focused document or folder, when the application exposes it reliably.
    virtual std::optional<std::string> documentPath(const FrontApp& app) = 0;
    // Seconds since the last keyboard or pointer input of any kind.
    virtual double secondsSinceLastInput() = 0;
    // Application ids currently keeping the display awake (films, calls).
    virtual std::set<std::string> displayAwakeHolders() = 0;

    // Whether the application's pages carry context (browsers), and whether that
    // context replaces the window title.
    virtual bool hasPageContext(const FrontApp& app) = 0;
    virtual bool contextReplacesTitle(const FrontApp& app) = 0;
    // The browser's current page; absent when unknown.
    virtual std::optional<PageContext> currentPage(const FrontApp& app) = 0;

    // Whether time with these details must be recorded as private.
    virtual bool isPrivate(const std::optional<std::string>& appID, const std::optional<std::string>& domain,
                           const std::optional<std::string>& title) = 0;

    // The observer receives notifications until replaced or cleared (nullptr).
    virtual void subscribe(DesktopObserver* observer) = 0;
};

} // namespace ombrelo
