// Activity: one stretch of time in one application (with the window title, site
// and document seen there), or a stretch of idle, manual or private time. One row
// of the `activity` table. Its texts are shared: copying an activity copies no
// text.
#pragma once

#include "support/Clock.h"
#include "support/SharedText.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ombrelo {

struct Activity {
    enum class Kind { app, idle, manual, privateTime };

    std::int64_t id = 0;  // 0 until inserted
    Instant start = 0;
    Instant end = 0;
    SharedText bundleID;
    std::string appName;
    SharedText title;
    SharedText domain;
    Kind kind = Kind::app;
    SharedText path;
    SharedText url;
    SharedText device;  // set by the database on insert

    // end − start, never negative.
    double duration() const { return std::max(0.0, end - start); }

    // What lists show: "Privé", "Inactif", else the site, else the application.
    std::string label() const;

    // Same application and details (what a new sample must differ in to open a
    // new row); ids and times are not compared.
    bool sameDetails(const Activity& other) const;

    bool operator==(const Activity&) const = default;
};

std::string_view rawValue(Activity::Kind kind);
// Unknown text reads as `app`.
Activity::Kind kindFromRaw(std::string_view raw);

// Per-application total over a range.
struct AppTotal {
    std::string appName;
    std::optional<std::string> bundleID;
    double seconds = 0;
};

} // namespace ombrelo
