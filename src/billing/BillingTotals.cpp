#include "billing/BillingTotals.h"

#include "billing/DayPricing.h"
#include "support/L10n.h"
#include "support/Money.h"

#include <algorithm>
#include <unordered_set>

namespace ombrelo {

namespace {
struct StatusNames {
    BillingStatus status;
    std::string_view raw, french, english;
};
constexpr StatusNames statusNames[] = {
    {BillingStatus::toBill, "tobill", "À facturer", "To bill"},
    {BillingStatus::billed, "billed", "Facturé", "Billed"},
    {BillingStatus::paid, "paid", "Payé", "Paid"},
    {BillingStatus::nonBillable, "nonbillable", "Non facturable", "Not billable"},
};

struct FilterNames {
    StatusFilter filter;
    std::string_view raw;
};
constexpr FilterNames filterNames[] = {
    {StatusFilter::all, "all"},
    {StatusFilter::toBill, "toBill"},
    {StatusFilter::billed, "billed"},
    {StatusFilter::paid, "paid"},
};
} // namespace

std::string_view rawValue(BillingStatus status) {
    for (const auto& names : statusNames)
        if (names.status == status) return names.raw;
    return "tobill";
}

std::optional<BillingStatus> parseBillingStatus(std::string_view raw) {
    for (const auto& names : statusNames)
        if (names.raw == raw) return names.status;
    return std::nullopt;
}

std::string statusLabel(BillingStatus status) {
    for (const auto& names : statusNames)
        if (names.status == status) return std::string(L10n::text(names.french, names.english));
    return {};
}

std::string_view rawValue(StatusFilter filter) {
    for (const auto& names : filterNames)
        if (names.filter == filter) return names.raw;
    return "all";
}

std::optional<StatusFilter> parseStatusFilter(std::string_view raw) {
    for (const auto& names : filterNames)
        if (names.raw == raw) return names.filter;
    return std::nullopt;
}

bool passes(StatusFilter filter, BillingStatus status) {
    switch (filter) {
    case StatusFilter::all: return true;
    case StatusFilter::toBill: return status == BillingStatus::toBill;
    case StatusFilter::billed: return status == BillingStatus::billed;
    case StatusFilter::paid: return status == BillingStatus::paid;
    }
    return false;
}

BillingTotals BillingTotals::compute(const ClassifiedList& items, const BillingStatuses& statuses,
                                     Instant from, Instant to) {
    BillingTotals totals;
    DayPricing pricing;
    DayCursor days;
    for (const Classified& item : items) {
        if (!item.project) continue;
        auto found = statuses.find(item.activity.id);
        if (found == statuses.end() || found->second == BillingStatus::nonBillable) continue;
        Instant start = std::max(item.activity.start, from);
        double seconds = std::min(item.activity.end, to) - start;
        if (!(seconds > 0)) continue;
        if (found->second == BillingStatus::toBill) totals.toBillSeconds += seconds;
        pricing.add(static_cast<int>(found->second), *item.project, days.startOf(start), seconds);
    }
    for (const DayPricing::Day& day : pricing.priced()) {
        switch (static_cast<BillingStatus>(day.group)) {
        case BillingStatus::toBill: totals.toBillCents = addCents(totals.toBillCents, day.cents); break;
        case BillingStatus::billed: totals.billedCents = addCents(totals.billedCents, day.cents); break;
        case BillingStatus::paid: totals.paidCents = addCents(totals.paidCents, day.cents); break;
        case BillingStatus::nonBillable: break;
        }
    }
    return totals;
}

std::vector<std::string> invoicesOf(std::vector<std::int64_t> ids, const BillingRows& rows) {
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    std::vector<std::string> invoices;
    std::unordered_set<std::string> seen;
    for (std::int64_t id : ids) {
        auto row = rows.find(id);
        if (row == rows.end() || !row->second.invoice || row->second.invoice->empty()) continue;
        if (seen.insert(*row->second.invoice).second) invoices.push_back(*row->second.invoice);
    }
    return invoices;
}

} // namespace ombrelo
