// Synthetic history for benchmarks: a year of a freelancer's activities drawn
// from a few thousand distinct application / title / site combinations, on
// working days, with lunch breaks and idle stretches.
#pragma once

#include "storage/Activity.h"
#include "storage/Database.h"

#include <filesystem>
#include <vector>

namespace ombrelo::bench {

// `count` activities spread over the 365 days from `yearStart` (local midnight),
// in chronological order, reproducible for a given seed.
std::vector<Activity> syntheticYear(Instant yearStart, int count = 250'000, unsigned seed = 42);

// A database file at `path` holding syntheticYear(...), written in one transaction.
void writeSyntheticYear(const std::filesystem::path& path, Instant yearStart, int count = 250'000);

} // namespace ombrelo::bench
