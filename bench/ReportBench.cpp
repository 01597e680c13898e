// Reports on the synthetic year: a client's month statement built and written
// as XLSX, cold (right after a rule change: nothing memoised, nothing cached)
// and warm; a year's timesheet as CSV and statement as XLSX for every client.
//
// Targets (bench/report.py): the month's statement under 60 ms cold; a year's
// export of any format under 1 s.
#include "PricedYear.h"

#include "billing/BillingStore.h"
#include "reports/ReportQuery.h"
#include "reports/TableExport.h"

#include <benchmark/benchmark.h>

namespace ombrelo::bench {
namespace {

// The report's file, from the workspace on.
std::size_t exportReport(Model& model, Instant from, Instant to, std::optional<Client> client,
                         ReportTemplate reportTemplate, bool workbook) {
    BillingStore billing(model.db, model.clock);
    Holidays holidays(HolidayCountry::france);
    ReportFormat format("fr_FR", "EUR");
    BuiltReport built = buildReport({from, to, std::move(client)}, *model.workspace, model.projects, billing, holidays);
    ReportTable table = built.table(reportTemplate, format);
    return workbook ? TableExport::xlsx(table, DurationStyle::decimal, format).size()
                    : TableExport::csv(table, DurationStyle::decimal, format).size();
}

void MonthStatementXLSXCold(benchmark::State& state) {
    Model model;
    std::size_t bytes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        model.cool();
        state.ResumeTiming();
        bytes = exportReport(model, june, local::addMonths(june, 1), model.projects.clients().front(),
                             ReportTemplate::statement, true);
    }
    state.counters["bytes"] = static_cast<double>(bytes);
}
BENCHMARK(MonthStatementXLSXCold)->Unit(benchmark::kMillisecond);

void MonthStatementXLSXWarm(benchmark::State& state) {
    Model model;
    Client client = model.projects.clients().front();
    exportReport(model, june, local::addMonths(june, 1), client, ReportTemplate::statement, true);
    for (auto _ : state)
        benchmark::DoNotOptimize(
            exportReport(model, june, local::addMonths(june, 1), client, ReportTemplate::statement, true));
}
BENCHMARK(MonthStatementXLSXWarm)->Unit(benchmark::kMillisecond);

void YearTimesheetCSVCold(benchmark::State& state) {
    Model model;
    std::size_t bytes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        model.cool();
        state.ResumeTiming();
        bytes = exportReport(model, yearStart, local::addMonths(yearStart, 12), std::nullopt,
                             ReportTemplate::timesheet, false);
    }
    state.counters["bytes"] = static_cast<double>(bytes);
}
BENCHMARK(YearTimesheetCSVCold)->Unit(benchmark::kMillisecond);

void YearStatementXLSXCold(benchmark::State& state) {
    Model model;
    std::size_t bytes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        model.cool();
        state.ResumeTiming();
        bytes = exportReport(model, yearStart, local::addMonths(yearStart, 12), std::nullopt,
                             ReportTemplate::statement, true);
    }
    state.counters["bytes"] = static_cast<double>(bytes);
}
BENCHMARK(YearStatementXLSXCold)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace ombrelo::bench
