// Storage on a synthetic year of 250,000 activities: the reads every view makes
// and the writes of the capture loop. Targets (bench/report.py): a day's rows
// under 0.5 ms, a month's per-application totals under 5 ms.
#include "SyntheticYear.h"

#include "storage/ActivityStore.h"
#include "support/LocalTime.h"

#include <benchmark/benchmark.h>
#include <unistd.h>

namespace ombrelo::bench {
namespace {

const Instant yearStart = local::make(2025, 1, 1);

// One year file per process, made on first use.
struct Year {
    std::filesystem::path path = std::filesystem::temp_directory_path() /
                                 ("ombrelo-bench-" + std::to_string(::getpid()) + ".sqlite");
    Year() { writeSyntheticYear(path, yearStart); }
    ~Year() {
        for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(path.string() + suffix);
    }
};

Year& year() {
    static Year shared;
    return shared;
}

void DayRange(benchmark::State& state) {
    Database db(year().path);
    ActivityStore store(db);
    Instant day = local::make(2025, 6, 11);
    for (auto _ : state) benchmark::DoNotOptimize(store.activities(day, local::addDays(day, 1)));
}
BENCHMARK(DayRange)->Unit(benchmark::kMicrosecond);

void MonthActiveSeconds(benchmark::State& state) {
    Database db(year().path);
    ActivityStore store(db);
    Instant month = local::make(2025, 6, 1);
    for (auto _ : state) benchmark::DoNotOptimize(store.activeSeconds(month, local::addMonths(month, 1)));
}
BENCHMARK(MonthActiveSeconds)->Unit(benchmark::kMillisecond);

void MonthAppTotals(benchmark::State& state) {
    Database db(year().path);
    ActivityStore store(db);
    Instant month = local::make(2025, 6, 1);
    for (auto _ : state) benchmark::DoNotOptimize(store.appTotals(month, local::addMonths(month, 1)));
}
BENCHMARK(MonthAppTotals)->Unit(benchmark::kMillisecond);

void DayFingerprint(benchmark::State& state) {
    Database db(year().path);
    ActivityStore store(db);
    Instant day = local::make(2025, 6, 11);
    for (auto _ : state) benchmark::DoNotOptimize(store.fingerprint(day, local::addDays(day, 1)));
}
BENCHMARK(DayFingerprint)->Unit(benchmark::kMicrosecond);

// What each sample of the capture loop writes: a new row now and then, its end
// every five seconds.
void CaptureInsertAndUpdateEnd(benchmark::State& state) {
    Database db(year().path);
    ActivityStore store(db);
    Activity a;
    a.appName = "Terminal";
    a.bundleID = "org.gnome.terminal";
    a.start = local::make(2026, 1, 5, 9);
    a.end = a.start;
    for (auto _ : state) {
        std::int64_t id = store.insert(a);
        store.updateEnd(id, a.start + 5);
        state.PauseTiming();
        store.remove(id);
        state.ResumeTiming();
    }
}
BENCHMARK(CaptureInsertAndUpdateEnd)->Unit(benchmark::kMicrosecond);

void CreateAndMigrate(benchmark::State& state) {
    auto path = std::filesystem::temp_directory_path() / ("ombrelo-new-" + std::to_string(::getpid()) + ".sqlite");
    for (auto _ : state) {
        { Database db(path); }
        state.PauseTiming();
        for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(path.string() + suffix);
        state.ResumeTiming();
    }
}
BENCHMARK(CreateAndMigrate)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace ombrelo::bench
