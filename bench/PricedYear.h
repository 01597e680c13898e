// The synthetic year the workspace and report benchmarks share: 250,000
// activities of 2025 in a database with the default catalogue plus 50 user rules
// and 20 project rules, 8 clients, 20 priced projects (hourly and daily rates,
// every rounding, two not billable) and the first eight months billed.
#pragma once

#include "SyntheticYear.h"

#include "billing/ProjectStore.h"
#include "classify/Catalog.h"
#include "classify/Workspace.h"
#include "storage/ActivityStore.h"
#include "support/LocalTime.h"
#include "support/Preferences.h"

#include <filesystem>
#include <memory>
#include <string>
#include <unistd.h>

namespace ombrelo::bench {

inline const Instant yearStart = local::make(2025, 1, 1);
inline const Instant june = local::make(2025, 6, 1);

// The year in a database with its catalogue, 20 priced projects (hourly and
// daily rates, every rounding, two not billable) and a year of billing marks:
// made once per process.
struct Year {
    std::filesystem::path dir = std::filesystem::temp_directory_path() /
                                ("ombrelo-workspace-bench-" + std::to_string(::getpid()));
    std::filesystem::path path = dir / "ombrelo.sqlite";

    Year();
    ~Year() { std::filesystem::remove_all(dir); }
};

// Made once per process.
Year& year();

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

} // namespace ombrelo::bench
