#include "testing/BillingInvariant.h"

#include "billing/BillingStore.h"
#include "billing/BillingTotals.h"
#include "billing/ProjectStore.h"
#include "classify/Catalog.h"
#include "classify/Workspace.h"
#include "storage/ActivityStore.h"
#include "support/LocalTime.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

namespace ombrelo::testing {

namespace {

BillingTotals totalsOf(Workspace& workspace, BillingStore& billing, Instant from, Instant to) {
    ClassifiedList items = workspace.items(from, to);
    return BillingTotals::compute(items, billing.statuses(items), from, to);
}

} // namespace

void expectBillingAddsUp(const std::filesystem::path& database) {
    TempDir settings;
    Database db{database};
    ActivityStore store{db};
    Catalog catalog{db};
    Preferences preferences{settings / "settings.json"};
    ProjectStore projects{db, preferences};
    Workspace workspace{&store, catalog, projects};
    BillingStore billing{db};
    std::optional<Instant> first = store.firstStart();
    std::optional<std::int64_t> lastEnd = db.queryInt("SELECT CAST(MAX(end) AS INTEGER) + 1 FROM activity");
    if (!first || !lastEnd) return;

    Instant from = local::startOfDay(*first), to = local::addDays(local::startOfDay(double(*lastEnd)), 1);
    BillingTotals whole = totalsOf(workspace, billing, from, to), days;
    for (Instant day = from; day < to; day = local::addDays(day, 1)) {
        BillingTotals one = totalsOf(workspace, billing, day, local::addDays(day, 1));
        days.toBillCents += one.toBillCents;
        days.billedCents += one.billedCents;
        days.paidCents += one.paidCents;
    }
    EXPECT_EQ(whole.toBillCents, days.toBillCents) << "to bill, " << local::formatDay(from) << " to "
                                                   << local::formatDay(to);
    EXPECT_EQ(whole.billedCents, days.billedCents) << "billed";
    EXPECT_EQ(whole.paidCents, days.paidCents) << "paid";
}

} // namespace ombrelo::testing
