#include "billing/BillingStore.h"

#include "support/Fold.h"
#include "support/Log.h"

#include <algorithm>
#include <functional>
#include <unordered_set>

namespace ombrelo {

BillingStore::BillingStore(Database& db, Clock& clock) : db_(db), clock_(clock), log_(Log::get("billing")) {}

BillingRows BillingStore::rows(const std::vector<std::int64_t>& ids) {
    BillingRows rows;
    if (ids.empty()) return rows;
    auto [lowest, highest] = std::minmax_element(ids.begin(), ids.end());
    Statement statement =
        db_.prepare("SELECT activity_id, status, invoice FROM billing WHERE activity_id BETWEEN ? AND ?",
                    {*lowest, *highest});
    while (statement.step()) {
        std::string raw = statement.text(1).value_or("");
        auto status = parseBillingStatus(raw);
        if (!status) {
            log_->warn("Statut de facturation inconnu « {} » pour l'activité {} : compté à facturer", raw,
                       statement.int64(0));
            continue;
        }
        rows.emplace(statement.int64(0), BillingRow{*status, statement.text(2)});
    }
    return rows;
}

BillingStatuses BillingStore::statuses(const ClassifiedList& items) {
    std::vector<std::int64_t> ids;
    ids.reserve(items.size());
    for (const Classified& item : items)
        if (item.project && item.activity.kind != Activity::Kind::idle) ids.push_back(item.activity.id);
    auto stored = rows(ids);
    BillingStatuses statuses;
    statuses.reserve(ids.size());
    for (const Classified& item : items) {
        if (!item.project || item.activity.kind == Activity::Kind::idle) continue;
        BillingStatus status = BillingStatus::toBill;
        if (!item.project->billable) status = BillingStatus::nonBillable;
        else if (auto row = stored.find(item.activity.id); row != stored.end()) status = row->second.status;
        statuses[item.activity.id] = status;
    }
    return statuses;
}

std::vector<std::string> BillingStore::invoices(const std::vector<std::int64_t>& ids) {
    return invoicesOf(ids, rows(ids));
}

bool BillingStore::mark(const std::vector<std::int64_t>& ids, BillingStatus status,
                        const std::optional<std::string>& invoice) {
    std::optional<std::string> reference;
    if (invoice && !trim(*invoice).empty()) reference = std::string(trim(*invoice));
    Instant now = clock_.now();
    return write(
        [&] {
            for (std::int64_t id : ids)
                db_.run("INSERT INTO billing (activity_id, status, invoice, at) VALUES (?, ?, ?, ?) "
                        "ON CONFLICT(activity_id) DO UPDATE SET status = excluded.status, "
                        "invoice = COALESCE(excluded.invoice, billing.invoice), at = excluded.at",
                        {id, std::string(rawValue(status)), sqlText(reference), now});
        },
        "Statut impossible à enregistrer : {}");
}

bool BillingStore::clear(const std::vector<std::int64_t>& ids) {
    return write(
        [&] {
            for (std::int64_t id : ids) db_.run("DELETE FROM billing WHERE activity_id = ?", {id});
        },
        "Statut impossible à annuler : {}");
}

bool BillingStore::write(const std::function<void()>& body, std::string_view failureFormat) {
    try {
        Transaction transaction(db_);
        body();
        transaction.commit();
        writeError_.reset();
        return true;
    } catch (const DatabaseError& error) {
        log_->error(fmt::runtime(failureFormat), error.description());
        writeError_ = error.description();
        return false;
    }
}

} // namespace ombrelo
