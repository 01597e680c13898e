// Controls: every change of live state a person, a link or an agent can ask for
// (the project in progress, the pause, focus sessions, breaks, the window's
// page), done on the objects that hold that state. In the running tracker they
// are its own objects, so a change takes effect at once; a command that finds
// no tracker builds them on the database and the settings, where the tracker
// finds the change when it starts.
//
// Main loop thread, like the objects it is given.
#pragma once

#include "billing/ProjectStore.h"
#include "capture/BrowserPages.h"
#include "capture/Desktop.h"
#include "support/Clock.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace ombrelo {

class ActivityTracker;
class FocusController;
class Preferences;

// The main window's pages.
enum class Page { dashboard, timeline, search, projects, reports, settings };

// "dashboard", "timeline", …: the page's name in answers and logs.
std::string_view rawValue(Page page);
// The page of that name; nothing for another text.
std::optional<Page> pageFromRaw(std::string_view raw);
// The page's title in the user's language.
std::string_view title(Page page);

// A request that cannot be done, with the reason in the user's language.
class ControlFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The agent server of the running tracker, as `status` shows it.
struct AgentServerState {
    bool running = false;
    std::uint16_t port = 0;
    std::optional<std::string> problem;  // why it could not start
};

class Controls {
public:
    struct Parts {
        ProjectStore& projects;
        FocusController& focus;
        Preferences& preferences;
        Clock& clock;
        // The running tracker; null: a pause is only written to the settings.
        ActivityTracker* tracker = nullptr;
        // Run after a change of the project in progress (the tracker cuts the
        // current activity).
        std::function<void()> projectChanged;
        // Shows the main window on a page.
        std::function<void(Page)> open;
        // The one-time address of the window on a page, where this process
        // serves the window.
        std::function<std::optional<std::string>(Page)> windowLink;
        // The tracker's agent server, when it has one: its state, and taking in a
        // token another process made.
        std::function<AgentServerState()> agentServer;
        std::function<void()> agentTokenChanged;
        // The browsers' pages, where this process follows them (the tracker), and
        // what takes a change of page in at once.
        BrowserPages* pages = nullptr;
        std::function<void()> pageChanged;
        // Which source follows the windows, where this process tracks.
        std::function<WindowSourceState()> windowSource;
    };

    explicit Controls(Parts parts) : parts_(std::move(parts)) {}

    ProjectStore& projects() { return parts_.projects; }

    // Each throws ControlFailure, leaving the state as it was.
    // `note` present: set (or, blank, cleared) with the project.
    void work(const Project& project, const std::optional<std::string>& note);
    void stopWork();
    // Tracking pauses for `minutes`, or until resumed.
    void pause(std::optional<double> minutes);
    void resume();
    // `minutes` absent or ≤ 0: open-ended.
    void startFocus(std::optional<std::int64_t> minutes, std::optional<std::int64_t> projectID);
    void stopFocus();
    void startBreak();
    void endBreak(bool skipped);
    void open(Page page);
    // Nothing where no window is served in this process.
    std::optional<std::string> windowLink(Page page);
    // Nothing where no agent server runs in this process.
    std::optional<AgentServerState> agentServer() const;
    void agentTokenChanged();
    // A report of the browser extension; dropped where pages are not followed,
    // or when it is stale.
    void reportPage(const BrowserReport& report);
    void browserClosed(int pid);
    // When the last report was taken; nothing where pages are not followed or
    // none came.
    std::optional<Instant> lastPageReport() const;
    std::optional<WindowSourceState> windowSource() const;

private:
    // Runs a focus change, turning a database failure into a ControlFailure.
    void changeFocus(const std::function<void(Instant)>& change);

    Parts parts_;
};

} // namespace ombrelo
