// Billing statuses stored per activity and the totals priced from them.
#include "billing/BillingStore.h"
#include "storage/ActivityStore.h"
#include "support/LocalTime.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

namespace ombrelo {
namespace {

class BillingStoreTest : public ::testing::Test {
protected:
    testing::ScopedTimeZone paris{"Europe/Paris"};
    testing::ScopedLanguage french{"fr"};
    testing::TempDir dir;
    Database db{dir / "billing.sqlite"};
    ActivityStore activities{db};
    ManualClock clock{local::make(2026, 3, 10, 12, 0)};
    BillingStore store{db, clock};
    Instant monday = local::make(2026, 3, 2);

    Project hourly = project(1, 6000, Project::Rounding::quarterHour);

    static Project project(std::int64_t id, std::int64_t rate, Project::Rounding rounding) {
        Project p;
        p.id = id;
        p.name = "P" + std::to_string(id);
        p.rateCents = rate;
        p.rounding = rounding;
        return p;
    }

    // A recorded activity classified onto `p`.
    Classified item(Instant start, double seconds, std::optional<Project> p,
                    Activity::Kind kind = Activity::Kind::app) {
        Classified c;
        c.activity.start = start;
        c.activity.end = start + seconds;
        c.activity.appName = "Xcode";
        c.activity.kind = kind;
        c.activity.id = activities.insert(c.activity);
        if (p) c.project = std::make_shared<const Project>(std::move(*p));
        return c;
    }
    std::optional<std::string> storedInvoice(std::int64_t id) {
        auto rows = store.rows({id});
        return rows.count(id) ? rows.at(id).invoice : std::nullopt;
    }
};

TEST_F(BillingStoreTest, StatusLifeKeepsTheInvoiceUntilReplaced) {
    Classified a = item(monday + 9 * 3600, 3600, hourly);
    ASSERT_TRUE(store.mark({a.activity.id}, BillingStatus::billed, "F-2026-014"));
    ASSERT_TRUE(store.mark({a.activity.id}, BillingStatus::paid, std::nullopt));
    EXPECT_EQ(store.statuses({a}).at(a.activity.id), BillingStatus::paid);
    EXPECT_EQ(storedInvoice(a.activity.id), "F-2026-014");
    ASSERT_TRUE(store.mark({a.activity.id}, BillingStatus::paid, "  "));
    EXPECT_EQ(storedInvoice(a.activity.id), "F-2026-014");
    ASSERT_TRUE(store.mark({a.activity.id}, BillingStatus::billed, "F-2026-015"));
    EXPECT_EQ(storedInvoice(a.activity.id), "F-2026-015");
    auto at = db.dump("billing").front().at("at");
    EXPECT_EQ(std::get<double>(at), clock.now());

    ASSERT_TRUE(store.clear({a.activity.id}));
    EXPECT_EQ(store.statuses({a}).at(a.activity.id), BillingStatus::toBill);
}

TEST_F(BillingStoreTest, StatusesFollowTheProjectNotJustTheRows) {
    Classified billed = item(monday + 9 * 3600, 600, hourly);
    Classified none = item(monday + 10 * 3600, 600, std::nullopt);
    Classified away = item(monday + 11 * 3600, 600, hourly, Activity::Kind::idle);
    ASSERT_TRUE(store.mark({billed.activity.id}, BillingStatus::paid, std::nullopt));

    auto statuses = store.statuses({billed, none, away});
    EXPECT_EQ(statuses.size(), 1u);
    EXPECT_EQ(statuses.at(billed.activity.id), BillingStatus::paid);

    // Made non-billable, the project's time is not billable whatever the rows say;
    // made billable again, the rows count again.
    Project changed = *billed.project;
    changed.billable = false;
    billed.project = std::make_shared<const Project>(changed);
    EXPECT_EQ(store.statuses({billed}).at(billed.activity.id), BillingStatus::nonBillable);
    changed.billable = true;
    billed.project = std::make_shared<const Project>(changed);
    EXPECT_EQ(store.statuses({billed}).at(billed.activity.id), BillingStatus::paid);
}

TEST_F(BillingStoreTest, InvoicesInActivityOrderWithoutRepetition) {
    Classified a = item(monday, 60, hourly), b = item(monday + 60, 60, hourly), c = item(monday + 120, 60, hourly),
               d = item(monday + 180, 60, hourly);
    store.mark({c.activity.id}, BillingStatus::billed, "F-2");
    store.mark({a.activity.id, b.activity.id}, BillingStatus::billed, "F-1");
    store.mark({d.activity.id}, BillingStatus::paid, std::nullopt);
    EXPECT_EQ(store.invoices({d.activity.id, c.activity.id, b.activity.id, a.activity.id}),
              (std::vector<std::string>{"F-1", "F-2"}));
}

TEST_F(BillingStoreTest, FailedMarkWritesNothingAndSaysWhy) {
    Classified a = item(monday, 60, hourly);
    // An id that is no activity breaks the foreign key half way through.
    EXPECT_FALSE(store.mark({a.activity.id, 424242}, BillingStatus::billed, "F-1"));
    ASSERT_TRUE(store.writeError());
    EXPECT_TRUE(db.dump("billing").empty());
    EXPECT_TRUE(store.mark({a.activity.id}, BillingStatus::billed, "F-1"));
    EXPECT_FALSE(store.writeError());
}

TEST_F(BillingStoreTest, TotalsPricePerStatusProjectAndDay) {
    // One day of 40 minutes of which 20 billed: each 20 minutes bills half an
    // hour (30.00) in its status, where together they would bill 45 minutes.
    Instant nine = monday + 9 * 3600;
    Classified toBill = item(nine, 20 * 60, hourly);
    Classified billed = item(nine + 3600, 20 * 60, hourly);
    // The next day: paid 10 minutes → one quarter.
    Classified paid = item(nine + 86400, 600, hourly);
    // A second project the same day is priced on its own.
    Project other = project(2, 10000, Project::Rounding::none);
    Classified otherItem = item(nine + 7200, 1800, other);
    Project internal = project(3, 10000, Project::Rounding::none);
    internal.billable = false;
    Classified internalItem = item(nine + 9000, 3600, internal);
    Classified noProject = item(nine + 12600, 3600, std::nullopt);

    store.mark({billed.activity.id}, BillingStatus::billed, "F-1");
    store.mark({paid.activity.id, internalItem.activity.id}, BillingStatus::paid, std::nullopt);
    std::vector<Classified> items{toBill, billed, paid, otherItem, internalItem, noProject};
    auto totals = BillingTotals::compute(items, store.statuses(items), monday, monday + 7 * 86400);
    EXPECT_EQ(totals.toBillCents, 3000 + 5000);
    EXPECT_EQ(totals.toBillSeconds, 20 * 60 + 1800);
    EXPECT_EQ(totals.billedCents, 3000);
    EXPECT_EQ(totals.paidCents, 1500);

    // Clipped to the first day only.
    auto firstDay = BillingTotals::compute(items, store.statuses(items), monday, monday + 86400);
    EXPECT_EQ(firstDay.paidCents, 0);
    EXPECT_EQ(firstDay.billedCents, 3000);
}

TEST(BillingStatusNames, RawValuesAndLabels) {
    testing::ScopedLanguage french{"fr"};
    for (BillingStatus status :
         {BillingStatus::toBill, BillingStatus::billed, BillingStatus::paid, BillingStatus::nonBillable})
        EXPECT_EQ(parseBillingStatus(rawValue(status)), status);
    EXPECT_EQ(rawValue(BillingStatus::toBill), "tobill");
    EXPECT_EQ(statusLabel(BillingStatus::toBill), "À facturer");
    EXPECT_FALSE(parseBillingStatus("toBill"));
    EXPECT_EQ(parseStatusFilter("toBill"), StatusFilter::toBill);
    EXPECT_TRUE(passes(StatusFilter::all, BillingStatus::nonBillable));
    EXPECT_FALSE(passes(StatusFilter::billed, BillingStatus::paid));
}

} // namespace
} // namespace ombrelo
