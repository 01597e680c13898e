#include "billing/ProjectChanges.h"

#include "billing/BillingStore.h"
#include "billing/DayPricing.h"
#include "support/Log.h"
#include "support/Money.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <unordered_set>

namespace ombrelo {

namespace {

constexpr Instant always = std::numeric_limits<Instant>::infinity();

bool belongsTo(const Classified& item, const Project& project) {
    return item.project && item.project->id == project.id;
}

StoreError databaseFailure(const DatabaseError& error) {
    Log::get("billing")->error("Écriture impossible : {}", error.description());
    return {StoreError::Kind::database, std::nullopt, error.description()};
}

} // namespace

bool pricingDiffers(const Project& a, const Project& b) {
    return a.billable != b.billable || a.rateKind != b.rateKind || a.rateCents != b.rateCents ||
           a.rounding != b.rounding || std::llround(a.dayHours * 3600) != std::llround(b.dayHours * 3600);
}

bool RepricingImpact::changesAmounts() const {
    return std::any_of(statuses.begin(), statuses.end(),
                       [](const Repricing& r) { return r.beforeCents != r.afterCents; });
}

ProjectChanges::ProjectChanges(Database& db, ProjectStore& projects, ClassifiedTime classified)
    : db_(db), projects_(projects), classified_(std::move(classified)) {}

ClassifiedList ProjectChanges::history() {
    std::optional<double> first, last;
    {
        Statement span = db_.prepare("SELECT MIN(start), MAX(end) FROM activity");
        if (span.step()) {
            first = span.optionalReal(0);
            last = span.optionalReal(1);
        }
    }
    if (!first || !last || !(*last > *first)) return {};
    return classified_(*first, *last);
}

RemovalImpact ProjectChanges::measure(const Project& project, const ClassifiedList& history) {
    struct Row {
        std::int64_t id;
        double seconds;
    };
    // Rows naming the project that the classification does not give it (the
    // model's rows, say) still lose it with the project, so they count too.
    std::vector<Row> stored;
    std::unordered_set<std::int64_t> storedIDs;
    {
        Statement rows = db_.prepare("SELECT a.id, a.end - a.start FROM assignment s JOIN activity a "
                                     "ON a.id = s.activity_id WHERE s.project_id = ?",
                                     {project.id});
        while (rows.step()) {
            stored.push_back({rows.int64(0), std::max(rows.real(1), 0.0)});
            storedIDs.insert(stored.back().id);
        }
    }

    RemovalImpact impact;
    std::vector<Classified> own;
    std::unordered_set<std::int64_t> counted;
    for (const Classified& item : history) {
        if (!belongsTo(item, project) || !counted.insert(item.activity.id).second) continue;
        ++impact.activities;
        impact.seconds += std::max(item.activity.end - item.activity.start, 0.0);
        if (!storedIDs.count(item.activity.id)) ++impact.fromRules;
        own.push_back(item);
    }
    for (const Row& row : stored) {
        if (!counted.insert(row.id).second) continue;
        ++impact.activities;
        impact.seconds += row.seconds;
    }

    BillingStore billing(db_);
    BillingTotals totals = BillingTotals::compute(own, billing.statuses(own), -always, always);
    impact.toBillCents = totals.toBillCents;
    impact.billedCents = totals.billedCents;
    impact.paidCents = totals.paidCents;
    return impact;
}

RepricingImpact ProjectChanges::reprice(const Project& before, const Project& after,
                                        const ClassifiedList& history) {
    std::vector<const Classified*> own;
    std::vector<std::int64_t> ids;
    for (const Classified& item : history) {
        if (!belongsTo(item, before) || item.activity.kind == Activity::Kind::idle) continue;
        own.push_back(&item);
        ids.push_back(item.activity.id);
    }
    // The stored rows, not the statuses: time of a project that is not billable
    // now still has its marks, and they count again if it becomes billable.
    auto rows = BillingStore(db_).rows(ids);

    DayPricing then, now;
    DayCursor days;
    for (const Classified* item : own) {
        auto row = rows.find(item->activity.id);
        if (row == rows.end()) continue;
        BillingStatus status = row->second.status;
        if (status != BillingStatus::billed && status != BillingStatus::paid) continue;
        double seconds = item->activity.end - item->activity.start;
        if (!(seconds > 0)) continue;
        Instant day = days.startOf(item->activity.start);
        then.add(static_cast<int>(status), before, day, seconds);
        now.add(static_cast<int>(status), after, day, seconds);
    }

    RepricingImpact impact;
    std::vector<DayPricing::Day> pricedThen = then.priced(), pricedNow = now.priced();
    for (BillingStatus status : {BillingStatus::billed, BillingStatus::paid}) {
        Repricing repricing{status};
        for (const DayPricing::Day& day : pricedThen) {
            if (day.group != static_cast<int>(status)) continue;
            ++repricing.days;
            repricing.beforeCents = addCents(repricing.beforeCents, day.cents);
        }
        for (const DayPricing::Day& day : pricedNow)
            if (day.group == static_cast<int>(status)) repricing.afterCents = addCents(repricing.afterCents, day.cents);
        if (repricing.days > 0) impact.statuses.push_back(repricing);
    }
    return impact;
}

RemovalResult ProjectChanges::remove(const Project& project, Removal how) {
    RemovalResult result;
    try {
        std::optional<Transaction> transaction;
        if (how != Removal::preview) transaction.emplace(db_);
        result.impact = measure(project, history());
        if (how == Removal::preview || (how == Removal::ifWithoutTime && result.impact.hasTime())) return result;
        result.error = projects_.remove(project);
        if (result.error) return result;
        transaction->commit();
        result.removed = true;
    } catch (const DatabaseError& error) {
        result.error = databaseFailure(error);
        projects_.reload();
    }
    return result;
}

EditResult ProjectChanges::save(const Project& edited, bool repriceBilled) {
    EditResult result;
    // A new project has no time, and a record the store refuses needs no history.
    if (edited.id == 0 || edited.problem()) {
        result.saved = projects_.save(edited);
        return result;
    }
    try {
        Transaction transaction(db_);
        projects_.reload();
        std::optional<Project> before = projects_.project(edited.id);
        if (before && pricingDiffers(*before, edited)) {
            result.repricing = reprice(*before, edited, history());
            if (result.repricing.changesAmounts() && !repriceBilled) {
                result.refused = true;
                return result;
            }
        }
        result.saved = projects_.save(edited);
        if (result.saved) transaction.commit();
    } catch (const DatabaseError& error) {
        result.saved = {0, databaseFailure(error)};
        projects_.reload();
    }
    return result;
}

} // namespace ombrelo
