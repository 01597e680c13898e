#include "app/ProjectInProgress.h"

#include "support/Log.h"

#include <utility>

namespace ombrelo {

Claim Claim::of(ProjectStore& projects) {
    std::optional<Project> active = projects.activeProject();
    return {active, active ? projects.activeNote() : std::nullopt};
}

bool Claim::sameAs(const Claim& other) const {
    auto id = [](const Claim& claim) { return claim.project ? std::optional(claim.project->id) : std::nullopt; };
    return id(*this) == id(other) && note == other.note;
}

ProjectInProgress::ProjectInProgress(ActivityTracker& tracker, Catalog& catalog, ProjectStore& projects, Database& db)
    : tracker_(tracker), catalog_(catalog), projects_(projects), db_(db), otherWrites_(db) {
    tracker_.onOpened = [this](const Activity& activity) {
        // A day-old activity still without its row is past waiting for.
        claimsByStart_.erase(claimsByStart_.begin(), claimsByStart_.lower_bound(activity.start - 86400));
        claimsByStart_[activity.start] = Claim::of(projects_);
    };
    tracker_.onRecorded = [this](const Activity& activity) { recorded(activity); };
}

bool ProjectInProgress::apply(const Activity& activity, const Claim& claim) {
    return catalog_.applyActiveProject(claim.project, claim.note, activity, projects_.projects());
}

void ProjectInProgress::recorded(const Activity& activity) {
    auto began = claimsByStart_.find(activity.start);
    Claim claim = began != claimsByStart_.end() ? began->second : Claim::of(projects_);
    const std::optional<Activity>& current = tracker_.current();
    if (began != claimsByStart_.end() && !(current && current->start == activity.start)) claimsByStart_.erase(began);
    if (!apply(activity, claim)) unwritten_.emplace_back(activity, std::move(claim));
}

void ProjectInProgress::retryUnwritten() {
    for (auto waiting = std::exchange(unwritten_, {}); auto& [activity, claim] : waiting) {
        if (apply(activity, claim)) continue;
        // A row removed since (shorter than a second) has nothing left to claim.
        if (db_.queryInt("SELECT COUNT(*) FROM activity WHERE id = ?", {activity.id}).value_or(0) > 0)
            unwritten_.emplace_back(activity, claim);
    }
}

void ProjectInProgress::takeInChanges() {
    try {
        if (otherWrites_.happened()) {
            catalog_.reload();
            projects_.reload();
        }
    } catch (const DatabaseError& error) {
        Log::get("capture")->warn("Lecture impossible : {}", error.description());
    }

    try {
        retryUnwritten();
    } catch (const DatabaseError& error) {
        Log::get("capture")->warn("Lecture impossible : {}", error.description());
    }

    const std::optional<Activity>& current = tracker_.current();
    bool claimable = current && (current->kind == Activity::Kind::app || current->kind == Activity::Kind::privateTime);
    if (!claimable) return;
    auto began = claimsByStart_.find(current->start);
    if (began != claimsByStart_.end() && !Claim::of(projects_).sameAs(began->second)) tracker_.splitNow();
}

void ReplayedClaims::recorded(const Activity& activity) { claims_[activity.id] = Claim::of(projects_); }

void ReplayedClaims::write(const std::vector<ActivityBuffer::Written>& rows) {
    for (const ActivityBuffer::Written& row : rows) {
        auto claim = claims_.find(row.bufferID);
        if (claim == claims_.end()) continue;
        if (!catalog_.applyActiveProject(claim->second.project, claim->second.note, row.activity, projects_.projects()))
            throw DatabaseError(catalog_.lastError().value_or(""));
    }
}

} // namespace ombrelo
