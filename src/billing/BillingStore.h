// BillingStore: the billing status of each activity (to bill, billed with an
// invoice reference, paid), kept in the `billing` table, and the status every
// classified activity of a period is in.
//
// Time of a billable project is to bill until marked otherwise; marking it billed
// or paid stores a row, clearing removes the row and the time is to bill again.
// A project made non-billable shows its time as not billable whatever its rows
// say, and the rows count again once it is billable again.
//
// Writes never throw: a failed write is rolled back, logged (logger "billing")
// and reported through the return value and writeError(). Reads throw
// DatabaseError. Main loop thread only.
#pragma once

#include "billing/BillingTotals.h"
#include "classify/Classified.h"
#include "storage/Database.h"
#include "support/Clock.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <spdlog/logger.h>
#include <string>
#include <unordered_map>
#include <vector>

namespace ombrelo {

class BillingStore {
public:
    explicit BillingStore(Database& db, Clock& clock = Clock::system());

    // The stored rows of the id range of `ids` (smallest to largest), by
    // activity id; rows whose status is not a known raw value are left out (and
    // logged), so that time reads as to bill. Throws DatabaseError.
    BillingRows rows(const std::vector<std::int64_t>& ids);

    // The status of each classified activity: none for idle time and time
    // without project; "nonbillable" for a project that is not billable; else
    // the stored status, or "tobill" without a row. Throws DatabaseError.
    BillingStatuses statuses(const ClassifiedList& items);

    // The non-empty invoice references of the activities, by ascending activity
    // id, each once, in order of first appearance. Throws DatabaseError.
    std::vector<std::string> invoices(const std::vector<std::int64_t>& ids);

    // Stores `status` for each id in one transaction, stamped now. Without an
    // invoice (or with a blank one) a stored invoice is kept. Returns false
    // (nothing written) on failure.
    bool mark(const std::vector<std::int64_t>& ids, BillingStatus status, const std::optional<std::string>& invoice);
    // Removes the rows of the ids in one transaction: their time is to bill
    // again. Returns false (nothing removed) on failure.
    bool clear(const std::vector<std::int64_t>& ids);

    // The description of the last failed write; cleared by a successful one.
    const std::optional<std::string>& writeError() const { return writeError_; }

private:
    bool write(const std::function<void()>& body, std::string_view failureFormat);

    Database& db_;
    Clock& clock_;
    std::shared_ptr<spdlog::logger> log_;
    std::optional<std::string> writeError_;
};

} // namespace ombrelo
