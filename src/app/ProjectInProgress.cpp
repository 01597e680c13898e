#include "app/ProjectInProgress.h"

#include "support/Log.h"

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
    : tracker_(tracker), catalog_(catalog), projects_(projects), db_(db), seenVersion_(db.dataVersion()) {
    tracker_.onRecorded = [this](const Activity& activity) { recorded(activity); };
}

bool ProjectInProgress::apply(const Activity& activity, const Claim& claim) {
    return catalog_.applyActiveProject(claim.project, claim.note, activity, projects_.projects());
}

void ProjectInProgress::recorded(const Activity& activity) {
    Claim claim = Claim::of(projects_);
    claimedActivity_ = activity.id;
    claimed_ = claim;
    if (!apply(activity, claim)) unwritten_.emplace_back(activity, std::move(claim));
}

void ProjectInProgress::takeInChanges() {
    try {
        if (std::int64_t version = db_.dataVersion(); version != seenVersion_) {
            seenVersion_ = version;
            catalog_.reload();
            projects_.reload();
        }
    } catch (const DatabaseError& error) {
        Log::get("capture")->warn("Lecture impossible : {}", error.description());
    }

    for (auto waiting = std::exchange(unwritten_, {}); auto& [activity, claim] : waiting)
        if (!apply(activity, claim)) unwritten_.emplace_back(activity, claim);

    const std::optional<Activity>& current = tracker_.current();
    bool claimable = current && (current->kind == Activity::Kind::app || current->kind == Activity::Kind::privateTime);
    if (claimable && current->id != 0 && current->id == claimedActivity_ && !Claim::of(projects_).sameAs(claimed_))
        tracker_.splitNow();
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
