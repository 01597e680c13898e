// LiveViews: the JSON of live and money state that the commands and the
// window show alike: the focus session and break under way, and the billing
// totals of a period or of the whole history.
#pragma once

#include "agent/TimeQueries.h"
#include "billing/BillingStore.h"
#include "billing/BillingTotals.h"
#include "billing/ProjectStore.h"
#include "classify/Workspace.h"
#include "storage/Database.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace ombrelo::commands {

// {"session": …or null, "break": …or null}, as `focus status --json` gives it.
nlohmann::json focusJSON(Database& db, const ProjectStore& projects, Instant now);

// The billing totals of a period, or of the whole history.
struct PeriodTotals {
    Period range;
    bool wholeHistory = false;
    bool empty = false;  // no activity at all
    BillingTotals sums;
};

// The totals of `range`, or without one of the whole history: from the first
// activity's day through today.
PeriodTotals billingTotals(Workspace& workspace, ActivityStore& activities, BillingStore& billing, Instant now,
                           std::optional<Period> range = std::nullopt);
// {"from", "to", "whole_history", "currency", "to_bill_eur", "to_bill_minutes",
// "billed_eur", "paid_eur"}.
nlohmann::json toJSON(const PeriodTotals& totals, const std::string& currency);

} // namespace ombrelo::commands
