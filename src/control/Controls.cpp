#include "control/Controls.h"

#include "capture/ActivityTracker.h"
#include "focus/FocusController.h"
#include "storage/Errors.h"
#include "support/Fold.h"
#include "support/L10n.h"
#include "support/Preferences.h"
#include "support/Settings.h"

namespace ombrelo {

std::string_view rawValue(Page page) {
    switch (page) {
    case Page::dashboard: return "dashboard";
    case Page::timeline: return "timeline";
    case Page::search: return "search";
    case Page::projects: return "projects";
    case Page::reports: return "reports";
    case Page::settings: return "settings";
    }
    return "dashboard";
}

std::optional<Page> pageFromRaw(std::string_view raw) {
    for (Page page : {Page::dashboard, Page::timeline, Page::search, Page::projects, Page::reports, Page::settings})
        if (rawValue(page) == raw) return page;
    return std::nullopt;
}

std::string_view title(Page page) {
    switch (page) {
    case Page::dashboard: return L10n::text("Tableau de bord", "Dashboard");
    case Page::timeline: return L10n::text("Chronologie", "Timeline");
    case Page::search: return L10n::text("Recherche", "Search");
    case Page::projects: return L10n::text("Projets", "Projects");
    case Page::reports: return L10n::text("Rapports", "Reports");
    case Page::settings: return L10n::text("Réglages", "Settings");
    }
    return "";
}

namespace {

void check(const std::optional<StoreError>& error, std::string_view what) {
    if (error) throw ControlFailure(std::string(what) + " : " + error->text());
}

} // namespace

void Controls::work(const Project& project, const std::optional<std::string>& note) {
    ProjectStore& store = parts_.projects;
    if (project.archived)
        throw ControlFailure(std::string(L10n::text("Projet archivé : ", "Archived project: ")) + store.label(project) +
                             std::string(L10n::text(". Sortez-le des archives : ombrelo projects archive --undo",
                                                    ". Restore it first: ombrelo projects archive --undo")));
    check(store.setActive(project), L10n::text("Projet en cours non enregistré", "Project in progress not saved"));
    if (note) {
        std::string text(trim(*note));
        check(store.setActiveNote(text.empty() ? std::nullopt : std::optional(text)),
              L10n::text("Note non enregistrée", "Note not saved"));
    }
    if (parts_.projectChanged) parts_.projectChanged();
}

void Controls::stopWork() {
    if (!parts_.projects.activeProject()) return;
    check(parts_.projects.setActive(std::nullopt), L10n::text("Arrêt non enregistré", "Stop not saved"));
    if (parts_.projectChanged) parts_.projectChanged();
}

void Controls::pause(std::optional<double> minutes) {
    Instant until = minutes ? parts_.clock.now() + *minutes * 60 : ActivityTracker::indefinitely;
    if (parts_.tracker) {
        parts_.tracker->pause(until);
        return;
    }
    try {
        parts_.preferences.set(settings::pausedUntil, until);
    } catch (const std::exception& error) {
        throw ControlFailure(std::string(L10n::text("Pause non enregistrée : ", "Pause not saved: ")) + error.what());
    }
}

void Controls::resume() {
    if (parts_.tracker) {
        parts_.tracker->resumeTracking();
        return;
    }
    try {
        parts_.preferences.remove(settings::pausedUntil);
    } catch (const std::exception& error) {
        throw ControlFailure(std::string(L10n::text("Reprise non enregistrée : ", "Resume not saved: ")) +
                             error.what());
    }
}

void Controls::changeFocus(const std::function<void(Instant)>& change) {
    try {
        change(parts_.clock.now());
    } catch (const DatabaseError& error) {
        throw ControlFailure(std::string(L10n::text("Concentration non enregistrée : ", "Focus not saved: ")) +
                             error.what());
    }
}

void Controls::startFocus(std::optional<std::int64_t> minutes, std::optional<std::int64_t> projectID) {
    changeFocus([&](Instant now) { parts_.focus.startFocus(minutes, projectID, now); });
}

void Controls::stopFocus() {
    changeFocus([&](Instant now) { parts_.focus.stop(now); });
}

void Controls::startBreak() {
    changeFocus([&](Instant now) { parts_.focus.beginBreak(now, false); });
}

void Controls::endBreak(bool skipped) {
    changeFocus([&](Instant now) { parts_.focus.endBreak(now, skipped); });
}

void Controls::reportPage(const BrowserReport& report) {
    if (!parts_.pages || !parts_.pages->take(report, parts_.clock.now())) return;
    if (parts_.pageChanged) parts_.pageChanged();
}

void Controls::browserClosed(int pid) {
    if (!parts_.pages) return;
    parts_.pages->forget(pid);
    if (parts_.pageChanged) parts_.pageChanged();
}

std::optional<Instant> Controls::lastPageReport() const {
    return parts_.pages ? parts_.pages->lastReport() : std::nullopt;
}

std::optional<std::string> Controls::windowLink(Page page) {
    return parts_.windowLink ? parts_.windowLink(page) : std::nullopt;
}

void Controls::open(Page page) {
    if (parts_.open) parts_.open(page);
}

std::optional<WindowSourceState> Controls::windowSource() const {
    if (!parts_.windowSource) return std::nullopt;
    return parts_.windowSource();
}

std::optional<AgentServerState> Controls::agentServer() const {
    if (!parts_.agentServer) return std::nullopt;
    return parts_.agentServer();
}

void Controls::agentTokenChanged() {
    if (parts_.agentTokenChanged) parts_.agentTokenChanged();
}

} // namespace ombrelo
