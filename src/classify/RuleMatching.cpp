#include "classify/RuleMatching.h"

#include "classify/RegexCache.h"
#include "support/Fold.h"
#include "support/LocalTime.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/unistr.h>

namespace ombrelo {

namespace {

bool isASCII(std::string_view text) {
    for (unsigned char c : text)
        if (c >= 0x80) return false;
    return true;
}

icu::UnicodeString unicode(std::string_view text) {
    return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
}

std::string utf8(const icu::UnicodeString& text) {
    std::string out;
    text.toUTF8String(out);
    return out;
}

constexpr std::size_t index(Rule::Field field) { return static_cast<std::size_t>(field); }

constexpr std::int64_t windowBonus = 15;
constexpr std::int64_t weekdayBonus = 15;

} // namespace

std::int64_t addScores(std::int64_t a, std::int64_t b) {
    std::int64_t sum;
    if (__builtin_add_overflow(a, b, &sum)) {
        std::fputs("ombrelo: rule score overflow\n", stderr);
        std::abort();
    }
    return sum;
}

std::string lowerCase(std::string_view text) {
    if (isASCII(text)) return lowerASCII(text);
    return utf8(unicode(text).toLower(icu::Locale::getRoot()));
}

std::string caseFold(std::string_view text) {
    if (isASCII(text)) return lowerASCII(text);
    return utf8(unicode(text).foldCase());
}

std::int64_t characterCount(std::string_view text) {
    if (isASCII(text)) return static_cast<std::int64_t>(text.size());
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> characters(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    icu::UnicodeString source = unicode(text);
    if (U_FAILURE(status) || !characters) return source.countChar32();
    characters->setText(source);
    std::int64_t count = 0;
    characters->first();
    while (characters->next() != icu::BreakIterator::DONE) ++count;
    return count;
}

// MatchSubject

const std::vector<std::string>& MatchSubject::folded(Rule::Field field) {
    auto& slot = folded_[index(field)];
    if (!slot) {
        slot.emplace();
        for (std::string_view value : values(field, activity_)) slot->push_back(fold(value));
    }
    return *slot;
}

const std::optional<std::string>& MatchSubject::caseFolded(Rule::Field field) {
    auto& slot = field == Rule::Field::url ? url_ : title_;
    if (!slot) {
        const auto& source = field == Rule::Field::url ? activity_.url : activity_.title;
        slot.emplace(source ? std::optional(caseFold(*source)) : std::nullopt);
    }
    return *slot;
}

const std::optional<std::string>& MatchSubject::lowerBundleID() {
    if (!bundleID_)
        bundleID_.emplace(activity_.bundleID ? std::optional(lowerCase(*activity_.bundleID)) : std::nullopt);
    return *bundleID_;
}

const std::optional<std::string>& MatchSubject::lowerPath() {
    if (!path_) path_.emplace(activity_.path ? std::optional(lowerCase(*activity_.path)) : std::nullopt);
    return *path_;
}

void MatchSubject::loadTime() {
    if (time_) return;
    local::DateParts when = local::parts(activity_.start);
    time_.emplace(when.hour * 60 + when.minute, when.weekday);
}

int MatchSubject::minuteOfDay() {
    loadTime();
    return time_->first;
}

int MatchSubject::weekday() {
    loadTime();
    return time_->second;
}

// RuleMatcher

RuleMatcher::RuleMatcher(Rule rule) : rule_(std::move(rule)), length_(characterCount(rule_.pattern)) {
    if (rule_.op) main_ = prepare(rule_.field, *rule_.op, rule_.pattern);
    else if (rule_.field == Rule::Field::title || rule_.field == Rule::Field::url) legacyFolded_ = caseFold(rule_.pattern);
    for (const Rule::Condition& condition : rule_.conditions) {
        if (condition.pattern.empty()) emptyCondition_ = true;
        conditions_.push_back(prepare(condition.field, condition.op, condition.pattern));
    }
}

RuleMatcher::Test RuleMatcher::prepare(Rule::Field field, Rule::Operator op, const std::string& pattern) {
    Test test{field, op, pattern, {}, nullptr};
    if (op == Rule::Operator::regex) test.expression = pattern.empty() ? nullptr : RegexCache::shared().expression(pattern);
    else test.folded = fold(pattern);
    return test;
}

bool RuleMatcher::matches(const Test& test, MatchSubject& subject) {
    if (test.op == Rule::Operator::regex) {
        if (!test.expression) return false;
        for (std::string_view value : values(test.field, subject.activity()))
            if (RegexCache::search(*test.expression, value)) return true;
        return false;
    }
    if (test.folded.empty()) return false;
    for (const std::string& value : subject.folded(test.field)) {
        switch (test.op) {
        case Rule::Operator::contains:
            if (value.find(test.folded) != std::string::npos) return true;
            break;
        case Rule::Operator::is:
            if (value == test.folded) return true;
            break;
        case Rule::Operator::startsWith:
            if (value.starts_with(test.folded)) return true;
            break;
        case Rule::Operator::endsWith:
            if (value.ends_with(test.folded)) return true;
            break;
        case Rule::Operator::regex:
            break;
        }
    }
    return false;
}

std::optional<std::int64_t> RuleMatcher::baseScore(MatchSubject& subject) const {
    if (rule_.pattern.empty()) return std::nullopt;
    if (!main_) return legacyScore(subject);
    if (!matches(*main_, subject)) return std::nullopt;
    switch (rule_.field) {
    case Rule::Field::app:
        return 200;
    case Rule::Field::domain:
        return addScores(length_, *rule_.op == Rule::Operator::is ? 400 : 300);
    case Rule::Field::url:
        return addScores(length_, 350);
    case Rule::Field::path:
        return addScores(length_, 250);
    case Rule::Field::title:
        return addScores(length_, 100);
    }
    return std::nullopt;
}

std::optional<std::int64_t> RuleMatcher::legacyScore(MatchSubject& subject) const {
    const Activity& activity = subject.activity();
    const std::string& pattern = rule_.pattern;
    switch (rule_.field) {
    case Rule::Field::app: {
        // Only the identifier: a simple app rule never looks at the app's name.
        const auto& id = subject.lowerBundleID();
        if (id && *id == pattern) return 200;
        return std::nullopt;
    }
    case Rule::Field::domain: {
        // The site and its sub-domains, never a domain that merely ends with the
        // same letters ("notgithub.com" is not "github.com").
        if (!activity.domain) return std::nullopt;
        const std::string& domain = *activity.domain;
        if (domain == pattern) return addScores(length_, 400);
        if (domain.size() > pattern.size() && domain.ends_with(pattern) &&
            domain[domain.size() - pattern.size() - 1] == '.')
            return addScores(length_, 300);
        return std::nullopt;
    }
    case Rule::Field::title:
    case Rule::Field::url: {
        const auto& text = subject.caseFolded(rule_.field);
        if (!text || legacyFolded_.empty() || text->find(legacyFolded_) == std::string::npos) return std::nullopt;
        return addScores(length_, rule_.field == Rule::Field::title ? 100 : 350);
    }
    case Rule::Field::path: {
        // "/users/moi/clients/" covers every project folder below it.
        const auto& path = subject.lowerPath();
        if (!path) return std::nullopt;
        if (path->starts_with(pattern) || path->find("/" + pattern) != std::string::npos) return addScores(length_, 250);
        return std::nullopt;
    }
    }
    return std::nullopt;
}

std::optional<std::int64_t> RuleMatcher::staticScore(MatchSubject& subject) const {
    if (emptyCondition_) return std::nullopt;
    return combine(baseScore(subject), [&](std::size_t k) { return matches(conditions_[k], subject); });
}

std::optional<std::int64_t> RuleMatcher::timeScore(MatchSubject& subject) const {
    std::int64_t bonus = 0;
    if (rule_.hasWindow()) {
        int start = *rule_.startMinute, end = *rule_.endMinute, m = subject.minuteOfDay();
        bool inside = start <= end ? (start <= m && m < end) : (m >= start || m < end);
        if (!inside) return std::nullopt;
        bonus += windowBonus;
    }
    if (!rule_.weekdays.empty()) {
        if (!rule_.weekdays.contains(subject.weekday())) return std::nullopt;
        bonus += weekdayBonus;
    }
    return bonus;
}

std::optional<std::int64_t> RuleMatcher::specificity(MatchSubject& subject) const {
    std::optional<std::int64_t> score = staticScore(subject);
    if (!score) return std::nullopt;
    std::optional<std::int64_t> time = timeScore(subject);
    if (!time) return std::nullopt;
    return addScores(*score, *time);
}

} // namespace ombrelo
