// ProjectInProgress: the project in progress as the capture loop applies it.
// Each activity the tracker records is claimed by the active project and its
// note, unless it is a distraction, an absence or corrected by hand
// (Catalog::applyActiveProject).
//
// Other processes change what claims new time: `ombrelo work` and `ombrelo
// stop` through the shared settings, edits of projects, clients, rules and
// categories through the database. takeInChanges() takes them in (the stores
// are re-read when another connection has committed) and, when the claim on new
// time is no longer the one the current activity was recorded with, cuts the
// current activity now: the part before keeps what it had, the part after is
// recorded anew under the new choice, or falls back to the rules.
//
// An activity is claimed as things stood when it began, even when its row is
// written later (the database was busy). A claim whose write failed is tried
// again at the next takeInChanges(). Main loop thread, like the tracker and the
// stores.
#pragma once

#include "billing/ProjectStore.h"
#include "capture/ActivityBuffer.h"
#include "capture/ActivityTracker.h"
#include "classify/Catalog.h"
#include "storage/OtherWrites.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace ombrelo {

// What claims time recorded now: the active project and its note.
struct Claim {
    std::optional<Project> project;
    std::optional<std::string> note;

    static Claim of(ProjectStore& projects);
    // Same project (by id) and same note.
    bool sameAs(const Claim& other) const;
};

class ProjectInProgress {
public:
    // Installs itself as the tracker's onOpened and onRecorded. Everything must
    // outlive it.
    ProjectInProgress(ActivityTracker& tracker, Catalog& catalog, ProjectStore& projects, Database& db);

    // See above; cheap when nothing changed (one stat of the settings file and
    // one pragma).
    void takeInChanges();

private:
    void recorded(const Activity& activity);
    bool apply(const Activity& activity, const Claim& claim);
    void retryUnwritten();

    ActivityTracker& tracker_;
    Catalog& catalog_;
    ProjectStore& projects_;
    Database& db_;
    OtherWrites otherWrites_;
    // The claim each activity began with, by its start (rows of one machine
    // never start together), kept until its row is written; the current
    // activity's stays for comparison.
    std::map<Instant, Claim> claimsByStart_;
    std::vector<std::pair<Activity, Claim>> unwritten_;
};

// A replayed session's claims: each activity is claimed as the session's own
// settings and clock saw the project in progress when it was recorded, and the
// claims are written with the rows, in the session's transaction.
class ReplayedClaims {
public:
    ReplayedClaims(Catalog& catalog, ProjectStore& sessionProjects) : catalog_(catalog), projects_(sessionProjects) {}
    // For Replay's onRecorded and Written hooks. write() throws DatabaseError
    // when a claim cannot be written, which cancels the session.
    void recorded(const Activity& activity);
    void write(const std::vector<ActivityBuffer::Written>& rows);

private:
    Catalog& catalog_;
    ProjectStore& projects_;
    std::map<std::int64_t, Claim> claims_;  // by the session's activity id
};

} // namespace ombrelo
