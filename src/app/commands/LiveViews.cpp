#include "app/commands/LiveViews.h"

#include "focus/FocusRecords.h"
#include "support/LocalTime.h"

#include <algorithm>

namespace ombrelo::commands {

using nlohmann::json;

namespace {

json timeJSON(std::optional<Instant> t) { return t ? json(local::formatDateTime(*t)) : json(nullptr); }

} // namespace

json focusJSON(Database& db, const ProjectStore& projects, Instant now) {
    FocusRecords records(db);
    json document = {{"session", nullptr}, {"break", nullptr}};
    if (std::optional<FocusSession> s = records.openSession()) {
        std::optional<Project> project = s->projectID ? projects.project(*s->projectID) : std::nullopt;
        document["session"] = {
            {"id", s->id},
            {"start", local::formatDateTime(s->start)},
            {"planned_end", timeJSON(s->plannedEnd)},
            {"project", project ? json(projects.label(project)) : json(nullptr)},
            {"elapsed_seconds", std::max(0.0, now - s->start)},
            {"remaining_seconds", s->plannedEnd ? json(std::max(0.0, *s->plannedEnd - now)) : json(nullptr)}};
    }
    if (std::optional<BreakRecord> b = records.openBreak())
        document["break"] = {{"start", local::formatDateTime(b->start)},
                             {"planned_end", local::formatDateTime(b->plannedEnd)}};
    return document;
}

PeriodTotals billingTotals(Workspace& workspace, ActivityStore& activities, BillingStore& billing, Instant now,
                           std::optional<Period> range) {
    PeriodTotals totals;
    totals.wholeHistory = !range;
    if (range) {
        totals.range = *range;
    } else {
        std::optional<Instant> first = activities.firstStart();
        totals.empty = !first;
        totals.range.start = local::startOfDay(first.value_or(now));
        // Through today (time recorded ahead of the clock waits for its day).
        totals.range.end = std::max(local::addDays(local::startOfDay(now), 1), local::addDays(totals.range.start, 1));
    }
    ClassifiedList items = workspace.items(totals.range.start, totals.range.end);
    totals.sums = BillingTotals::compute(items, billing.statuses(items), totals.range.start, totals.range.end);
    return totals;
}

json toJSON(const PeriodTotals& totals, const std::string& currency) {
    auto day = [&](Instant t) { return totals.empty ? json(nullptr) : json(local::formatDay(t)); };
    return {{"from", day(totals.range.start)},
            {"to", day(totals.range.end - 1)},
            {"whole_history", totals.wholeHistory},
            {"currency", currency},
            {"to_bill_eur", static_cast<double>(totals.sums.toBillCents) / 100},
            {"to_bill_minutes", wholeMinutes(totals.sums.toBillSeconds)},
            {"billed_eur", static_cast<double>(totals.sums.billedCents) / 100},
            {"paid_eur", static_cast<double>(totals.sums.paidCents) / 100}};
}

} // namespace ombrelo::commands
