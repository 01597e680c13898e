// ClassifyViews: how the categories, rules, activities and explain commands show
// their records: JSON for scripts (ids, raw values, local times
// "YYYY-MM-DDTHH:MM:SS") and short texts for people, in the user's language.
#pragma once

#include "billing/ProjectStore.h"
#include "classify/Catalog.h"

#include <nlohmann/json.hpp>
#include <string>

namespace ombrelo::commands {

nlohmann::json categoryJSON(const Category& category, const Catalog& catalog);
nlohmann::json ruleJSON(const Rule& rule, const Catalog& catalog, const ProjectStore& projects);
nlohmann::json activityJSON(const Classification& result, const ProjectStore& projects);
nlohmann::json assignmentJSON(const std::optional<Assignment>& assignment);
// What `explain` shows of one activity: its classification, every rule that
// applies with its score, and why the category and project are what they are.
nlohmann::json explainJSON(const Classification& result, const std::vector<RuleScore>& applicable,
                           const Catalog& catalog, const ProjectStore& projects);

// Why the category and project are what they are: "rule", "manual", "active",
// "ai", "navigation", "private"; nothing when there is neither.
std::optional<std::string> categoryReason(const Classification& result);
std::optional<std::string> projectReason(const Classification& result);

// "Site est ce site ou un sous-domaine github.com ET Titre contient dupont,
// 09:00–12:00, mar": what a rule tests.
std::string ruleTest(const Rule& rule);
// "Code", "projet Client › Refonte", "Code + projet …": what a rule gives.
std::string ruleTarget(const Rule& rule, const Catalog& catalog, const ProjectStore& projects);

// "10:05–10:40 (35 min)": an activity's times on its day.
std::string spanText(const Activity& activity);
// "Xcode", "Firefox — github.com": the application and site of an activity.
std::string sourceText(const Activity& activity);

} // namespace ombrelo::commands
