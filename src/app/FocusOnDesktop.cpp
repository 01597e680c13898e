#include "app/FocusOnDesktop.h"

#include "billing/ProjectStore.h"
#include "capture/ActivityTracker.h"
#include "classify/Catalog.h"
#include "platform/linux/Notifier.h"
#include "support/L10n.h"

namespace ombrelo {

namespace {
constexpr const char* endSessionKey = "end-session";
constexpr const char* skipBreakKey = "skip-break";
} // namespace

FocusOnDesktop::FocusOnDesktop(ActivityTracker& tracker, Catalog& catalog, ProjectStore& projects, Desktop& desktop,
                               platform::Notifier& notifier)
    : tracker_(tracker), catalog_(catalog), projects_(projects), desktop_(desktop), notifier_(notifier) {
    notifier_.onAction([this](std::uint32_t id, const std::string& key) {
        if (!breakNotice_ || id != *breakNotice_ || !onBreakChoice) return;
        if (key == endSessionKey) onBreakChoice(BreakChoice::endSession);
        if (key == skipBreakKey) onBreakChoice(BreakChoice::skipBreak);
    });
}

double FocusOnDesktop::secondsSinceLastInput() { return desktop_.secondsSinceLastInput(); }

std::optional<WatchedActivity> FocusOnDesktop::currentActivity() {
    const std::optional<Activity>& current = tracker_.current();
    if (!current) return std::nullopt;
    return WatchedActivity{current->label(), current->kind == Activity::Kind::idle};
}

bool FocusOnDesktop::currentIsDistraction() {
    const std::optional<Activity>& current = tracker_.current();
    if (!current) return false;
    std::vector<Classified> classified = catalog_.classify({*current}, projects_.projects());
    return !classified.empty() && classified[0].category && classified[0].category->isDistraction;
}

std::optional<std::string> FocusOnDesktop::projectName(std::int64_t id) {
    std::optional<Project> project = projects_.project(id);
    if (!project) return std::nullopt;
    return project->name;
}

void FocusOnDesktop::notify(const std::string& title, const std::string& body) { notifier_.notify(title, body); }

void FocusOnDesktop::showBreak() {
    std::string title(L10n::text("C'est l'heure d'une pause", "Time for a break"));
    std::string body(L10n::text("Cinq minutes loin du clavier.", "Five minutes away from the keyboard."));
    breakShowing_ = true;
    if (!notifier_.offersActions()) {
        notifier_.notify(title, body);
        return;
    }
    notifier_.notify(title, body,
                     {{endSessionKey, std::string(L10n::text("Terminer la session", "End the session"))},
                      {skipBreakKey, std::string(L10n::text("Passer la pause", "Skip the break"))}},
                     [this](std::uint32_t id) {
                         if (breakShowing_)
                             breakNotice_ = id;
                         else
                             notifier_.close(id);
                     });
}

void FocusOnDesktop::closeBreak() {
    breakShowing_ = false;
    if (breakNotice_) notifier_.close(*breakNotice_);
    breakNotice_.reset();
}

} // namespace ombrelo
