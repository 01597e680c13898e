// FocusOnDesktop: what focus sessions watch and show in the running tracker.
// The current activity is the tracker's, classified as recorded time is; idle
// time comes from the desktop; reminders are desktop notifications, and the
// break is one with the buttons "Terminer la session" and "Passer la pause"
// where the notification server shows buttons, a plain one elsewhere.
//
// Main loop thread, like everything it is given.
#pragma once

#include "capture/Desktop.h"
#include "focus/FocusController.h"

#include <cstdint>
#include <functional>
#include <optional>

namespace ombrelo {

class ActivityTracker;
class Catalog;
class ProjectStore;

namespace platform {
class Notifier;
}

class FocusOnDesktop final : public FocusSurroundings {
public:
    enum class BreakChoice { endSession, skipBreak };

    // Everything must outlive this object.
    FocusOnDesktop(ActivityTracker& tracker, Catalog& catalog, ProjectStore& projects, Desktop& desktop,
                   platform::Notifier& notifier);

    // Runs when the user picks a button of the break's notification.
    std::function<void(BreakChoice)> onBreakChoice;

    double secondsSinceLastInput() override;
    std::optional<WatchedActivity> currentActivity() override;
    bool currentIsDistraction() override;
    std::optional<std::string> projectName(std::int64_t id) override;
    void notify(const std::string& title, const std::string& body) override;
    void showBreak() override;
    void closeBreak() override;

private:
    ActivityTracker& tracker_;
    Catalog& catalog_;
    ProjectStore& projects_;
    Desktop& desktop_;
    platform::Notifier& notifier_;
    // The break's notification once the server gave its id; a break that
    // ends before that asks for it to be closed on arrival.
    std::optional<std::uint32_t> breakNotice_;
    bool breakShowing_ = false;
};

} // namespace ombrelo
