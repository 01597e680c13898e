#include "app/commands/ClassifyViews.h"

#include "app/commands/ClassifyArguments.h"
#include "classify/DefaultCatalog.h"
#include "support/L10n.h"
#include "support/LocalTime.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

namespace ombrelo::commands {

namespace {

nlohmann::json optionalJSON(const std::optional<std::string>& text) {
    return text ? nlohmann::json(*text) : nlohmann::json(nullptr);
}

nlohmann::json optionalJSON(const std::optional<std::int64_t>& value) {
    return value ? nlohmann::json(*value) : nlohmann::json(nullptr);
}

std::string clock(int minute) { return fmt::format("{:02}:{:02}", minute / 60, minute % 60); }

std::string durationText(double seconds) {
    auto minutes = static_cast<std::int64_t>(std::llround(seconds / 60));
    if (minutes < 60) return fmt::format("{} min", minutes);
    return fmt::format("{} h {:02}", minutes / 60, minutes % 60);
}

std::string testText(Rule::Field field, std::optional<Rule::Operator> op, const std::string& pattern) {
    return fmt::format("{} {} {}", noun(field), op ? label(*op) : simpleLabel(field), pattern);
}

} // namespace

nlohmann::json categoryJSON(const Category& category, const Catalog& catalog) {
    std::int64_t rules = 0;
    for (const Rule& rule : catalog.rules())
        if (rule.categoryID == category.id) ++rules;
    std::string key = defaultKey(category.name);
    bool isDefault = std::any_of(defaultCategories().begin(), defaultCategories().end(),
                                 [&](const DefaultCategory& d) { return d.name == key; });
    return {{"id", category.id},
            {"name", category.name},
            {"color", category.color},
            {"symbol", category.symbol},
            {"distraction", category.isDistraction},
            {"default_key", isDefault ? nlohmann::json(key) : nlohmann::json(nullptr)},
            {"rules", rules}};
}

nlohmann::json ruleJSON(const Rule& rule, const Catalog& catalog, const ProjectStore& projects) {
    nlohmann::json conditions = nlohmann::json::array();
    for (const Rule::Condition& condition : rule.conditions)
        conditions.push_back({{"field", rawValue(condition.field)}, {"op", rawValue(condition.op)},
                              {"pattern", condition.pattern}});
    std::vector<int> weekdays(rule.weekdays.begin(), rule.weekdays.end());
    std::optional<Category> category = rule.categoryID ? catalog.category(*rule.categoryID) : std::nullopt;
    std::optional<Project> project = rule.projectID ? projects.project(*rule.projectID) : std::nullopt;
    return {{"id", rule.id},
            {"field", rawValue(rule.field)},
            {"operator", rule.op ? nlohmann::json(rawValue(*rule.op)) : nlohmann::json(nullptr)},
            {"pattern", rule.pattern},
            {"conditions", conditions},
            {"hours", rule.hasWindow() ? nlohmann::json(clock(*rule.startMinute) + "-" + clock(*rule.endMinute))
                                       : nlohmann::json(nullptr)},
            {"start_minute", rule.hasWindow() ? nlohmann::json(*rule.startMinute) : nlohmann::json(nullptr)},
            {"end_minute", rule.hasWindow() ? nlohmann::json(*rule.endMinute) : nlohmann::json(nullptr)},
            {"weekdays", weekdays},
            {"category_id", optionalJSON(rule.categoryID)},
            {"category", category ? nlohmann::json(category->name) : nlohmann::json(nullptr)},
            {"project_id", optionalJSON(rule.projectID)},
            {"project", project ? nlohmann::json(projects.label(project)) : nlohmann::json(nullptr)},
            {"regex_problem", optionalJSON(rule.regexProblem())}};
}

nlohmann::json assignmentJSON(const std::optional<Assignment>& assignment) {
    if (!assignment) return nullptr;
    return {{"source", assignment->source},
            {"project_id", optionalJSON(assignment->projectID)},
            {"category_id", optionalJSON(assignment->categoryID)},
            {"note", optionalJSON(assignment->note)}};
}

nlohmann::json activityJSON(const Classification& result, const ProjectStore& projects) {
    const Classified& item = result.item;
    const Activity& a = item.activity;
    return {{"id", a.id},
            {"start", local::formatDateTime(a.start)},
            {"end", local::formatDateTime(a.end)},
            {"duration", a.duration()},
            {"app", a.appName},
            {"bundle_id", optionalJSON(a.bundleID)},
            {"title", optionalJSON(a.title)},
            {"domain", optionalJSON(a.domain)},
            {"path", optionalJSON(a.path)},
            {"url", optionalJSON(a.url)},
            {"kind", rawValue(a.kind)},
            {"category", item.category ? nlohmann::json(item.category->name) : nlohmann::json(nullptr)},
            {"category_id", item.category ? nlohmann::json(item.category->id) : nlohmann::json(nullptr)},
            {"distraction", item.category && item.category->isDistraction},
            {"project", projects.label(item.project)},
            {"project_id", item.project ? nlohmann::json(item.project->id) : nlohmann::json(nullptr)},
            {"manual", item.manual},
            {"note", optionalJSON(item.note)},
            {"source", result.assignment ? nlohmann::json(result.assignment->source) : nlohmann::json(nullptr)},
            {"category_rule_id", optionalJSON(result.categoryRuleID)},
            {"project_rule_id", optionalJSON(result.projectRuleID)}};
}

std::string ruleTest(const Rule& rule) {
    std::string text = testText(rule.field, rule.op, rule.pattern);
    for (const Rule::Condition& condition : rule.conditions)
        text += std::string(L10n::text(" ET ", " AND ")) + testText(condition.field, condition.op, condition.pattern);
    if (rule.hasWindow()) text += ", " + windowText(*rule.startMinute, *rule.endMinute);
    if (!rule.weekdays.empty()) text += ", " + weekdaysText(rule.weekdays);
    return text;
}

std::string ruleTarget(const Rule& rule, const Catalog& catalog, const ProjectStore& projects) {
    std::string text;
    if (rule.categoryID) {
        auto category = catalog.category(*rule.categoryID);
        text = category ? category->name : "#" + std::to_string(*rule.categoryID);
    }
    if (rule.projectID) {
        if (!text.empty()) text += " + ";
        auto project = projects.project(*rule.projectID);
        text += std::string(L10n::text("projet ", "project ")) +
                (project ? projects.label(project) : "#" + std::to_string(*rule.projectID));
    }
    return text.empty() ? std::string(L10n::text("(rien)", "(nothing)")) : text;
}

std::string spanText(const Activity& activity) {
    return fmt::format("{} {}–{} ({})", local::formatDay(activity.start), local::formatTime(activity.start),
                       local::formatTime(activity.end), durationText(activity.duration()));
}

std::string sourceText(const Activity& activity) {
    std::string text = activity.label();
    if (activity.domain && activity.kind == Activity::Kind::app) text = activity.appName + " — " + *activity.domain;
    return text;
}

// Why the category and project are what they are: "rule", "manual", "active",
// "ai", "navigation", "private"; nothing when there is neither.
std::optional<std::string> categoryReason(const Classification& result) {
    const Classified& item = result.item;
    if (item.activity.kind == Activity::Kind::privateTime && !item.category) return "private";
    if (!item.category) return std::nullopt;
    if (result.categoryRuleID) return "rule";
    if (result.assignment && result.assignment->categoryID == item.category->id) return result.assignment->source;
    return "navigation";
}

std::optional<std::string> projectReason(const Classification& result) {
    if (result.assignment &&
        (result.assignment->source == source::manual || result.assignment->source == source::active))
        return result.assignment->source;
    if (result.projectRuleID) return "rule";
    return std::nullopt;
}

nlohmann::json explainJSON(const Classification& result, const std::vector<RuleScore>& applicable,
                           const Catalog& catalog, const ProjectStore& projects) {
    nlohmann::json rules = nlohmann::json::array();
    for (const RuleScore& scored : applicable) {
        nlohmann::json rule = ruleJSON(scored.rule, catalog, projects);
        rule["score"] = scored.score;
        rule["decides_category"] = result.categoryRuleID == scored.rule.id;
        rule["decides_project"] = result.projectRuleID == scored.rule.id;
        rules.push_back(rule);
    }
    auto optional = [](const std::optional<std::string>& text) {
        return text ? nlohmann::json(*text) : nlohmann::json(nullptr);
    };
    return {{"activity", activityJSON(result, projects)},
            {"rules", rules},
            {"category_reason", optional(categoryReason(result))},
            {"project_reason", optional(projectReason(result))},
            {"assignment", assignmentJSON(result.assignment)}};
}

} // namespace ombrelo::commands
