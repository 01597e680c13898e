// The categories, rules, assignment and activity commands, through the real
// binary on a real database, asserting on their JSON.
#include "storage/ActivityStore.h"
#include "support/LocalTime.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace ombrelo {
namespace {

class ClassifyCommandTest : public ::testing::Test {
protected:
    testing::ScopedTimeZone paris{"Europe/Paris"};
    testing::TempDir home;
    std::filesystem::path file = home / "ombrelo.sqlite";
    std::int64_t xcode = 0, hub = 0, video = 0, lateNight = 0;

    void SetUp() override {
        Database db(file);
        ActivityStore store(db);
        auto add = [&](int day, int hour, int minute, std::string bundle, std::optional<std::string> domain,
                       std::optional<std::string> title) {
            Activity a;
            a.start = local::make(2026, 3, day, hour, minute);
            a.end = a.start + 20 * 60;
            a.bundleID = std::move(bundle);
            a.appName = "App";
            a.domain = std::move(domain);
            a.title = std::move(title);
            return store.insert(a);
        };
        xcode = add(3, 9, 0, "com.apple.dt.Xcode", std::nullopt, "main.swift");
        hub = add(3, 10, 0, "firefox", "github.com", "PR #12 · dupont/site");
        video = add(3, 10, 20, "firefox", "www.youtube.com", "Vidéo");
        lateNight = add(4, 0, 30, "com.apple.dt.Xcode", std::nullopt, "main.swift");
    }

    testing::CommandResult run(std::vector<std::string> arguments, const char* language = "en") {
        arguments.insert(arguments.begin(), {"--db", file.string()});
        return testing::runOmbrelo(home.path(), arguments,
                                   {"TZ=Europe/Paris", std::string("LC_ALL=") + language, "LANG=", "LC_MESSAGES="});
    }

    nlohmann::json json(std::vector<std::string> arguments) {
        arguments.push_back("--json");
        testing::CommandResult result = run(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        return nlohmann::json::parse(result.out);
    }

    // Activities of 2026-03-03 by id.
    std::map<std::int64_t, nlohmann::json> day() {
        std::map<std::int64_t, nlohmann::json> byID;
        nlohmann::json document = json({"activities", "--from", "2026-03-03", "--to", "2026-03-03"});
        for (const nlohmann::json& a : document["activities"]) byID[a["id"].get<std::int64_t>()] = a;
        return byID;
    }
};

TEST_F(ClassifyCommandTest, RulesAssignmentsAndActivitiesWorkTogether) {
    ASSERT_EQ(run({"clients", "add", "Dupont"}).status, 0);
    ASSERT_EQ(run({"projects", "add", "Refonte", "--client", "dupont"}).status, 0);
    nlohmann::json rule = json({"rules", "add", "app", "com.apple.dt.xcode", "--project", "REFONTE"});
    std::int64_t ruleID = rule["id"].get<std::int64_t>();
    EXPECT_EQ(rule["project"], "Dupont › Refonte");

    auto activities = day();
    ASSERT_EQ(activities.size(), 3u);  // --to is the last day included, the next day is not
    EXPECT_EQ(activities[xcode]["project"], "Dupont › Refonte");
    EXPECT_EQ(activities[xcode]["project_rule_id"], ruleID);
    EXPECT_EQ(activities[xcode]["category"], "Code");
    EXPECT_EQ(activities[xcode]["bundle_id"], "com.apple.dt.Xcode");
    EXPECT_EQ(activities[hub]["category"], "Code");
    EXPECT_TRUE(activities[hub]["project_rule_id"].is_null());
    EXPECT_EQ(activities[hub]["project"], "No project");
    EXPECT_EQ(activities[video]["category"], "Entertainment");
    EXPECT_EQ(json({"activities", "--from", "2026-03-03", "--to", "2026-03-04"})["activities"].size(), 4u);

    // A correction to no project sticks over the rule; an unknown id changes nothing.
    ASSERT_EQ(run({"assign", "none", "--ids", std::to_string(xcode)}).status, 0);
    EXPECT_EQ(run({"assign", "refonte", "--ids", std::to_string(xcode) + ",999"}).status, 2);
    EXPECT_EQ(run({"assign", "Nowhere", "--ids", std::to_string(xcode)}).status, 2);
    activities = day();
    EXPECT_TRUE(activities[xcode]["project_id"].is_null());
    EXPECT_TRUE(activities[xcode]["manual"].get<bool>());
    EXPECT_TRUE(activities[xcode]["project_rule_id"].is_null());

    // A period assigns what overlaps it; a note changes nothing else.
    ASSERT_EQ(run({"assign", "Refonte", "--from", "2026-03-03T10:00", "--to", "2026-03-03T10:20"}).status, 0);
    ASSERT_EQ(run({"note", "revue", "--ids", std::to_string(video)}).status, 0);
    activities = day();
    EXPECT_EQ(activities[hub]["project"], "Dupont › Refonte");
    EXPECT_TRUE(activities[video]["project_id"].is_null());
    EXPECT_EQ(activities[video]["note"], "revue");

    ASSERT_EQ(run({"unassign", "--ids", std::to_string(xcode) + "," + std::to_string(hub)}).status, 0);
    activities = day();
    EXPECT_EQ(activities[xcode]["project_rule_id"], ruleID);
    EXPECT_FALSE(activities[xcode]["manual"].get<bool>());
    EXPECT_TRUE(activities[hub]["project_id"].is_null());
}

TEST_F(ClassifyCommandTest, ExplainShowsEveryApplicableRuleAndTheWinner) {
    nlohmann::json precise = json({"rules", "add", "domain", "github.com", "--op", "is", "--when", "title:contains:dupont",
                                   "--hours", "09:00-12:00", "--days", "mon-fri", "--category", "Writing"});
    EXPECT_EQ(precise["hours"], "09:00-12:00");
    EXPECT_EQ(precise["weekdays"], nlohmann::json({2, 3, 4, 5, 6}));
    EXPECT_EQ(precise["conditions"][0]["pattern"], "dupont");

    nlohmann::json why = json({"explain", std::to_string(hub)});
    ASSERT_EQ(why["rules"].size(), 2u);
    EXPECT_EQ(why["rules"][0]["pattern"], "github.com");  // the default rule
    EXPECT_FALSE(why["rules"][0]["decides_category"].get<bool>());
    EXPECT_GT(why["rules"][1]["score"], why["rules"][0]["score"]);
    EXPECT_TRUE(why["rules"][1]["decides_category"].get<bool>());
    EXPECT_EQ(why["activity"]["category"], "Writing");
    EXPECT_EQ(why["category_reason"], "rule");
    EXPECT_TRUE(why["assignment"].is_null());
}

TEST_F(ClassifyCommandTest, BadInputIsRefusedAndChangesNothing) {
    std::size_t rules = json({"rules", "list"})["rules"].size();
    EXPECT_EQ(run({"rules", "add", "domain", "example.org"}).status, 1);  // neither category nor project
    EXPECT_EQ(run({"rules", "add", "domain", "example.org", "--category", "nope"}).status, 2);
    EXPECT_EQ(run({"rules", "add", "domain", "example.org", "--category", "Code", "--hours", "9-9"}).status, 1);
    EXPECT_EQ(run({"rules", "add", "planet", "x", "--category", "Code"}).status, 1);
    EXPECT_EQ(run({"rules", "edit", "99999", "--category", "Code"}).status, 2);
    EXPECT_EQ(run({"categories", "add", "code"}).status, 1);  // the name is taken
    EXPECT_EQ(run({"categories", "edit", "nope", "--color", "teal"}).status, 2);
    EXPECT_EQ(run({"assign", "none", "--ids", "1,x"}).status, 1);
    EXPECT_EQ(run({"activities", "--from", "2026-03-04", "--to", "2026-03-03"}).status, 1);
    EXPECT_EQ(json({"rules", "list"})["rules"].size(), rules);

    // An invalid regular expression is saved with its warning, and never matches.
    testing::CommandResult saved = run({"rules", "add", "title", "Devis(", "--op", "regex", "--category", "Admin"}, "fr");
    EXPECT_EQ(saved.status, 0);
    EXPECT_NE(saved.err.find("Expression régulière invalide"), std::string::npos);
    nlohmann::json last = json({"rules", "list"})["rules"].back();
    EXPECT_EQ(last["pattern"], "Devis(");
    EXPECT_FALSE(last["regex_problem"].is_null());
}

TEST_F(ClassifyCommandTest, CategoriesByNameInEitherLanguage) {
    std::size_t categories = json({"categories", "list"})["categories"].size();
    nlohmann::json edited = json({"categories", "edit", "divertissement", "--distraction", "no"});
    EXPECT_FALSE(edited["distraction"].get<bool>());
    EXPECT_EQ(edited["default_key"], "Divertissement");
    nlohmann::json added = json({"categories", "add", "Clients", "--color", "green", "--distraction"});
    EXPECT_TRUE(added["distraction"].get<bool>());
    testing::CommandResult removed = run({"categories", "remove", "clients"}, "fr");
    EXPECT_EQ(removed.status, 0);
    EXPECT_NE(removed.out.find("le temps redevient non classé"), std::string::npos);
    EXPECT_EQ(json({"categories", "list"})["categories"].size(), categories);
}

} // namespace
} // namespace ombrelo
