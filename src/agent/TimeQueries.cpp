#include "agent/TimeQueries.h"

#include "classify/Insights.h"
#include "reports/Format.h"
#include "reports/Report.h"
#include "support/Fold.h"
#include "support/L10n.h"
#include "support/LocalTime.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

namespace ombrelo {

using nlohmann::json;

namespace {

json nullable(const std::optional<std::string>& text) { return text ? json(*text) : json(nullptr); }

// Now minus `days` calendar days, at the same local time.
Instant daysBefore(Instant now, int days) {
    local::DateParts at = local::parts(now);
    return local::make(at.year, at.month, at.day - days, at.hour, at.minute, at.second) + (now - std::floor(now));
}

} // namespace

double euros(std::int64_t cents) { return static_cast<double>(cents) / 100.0; }

std::int64_t wholeMinutes(double seconds) {
    if (!std::isfinite(seconds)) return 0;
    return static_cast<std::int64_t>(std::trunc(seconds / 60));
}

std::int64_t roundedMinutes(double seconds) {
    if (!std::isfinite(seconds)) return 0;
    return std::llround(seconds / 60);
}

std::string_view kindName(Activity::Kind kind) {
    switch (kind) {
    case Activity::Kind::app: return "app";
    case Activity::Kind::idle: return "idle";
    case Activity::Kind::manual: return "manual";
    case Activity::Kind::privateTime: return "private";
    }
    return "app";
}

Instant parseDay(std::string_view text) {
    if (auto day = local::parseDay(text)) return *day;
    throw ToolError(std::string(L10n::text("Date invalide : ", "Invalid date: ")) + std::string(text) +
                    std::string(L10n::text(" (AAAA-MM-JJ)", " (YYYY-MM-DD)")));
}

Instant parseDateTime(std::string_view text) {
    if (text.size() == 16)
        if (auto instant = local::parseDateTime(text)) return *instant;
    throw ToolError(std::string(L10n::text("Date et heure invalides : ", "Invalid date and time: ")) +
                    std::string(text) + std::string(L10n::text(" (AAAA-MM-JJTHH:MM)", " (YYYY-MM-DDTHH:MM)")));
}

Period period(const json& arguments, Instant now) {
    Instant today = local::startOfDay(now);
    auto text = [&](const char* key) -> std::optional<std::string> {
        auto found = arguments.find(key);
        if (found == arguments.end() || !found->is_string()) return std::nullopt;
        return found->get<std::string>();
    };

    if (auto from = text("from")) {
        Instant first = parseDay(*from);
        Instant last = first >= today ? first : today;
        if (auto to = text("to")) last = parseDay(*to);
        if (last < first) std::swap(first, last);
        return {first, local::addDays(last, 1)};
    }

    std::string name = text("period").value_or("today");
    if (name == "today") return {today, local::addDays(today, 1)};
    if (name == "yesterday") return {local::addDays(today, -1), today};
    static const std::pair<std::string_view, ReportPeriod> reportPeriods[] = {{"week", ReportPeriod::thisWeek},
                                                                              {"last_week", ReportPeriod::lastWeek},
                                                                              {"month", ReportPeriod::thisMonth},
                                                                              {"last_month", ReportPeriod::lastMonth}};
    for (const auto& [raw, reportPeriod] : reportPeriods)
        if (name == raw) {
            ReportInterval range = interval(reportPeriod, now);
            return {range.start, range.end};
        }
    throw ToolError(std::string(L10n::text("Période inconnue : ", "Unknown period: ")) + name);
}

TimeQueries::TimeQueries(Workspace& workspace, ProjectStore& projects, Clock& clock)
    : workspace_(workspace), projects_(projects), clock_(clock) {}

SummaryReport TimeQueries::summary(const json& arguments) {
    Period range = period(arguments, clock_.now());
    SummaryBuilder totals;
    workspace_.eachDay(range.start, range.end, [&](const ClassifiedList::Run& day) {
        for (const Classified& item : *day) totals.add(item);
    });
    return {range, std::move(totals).take()};
}

TimelineReport TimeQueries::timeline(const json& arguments) {
    Instant day = local::startOfDay(clock_.now());
    if (auto date = arguments.find("date"); date != arguments.end() && date->is_string())
        day = parseDay(date->get<std::string>());
    return {day, Insights::blocks(workspace_.day(day))};
}

SearchReport TimeQueries::search(const json& arguments) {
    SearchReport report;
    if (auto query = arguments.find("query"); query != arguments.end() && query->is_string())
        report.query = std::string(trim(query->get_ref<const std::string&>()));
    if (report.query.empty())
        throw ToolError(std::string(L10n::text("Paramètre « query » manquant.", "Missing \"query\" parameter.")));

    report.days = defaultSearchDays;
    if (auto days = arguments.find("days"); days != arguments.end() && days->is_number_integer()) {
        // Compared as a double so that any integer, however large, clamps.
        double asked = days->get<double>();
        report.days = static_cast<int>(std::clamp(asked, 1.0, static_cast<double>(maxSearchDays)));
    }

    Instant now = clock_.now();
    Period window{daysBefore(now, report.days), now};
    if (arguments.contains("from")) {
        // Whole days chosen in the window.
        window = period(arguments, now);
        report.days = std::max(1, static_cast<int>(std::lround((window.end - window.start) / 86'400)));
    }
    std::vector<Classified> found = workspace_.search(report.query, window.start, window.end);
    report.matchedActivities = found.size();
    if (found.size() >= static_cast<std::size_t>(Workspace::searchLimit)) {
        report.matchedActivities =
            std::max(found.size(), workspace_.searchCount(report.query, window.start, window.end));
        if (report.cut()) report.countedFrom = found.back().activity.start;
    }

    // One entry per (title, application, project), in order of first appearance.
    std::unordered_map<std::string, std::size_t> index;
    for (const Classified& item : found) {
        const Activity& activity = item.activity;
        double seconds = activity.duration();
        report.seconds += seconds;
        report.activityIDs.push_back(activity.id);
        std::string title = activity.title && !activity.title->empty() ? *activity.title : activity.label();
        std::string key = title + '\x1f' + activity.appName + '\x1f' +
                          (item.project ? std::to_string(item.project->id) : std::string());
        auto [entry, inserted] = index.try_emplace(std::move(key), report.matches.size());
        if (inserted) report.matches.push_back(SearchMatch{std::move(title), activity.appName, 0, item.project, {}});
        report.matches[entry->second].seconds += seconds;
        report.matches[entry->second].activityIDs.push_back(activity.id);
    }
    std::stable_sort(report.matches.begin(), report.matches.end(),
                     [](const SearchMatch& a, const SearchMatch& b) { return a.seconds > b.seconds; });
    if (report.matches.size() > maxMatches) report.matches.resize(maxMatches);
    return report;
}

json TimeQueries::label(const std::shared_ptr<const Project>& project) const {
    return project ? json(projects_.label(project)) : json(nullptr);
}

json TimeQueries::toJSON(const SummaryReport& report) const {
    const Summary& summary = report.summary;
    json byProject = json::array();
    for (const ProjectTotal& total : summary.byProject)
        byProject.push_back({{"project", projects_.label(total.project)},
                             {"project_id", total.project ? json(total.project->id) : json(nullptr)},
                             {"minutes", wholeMinutes(total.seconds)},
                             {"amount_eur", euros(total.amountCents)}});
    json byCategory = json::array();
    for (const CategoryTotal& total : summary.byCategory)
        byCategory.push_back(
            {{"category", total.category ? total.category->name
                                         : std::string(L10n::text("Non classé", "Uncategorized"))},
             {"minutes", wholeMinutes(total.seconds)}});
    return {{"from", local::formatDay(report.period.start)},
            {"to", local::formatDay(report.period.end - 1)},
            {"active_minutes", wholeMinutes(summary.active)},
            {"billable_minutes", wholeMinutes(summary.billable)},
            {"distraction_minutes", wholeMinutes(summary.distraction)},
            {"unassigned_minutes", wholeMinutes(summary.unassigned())},
            {"amount_eur", euros(summary.amountCents)},
            {"by_project", byProject},
            {"by_category", byCategory}};
}

json TimeQueries::toJSON(const TimelineReport& report) const {
    json blocks = json::array();
    for (const Block& block : report.blocks) {
        json appsAndSites = json::array();
        for (const LabelTotal& total : block.labels()) {
            if (appsAndSites.size() == 5) break;
            appsAndSites.push_back(total.label + " (" + std::to_string(roundedMinutes(total.seconds)) + " min)");
        }
        blocks.push_back({{"start", local::formatTime(block.start())},
                          {"end", local::formatTime(block.end())},
                          {"minutes", roundedMinutes(block.seconds())},
                          {"kind", kindName(block.items.front().activity.kind)},
                          {"title", block.title()},
                          {"project", label(block.project())},
                          {"category", block.category() ? json(block.category()->name) : json(nullptr)},
                          {"note", nullable(block.note())},
                          {"manual", block.manual()},
                          {"apps_and_sites", appsAndSites},
                          {"activity_ids", block.activityIDs()}});
    }
    return {{"date", local::formatDay(report.day)}, {"blocks", blocks}};
}

json TimeQueries::toJSON(const SearchReport& report) const {
    json matches = json::array();
    for (const SearchMatch& match : report.matches)
        matches.push_back({{"title", match.title},
                           {"app", match.app},
                           {"minutes", wholeMinutes(match.seconds)},
                           {"project", label(match.project)}});
    // The last three keys say whether the totals count every match.
    return {{"query", report.query},
            {"days", report.days},
            {"total_minutes", wholeMinutes(report.seconds)},
            {"activity_ids", report.activityIDs},
            {"matches", matches},
            {"truncated", report.cut()},
            {"matched_activities", report.matchedActivities},
            {"counted_from", report.countedFrom ? json(local::formatDay(*report.countedFrom)) : json(nullptr)}};
}

} // namespace ombrelo
