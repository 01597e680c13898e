// Rule: one classification rule, a row of the `rule` table. It maps an app, a
// site, a word of the title, a folder or an address to a category and/or a
// project; further conditions, a time-of-day window and weekdays narrow it. When
// several rules match an activity, the most specific one wins (see specificity).
//
// A value type, safe to copy between threads; scoring uses the process-wide
// RegexCache for `regex` patterns.
#pragma once

#include "storage/Activity.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace ombrelo {

struct Rule {
    enum class Field { app, domain, title, path, url };
    enum class Operator { contains, is, startsWith, endsWith, regex };

    // A further test; all of a rule's conditions must hold.
    struct Condition {
        Field field = Field::title;
        Operator op = Operator::contains;
        std::string pattern;

        bool operator==(const Condition&) const = default;
    };

    std::int64_t id = 0;  // 0 until saved
    Field field = Field::app;
    std::string pattern;  // never empty in a usable rule
    std::optional<std::int64_t> categoryID;
    std::optional<std::int64_t> projectID;
    // Absent: a simple rule, scored by the fixed per-field semantics of older
    // versions (legacy scoring).
    std::optional<Operator> op;
    std::vector<Condition> conditions;
    // Time-of-day window in minutes after midnight, end exclusive; end < start is
    // a night window (22:00–02:00). Both present or both absent.
    std::optional<int> startMinute;
    std::optional<int> endMinute;
    // Calendar weekdays, 1 = Sunday … 7 = Saturday; empty = every day.
    std::set<int> weekdays;

    bool operator==(const Rule&) const = default;

    bool hasWindow() const { return startMinute && endMinute; }

    // The rule as it is saved: patterns trimmed and lower-cased (a regular
    // expression is kept as typed), empty conditions dropped, a window whose
    // bounds are missing or equal removed.
    Rule normalized() const;

    // For a `regex` rule whose main pattern does not compile, the editor's
    // message; absent for every other rule. Such a rule may be saved; it never
    // matches.
    std::optional<std::string> regexProblem() const;

    // The rule's score against `activity`, higher is more precise; absent when
    // the rule does not apply. Never throws; an overflowing score aborts.
    std::optional<std::int64_t> specificity(const Activity& activity) const;
};

// Raw values as stored ("app", "startsWith", …).
std::string_view rawValue(Rule::Field field);
std::string_view rawValue(Rule::Operator op);
std::optional<Rule::Field> fieldFromRaw(std::string_view raw);
std::optional<Rule::Operator> operatorFromRaw(std::string_view raw);

// Texts of the editor, in the user's language: the field's noun ("Appli"), the
// label of a simple rule on that field ("contient") and the operator's label.
std::string_view noun(Rule::Field field);
std::string_view simpleLabel(Rule::Field field);
std::string_view label(Rule::Operator op);

// What a field yields from an activity: for `app` the bundle identifier (when
// present) then the app name; for the others the one field when present.
std::vector<std::string_view> values(Rule::Field field, const Activity& activity);

// The message of an invalid regular expression.
std::string_view invalidRegexMessage();

// Codecs of the rule table's text columns. Encoders give absent for "nothing"
// (no conditions, no window, every day); decoders read damaged text as nothing,
// never as an error.
std::optional<std::string> encodeConditions(const std::vector<Rule::Condition>& conditions);
std::vector<Rule::Condition> decodeConditions(const std::optional<std::string>& json);
std::optional<std::string> encodeHours(std::optional<int> startMinute, std::optional<int> endMinute);
// Both bounds, or neither.
std::pair<std::optional<int>, std::optional<int>> decodeHours(const std::optional<std::string>& text);
std::optional<std::string> encodeWeekdays(const std::set<int>& weekdays);
std::set<int> decodeWeekdays(const std::optional<std::string>& text);

} // namespace ombrelo
