// Block: consecutive classified activities doing the same work, shown on the day
// timeline and dragged onto a project as one. Built by Insights::blocks; a plain
// value.
#pragma once

#include "classify/Classified.h"
#include "classify/Totals.h"
#include "support/Clock.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ombrelo {

struct Block {
    std::vector<Classified> items;  // never empty, chronological

    std::vector<std::int64_t> activityIDs() const;
    Instant start() const { return items.front().activity.start; }
    Instant end() const { return items.back().activity.end; }
    // Sum of the items' durations (gaps between them are not counted).
    double seconds() const;
    // An absence: the first activity is idle.
    bool idle() const { return items.front().activity.kind == Activity::Kind::idle; }

    // The block's work is its first item's (the others share it, or are short
    // interruptions absorbed into it).
    const std::shared_ptr<const Project>& project() const { return items.front().project; }
    const std::shared_ptr<const Category>& category() const { return items.front().category; }
    // The first note of the block, if any.
    SharedText note() const;
    // True when any of its time was assigned to its project by hand.
    bool manual() const;

    // Seconds per label (Activity::label: the site, else the application, or
    // "Privé"/"Inactif"), largest first, equal ones in order of appearance.
    std::vector<LabelTotal> labels() const;
    // What the block is about: the window title of its longest titled item,
    // else its largest label.
    std::string title() const;
};

} // namespace ombrelo
