// ProjectChanges: removing a project and changing how it is priced without
// changing, behind the user's back, what its recorded time is worth. The command
// line, the agent tools and the web interface all ask here, so they refuse the
// same things for the same reasons and render the same values.
//
// A project's time is what the totals count for it: every activity the
// classification gives it, plus every stored assignment that names it whatever
// its source, since deleting the project rewrites those rows too. Time its rules
// give it counts as much as time assigned by hand: the rules are deleted with
// the project, so that time, and whatever was billed or paid of it, would leave
// the project's totals just the same.
//
// Billed and paid amounts are priced at the project's current pricing
// (BillingTotals), so a pricing edit reprices invoices already sent; it is
// refused unless asked for knowingly. One that leaves every billed and paid
// amount as it was (the day length of an hourly rate, say) changes no invoice
// and goes through.
//
// The classification lives above this library, so the caller passes it in: a
// function giving the classified items of a period, as Workspace::items does.
//
// A decision and the write it allows run in one transaction, so time recorded
// in between by the tracker cannot slip past the check. Never throws: failures
// come back as a StoreError (logged by the store). Main loop thread only.
#pragma once

#include "billing/BillingTotals.h"
#include "billing/ProjectStore.h"
#include "classify/Classified.h"
#include "storage/Database.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace ombrelo {

// What the project's time is, and what of it would no longer count under a
// project once it is removed.
struct RemovalImpact {
    std::size_t activities = 0;
    std::size_t fromRules = 0;  // of them, given by the project's rules alone
    double seconds = 0;
    std::int64_t toBillCents = 0;
    std::int64_t billedCents = 0;
    std::int64_t paidCents = 0;

    bool hasTime() const { return activities > 0; }
    bool operator==(const RemovalImpact&) const = default;
};

struct RemovalResult {
    RemovalImpact impact;  // as it stood when the decision was taken
    bool removed = false;  // false without error: refused (it has time) or a preview
    std::optional<StoreError> error;
};

// Time of one billing status priced at the stored pricing and at the edited one.
struct Repricing {
    BillingStatus status = BillingStatus::billed;
    std::size_t days = 0;  // calendar days with the project's time in that status
    std::int64_t beforeCents = 0;
    std::int64_t afterCents = 0;

    bool operator==(const Repricing&) const = default;
};

struct RepricingImpact {
    std::vector<Repricing> statuses;  // billed, then paid; only those with time

    // Whether an amount already billed or paid would change.
    bool changesAmounts() const;
};

struct EditResult {
    RepricingImpact repricing;  // empty when the edit leaves the pricing alone
    bool refused = false;       // it would reprice billed or paid time, not allowed
    SaveResult saved;           // the save, unless refused
};

class ProjectChanges {
public:
    // The classified items of [from, to), each activity clipped to it.
    using ClassifiedTime = std::function<ClassifiedList(Instant from, Instant to)>;

    ProjectChanges(Database& db, ProjectStore& projects, ClassifiedTime classified);

    enum class Removal {
        ifWithoutTime,  // refused when the project has time
        preview,        // never removes: what removing it would take away
        force,          // removes it whatever time it has
    };
    // Removes the project as `how` says. Forced, its stored assignments keep
    // their rows without project (a correction stays "Sans projet"), its rules
    // go with it, and billing marks stay on the activities, so that time given
    // to a project again shows as billed again.
    RemovalResult remove(const Project& project, Removal how);

    // Saves `edited` (an update of a stored project). A change of rate, rate
    // kind, rounding, day length or billability that would change an amount
    // already billed or paid is refused unless `repriceBilled`; any other edit is
    // saved as ProjectStore::save would.
    EditResult save(const Project& edited, bool repriceBilled);

private:
    RemovalImpact measure(const Project& project, const ClassifiedList& history);
    RepricingImpact reprice(const Project& before, const Project& after, const ClassifiedList& history);
    ClassifiedList history();

    Database& db_;
    ProjectStore& projects_;
    ClassifiedTime classified_;
};

// Whether billed amounts can differ between the two: the fields that price.
bool pricingDiffers(const Project& a, const Project& b);

} // namespace ombrelo
