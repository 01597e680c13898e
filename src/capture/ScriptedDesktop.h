// ScriptedDesktop: a Desktop whose state is set by calls instead of read from a
// display server. Replay feeds it a recorded session; tests drive it step by step.
//
// It remembers, per application, the window last shown for it (title, document,
// page), so switching back to an application finds its window as it was. An
// application has page context (it is a browser) when a page was ever given for
// it. Input follows a two-state model: the user is present (no time since the
// last input) until inputStopped(at), and from then on the time since the last
// input grows with the clock until inputResumed() or an application is brought
// to the front.
//
// Notifications are forwarded to the subscribed observer at once. A desktop
// that is suspended when an observer subscribes tells it so immediately, as a
// locked session would. Main loop thread; not thread-safe.
#pragma once

#include "capture/Desktop.h"
#include "support/Clock.h"

#include <map>

namespace ombrelo {

class PrivacyRules;

// One application's window, as the desktop shows it.
struct ScriptedWindow {
    FrontApp app;
    std::optional<std::string> title;
    std::optional<std::string> path;
    std::optional<PageContext> page;  // present for an application with pages
};

class ScriptedDesktop final : public Desktop {
public:
    ScriptedDesktop(const Clock& clock, const PrivacyRules& privacy) : clock_(clock), privacy_(privacy) {}

    // The window's application comes to the front with that window, the user is
    // present, and the observer hears of the activation.
    void bringToFront(const ScriptedWindow& window);
    // Nothing with a window is in front any more; the observer hears of it.
    void clearFront();
    // The front window's title changes; ignored when nothing is in front.
    void setTitle(std::optional<std::string> title);
    // The front application's page changes; it has page context from now on.
    void setPage(PageContext page);

    // Input stops at `at` (the user goes away).
    void inputStopped(Instant at);
    // Input resumes and stays continuous.
    void inputResumed();
    void setDisplayAwake(std::set<std::string> holders);

    // Sleep, lock…: remembered until notifyResume, and forwarded.
    void notifySuspend(const std::string& why);
    void notifyResume(const std::string& why);

    std::optional<FrontApp> frontmostApp() override;
    std::optional<std::string> windowTitle(const FrontApp& app) override;
    std::optional<std::string> documentPath(const FrontApp& app) override;
    double secondsSinceLastInput() override;
    std::set<std::string> displayAwakeHolders() override { return holders_; }
    bool hasPageContext(const FrontApp& app) override;
    bool contextReplacesTitle(const FrontApp&) override { return false; }
    std::optional<PageContext> currentPage(const FrontApp& app) override;
    bool isPrivate(const std::optional<std::string>& appID, const std::optional<std::string>& domain,
                   const std::optional<std::string>& title) override;
    void subscribe(DesktopObserver* observer) override;

private:
    // Windows are found by application id, or by name for an application without one.
    static std::string keyOf(const FrontApp& app) { return app.id.empty() ? "name:" + app.name : app.id; }
    const ScriptedWindow* windowOf(const FrontApp& app) const;
    ScriptedWindow* frontWindow();

    const Clock& clock_;
    const PrivacyRules& privacy_;
    std::map<std::string, ScriptedWindow> windows_;
    std::optional<std::string> front_;  // key of the front window
    std::optional<Instant> awaySince_;
    std::set<std::string> holders_;
    std::optional<std::string> suspendedBy_;
    DesktopObserver* observer_ = nullptr;
};

} // namespace ombrelo
