#include "reports/ReportQuery.h"

namespace ombrelo {

namespace {

ClassifiedList inStatus(const ClassifiedList& items, const BillingStatuses& statuses, StatusFilter filter) {
    if (filter == StatusFilter::all) return items;
    std::vector<Classified> kept;
    for (const Classified& item : items)
        if (auto status = statuses.find(item.activity.id); status != statuses.end() && passes(filter, status->second))
            kept.push_back(item);
    return ClassifiedList(std::move(kept));
}

std::vector<std::int64_t> activityIDs(const ClassifiedList& items) {
    std::vector<std::int64_t> ids;
    ids.reserve(items.size());
    for (const Classified& item : items) ids.push_back(item.activity.id);
    return ids;
}

} // namespace

BuiltReport buildReport(const ReportRequest& request, Workspace& workspace, const ProjectStore& projects,
                        BillingStore& billingStore, const Holidays& holidays) {
    ClassifiedList items = workspace.items(request.from, request.to);
    BillingStatuses statuses = billingStore.statuses(items);
    items = inStatus(items, statuses, request.status);
    BuiltReport built{Report::build(items, request.from, request.to, request.client, projects.clients(), holidays),
                      std::move(statuses), {}};
    built.billing = billingStore.rows(activityIDs(built.report.items));
    return built;
}

} // namespace ombrelo
