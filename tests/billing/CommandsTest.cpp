// The clients, projects and active-project commands, through the real binary in
// a private home folder.
#include "support/LocalTime.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace ombrelo {
namespace {

using testing::runOmbrelo;

class BillingCommands : public ::testing::Test {
protected:
    testing::TempDir home;

    testing::CommandResult run(const std::vector<std::string>& arguments, const char* language = "fr") {
        return runOmbrelo(home.path(), arguments, {std::string("LANG=") + language + ".UTF-8", "LC_ALL=", "LC_MESSAGES=", "LC_MONETARY="});
    }
    nlohmann::json json(const std::vector<std::string>& arguments) {
        testing::CommandResult result = run(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        return nlohmann::json::parse(result.out);
    }
};

TEST_F(BillingCommands, ProjectsAreSavedExactlyAndListedByName) {
    ASSERT_EQ(run({"clients", "add", "Atelier Dupont", "--color", "peach"}).status, 0);
    nlohmann::json refonte = json({"projects", "add", "refonte", "--client", "dupont", "--rate-kind", "day", "--rate",
                                   "550", "--rounding", "halfDay", "--day-hours", "7h30", "--budget", "40,5", "--json"});
    EXPECT_EQ(refonte["label"], "Atelier Dupont › refonte");
    EXPECT_EQ(refonte["rate_cents"], 55000);
    EXPECT_EQ(refonte["day_hours"], 7.5);
    EXPECT_EQ(refonte["budget_minutes"], 2430);
    ASSERT_EQ(run({"projects", "add", "Audit", "--rate", "62,50", "--billable", "non"}).status, 0);

    nlohmann::json listed = json({"projects", "list", "--json"});
    ASSERT_EQ(listed["projects"].size(), 2u);
    EXPECT_EQ(listed["projects"][0]["name"], "Audit");
    EXPECT_EQ(listed["projects"][0]["rate_cents"], 6250);
    EXPECT_EQ(listed["projects"][0]["billable"], false);
    EXPECT_EQ(listed["projects"][1]["name"], "refonte");

    // Edits by name, ignoring case; only the options given change.
    ASSERT_EQ(run({"projects", "edit", "AUDIT", "--rate", "70", "--client", "Atelier Dupont"}).status, 0);
    nlohmann::json audit = json({"projects", "list", "--json"})["projects"][0];
    EXPECT_EQ(audit["rate_cents"], 7000);
    EXPECT_EQ(audit["client"], "Atelier Dupont");
    EXPECT_EQ(audit["billable"], false);

    nlohmann::json clients = json({"clients", "list", "--json"});
    EXPECT_EQ(clients["clients"][0]["projects"], 2);
}

TEST_F(BillingCommands, BadValuesAndUnknownNamesChangeNothing) {
    ASSERT_EQ(run({"projects", "add", "Refonte", "--rate", "100"}).status, 0);
    nlohmann::json before = json({"projects", "list", "--json"});

    struct Case {
        std::vector<std::string> arguments;
        int status;
        const char* message;
    };
    for (const Case& c : std::vector<Case>{
             {{"projects", "edit", "Refonte", "--rate", "62.505"}, 1, "Deux décimales au plus"},
             {{"projects", "edit", "Refonte", "--rate", "10000000.01"}, 1, "Au plus"},
             {{"projects", "edit", "Refonte", "--rate", "-5"}, 1, "Taux"},
             {{"projects", "edit", "Refonte", "--day-hours", "0"}, 1, "Heures par jour"},
             {{"projects", "edit", "Refonte", "--budget", "1.001"}, 1, "Budget"},
             {{"projects", "edit", "Refonte", "--rounding", "weekly"}, 1, "Arrondi"},
             {{"projects", "edit", "Refonte", "--client", "Nobody"}, 2, "Client introuvable : Nobody"},
             {{"projects", "edit", "Nothing", "--rate", "5"}, 2, "Projet introuvable : Nothing"},
             {{"projects", "remove", "999"}, 2, "Projet introuvable : 999"},
             {{"work", "Nothing"}, 2, "Projet introuvable"},
             {{"clients", "remove", "Nobody"}, 2, "Client introuvable"},
         }) {
        testing::CommandResult result = run(c.arguments);
        EXPECT_EQ(result.status, c.status) << c.arguments[1] << " " << c.arguments[2] << ": " << result.err;
        EXPECT_NE(result.err.find(c.message), std::string::npos) << result.err;
    }
    EXPECT_EQ(json({"projects", "list", "--json"}), before);
    EXPECT_EQ(json({"active", "--json"})["project"], nullptr);
}

TEST_F(BillingCommands, WorkActiveAndStop) {
    ASSERT_EQ(run({"projects", "add", "Refonte"}).status, 0);
    ASSERT_EQ(run({"projects", "add", "Durant"}).status, 0);
    std::string day = local::formatDay(Clock::system().now());

    nlohmann::json started = json({"work", "refonte", "--note", "maquettes", "--json"});
    EXPECT_EQ(started["label"], "Refonte");
    EXPECT_EQ(started["note"], "maquettes");
    nlohmann::json active = json({"active", "--json"});
    if (local::formatDay(Clock::system().now()) != day) GTEST_SKIP() << "midnight passed during the test";
    EXPECT_EQ(active["project"]["name"], "Refonte");
    EXPECT_EQ(active["since"], started["since"]);
    EXPECT_EQ(active["note"], "maquettes");

    // The same project again keeps its start and note; another one replaces both.
    EXPECT_EQ(json({"work", "Refonte", "--json"})["since"], started["since"]);
    EXPECT_EQ(json({"active", "--json"})["note"], "maquettes");
    nlohmann::json switched = json({"work", "durant", "--json"});
    EXPECT_EQ(switched["label"], "Durant");
    EXPECT_EQ(switched["note"], nullptr);

    // An archived project cannot be started and stops being active.
    ASSERT_EQ(run({"projects", "archive", "Durant"}).status, 0);
    EXPECT_EQ(json({"active", "--json"})["project"], nullptr);
    EXPECT_EQ(run({"work", "Durant"}).status, 2);
    ASSERT_EQ(run({"projects", "archive", "Durant", "--undo"}).status, 0);
    EXPECT_EQ(json({"active", "--json"})["label"], "Durant");

    testing::CommandResult stopped = run({"stop"}, "en");
    EXPECT_EQ(stopped.status, 0);
    EXPECT_EQ(stopped.out, "Project in progress stopped: Durant\n");
    EXPECT_EQ(json({"active", "--json"})["project"], nullptr);
    EXPECT_EQ(run({"active"}).out, "Aucun projet en cours\n");
}

} // namespace
} // namespace ombrelo
