// BillingStatus, StatusFilter and BillingTotals: where billable time stands (to
// bill, billed with an invoice, paid, or not billable at all) and what it is
// worth in each state, as the "À facturer" card and the reports show it.
//
// Totals price each (status, project, calendar day) on its own with the
// project's per-day billing, so a day whose time is half billed and half to bill
// is rounded once in each status, and non-billable time is never priced.
//
// Plain values and pure functions; any thread.
#pragma once

#include "classify/Classified.h"
#include "support/Clock.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace ombrelo {

enum class BillingStatus { toBill, billed, paid, nonBillable };

// "tobill", "billed", "paid", "nonbillable" as stored; parsing gives nothing for
// any other text.
std::string_view rawValue(BillingStatus status);
std::optional<BillingStatus> parseBillingStatus(std::string_view raw);
// "À facturer", "Facturé", "Payé", "Non facturable" in the user's language.
std::string statusLabel(BillingStatus status);

// Which statuses a report line shows.
enum class StatusFilter { all, toBill, billed, paid };
// "all", "toBill", "billed", "paid".
std::string_view rawValue(StatusFilter filter);
std::optional<StatusFilter> parseStatusFilter(std::string_view raw);
// `all` passes every status; the others only their own.
bool passes(StatusFilter filter, BillingStatus status);

// Activity id → status; activities without status (idle, without project) are absent.
using BillingStatuses = std::unordered_map<std::int64_t, BillingStatus>;

// A stored status, with the invoice the time was billed on.
struct BillingRow {
    BillingStatus status = BillingStatus::toBill;
    std::optional<std::string> invoice;
    bool operator==(const BillingRow&) const = default;
};
using BillingRows = std::unordered_map<std::int64_t, BillingRow>;

// The non-empty invoice references of the activities `ids` in `rows`, taken by
// ascending activity id, each once, in order of first appearance.
std::vector<std::string> invoicesOf(std::vector<std::int64_t> ids, const BillingRows& rows);

struct BillingTotals {
    std::int64_t toBillCents = 0;
    double toBillSeconds = 0;
    std::int64_t billedCents = 0;
    std::int64_t paidCents = 0;

    // The totals of `items` clipped to [from, to): the items that have a status
    // in `statuses` count, each (status, project, day of the clipped start)
    // priced separately. Aborts (through Project::amountCents) rather than
    // return an amount beyond the 64-bit range.
    static BillingTotals compute(const ClassifiedList& items, const BillingStatuses& statuses, Instant from,
                                 Instant to);

    bool operator==(const BillingTotals&) const = default;
};

} // namespace ombrelo
