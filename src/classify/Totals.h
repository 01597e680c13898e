// Totals of classified time: what a period adds up to overall, per project,
// category, label, application, site and document, and per day. Values computed
// by Insights (classify/Insights.h) and never stored.
#pragma once

#include "billing/Project.h"
#include "classify/Category.h"
#include "support/Clock.h"
#include "support/SharedText.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ombrelo {

struct ProjectTotal {
    std::shared_ptr<const Project> project;  // none: time without project
    double seconds = 0;
    std::int64_t amountCents = 0;  // the project's days priced one by one
};

struct CategoryTotal {
    std::shared_ptr<const Category> category;  // none: uncategorised time
    double seconds = 0;
};

struct LabelTotal {
    std::string label;
    SharedText bundleID;  // to show the application's icon
    double seconds = 0;
};

struct DayTotal {
    Instant day = 0;  // start of the calendar day
    double active = 0;
    double billable = 0;
    std::int64_t amountCents = 0;

    bool operator==(const DayTotal&) const = default;
};

// The totals of a period. Every list is sorted by decreasing seconds, equal
// totals in order of first appearance.
struct Summary {
    double active = 0;    // every non-idle second
    double billable = 0;  // seconds of billable projects
    std::int64_t amountCents = 0;
    std::vector<ProjectTotal> byProject;
    std::vector<CategoryTotal> byCategory;
    std::vector<LabelTotal> byLabel;     // "Privé", else the site, else the application
    std::vector<LabelTotal> byApp;       // by application name
    std::vector<LabelTotal> byDomain;    // time on a site
    std::vector<LabelTotal> byDocument;  // by file or folder name
    double distraction = 0;              // seconds in distraction categories

    // Seconds of time without project.
    double unassigned() const;
};

} // namespace ombrelo
