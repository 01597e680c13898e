#include "classify/Rule.h"

#include "classify/RegexCache.h"
#include "classify/RuleMatching.h"
#include "support/Fold.h"
#include "support/NumberText.h"
#include "support/L10n.h"

#include <limits>
#include <nlohmann/json.hpp>

namespace ombrelo {

namespace {

struct FieldText {
    Rule::Field field;
    std::string_view raw;
    std::string_view nounFR, nounEN;
    std::string_view simpleFR, simpleEN;
};

constexpr FieldText fieldTexts[] = {
    {Rule::Field::app, "app", "Appli", "App", "est (identifiant de l'appli)", "is (app identifier)"},
    {Rule::Field::domain, "domain", "Site", "Site", "est ce site ou un sous-domaine", "is this site or a subdomain"},
    {Rule::Field::title, "title", "Titre", "Title", "contient", "contains"},
    {Rule::Field::path, "path", "Chemin", "Path", "est dans ce dossier", "is in this folder"},
    {Rule::Field::url, "url", "Adresse", "Address", "contient", "contains"},
};

struct OperatorText {
    Rule::Operator op;
    std::string_view raw;
    std::string_view labelFR, labelEN;
};

constexpr OperatorText operatorTexts[] = {
    {Rule::Operator::contains, "contains", "contient", "contains"},
    {Rule::Operator::is, "is", "est", "is"},
    {Rule::Operator::startsWith, "startsWith", "commence par", "starts with"},
    {Rule::Operator::endsWith, "endsWith", "finit par", "ends with"},
    {Rule::Operator::regex, "regex", "expression régulière", "regular expression"},
};

const FieldText& texts(Rule::Field field) { return fieldTexts[static_cast<std::size_t>(field)]; }
const OperatorText& texts(Rule::Operator op) { return operatorTexts[static_cast<std::size_t>(op)]; }

// A pattern as stored: trimmed, lower-cased unless it is a regular expression
// (whose capitals may matter, as in \D or \S).
std::string normalizedPattern(std::string_view pattern, std::optional<Rule::Operator> op) {
    std::string_view trimmed = trim(pattern);
    return op == Rule::Operator::regex ? std::string(trimmed) : lowerCase(trimmed);
}

// The integers among the non-empty pieces of `text` split on `separator`.
std::vector<int> integers(std::string_view text, char separator) {
    std::vector<int> found;
    while (true) {
        auto cut = text.find(separator);
        std::string_view piece = text.substr(0, cut);
        if (!piece.empty())
            if (auto value = integerText<int>(piece)) found.push_back(*value);
        if (cut == std::string_view::npos) break;
        text.remove_prefix(cut + 1);
    }
    return found;
}

} // namespace

std::string_view rawValue(Rule::Field field) { return texts(field).raw; }
std::string_view rawValue(Rule::Operator op) { return texts(op).raw; }

std::optional<Rule::Field> fieldFromRaw(std::string_view raw) {
    for (const FieldText& text : fieldTexts)
        if (text.raw == raw) return text.field;
    return std::nullopt;
}

std::optional<Rule::Operator> operatorFromRaw(std::string_view raw) {
    for (const OperatorText& text : operatorTexts)
        if (text.raw == raw) return text.op;
    return std::nullopt;
}

std::string_view noun(Rule::Field field) { return L10n::text(texts(field).nounFR, texts(field).nounEN); }
std::string_view simpleLabel(Rule::Field field) { return L10n::text(texts(field).simpleFR, texts(field).simpleEN); }
std::string_view label(Rule::Operator op) { return L10n::text(texts(op).labelFR, texts(op).labelEN); }

std::string_view invalidRegexMessage() {
    return L10n::text("Expression régulière invalide : vérifiez les parenthèses, crochets et barres obliques inverses.",
                      "Invalid regular expression: check the parentheses, brackets and backslashes.");
}

std::vector<std::string_view> values(Rule::Field field, const Activity& activity) {
    auto one = [](const SharedText& value) {
        return value ? std::vector<std::string_view>{*value} : std::vector<std::string_view>{};
    };
    switch (field) {
    case Rule::Field::app:
        if (activity.bundleID) return {*activity.bundleID, activity.appName};
        return {activity.appName};
    case Rule::Field::domain:
        return one(activity.domain);
    case Rule::Field::title:
        return one(activity.title);
    case Rule::Field::path:
        return one(activity.path);
    case Rule::Field::url:
        return one(activity.url);
    }
    return {};
}

Rule Rule::normalized() const {
    Rule rule = *this;
    rule.pattern = normalizedPattern(pattern, op);
    rule.conditions.clear();
    for (const Condition& condition : conditions) {
        Condition cleaned = condition;
        cleaned.pattern = normalizedPattern(condition.pattern, condition.op);
        if (!cleaned.pattern.empty()) rule.conditions.push_back(std::move(cleaned));
    }
    if (!startMinute || !endMinute || *startMinute == *endMinute) {
        rule.startMinute.reset();
        rule.endMinute.reset();
    }
    return rule;
}

std::optional<std::string> Rule::regexProblem() const {
    if (op != Operator::regex || RegexCache::shared().compiles(pattern)) return std::nullopt;
    return std::string(invalidRegexMessage());
}

std::optional<std::int64_t> Rule::specificity(const Activity& activity) const {
    MatchSubject subject(activity);
    return RuleMatcher(*this).specificity(subject);
}

std::optional<std::string> encodeConditions(const std::vector<Rule::Condition>& conditions) {
    if (conditions.empty()) return std::nullopt;
    nlohmann::json list = nlohmann::json::array();
    for (const Rule::Condition& condition : conditions)
        list.push_back({{"field", rawValue(condition.field)}, {"op", rawValue(condition.op)}, {"pattern", condition.pattern}});
    return list.dump();
}

std::vector<Rule::Condition> decodeConditions(const std::optional<std::string>& json) {
    if (!json) return {};
    nlohmann::json list = nlohmann::json::parse(*json, nullptr, false);
    if (!list.is_array()) return {};
    std::vector<Rule::Condition> conditions;
    for (const nlohmann::json& item : list) {
        // One bad element makes the whole list unreadable, as a strict decoder would.
        if (!item.is_object()) return {};
        auto text = [&item](const char* key) -> std::optional<std::string> {
            auto found = item.find(key);
            if (found == item.end() || !found->is_string()) return std::nullopt;
            return found->get<std::string>();
        };
        auto field = text("field"), op = text("op"), pattern = text("pattern");
        if (!field || !op || !pattern) return {};
        auto parsedField = fieldFromRaw(*field);
        auto parsedOp = operatorFromRaw(*op);
        if (!parsedField || !parsedOp) return {};
        conditions.push_back({*parsedField, *parsedOp, *pattern});
    }
    return conditions;
}

std::optional<std::string> encodeHours(std::optional<int> startMinute, std::optional<int> endMinute) {
    if (!startMinute || !endMinute) return std::nullopt;
    return std::to_string(*startMinute) + "-" + std::to_string(*endMinute);
}

std::pair<std::optional<int>, std::optional<int>> decodeHours(const std::optional<std::string>& text) {
    if (!text) return {};
    std::vector<int> bounds = integers(*text, '-');
    if (bounds.size() != 2) return {};
    return {bounds[0], bounds[1]};
}

std::optional<std::string> encodeWeekdays(const std::set<int>& weekdays) {
    if (weekdays.empty()) return std::nullopt;
    std::string joined;
    for (int day : weekdays) {
        if (!joined.empty()) joined += ',';
        joined += std::to_string(day);
    }
    return joined;
}

std::set<int> decodeWeekdays(const std::optional<std::string>& text) {
    if (!text) return {};
    std::vector<int> days = integers(*text, ',');
    return {days.begin(), days.end()};
}

} // namespace ombrelo
