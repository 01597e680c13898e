// TimeQueries: the reads of tracked time that agents and the command line share:
// the summary of a period, the blocks of a day and a text search, each as a
// typed report (for people) and as the JSON result the agent tools return (keys,
// units, rounding, labels and language exactly as agents expect them).
//
// Conventions of the JSON results: durations are whole minutes, seconds / 60
// truncated, except the timeline's, rounded to the nearest minute; amounts are
// cents / 100 in the user's currency under keys ending in "_eur"; days are
// "YYYY-MM-DD" and clock times "HH:MM", local; absent values are null. Texts
// (project labels for time without project, the uncategorised label, error
// messages) follow the interface language.
//
// Bad arguments raise ToolError with the message an agent (or a person) is shown.
// Lives on the main loop's thread with the workspace it reads.
#pragma once

#include "billing/ProjectStore.h"
#include "classify/Block.h"
#include "classify/Totals.h"
#include "classify/Workspace.h"
#include "support/Clock.h"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace ombrelo {

// A tool's failure: `message` is shown to the agent as is.
class ToolError : public std::runtime_error {
public:
    explicit ToolError(const std::string& text) : std::runtime_error(text), message(text) {}
    const std::string message;
};

// A half-open period of local calendar days.
struct Period {
    Instant start = 0;
    Instant end = 0;  // exclusive
};

// "YYYY-MM-DD" → start of that local day. Throws ToolError "Date invalide : …".
Instant parseDay(std::string_view text);
// "YYYY-MM-DDTHH:MM" in local time. Throws ToolError "Date et heure invalides : …".
Instant parseDateTime(std::string_view text);

// The period an agent asks for: with a "from" string, from that day through the
// "to" day included (days in either order; without "to", through today, or just
// the "from" day when it lies ahead); else "period" (default "today"): "today",
// "yesterday", "week" (the calendar week containing today, by Format's first
// weekday), "last_week" (the week containing the day 7 days ago), "month",
// "last_month". Throws ToolError for a bad day or an unknown period.
Period period(const nlohmann::json& arguments, Instant now);

struct SummaryReport {
    Period period;
    Summary summary;
};

struct TimelineReport {
    Instant day = 0;  // start of the day
    std::vector<Block> blocks;
};

struct SearchMatch {
    std::string title;  // the window title, else the site or application
    std::string app;
    double seconds = 0;
    std::shared_ptr<const Project> project;
    std::vector<std::int64_t> activityIDs;  // the activities grouped here, newest first
};

struct SearchReport {
    std::string query;  // trimmed
    // The window searched, in days: back from now, or the whole days of a
    // "from"/"to" period when one is given.
    int days = 30;
    double seconds = 0;
    std::vector<std::int64_t> activityIDs;  // the matching activities counted, newest first
    std::vector<SearchMatch> matches;       // grouped, largest first, at most maxMatches
    // Every match of the window. A search counts only the newest
    // Workspace::searchLimit of them; past that, the totals above are short.
    std::size_t matchedActivities = 0;
    std::optional<Instant> countedFrom;  // when cut: the start of the oldest activity counted

    bool cut() const { return matchedActivities > activityIDs.size(); }
};

class TimeQueries {
public:
    static constexpr std::size_t maxMatches = 30;
    static constexpr int defaultSearchDays = 30;
    // Beyond a century the window is the century.
    static constexpr int maxSearchDays = 36'500;

    TimeQueries(Workspace& workspace, ProjectStore& projects, Clock& clock = Clock::system());

    // The typed reports; throw ToolError on bad arguments.
    SummaryReport summary(const nlohmann::json& arguments);
    TimelineReport timeline(const nlohmann::json& arguments);
    SearchReport search(const nlohmann::json& arguments);

    // The agent tools' results.
    nlohmann::json toJSON(const SummaryReport& report) const;
    nlohmann::json toJSON(const TimelineReport& report) const;
    nlohmann::json toJSON(const SearchReport& report) const;

    nlohmann::json getSummary(const nlohmann::json& arguments) { return toJSON(summary(arguments)); }
    nlohmann::json getTimeline(const nlohmann::json& arguments) { return toJSON(timeline(arguments)); }
    nlohmann::json searchActivity(const nlohmann::json& arguments) { return toJSON(search(arguments)); }

private:
    nlohmann::json label(const std::shared_ptr<const Project>& project) const;

    Workspace& workspace_;
    ProjectStore& projects_;
    Clock& clock_;
};

// Amounts in agent results: cents / 100, in the user's currency.
double euros(std::int64_t cents);
// Whole minutes of agent results: seconds / 60 truncated toward zero.
std::int64_t wholeMinutes(double seconds);
// Minutes rounded to the nearest, halves away from zero.
std::int64_t roundedMinutes(double seconds);
// The text an agent sees for an activity kind: "app", "idle", "manual", "private".
std::string_view kindName(Activity::Kind kind);

} // namespace ombrelo
