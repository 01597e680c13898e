// ReportQuery: the report a person, the interface or an agent asks for, built in
// one place from the workspace's classified time, the billing statuses and the
// user's holidays, so that the terminal, the files and the screens agree to the
// cent.
//
// A status filter keeps the activities in that status before the report is
// built, so a statement of what is left to bill prices each day's remaining
// time on its own, as the billing totals do, and never bills a day's
// already-billed half again.
//
// Main loop thread, with the stores it reads. Throws DatabaseError.
#pragma once

#include "billing/BillingStore.h"
#include "billing/ProjectStore.h"
#include "calendar/Holidays.h"
#include "classify/Workspace.h"
#include "reports/Report.h"
#include "reports/ReportTable.h"

#include <optional>

namespace ombrelo {

struct ReportRequest {
    Instant from = 0;
    Instant to = 0;  // exclusive
    std::optional<Client> client;
    StatusFilter status = StatusFilter::all;
};

struct BuiltReport {
    Report report;
    BillingStatuses statuses;
    BillingRows billing;

    ReportTable table(ReportTemplate reportTemplate, const ReportFormat& format) const {
        return ReportTable::make(reportTemplate, report, statuses, billing, format);
    }
};

BuiltReport buildReport(const ReportRequest& request, Workspace& workspace, const ProjectStore& projects,
                        BillingStore& billingStore, const Holidays& holidays);

} // namespace ombrelo
