// DayPricing: billable time gathered per project and calendar day, then priced
// one day at a time with the project's own rate and rounding, because billing is
// never rounded per activity nor across days (two 10-minute stretches on two days
// at quarter-hour rounding bill two quarters; on one day, one quarter).
//
// A bucket is (group, project, day); the group lets one pass keep several
// separate sums, such as one per billing status. DayCursor finds the calendar day
// of an instant cheaply for instants that come in (roughly) chronological order.
//
// Plain values; one instance per computation, on the caller's thread.
#pragma once

#include "billing/Project.h"
#include "support/Clock.h"

#include <cstdint>
#include <unordered_map>
#include <vector>

namespace ombrelo {

// The start of the local calendar day of an instant, remembering the last day
// found so that consecutive instants of one day cost a comparison, not a
// time-zone conversion.
class DayCursor {
public:
    Instant startOf(Instant t);

private:
    Instant start_ = 0;
    Instant next_ = 0;  // next_ ≤ start_ means nothing is remembered
};

class DayPricing {
public:
    struct Day {
        int group = 0;
        const Project* project = nullptr;  // the project as first added
        Instant day = 0;                   // start of the calendar day
        double seconds = 0;
        std::int64_t cents = 0;            // Project::amountCents(seconds)
    };

    // Adds `seconds` of `project` time to (group, project, day). Time of a
    // non-billable project may be added; it prices at 0.
    void add(int group, const Project& project, Instant day, double seconds);

    // Every bucket with its price, in no particular order.
    std::vector<Day> priced() const;

private:
    struct Key {
        int group;
        std::int64_t project;
        Instant day;
        bool operator==(const Key&) const = default;
    };
    struct KeyHash {
        std::size_t operator()(const Key& key) const;
    };

    std::unordered_map<std::int64_t, Project> projects_;
    std::unordered_map<Key, double, KeyHash> seconds_;
};

} // namespace ombrelo
