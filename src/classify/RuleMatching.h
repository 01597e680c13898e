// RuleMatching: the scoring engine behind Rule::specificity, split so that a
// caller classifying many activities can prepare each rule once (RuleMatcher)
// and fold each activity's text once (MatchSubject).
//
// A rule's score has two parts: the static part (main pattern and conditions),
// which depends only on the activity's text, and the time part (window and
// weekdays), which depends on its start. Catalog caches the static part per
// distinct text and adds the time part per activity.
//
// Worked example: a rule on site "github.com" with condition title contains
// "dupont", restricted to 09:00–12:00 on Tuesdays. For an activity on
// github.com titled "PR #12 · dupont/site" starting Tuesday 10:00:
// 10 characters + 400 (exact site) + 20 (condition) = 430 static, + 15 (window)
// + 15 (weekday) = 460. At 14:00 the window fails and the rule does not apply.
//
// Not thread-safe per object (MatchSubject caches lazily); RuleMatcher is
// immutable after construction and may be shared.
#pragma once

#include "classify/Rule.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <unicode/uversion.h>

U_NAMESPACE_BEGIN
class RegexPattern;
U_NAMESPACE_END

namespace ombrelo {

// Unicode lower-casing without locale (how patterns are stored).
std::string lowerCase(std::string_view text);
// Unicode case folding, diacritics kept: the key of a case-insensitive search.
std::string caseFold(std::string_view text);
// a + b; an overflow stops the program (scores are small: it cannot come from
// input, only from corrupted memory).
std::int64_t addScores(std::int64_t a, std::int64_t b);
// User-perceived characters (grapheme clusters): "é" is one, decomposed or not.
std::int64_t characterCount(std::string_view text);

// The text of one activity as rules see it, derived forms computed on first use.
class MatchSubject {
public:
    explicit MatchSubject(const Activity& activity) : activity_(activity) {}

    const Activity& activity() const { return activity_; }
    // values(field, activity), each folded (case and diacritics).
    const std::vector<std::string>& folded(Rule::Field field);
    // The title or URL case-folded with diacritics kept; absent field → absent.
    const std::optional<std::string>& caseFolded(Rule::Field field);
    const std::optional<std::string>& lowerBundleID();
    const std::optional<std::string>& lowerPath();
    // Local minute of day (hour × 60 + minute) and weekday of the start.
    int minuteOfDay();
    int weekday();

private:
    void loadTime();

    const Activity& activity_;
    std::array<std::optional<std::vector<std::string>>, 5> folded_;
    std::optional<std::optional<std::string>> title_, url_, bundleID_, path_;
    std::optional<std::pair<int, int>> time_;  // minute of day, weekday
};

// A rule prepared for scoring: patterns folded, regular expressions compiled
// and the pattern's length counted once.
class RuleMatcher {
public:
    static constexpr std::int64_t conditionBonus = 20;

    explicit RuleMatcher(Rule rule);

    const Rule& rule() const { return rule_; }

    // Base score plus conditions; absent when the rule does not apply to the
    // activity's text.
    std::optional<std::int64_t> staticScore(MatchSubject& subject) const;

    // The parts of the static score, for a caller that caches them per field
    // value: the base score reads only the rule's field, condition k only its
    // own field. combine() adds them up exactly as staticScore does.
    std::optional<std::int64_t> baseScore(MatchSubject& subject) const;
    std::size_t conditionCount() const { return conditions_.size(); }
    Rule::Field conditionField(std::size_t k) const { return conditions_[k].field; }
    bool conditionHolds(std::size_t k, MatchSubject& subject) const { return matches(conditions_[k], subject); }
    template <typename Holds>  // bool(std::size_t k)
    std::optional<std::int64_t> combine(std::optional<std::int64_t> base, Holds&& holds) const {
        if (emptyCondition_ || !base) return std::nullopt;
        std::int64_t score = *base;
        for (std::size_t k = 0; k < conditions_.size(); ++k) {
            if (!holds(k)) return std::nullopt;
            score = addScores(score, conditionBonus);
        }
        return score;
    }
    // Whether the rule has a window or weekdays.
    bool timeRestricted() const { return rule_.hasWindow() || !rule_.weekdays.empty(); }
    // What the window and weekdays add (0 without restriction); absent when the
    // activity starts outside them.
    std::optional<std::int64_t> timeScore(MatchSubject& subject) const;
    // The whole score, as Rule::specificity.
    std::optional<std::int64_t> specificity(MatchSubject& subject) const;

private:
    struct Test {
        Rule::Field field;
        Rule::Operator op;
        std::string pattern;  // as stored
        std::string folded;   // for every operator but regex
        const icu::RegexPattern* expression = nullptr;  // regex only; null when invalid
    };
    static Test prepare(Rule::Field field, Rule::Operator op, const std::string& pattern);
    static bool matches(const Test& test, MatchSubject& subject);
    std::optional<std::int64_t> legacyScore(MatchSubject& subject) const;

    Rule rule_;
    std::int64_t length_;
    std::optional<Test> main_;    // rules with an operator
    std::string legacyFolded_;    // simple title and url rules
    std::vector<Test> conditions_;
    bool emptyCondition_ = false;
};

} // namespace ombrelo
