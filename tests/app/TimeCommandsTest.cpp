// The time commands run as the real binary on a prepared database: their --json
// results, the human texts that matter, and their exit statuses.
#include "storage/ActivityStore.h"
#include "storage/Database.h"
#include "support/LocalTime.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace ombrelo {
namespace {

using nlohmann::json;
using testing::runOmbrelo;

// Monday 19 October 2026 in Paris: 2 h on Dupont › Refonte (a day rate of 550
// for 7-hour days), 20 min on a non-billable project, 10 min without project,
// half an hour away; a mail about Dupont the week before.
class TimeCommandsTest : public ::testing::Test {
protected:
    testing::ScopedTimeZone paris{"Europe/Paris"};
    testing::TempDir home;
    std::string file = (home / "ombrelo.sqlite").string();
    std::int64_t refonte = 0;
    std::vector<std::int64_t> refonteIDs;

    void SetUp() override {
        Database db{file};
        ActivityStore store{db};
        std::int64_t dupont = db.run("INSERT INTO client (name, color) VALUES ('Dupont', 'teal')");
        refonte = db.run("INSERT INTO project (client_id, name, color, rate_kind, rate_cents, day_hours) "
                         "VALUES (?, 'Refonte', 'teal', 'day', 55000, 7)",
                         {dupont});
        std::int64_t interne = db.run("INSERT INTO project (name, color, billable) VALUES ('Interne', 'green', 0)");
        Instant monday = local::make(2026, 10, 19);
        auto add = [&](double hour, double minutes, std::optional<std::int64_t> project, Activity::Kind kind,
                       std::string app, std::optional<std::string> title = std::nullopt) {
            Activity a;
            a.start = monday + hour * 3600;
            a.end = a.start + minutes * 60;
            a.kind = kind;
            a.appName = std::move(app);
            a.title = std::move(title);
            std::int64_t id = store.insert(a);
            if (project) db.run("INSERT INTO assignment (activity_id, project_id, source) VALUES (?, ?, 'manual')",
                                {id, *project});
            return id;
        };
        refonteIDs.push_back(add(9, 60, refonte, Activity::Kind::manual, "Atelier"));
        refonteIDs.push_back(add(10, 60, refonte, Activity::Kind::manual, "Atelier"));
        add(11.5, 20, interne, Activity::Kind::manual, "Réunion interne");
        add(14, 10, std::nullopt, Activity::Kind::manual, "Lecture");
        add(15, 30, std::nullopt, Activity::Kind::idle, "Inactif");
        add(9 - 7 * 24, 45, std::nullopt, Activity::Kind::app, "Mail", "Devis Dupont");
    }

    testing::CommandResult ombrelo(std::vector<std::string> arguments, const std::string& language = "fr_FR.UTF-8") {
        arguments.insert(arguments.begin(), {"--db", file});
        return runOmbrelo(home.path(), arguments,
                          {"LANG=" + language, "TZ=Europe/Paris", "OMBRELO_NOW=2026-10-21T18:00:00"});
    }
    json ombreloJSON(const std::vector<std::string>& arguments) {
        auto result = ombrelo(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        return json::parse(result.out);
    }
};

TEST_F(TimeCommandsTest, SummaryJSONIsTheAgentResult) {
    json day = ombreloJSON({"summary", "--from", "2026-10-19", "--to", "2026-10-19", "--json"});
    EXPECT_EQ(day["from"], "2026-10-19");
    EXPECT_EQ(day["to"], "2026-10-19");
    EXPECT_EQ(day["active_minutes"], 150);
    EXPECT_EQ(day["billable_minutes"], 120);
    EXPECT_EQ(day["unassigned_minutes"], 10);
    EXPECT_EQ(day["amount_eur"].dump(), "157.14");
    EXPECT_EQ(day["by_project"][0]["project"], "Dupont › Refonte");
    EXPECT_EQ(day["by_project"][0]["project_id"], refonte);

    json week = ombreloJSON({"summary", "--period", "week", "--json"});
    EXPECT_EQ(week["from"], "2026-10-19");
    EXPECT_EQ(week["to"], "2026-10-25");
    EXPECT_EQ(week["active_minutes"], 150);
    json lastWeek = ombreloJSON({"summary", "--period", "last_week", "--json"});
    EXPECT_EQ(lastWeek["active_minutes"], 45);
    EXPECT_EQ(lastWeek["by_project"][0]["project"], "Sans projet");
}

TEST_F(TimeCommandsTest, HumanSummaryReadsInTheUsersLanguage) {
    auto french = ombrelo({"summary", "--from", "2026-10-19", "--to", "2026-10-19"});
    ASSERT_EQ(french.status, 0) << french.err;
    EXPECT_NE(french.out.find("Temps actif"), std::string::npos);
    EXPECT_NE(french.out.find("2 h 30"), std::string::npos);
    EXPECT_NE(french.out.find("157,14"), std::string::npos);
    EXPECT_NE(french.out.find("Dupont › Refonte"), std::string::npos);
    EXPECT_NE(french.out.find("█"), std::string::npos);
    auto english = ombrelo({"summary", "--from", "2026-10-19", "--to", "2026-10-19"}, "en_GB.UTF-8");
    EXPECT_NE(english.out.find("Active time"), std::string::npos);
    EXPECT_NE(english.out.find("£157.14"), std::string::npos);  // the region's currency
}

TEST_F(TimeCommandsTest, TimelineAndSearch) {
    json timeline = ombreloJSON({"timeline", "2026-10-19", "--json"});
    EXPECT_EQ(timeline["date"], "2026-10-19");
    ASSERT_EQ(timeline["blocks"].size(), 4u);
    json first = timeline["blocks"][0];
    EXPECT_EQ(first["start"], "09:00");
    EXPECT_EQ(first["end"], "11:00");
    EXPECT_EQ(first["minutes"], 120);
    EXPECT_EQ(first["project"], "Dupont › Refonte");
    EXPECT_EQ(first["activity_ids"], json(refonteIDs));
    EXPECT_EQ(timeline["blocks"][3]["kind"], "idle");

    json found = ombreloJSON({"search", "dupont", "--json"});
    EXPECT_EQ(found["total_minutes"], 45);
    EXPECT_EQ(found["matches"][0]["title"], "Devis Dupont");
    EXPECT_EQ(ombreloJSON({"search", "dupont", "--days", "2", "--json"})["total_minutes"], 0);
}

TEST_F(TimeCommandsTest, ManualTimeAddsToTheProject) {
    auto added = ombrelo({"manual", "--from", "2026-10-19T16:00", "--to", "2026-10-19T17:30", "Appel", "--project",
                          "refonte"});
    ASSERT_EQ(added.status, 0) << added.err;
    EXPECT_NE(added.out.find("1 h 30"), std::string::npos);
    json day = ombreloJSON({"summary", "--from", "2026-10-19", "--to", "2026-10-19", "--json"});
    EXPECT_EQ(day["billable_minutes"], 210);
    EXPECT_EQ(day["amount_eur"], 275.0);  // 3 h 30 of a 7-hour day

    EXPECT_EQ(ombrelo({"manual", "--from", "2026-10-19T18:00", "--to", "2026-10-19T17:00", "Appel"}).status, 1);
    EXPECT_EQ(ombrelo({"manual", "--from", "19/10/2026", "--to", "2026-10-19T17:00", "Appel"}).status, 1);
    auto unknown = ombrelo({"manual", "--from", "2026-10-19T18:00", "--to", "2026-10-19T19:00", "Appel", "--project",
                            "Zorglub"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_NE(unknown.err.find("Projet introuvable : Zorglub"), std::string::npos);
}

TEST_F(TimeCommandsTest, BillingMarksAndTotals) {
    json before = ombreloJSON({"billing", "totals", "--json"});
    EXPECT_EQ(before["whole_history"], true);
    EXPECT_EQ(before["to_bill_eur"].dump(), "157.14");
    EXPECT_EQ(before["to_bill_minutes"], 120);
    EXPECT_EQ(before["billed_eur"], 0);

    // One hour billed, one still to bill: each priced on its own (78.57 twice).
    auto marked = ombrelo({"billing", "mark", "billed", "--ids", std::to_string(refonteIDs[0]), "--invoice", "F-1"});
    ASSERT_EQ(marked.status, 0) << marked.err;
    EXPECT_NE(marked.out.find("Facturé (facture F-1)"), std::string::npos);
    json split = ombreloJSON({"billing", "totals", "--json"});
    EXPECT_EQ(split["to_bill_eur"].dump(), "78.57");
    EXPECT_EQ(split["billed_eur"].dump(), "78.57");

    // Paid over the day keeps the invoice; the non-billable project is left alone.
    ASSERT_EQ(ombrelo({"billing", "mark", "paid", "--from", "2026-10-19", "--to", "2026-10-19", "--project",
                       "Refonte"})
                  .status,
              0);
    json paid = ombreloJSON({"billing", "totals", "--from", "2026-10-19", "--to", "2026-10-19", "--json"});
    EXPECT_EQ(paid["to_bill_eur"], 0);
    EXPECT_EQ(paid["paid_eur"].dump(), "157.14");

    ASSERT_EQ(ombrelo({"billing", "clear", "--ids", std::to_string(refonteIDs[1])}).status, 0);
    EXPECT_EQ(ombreloJSON({"billing", "totals", "--json"})["to_bill_eur"].dump(), "78.57");

    auto card = ombrelo({"billing", "totals"});
    EXPECT_NE(card.out.find("À facturer (tout l'historique)"), std::string::npos);
    EXPECT_NE(card.out.find("78,57"), std::string::npos);
}

TEST_F(TimeCommandsTest, BadArgumentsAreUsageErrorsAndUnknownNamesFailures) {
    EXPECT_EQ(ombrelo({"summary", "--period", "fortnight"}).status, 1);
    auto badDay = ombrelo({"summary", "--from", "2026-13-01"});
    EXPECT_EQ(badDay.status, 1);
    EXPECT_NE(badDay.err.find("Date invalide : 2026-13-01 (AAAA-MM-JJ)"), std::string::npos);
    EXPECT_EQ(ombrelo({"summary", "--to", "2026-10-19"}).status, 1);
    EXPECT_EQ(ombrelo({"timeline", "hier"}).status, 1);
    EXPECT_EQ(ombrelo({"search", "  "}).status, 1);
    EXPECT_EQ(ombrelo({"billing", "mark", "done", "--ids", "1"}).status, 1);
    EXPECT_EQ(ombrelo({"billing", "mark", "paid"}).status, 1);
    EXPECT_EQ(ombrelo({"billing", "mark", "paid", "--ids", "99999"}).status, 2);
    EXPECT_EQ(ombrelo({"billing", "mark", "paid", "--from", "2026-10-19", "--to", "2026-10-19", "--project", "Zorglub"})
                  .status,
              2);
    // Nothing was marked by any of them.
    EXPECT_EQ(ombreloJSON({"billing", "totals", "--json"})["paid_eur"], 0);
}

} // namespace
} // namespace ombrelo
