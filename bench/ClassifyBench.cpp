// Classification of a synthetic year (250,000 activities) with the default
// catalogue plus 50 user rules (10 regular expressions, 10 with conditions, 10
// with time windows or weekdays, 20 plain) and 20 project rules.
//
// ClassifyYearCold builds a fresh catalogue for every iteration, so every
// distinct activity text is matched again: the cost after a rule change.
// ClassifyYearWarm keeps the catalogue, as a running program does between
// refreshes. Targets (bench/report.py): the cold year under 150 ms, the warm one
// under 80 ms, on one core.
#include "SyntheticYear.h"

#include "classify/Catalog.h"
#include "storage/ActivityStore.h"
#include "support/LocalTime.h"

#include <benchmark/benchmark.h>
#include <unistd.h>

namespace ombrelo::bench {
namespace {

const Instant yearStart = local::make(2025, 1, 1);

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

// The year in a database with the seeded catalogue, the user's rules and
// projects; made once per process.
struct Year {
    std::filesystem::path path = std::filesystem::temp_directory_path() /
                                 ("ombrelo-classify-bench-" + std::to_string(::getpid()) + ".sqlite");
    std::vector<Activity> activities;
    std::vector<Project> projects;

    Year() {
        writeSyntheticYear(path, yearStart);
        Database db(path);
        Catalog catalog(db);
        std::int64_t code = catalog.categories()[0].id, design = catalog.categories()[1].id,
                     admin = catalog.categories()[5].id, writing = catalog.categories()[4].id,
                     meetings = catalog.categories()[3].id;

        const char* clients[] = {"Dupont", "Martin", "Leroy", "Moreau", "Garcia", "Bernard", "Petit", "Roux"};
        for (int i = 0; i < 20; ++i) {
            Project project;
            project.name = std::string(clients[i % 8]) + " " + std::to_string(i);
            project.color = "teal";
            project.id = db.run("INSERT INTO project (name, color) VALUES (?, ?)", {project.name, project.color});
            projects.push_back(project);
        }

        std::vector<Rule> rules;
        // 10 regular expressions.
        const char* regexes[] = {"devis\\s+\\w+\\s+\\d+$", "^facture (dupont|martin)", "bug \\w+ [0-9]{2}",
                                 "r[ée]union", "\\bapi\\b.*3\\d$", "maquette\\s+(leroy|roux)", "^relecture",
                                 "refonte.*\\d{2}", "(?i)GARCIA\\s+1\\d", "petit 2[0-9]"};
        for (int i = 0; i < 10; ++i) rules.push_back(makeRule(Field::title, regexes[i], Op::regex, i % 2 ? admin : writing));
        // 10 with conditions.
        for (int i = 0; i < 10; ++i) {
            Rule rule = makeRule(Field::domain, i % 2 ? "github.com" : "docs.google.com", Op::is, code);
            rule.conditions = {{Field::title, Op::contains, clients[i % 8]}};
            if (i >= 5) rule.conditions.push_back({Field::title, Op::endsWith, std::to_string(i)});
            rules.push_back(rule);
        }
        // 10 with a time window or weekdays (a night window among them).
        for (int i = 0; i < 10; ++i) {
            Rule rule = makeRule(Field::title, std::string("maquette ") + clients[i % 8], Op::startsWith, design);
            if (i % 3 != 2) {
                rule.startMinute = 8 * 60 + 30 * i;
                rule.endMinute = i == 9 ? 2 * 60 : 12 * 60 + 30 * i;
            }
            if (i % 3 != 0) rule.weekdays = {2 + i % 5};
            rules.push_back(rule);
        }
        // 20 plain rules with operators.
        const Op ops[] = {Op::contains, Op::is, Op::startsWith, Op::endsWith};
        for (int i = 0; i < 20; ++i) {
            Field field = i < 8 ? Field::title : i < 12 ? Field::app : i < 16 ? Field::domain : Field::url;
            std::string pattern = field == Field::title    ? std::string("réunion ") + clients[i % 8]
                                  : field == Field::app    ? (i % 2 ? "slack" : "Zoom")
                                  : field == Field::domain ? (i % 2 ? "client-dupont.fr" : ".fr")
                                                           : "https://intranet";
            rules.push_back(makeRule(field, pattern, ops[i % 4], i % 2 ? meetings : admin));
        }
        // 20 project rules.
        for (int i = 0; i < 20; ++i) {
            Field field = i < 12 ? Field::title : i < 16 ? Field::domain : Field::app;
            std::string pattern = field == Field::title    ? clients[i % 8] + std::string(" ") + std::to_string(i)
                                  : field == Field::domain ? (i % 2 ? "client-dupont.fr" : "figma.com")
                                                           : (i % 2 ? "code" : "org.gnome.terminal");
            rules.push_back(makeRule(field, pattern, field == Field::title ? std::optional(Op::endsWith) : std::nullopt,
                                     std::nullopt, projects[i].id));
        }
        for (const Rule& rule : rules)
            if (!catalog.save(rule)) throw std::runtime_error("rule not saved");

        // A few hundred corrections, as a year of use leaves.
        Transaction transaction(db);
        for (std::int64_t id = 1; id <= 250'000; id += 997)
            db.run("INSERT INTO assignment (activity_id, project_id, source) VALUES (?, ?, 'manual')",
                   {id, projects[id % 20].id});
        transaction.commit();

        ActivityStore store(db);
        store.refresh();
        activities = store.activities(yearStart, local::addDays(yearStart, 365));
    }
    ~Year() {
        for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(path.string() + suffix);
    }
};

Year& year() {
    static Year shared;
    return shared;
}

void ClassifyYearCold(benchmark::State& state) {
    Year& data = year();
    Database db(data.path);
    std::unique_ptr<Catalog> catalog;
    for (auto _ : state) {
        state.PauseTiming();
        catalog.reset();
        catalog = std::make_unique<Catalog>(db);
        std::vector<Activity> activities = data.activities;  // as freshly read from the database
        state.ResumeTiming();
        benchmark::DoNotOptimize(catalog->classify(std::move(activities), data.projects));
    }
    state.counters["activities"] = static_cast<double>(data.activities.size());
}
BENCHMARK(ClassifyYearCold)->Unit(benchmark::kMillisecond);

void ClassifyYearWarm(benchmark::State& state) {
    Year& data = year();
    Database db(data.path);
    Catalog catalog(db);
    catalog.classify(data.activities, data.projects);
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<Activity> activities = data.activities;
        state.ResumeTiming();
        benchmark::DoNotOptimize(catalog.classify(std::move(activities), data.projects));
    }
}
BENCHMARK(ClassifyYearWarm)->Unit(benchmark::kMillisecond);

// The rule engine alone over the year (no results built): each activity's
// best category rule from a fresh catalogue.
void MatchYearCold(benchmark::State& state) {
    Year& data = year();
    Database db(data.path);
    std::unique_ptr<Catalog> catalog;
    for (auto _ : state) {
        state.PauseTiming();
        catalog.reset();
        catalog = std::make_unique<Catalog>(db);
        state.ResumeTiming();
        for (const Activity& activity : data.activities) benchmark::DoNotOptimize(catalog->ruleCategory(activity));
    }
}
BENCHMARK(MatchYearCold)->Unit(benchmark::kMillisecond);

void ClassifyMonthCold(benchmark::State& state) {
    Year& data = year();
    Database db(data.path);
    std::vector<Activity> month(data.activities.begin() + 100'000, data.activities.begin() + 120'000);
    std::unique_ptr<Catalog> catalog;
    for (auto _ : state) {
        state.PauseTiming();
        catalog.reset();
        catalog = std::make_unique<Catalog>(db);
        std::vector<Activity> activities = month;
        state.ResumeTiming();
        benchmark::DoNotOptimize(catalog->classify(std::move(activities), data.projects));
    }
}
BENCHMARK(ClassifyMonthCold)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace ombrelo::bench
