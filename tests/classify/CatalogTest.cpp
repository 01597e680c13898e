#include "classify/Catalog.h"
#include "classify/DefaultCatalog.h"
#include "storage/Database.h"
#include "support/LocalTime.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace ombrelo {
namespace {

using Field = Rule::Field;
using Op = Rule::Operator;

Activity app(std::string bundleID, std::string name = "App") {
    Activity a;
    a.bundleID = std::move(bundleID);
    a.appName = std::move(name);
    return a;
}

Activity site(std::string domain, std::string browser = "firefox") {
    Activity a = app(std::move(browser), "Firefox");
    a.domain = std::move(domain);
    return a;
}

class CatalogTest : public ::testing::Test {
protected:
    testing::ScopedLanguage french{"fr"};
    testing::TempDir dir;
    Database db{dir / "catalog.sqlite"};

    std::int64_t categoryID(const Catalog& catalog, std::string_view name) {
        for (const Category& category : catalog.categories())
            if (category.name == name) return category.id;
        ADD_FAILURE() << "no category " << name;
        return 0;
    }
    std::string categoryOf(Catalog& catalog, const Activity& activity) {
        auto category = catalog.ruleCategory(activity);
        return category ? category->name : "-";
    }
};

TEST_F(CatalogTest, SeedsOnceWithUsableRulesUntrackedBySync) {
    Catalog catalog(db);
    ASSERT_FALSE(catalog.categories().empty());
    std::vector<std::string_view> patterns;
    for (const Rule& rule : catalog.rules()) {
        // A rule naming a missing category would be seeded inert; one not stored
        // as the editor saves it would never match.
        EXPECT_TRUE(rule.categoryID && catalog.category(*rule.categoryID)) << rule.pattern;
        EXPECT_EQ(rule, rule.normalized()) << rule.pattern;
        patterns.push_back(rule.pattern);
    }
    // No pattern twice: a rule's sync identity is built from its pattern.
    std::sort(patterns.begin(), patterns.end());
    EXPECT_EQ(std::adjacent_find(patterns.begin(), patterns.end()), patterns.end());
    // The seed is not tracked for sync, and the marker does not outlive it.
    EXPECT_FALSE(db.queryInt("SELECT COUNT(*) FROM sync_meta WHERE key = 'applying'").value_or(0));
    EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM category WHERE modified IS NOT 0"), 0);
    EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM rule WHERE modified IS NOT 0"), 0);

    Catalog again(db);
    EXPECT_EQ(again.categories(), catalog.categories());
    EXPECT_EQ(again.rules(), catalog.rules());
}

TEST_F(CatalogTest, DefaultRulesClassifyTheUsualCases) {
    Catalog catalog(db);
    EXPECT_EQ(categoryOf(catalog, app("com.apple.dt.Xcode", "Xcode")), "Code");
    EXPECT_EQ(categoryOf(catalog, app("fr.ombrelo.app", "Ombrelo")), "Ombrelo");
    EXPECT_EQ(categoryOf(catalog, app("org.gnome.terminal", "Terminal")), "Code");
    EXPECT_EQ(categoryOf(catalog, app("thunderbird", "Thunderbird")), "Communication");
    auto video = catalog.ruleCategory(site("www.youtube.com"));
    EXPECT_TRUE(video && video->isDistraction);
    EXPECT_EQ(categoryOf(catalog, site("autoentrepreneur.urssaf.fr")), "Administratif");
    // A site rule outranks an app rule.
    EXPECT_EQ(categoryOf(catalog, site("youtube.com", "org.gnome.terminal")), "Divertissement");
    // A browser without a site (or an unknown one) is navigation; another app is nothing.
    EXPECT_EQ(categoryOf(catalog, app("firefox", "Firefox")), "Navigation");
    EXPECT_EQ(categoryOf(catalog, site("example.org", "com.apple.Safari")), "Navigation");
    EXPECT_EQ(categoryOf(catalog, app("org.example.unknown")), "-");
    Activity secret = app("com.apple.dt.xcode");
    secret.kind = Activity::Kind::privateTime;
    EXPECT_EQ(categoryOf(catalog, secret), "-");
}

// The language may change after the seed: default categories must still be
// recognised under the names they were stored with.
TEST_F(CatalogTest, DefaultCategoriesAreFoundWhateverLanguageSeededThem) {
    {
        testing::ScopedLanguage english("en");
        Catalog seeded(db);
    }
    Catalog catalog(db);
    ASSERT_TRUE(catalog.navigation());
    EXPECT_NE(catalog.navigation()->name, "Navigation");  // stored in English
    EXPECT_EQ(categoryOf(catalog, site("example.org")), catalog.navigation()->name);
    EXPECT_EQ(defaultKey("Clients"), "Clients");
}

TEST_F(CatalogTest, SeedingFailureKeepsNothing) {
    // Fails half-way, once categories and some rules are in.
    db.execute("CREATE TRIGGER refuse BEFORE INSERT ON rule WHEN (SELECT COUNT(*) FROM rule) >= 3 "
               "BEGIN SELECT RAISE(ABORT, 'refused'); END;");
    EXPECT_THROW(Catalog{db}, DatabaseError);
    EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM category"), 0);
    EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM rule"), 0);
    EXPECT_EQ(db.queryInt("SELECT COUNT(*) FROM sync_meta WHERE key = 'applying'"), 0);
    EXPECT_FALSE(db.inTransaction());
}

TEST_F(CatalogTest, SavedRuleReadsBackEqual) {
    Catalog catalog(db);
    Rule rule;
    rule.field = Field::domain;
    rule.pattern = " GitHub.com ";
    rule.op = Op::is;
    rule.categoryID = categoryID(catalog, "Rédaction");
    rule.conditions = {{Field::title, Op::regex, "PR #\\d+"}, {Field::url, Op::contains, "Pull"}};
    rule.startMinute = 1320;
    rule.endMinute = 120;
    rule.weekdays = {5, 3};
    auto id = catalog.save(rule);
    ASSERT_TRUE(id);
    Rule expected = rule.normalized();
    expected.id = *id;
    EXPECT_EQ(catalog.rules().back(), expected);
    EXPECT_EQ(Catalog(db).rules().back(), expected);

    expected.weekdays.clear();
    expected.conditions.clear();
    expected.startMinute.reset();
    expected.endMinute.reset();
    ASSERT_TRUE(catalog.save(expected));
    EXPECT_EQ(catalog.rules().back(), expected);
    EXPECT_EQ(Catalog(db).rules().back(), expected);
}

TEST_F(CatalogTest, DamagedRowsReadAsNothing) {
    Catalog catalog(db);
    std::int64_t code = categoryID(catalog, "Code");
    db.run("INSERT INTO rule (field, pattern, category_id, operator, conditions, hours, weekdays) "
           "VALUES ('banana', 'Foo', ?, 'near', '{oops', '9h-12h', 'lundi')",
           {code});
    ASSERT_TRUE(catalog.reload());
    const Rule& damaged = catalog.rules().back();
    EXPECT_EQ(damaged.field, Field::app);
    EXPECT_EQ(damaged.pattern, "Foo");
    EXPECT_FALSE(damaged.op);
    EXPECT_TRUE(damaged.conditions.empty());
    EXPECT_FALSE(damaged.hasWindow());
    EXPECT_TRUE(damaged.weekdays.empty());
}

TEST_F(CatalogTest, BestRuleIsTheMostSpecificAndOlderWinsTies) {
    Catalog catalog(db);
    std::int64_t design = categoryID(catalog, "Design"), writing = categoryID(catalog, "Rédaction");
    Rule first;
    first.field = Field::title;
    first.op = Op::contains;
    first.pattern = "maquette";
    first.categoryID = writing;
    Rule second = first;
    second.categoryID = design;
    ASSERT_TRUE(catalog.save(first));
    ASSERT_TRUE(catalog.save(second));
    Activity a = app("org.example.editor");
    a.title = "Maquette accueil";
    EXPECT_EQ(categoryOf(catalog, a), "Rédaction");

    // A longer pattern is more precise and wins, whatever its age.
    Rule longer = second;
    longer.pattern = "maquette accueil";
    ASSERT_TRUE(catalog.save(longer));
    EXPECT_EQ(categoryOf(catalog, a), "Design");
}

TEST_F(CatalogTest, RuleChangesReachTheMatchCache) {
    Catalog catalog(db);
    Activity a = app("org.example.editor");
    a.title = "Devis Dupont";
    EXPECT_EQ(categoryOf(catalog, a), "-");
    Rule rule;
    rule.field = Field::title;
    rule.op = Op::contains;
    rule.pattern = "dupont";
    rule.categoryID = categoryID(catalog, "Administratif");
    auto id = catalog.save(rule);
    ASSERT_TRUE(id);
    EXPECT_EQ(categoryOf(catalog, a), "Administratif");
    rule.id = *id;
    rule.categoryID = categoryID(catalog, "Design");
    ASSERT_TRUE(catalog.save(rule));
    EXPECT_EQ(categoryOf(catalog, a), "Design");
    ASSERT_TRUE(catalog.remove(catalog.rules().back()));
    EXPECT_EQ(categoryOf(catalog, a), "-");
}

// The catalogue memoises test results per field value and candidates per
// activity text; whatever it caches, its choice must be the one direct scoring
// of every rule gives.
TEST_F(CatalogTest, MemoisedChoiceAgreesWithDirectScoring) {
    testing::ScopedTimeZone paris("Europe/Paris");
    Catalog catalog(db);
    std::int64_t code = categoryID(catalog, "Code"), design = categoryID(catalog, "Design"),
                 writing = categoryID(catalog, "Rédaction");
    std::int64_t project = db.run("INSERT INTO project (name, color) VALUES ('Refonte', 'teal')");
    auto add = [&](Field field, std::string pattern, std::optional<Op> op, std::optional<std::int64_t> category,
                   std::vector<Rule::Condition> conditions = {}, std::optional<std::int64_t> projectID = std::nullopt) {
        Rule rule;
        rule.field = field;
        rule.pattern = std::move(pattern);
        rule.op = op;
        rule.categoryID = category;
        rule.projectID = projectID;
        rule.conditions = std::move(conditions);
        return *catalog.save(rule);
    };
    add(Field::domain, "github.com", Op::is, design, {{Field::title, Op::contains, "dupont"}});
    add(Field::title, "dupont", Op::contains, writing, {{Field::app, Op::is, "firefox"}, {Field::url, Op::contains, "pull"}});
    add(Field::title, "^pr #\\d+", Op::regex, code, {{Field::domain, Op::endsWith, ".com"}});
    add(Field::url, "github.com/dupont", Op::contains, std::nullopt, {}, project);
    add(Field::title, "dupont", Op::contains, std::nullopt, {{Field::domain, Op::is, "gitlab.com"}}, project);
    std::int64_t timed = add(Field::title, "pr", Op::startsWith, writing);
    Rule window = *std::find_if(catalog.rules().begin(), catalog.rules().end(), [&](const Rule& r) { return r.id == timed; });
    window.startMinute = 9 * 60;
    window.endMinute = 12 * 60;
    window.weekdays = {3};
    ASSERT_TRUE(catalog.save(window));

    std::vector<Activity> activities;
    for (std::string browser : {"firefox", "org.gnome.terminal"})
        for (std::optional<std::string> domain : {std::optional<std::string>("github.com"), std::optional<std::string>("gitlab.com"),
                                                  std::optional<std::string>()})
            for (std::string title : {"PR #12 · dupont/site", "pr 3 martin", "Réunion"})
                for (std::optional<std::string> url : {std::optional<std::string>("https://github.com/dupont/site/pull/12"),
                                                       std::optional<std::string>()})
                    for (int hour : {10, 15}) {
                        Activity a = app(browser, "App");
                        a.domain = domain;
                        a.title = title;
                        a.url = url;
                        a.start = local::make(2026, 3, 3, hour, 0);  // a Tuesday
                        a.end = a.start + 60;
                        activities.push_back(a);
                    }
    // Twice: the second pass answers from the caches.
    for (int pass = 0; pass < 2; ++pass) {
        std::vector<Classification> results = catalog.classifyDetailed(activities, {{project, {}, "Refonte", "teal"}});
        for (std::size_t i = 0; i < activities.size(); ++i) {
            std::optional<std::int64_t> bestCategory, bestProject;
            std::int64_t categoryScore = 0, projectScore = 0;
            for (const RuleScore& scored : catalog.applicableRules(activities[i])) {
                if (scored.rule.categoryID && (!bestCategory || scored.score > categoryScore))
                    bestCategory = scored.rule.id, categoryScore = scored.score;
                if (scored.rule.projectID && (!bestProject || scored.score > projectScore))
                    bestProject = scored.rule.id, projectScore = scored.score;
            }
            EXPECT_EQ(results[i].categoryRuleID, bestCategory) << i;
            EXPECT_EQ(results[i].projectRuleID, bestProject) << i;
        }
    }
}

TEST_F(CatalogTest, DeletingACategoryRemovesItsRulesOnly) {
    Catalog catalog(db);
    std::vector<Rule> kept = catalog.rules();
    std::int64_t social = categoryID(catalog, "Réseaux sociaux");
    std::erase_if(kept, [&](const Rule& rule) { return rule.categoryID == social; });
    ASSERT_TRUE(catalog.remove(*catalog.category(social)));
    EXPECT_FALSE(catalog.category(social));
    EXPECT_EQ(catalog.rules(), kept);
    EXPECT_EQ(categoryOf(catalog, site("reddit.com")), "Navigation");
}

TEST_F(CatalogTest, FailedWritesAreReportedNotThrown) {
    Catalog catalog(db);
    std::vector<Rule> before = catalog.rules();
    Rule orphan;
    orphan.field = Field::app;
    orphan.pattern = "x";
    orphan.categoryID = 9999;  // no such category: the foreign key refuses it
    EXPECT_FALSE(catalog.save(orphan));
    ASSERT_TRUE(catalog.lastError());
    EXPECT_EQ(catalog.rules(), before);

    Category named{0, "Clients", "teal", "tag", false};
    EXPECT_TRUE(catalog.save(named));
    EXPECT_FALSE(catalog.lastError());

    Catalog detached;
    EXPECT_FALSE(detached.save(named));
    EXPECT_TRUE(detached.categories().empty());
}

} // namespace
} // namespace ombrelo
