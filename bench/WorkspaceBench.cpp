// The classified workspace, blocks, totals and billing on a synthetic year of
// 250,000 activities, with the default catalogue plus 50 user rules and 20
// project rules, 20 priced projects and a year of billing marks.
//
// Targets (bench/report.py): a whole month of items cold under 30 ms and warm
// (every day served from the day cache) under 1 ms; a whole year cold under
// 300 ms. "Cold" is the state after a rule change: a new catalogue (its match
// memo empty) and an empty day cache.
#include "SyntheticYear.h"

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

const Instant yearStart = local::make(2025, 1, 1);
const Instant june = local::make(2025, 6, 1);

using Field = Rule::Field;
using Op = Rule::Operator;

Rule makeRule(Field field, std::string pattern, std::optional<Op> op, std::optional<std::int64_t> category,
              std::optional<std::int64_t> project = std::nullopt) {
    Rule rule;
    rule.field = field;
    rule.pattern = std::move(pattern);
    rule.op = op;
    rule.categoryID = category;
    rule.projectID = project;
    return rule;
}

// 50 user rules (10 regular expressions, 10 with conditions, 10 with windows or
// weekdays, 20 plain) and one rule per project.
void addRules(Catalog& catalog, const std::vector<std::int64_t>& projects) {
    const auto& categories = catalog.categories();
    std::int64_t code = categories[0].id, design = categories[1].id, meetings = categories[3].id,
                 writing = categories[4].id, admin = categories[5].id;
    const char* clients[] = {"Dupont", "Martin", "Leroy", "Moreau", "Garcia", "Bernard", "Petit", "Roux"};
    const char* regexes[] = {"devis\\s+\\w+\\s+\\d+$", "^facture (dupont|martin)", "bug \\w+ [0-9]{2}", "r[ée]union",
                             "\\bapi\\b.*3\\d$", "maquette\\s+(leroy|roux)", "^relecture", "refonte.*\\d{2}",
                             "(?i)GARCIA\\s+1\\d", "petit 2[0-9]"};
    std::vector<Rule> rules;
    for (int i = 0; i < 10; ++i) rules.push_back(makeRule(Field::title, regexes[i], Op::regex, i % 2 ? admin : writing));
    for (int i = 0; i < 10; ++i) {
        Rule rule = makeRule(Field::domain, i % 2 ? "github.com" : "docs.google.com", Op::is, code);
        rule.conditions = {{Field::title, Op::contains, clients[i % 8]}};
        rules.push_back(rule);
    }
    for (int i = 0; i < 10; ++i) {
        Rule rule = makeRule(Field::title, std::string("maquette ") + clients[i % 8], Op::startsWith, design);
        rule.startMinute = 8 * 60 + 30 * i;
        rule.endMinute = i == 9 ? 2 * 60 : 12 * 60 + 30 * i;
        if (i % 2) rule.weekdays = {2 + i % 5};
        rules.push_back(rule);
    }
    const Op ops[] = {Op::contains, Op::is, Op::startsWith, Op::endsWith};
    for (int i = 0; i < 20; ++i) {
        Field field = i < 8 ? Field::title : i < 12 ? Field::app : i < 16 ? Field::domain : Field::url;
        std::string pattern = field == Field::title    ? std::string("réunion ") + clients[i % 8]
                              : field == Field::app    ? (i % 2 ? "slack" : "Zoom")
                              : field == Field::domain ? (i % 2 ? "client-dupont.fr" : ".fr")
                                                       : "https://intranet";
        rules.push_back(makeRule(field, pattern, ops[i % 4], i % 2 ? meetings : admin));
    }
    for (std::size_t i = 0; i < projects.size(); ++i) {
        Field field = i < 12 ? Field::title : i < 16 ? Field::domain : Field::app;
        std::string pattern = field == Field::title    ? clients[i % 8] + std::string(" ") + std::to_string(i)
                              : field == Field::domain ? (i % 2 ? "client-dupont.fr" : "figma.com")
                                                       : (i % 2 ? "code" : "org.gnome.terminal");
        rules.push_back(makeRule(field, pattern, field == Field::title ? std::optional(Op::endsWith) : std::nullopt,
                                 std::nullopt, projects[i]));
    }
    for (const Rule& rule : rules)
        if (!catalog.save(rule)) throw std::runtime_error("rule not saved");
}

// The year in a database with its catalogue, 20 priced projects (hourly and
// daily rates, every rounding, two not billable) and a year of billing marks:
// made once per process.
struct Year {
    std::filesystem::path dir = std::filesystem::temp_directory_path() /
                                ("ombrelo-workspace-bench-" + std::to_string(::getpid()));
    std::filesystem::path path = dir / "ombrelo.sqlite";

    Year() {
        std::filesystem::create_directories(dir);
        writeSyntheticYear(path, yearStart);
        Database db(path);
        Catalog catalog(db);
        const Project::Rounding roundings[] = {Project::Rounding::none, Project::Rounding::quarterHour,
                                               Project::Rounding::halfHour, Project::Rounding::halfDay,
                                               Project::Rounding::day};
        std::vector<std::int64_t> projects;
        for (int i = 0; i < 20; ++i)
            projects.push_back(db.run(
                "INSERT INTO project (name, color, billable, rate_kind, rate_cents, rounding) VALUES (?, 'teal', ?, ?, ?, ?)",
                {"Projet " + std::to_string(i), std::int64_t{i % 10 != 9}, std::string(i % 3 ? "hour" : "day"),
                 std::int64_t{i % 3 ? 6000 + 500 * i : 50000 + 1000 * i}, std::string(roundingName(roundings[i % 5]))}));
        addRules(catalog, projects);

        Transaction transaction(db);
        for (std::int64_t id = 1; id <= 250'000; id += 997)
            db.run("INSERT INTO assignment (activity_id, project_id, source) VALUES (?, ?, 'manual')",
                   {id, projects[id % 20]});
        // The first eight months billed, the first five of them paid.
        std::int64_t billed = 250'000 * 8 / 12, paid = 250'000 * 5 / 12;
        for (std::int64_t id = 1; id <= billed; ++id)
            db.run("INSERT INTO billing (activity_id, status, invoice, at) VALUES (?, ?, ?, 0)",
                   {id, std::string(id <= paid ? "paid" : "billed"), "F-" + std::to_string(id / 20'000)});
        transaction.commit();
    }
    ~Year() { std::filesystem::remove_all(dir); }
};

Year& year() {
    static Year shared;
    return shared;
}

// A program's state over the year: the stores and a workspace, "now" in 2026.
struct Model {
    Database db{year().path};
    Preferences preferences{year().dir / "settings.json"};
    ManualClock clock{local::make(2026, 1, 15, 12, 0)};
    ActivityStore store{db};
    std::unique_ptr<Catalog> catalog = std::make_unique<Catalog>(db);
    ProjectStore projects{db, preferences, clock};
    std::unique_ptr<Workspace> workspace = std::make_unique<Workspace>(&store, *catalog, projects, clock);

    Model() { store.refresh(); }
    // The state after a rule change: nothing memoised, nothing cached.
    void cool() {
        workspace.reset();
        catalog = std::make_unique<Catalog>(db);
        workspace = std::make_unique<Workspace>(&store, *catalog, projects, clock);
    }
};

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
