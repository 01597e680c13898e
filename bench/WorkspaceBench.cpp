// The classified workspace, blocks, totals and billing on a synthetic year of
// 250,000 activities, with the default catalogue plus 50 user rules and 20
// project rules, 20 priced projects and a year of billing marks.
//
// Targets (bench/report.py): a whole month of items cold under 30 ms and warm
// (every day served from the day cache) under 1 ms; a whole year cold under
// 300 ms. "Cold" is the state after a rule change: a new catalogue (its match
// memo empty) and an empty day cache.
#include "PricedYear.h"

#include "billing/BillingStore.h"
#include "billing/ProjectStore.h"
#include "classify/Catalog.h"
#include "classify/Insights.h"
#include "classify/Workspace.h"
#include "storage/ActivityStore.h"
#include "support/LocalTime.h"

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <map>
#include <memory>

namespace ombrelo::bench {
namespace {

void MonthItemsCold(benchmark::State& state) {
    Model model;
    std::size_t count = 0;
    for (auto _ : state) {
        state.PauseTiming();
        model.cool();
        state.ResumeTiming();
        count = model.workspace->items(june, local::addMonths(june, 1)).size();
    }
    state.counters["items"] = static_cast<double>(count);
}
BENCHMARK(MonthItemsCold)->Unit(benchmark::kMillisecond);

// A new workspace with the catalogue's memo warm: a program's first read.
void MonthItemsFirstRead(benchmark::State& state) {
    Model model;
    model.workspace->items(june, local::addMonths(june, 1));
    for (auto _ : state) {
        state.PauseTiming();
        model.workspace = std::make_unique<Workspace>(&model.store, *model.catalog, model.projects, model.clock);
        state.ResumeTiming();
        benchmark::DoNotOptimize(model.workspace->items(june, local::addMonths(june, 1)));
    }
}
BENCHMARK(MonthItemsFirstRead)->Unit(benchmark::kMillisecond);

void MonthItemsWarm(benchmark::State& state) {
    Model model;
    model.workspace->items(june, local::addMonths(june, 1));
    std::size_t computed = model.workspace->daysComputed();
    for (auto _ : state) benchmark::DoNotOptimize(model.workspace->items(june, local::addMonths(june, 1)));
    if (model.workspace->daysComputed() != computed) state.SkipWithError("a warm read recomputed a day");
}
BENCHMARK(MonthItemsWarm)->Unit(benchmark::kMillisecond);

void YearItemsCold(benchmark::State& state) {
    Model model;
    for (auto _ : state) {
        state.PauseTiming();
        model.cool();
        state.ResumeTiming();
        benchmark::DoNotOptimize(model.workspace->items(yearStart, local::addDays(yearStart, 365)));
    }
}
BENCHMARK(YearItemsCold)->Unit(benchmark::kMillisecond);

void YearSummary(benchmark::State& state) {
    Model model;
    ClassifiedList items = model.workspace->items(yearStart, local::addDays(yearStart, 365));
    for (auto _ : state) benchmark::DoNotOptimize(Insights::summary(items));
    state.counters["items"] = static_cast<double>(items.size());
}
BENCHMARK(YearSummary)->Unit(benchmark::kMillisecond);

void BusyDayBlocks(benchmark::State& state) {
    Model model;
    ClassifiedList items = model.workspace->items(yearStart, local::addDays(yearStart, 365));
    std::map<Instant, std::vector<Classified>> days;
    for (const Classified& item : items) days[local::startOfDay(item.activity.start)].push_back(item);
    const std::vector<Classified>* busiest = &days.begin()->second;
    for (const auto& [day, dayItems] : days)
        if (dayItems.size() > busiest->size()) busiest = &dayItems;
    for (auto _ : state) benchmark::DoNotOptimize(Insights::blocks(*busiest));
    state.counters["items"] = static_cast<double>(busiest->size());
}
BENCHMARK(BusyDayBlocks)->Unit(benchmark::kMicrosecond);

// Statuses (one read of the billing table) and totals over the year's items.
void YearBillingTotals(benchmark::State& state) {
    Model model;
    BillingStore billing(model.db, model.clock);
    Instant end = local::addDays(yearStart, 365);
    ClassifiedList items = model.workspace->items(yearStart, end);
    BillingTotals totals;
    for (auto _ : state) totals = BillingTotals::compute(items, billing.statuses(items), yearStart, end);
    state.counters["toBillEUR"] = static_cast<double>(totals.toBillCents) / 100;
    state.counters["paidEUR"] = static_cast<double>(totals.paidCents) / 100;
}
BENCHMARK(YearBillingTotals)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace ombrelo::bench
