#include "classify/RegexCache.h"
#include "classify/Rule.h"
#include "support/LocalTime.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

namespace ombrelo {
namespace {

using Field = Rule::Field;
using Op = Rule::Operator;

Activity app(std::string bundleID, std::string name, std::optional<std::string> title = std::nullopt) {
    Activity a;
    a.bundleID = std::move(bundleID);
    a.appName = std::move(name);
    a.title = std::move(title);
    return a;
}

Activity site(std::string domain, std::optional<std::string> title = std::nullopt) {
    Activity a = app("org.mozilla.firefox", "Firefox", std::move(title));
    a.domain = std::move(domain);
    return a;
}

Rule rule(Field field, std::string pattern, std::optional<Op> op = std::nullopt) {
    Rule r;
    r.field = field;
    r.pattern = std::move(pattern);
    r.op = op;
    r.categoryID = 1;
    return r;
}

TEST(RuleNormalization, PatternsTrimmedAndLoweredExceptRegex) {
    Rule r = rule(Field::title, "  Devis Dupont \n", Op::contains);
    r.conditions = {{Field::domain, Op::is, " GitHub.com "}, {Field::title, Op::regex, " Devis\\s+\\d+ "},
                    {Field::url, Op::contains, "   "}};
    Rule n = r.normalized();
    EXPECT_EQ(n.pattern, "devis dupont");
    ASSERT_EQ(n.conditions.size(), 2u);  // the blank condition is dropped
    EXPECT_EQ(n.conditions[0].pattern, "github.com");
    EXPECT_EQ(n.conditions[1].pattern, "Devis\\s+\\d+");

    EXPECT_EQ(rule(Field::title, " Devis\\S ", Op::regex).normalized().pattern, "Devis\\S");
    EXPECT_EQ(rule(Field::app, " Com.Apple.DT.Xcode ").normalized().pattern, "com.apple.dt.xcode");
    EXPECT_EQ(rule(Field::title, "RÉUNION", Op::contains).normalized().pattern, "réunion");
}

TEST(RuleNormalization, WindowNeedsTwoDifferentBounds) {
    Rule r = rule(Field::app, "x");
    r.startMinute = 540;
    r.endMinute = 540;
    EXPECT_FALSE(r.normalized().hasWindow());
    EXPECT_FALSE(r.normalized().startMinute);
    r.endMinute.reset();
    EXPECT_FALSE(r.normalized().startMinute);
    r.endMinute = 720;
    EXPECT_EQ(r.normalized().endMinute, 720);
}

TEST(RuleMatching, AppRuleWithOperatorMatchesIdentifierOrName) {
    Activity xcode = app("com.apple.dt.Xcode", "Xcode");
    EXPECT_TRUE(rule(Field::app, "xcode", Op::is).specificity(xcode));               // by name
    EXPECT_TRUE(rule(Field::app, "com.apple", Op::startsWith).specificity(xcode));   // by identifier
    // A simple app rule: identifier lower-cased, never the name.
    EXPECT_TRUE(rule(Field::app, "com.apple.dt.xcode").specificity(xcode));
    EXPECT_FALSE(rule(Field::app, "xcode").specificity(xcode));
    Activity noID = xcode;
    noID.bundleID.reset();
    EXPECT_FALSE(rule(Field::app, "com.apple.dt.xcode").specificity(noID));
}

TEST(RuleMatching, OperatorsFoldCaseAndAccents) {
    Activity a = app("x", "Mail", std::string("Réunion Dupont — Devis 42"));
    EXPECT_TRUE(rule(Field::title, "dupont", Op::contains).specificity(a));
    EXPECT_TRUE(rule(Field::title, "reunion dupont — devis 42", Op::is).specificity(a));
    EXPECT_FALSE(rule(Field::title, "reunion dupont", Op::is).specificity(a));  // "is" needs the whole title
    EXPECT_TRUE(rule(Field::title, "REUNION", Op::startsWith).specificity(a));
    EXPECT_FALSE(rule(Field::title, "dupont", Op::startsWith).specificity(a));
    EXPECT_TRUE(rule(Field::title, "devis 42", Op::endsWith).specificity(a));
    EXPECT_FALSE(rule(Field::title, "dupont", Op::endsWith).specificity(a));
    EXPECT_FALSE(rule(Field::domain, "dupont", Op::contains).specificity(a));  // no domain, no values
    EXPECT_FALSE(rule(Field::title, "", Op::contains).specificity(a));
}

TEST(RuleMatching, RegexSearchesCaseInsensitively) {
    Rule r = rule(Field::title, "devis\\s+\\d+$", Op::regex);
    EXPECT_TRUE(r.specificity(app("x", "Mail", std::string("Re: Devis 42"))));
    EXPECT_FALSE(r.specificity(app("x", "Mail", std::string("Devis à faire"))));
    EXPECT_FALSE(r.regexProblem());

    Rule broken = rule(Field::title, "devis(", Op::regex);
    EXPECT_FALSE(broken.specificity(app("x", "Mail", std::string("devis("))));
    EXPECT_TRUE(broken.regexProblem());
    EXPECT_FALSE(rule(Field::title, "devis(", Op::contains).regexProblem());
}

TEST(RuleMatching, RegexCacheCompilesEachPatternOnceFailuresIncluded) {
    RegexCache& cache = RegexCache::shared();
    std::size_t before = cache.compilations();
    EXPECT_FALSE(cache.compiles("unique[pattern"));
    EXPECT_FALSE(cache.compiles("unique[pattern"));
    EXPECT_TRUE(cache.compiles("unique-ok-\\d"));
    EXPECT_TRUE(cache.compiles("unique-ok-\\d"));
    EXPECT_EQ(cache.compilations(), before + 2);
}

TEST(RuleScoring, LegacySiteCoversSubdomainsButNotLookalikes) {
    Rule youtube = rule(Field::domain, "youtube.com");
    EXPECT_TRUE(youtube.specificity(site("youtube.com")));
    EXPECT_TRUE(youtube.specificity(site("www.youtube.com")));
    EXPECT_FALSE(youtube.specificity(site("notyoutube.com")));
    EXPECT_FALSE(youtube.specificity(app("x", "Mail")));
    // On a sub-domain, a rule naming that sub-domain beats its parent's.
    Activity music = site("music.youtube.com");
    EXPECT_GT(*rule(Field::domain, "music.youtube.com").specificity(music), *youtube.specificity(music));
}

TEST(RuleScoring, LegacyTitlePathAndUrl) {
    Activity a = app("x", "Finder", std::string("Facture ÉTÉ"));
    a.path = "/Users/Moi/Clients/Dupont/devis.pages";
    a.url = "https://Example.com/Board";
    EXPECT_TRUE(rule(Field::title, "facture été").specificity(a));
    EXPECT_FALSE(rule(Field::title, "facture ete").specificity(a));  // simple rules keep accents
    EXPECT_TRUE(rule(Field::path, "/users/moi/clients/").specificity(a));
    EXPECT_TRUE(rule(Field::path, "dupont").specificity(a));   // after a slash
    EXPECT_FALSE(rule(Field::path, "upont").specificity(a));   // not after a slash
    EXPECT_TRUE(rule(Field::url, "example.com/board").specificity(a));
}

TEST(RuleScoring, PreciserRulesOutrankLooserOnes) {
    Activity a = site("github.com", std::string("PR #12 · dupont/site"));
    auto score = [&](const Rule& r) { return *r.specificity(a); };
    std::int64_t appRule = score(rule(Field::app, "org.mozilla.firefox"));
    std::int64_t siteRule = score(rule(Field::domain, "github.com", Op::contains));
    EXPECT_GT(siteRule, appRule);
    EXPECT_GT(score(rule(Field::domain, "github.com", Op::is)), siteRule);
    EXPECT_GT(score(rule(Field::title, "dupont/site", Op::contains)), score(rule(Field::title, "dupont", Op::contains)));
    // Characters, not bytes: "é" counts once, composed or decomposed.
    Activity summer = app("x", "x", std::string("été"));
    EXPECT_EQ(rule(Field::title, "e\xCC\x81t\xC3\xA9", Op::contains).specificity(summer),
              rule(Field::title, "été", Op::contains).specificity(summer));
}

TEST(RuleScoring, ConditionsAllMustHoldAndRaiseTheScore) {
    Rule r = rule(Field::domain, "github.com");
    r.conditions = {{Field::title, Op::contains, "dupont"}};
    Activity pull = site("github.com", std::string("PR #12 · dupont/site"));
    EXPECT_GT(r.specificity(pull), rule(Field::domain, "github.com").specificity(pull));
    EXPECT_FALSE(r.specificity(site("github.com", std::string("PR #13 · martin/app"))));
    r.conditions.push_back({Field::url, Op::contains, "pull"});
    EXPECT_FALSE(r.specificity(pull));  // no URL
    // A damaged row's empty condition disables the rule rather than widening it.
    r.conditions = {{Field::title, Op::contains, ""}};
    EXPECT_FALSE(r.specificity(pull));
}

class TimedRuleTest : public ::testing::Test {
protected:
    testing::ScopedTimeZone paris{"Europe/Paris"};

    Activity at(int day, int hour, int minute) {
        Activity a = app("com.apple.dt.xcode", "Xcode");
        a.start = local::make(2026, 3, day, hour, minute);  // 2026-03-03 is a Tuesday
        a.end = a.start + 60;
        return a;
    }
};

TEST_F(TimedRuleTest, DayWindowIsHalfOpen) {
    Rule r = rule(Field::app, "com.apple.dt.xcode");
    r.startMinute = 9 * 60;
    r.endMinute = 12 * 60;
    EXPECT_TRUE(r.specificity(at(3, 9, 0)));
    EXPECT_TRUE(r.specificity(at(3, 11, 59)));
    EXPECT_FALSE(r.specificity(at(3, 12, 0)));
    EXPECT_FALSE(r.specificity(at(3, 8, 59)));
}

TEST_F(TimedRuleTest, NightWindowWrapsMidnight) {
    Rule r = rule(Field::app, "com.apple.dt.xcode");
    r.startMinute = 22 * 60;
    r.endMinute = 2 * 60;
    EXPECT_TRUE(r.specificity(at(3, 1, 0)));
    EXPECT_TRUE(r.specificity(at(3, 23, 30)));
    EXPECT_FALSE(r.specificity(at(3, 12, 0)));
    EXPECT_FALSE(r.specificity(at(3, 2, 0)));
}

TEST_F(TimedRuleTest, WeekdaysAndWindowTogether) {
    Rule tuesdayMorning = rule(Field::app, "com.apple.dt.xcode");
    tuesdayMorning.weekdays = {3};  // Tuesday
    tuesdayMorning.startMinute = 8 * 60;
    tuesdayMorning.endMinute = 12 * 60;
    EXPECT_TRUE(tuesdayMorning.specificity(at(3, 10, 0)));
    EXPECT_FALSE(tuesdayMorning.specificity(at(4, 10, 0)));  // Wednesday
    EXPECT_FALSE(tuesdayMorning.specificity(at(3, 14, 0)));
    // The restricted rule outranks the same rule without restriction.
    EXPECT_GT(*tuesdayMorning.specificity(at(3, 10, 0)), *rule(Field::app, "com.apple.dt.xcode").specificity(at(3, 10, 0)));
}

TEST(RuleColumns, ConditionsRoundTripAndDamagedTextReadsAsNothing) {
    std::vector<Rule::Condition> conditions{{Field::title, Op::contains, "dupont"}, {Field::url, Op::regex, "a\"b"}};
    EXPECT_EQ(decodeConditions(encodeConditions(conditions)), conditions);
    EXPECT_FALSE(encodeConditions({}));
    // Rows written by earlier releases and other machines must still read.
    EXPECT_EQ(decodeConditions(std::string(R"([{"field":"title","op":"contains","pattern":"dupont"}])")),
              std::vector<Rule::Condition>{conditions[0]});
    EXPECT_TRUE(decodeConditions(std::string("{not json")).empty());
    EXPECT_TRUE(decodeConditions(std::string(R"({"field":"title"})")).empty());
    EXPECT_TRUE(decodeConditions(std::string(R"([{"field":"title","op":"near","pattern":"x"}])")).empty());
    EXPECT_TRUE(decodeConditions(std::string(R"([{"field":"title","op":"is","pattern":4}])")).empty());
    EXPECT_TRUE(decodeConditions(std::nullopt).empty());
}

TEST(RuleColumns, HoursAndWeekdays) {
    EXPECT_EQ(decodeHours(encodeHours(1320, 120)), std::make_pair(std::optional(1320), std::optional(120)));
    EXPECT_FALSE(encodeHours(540, std::nullopt));
    EXPECT_EQ(decodeHours(std::string("540-720")), std::make_pair(std::optional(540), std::optional(720)));
    EXPECT_EQ(decodeHours(std::string("-540--720-")), std::make_pair(std::optional(540), std::optional(720)));
    EXPECT_EQ(decodeHours(std::string("540-x-720")), std::make_pair(std::optional(540), std::optional(720)));
    EXPECT_FALSE(decodeHours(std::string("540")).first);
    EXPECT_FALSE(decodeHours(std::string("1-2-3")).first);
    EXPECT_FALSE(decodeHours(std::string("99999999999-1")).first);

    EXPECT_EQ(decodeWeekdays(encodeWeekdays({5, 3})), (std::set<int>{3, 5}));
    EXPECT_FALSE(encodeWeekdays({}));
    EXPECT_EQ(decodeWeekdays(std::string("5,,3,x, 4")), (std::set<int>{3, 5}));
    EXPECT_TRUE(decodeWeekdays(std::nullopt).empty());
}

// The text tables are indexed by enum value: one out of order would store
// one field or operator and read back another.
TEST(RuleColumns, EveryFieldAndOperatorReadsBackAsItself) {
    for (Field field : {Field::app, Field::domain, Field::title, Field::path, Field::url})
        EXPECT_EQ(fieldFromRaw(rawValue(field)), field);
    for (Op op : {Op::contains, Op::is, Op::startsWith, Op::endsWith, Op::regex})
        EXPECT_EQ(operatorFromRaw(rawValue(op)), op);
}

} // namespace
} // namespace ombrelo
