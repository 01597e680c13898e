// The time commands run as the real binary on a prepared database: their --json
// results, the human texts that matter, and their exit statuses; and the project
// commands that could change what that time is worth.
#include "storage/ActivityStore.h"
#include "storage/Database.h"
#include "support/LocalTime.h"
#include "testing/BillingInvariant.h"
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

    // Whatever the commands did, amounts still add up day by day.
    void TearDown() override { testing::expectBillingAddsUp(file); }

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

    // A week without billable time says so with a zero, not "< 1 min".
    auto unbilled = ombrelo({"summary", "--period", "last_week"});
    EXPECT_NE(unbilled.out.find("0 min"), std::string::npos);
    EXPECT_EQ(unbilled.out.find("< 1 min"), std::string::npos) << unbilled.out;
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

    // Over the workshop recorded at 9:00 the same hour would count twice.
    auto overlapping = ombrelo({"manual", "--from", "2026-10-19T09:30", "--to", "2026-10-19T10:00", "Appel"});
    EXPECT_EQ(overlapping.status, 2);
    EXPECT_NE(overlapping.err.find("09:00–10:00 Atelier (1 h 00)"), std::string::npos) << overlapping.err;
    auto replacing =
        ombrelo({"manual", "--from", "2026-10-19T09:30", "--to", "2026-10-19T10:00", "Appel", "--replace"});
    ASSERT_EQ(replacing.status, 0) << replacing.err;
    EXPECT_EQ(ombreloJSON({"summary", "--from", "2026-10-19", "--to", "2026-10-19", "--json"})["billable_minutes"],
              180) << "the half hour replaced left the project";
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

// Removing a project must not make its time, and what was billed or paid for
// it, vanish unnoticed.
TEST_F(TimeCommandsTest, RemovingAProjectWithTimeIsRefusedUnlessForcedAndConfirmed) {
    ASSERT_EQ(ombrelo({"billing", "mark", "billed", "--ids", std::to_string(refonteIDs[0])}).status, 0);
    ASSERT_EQ(ombrelo({"billing", "mark", "paid", "--ids", std::to_string(refonteIDs[1])}).status, 0);
    auto refonteStillThere = [&] {
        json day = ombreloJSON({"summary", "--from", "2026-10-19", "--to", "2026-10-19", "--json"});
        EXPECT_EQ(day["by_project"][0]["project"], "Dupont › Refonte");
        json totals = ombreloJSON({"billing", "totals", "--json"});
        EXPECT_EQ(totals["billed_eur"].dump(), "78.57");
        EXPECT_EQ(totals["paid_eur"].dump(), "78.57");
    };

    auto refused = ombrelo({"projects", "remove", "Refonte"});
    EXPECT_EQ(refused.status, 2);
    EXPECT_NE(refused.err.find("2 activités (2 h 00)"), std::string::npos) << refused.err;
    EXPECT_NE(refused.err.find("ombrelo projects archive Refonte"), std::string::npos) << refused.err;
    refonteStillThere();

    // --force alone shows what would become of the time and asks for --yes.
    auto preview = ombrelo({"projects", "remove", "Refonte", "--force"});
    EXPECT_EQ(preview.status, 2);
    EXPECT_NE(preview.out.find("« Sans projet » 2 activités (2 h 00)"), std::string::npos) << preview.out;
    EXPECT_NE(preview.out.find("facturé 78,57"), std::string::npos) << preview.out;
    EXPECT_NE(preview.out.find("payé 78,57"), std::string::npos) << preview.out;
    EXPECT_NE(preview.err.find("--force --yes"), std::string::npos) << preview.err;
    auto english = ombrelo({"projects", "remove", "Refonte", "--force"}, "en_US.UTF-8");
    EXPECT_EQ(english.status, 2);
    EXPECT_NE(english.out.find("2 activities (2 h 00) to \"No project\""), std::string::npos) << english.out;
    EXPECT_NE(english.out.find("billed $78.57"), std::string::npos) << english.out;
    EXPECT_EQ(ombrelo({"projects", "remove", "Refonte", "--yes"}).status, 1);
    refonteStillThere();

    auto removed = ombrelo({"projects", "remove", "Refonte", "--force", "--yes"});
    ASSERT_EQ(removed.status, 0) << removed.err;
    EXPECT_NE(removed.out.find("2 activités (2 h 00)"), std::string::npos) << removed.out;
    json day = ombreloJSON({"summary", "--from", "2026-10-19", "--to", "2026-10-19", "--json"});
    EXPECT_EQ(day["unassigned_minutes"], 130);
    EXPECT_EQ(ombreloJSON({"billing", "totals", "--json"})["billed_eur"], 0);

    // A project without time goes as before.
    ASSERT_EQ(ombrelo({"projects", "add", "Vide"}).status, 0);
    EXPECT_EQ(ombrelo({"projects", "remove", "Vide"}).status, 0);
}

TEST_F(TimeCommandsTest, TimeGivenByTheProjectsRulesKeepsItToo) {
    ASSERT_EQ(ombrelo({"projects", "add", "Devis"}).status, 0);
    ASSERT_EQ(ombrelo({"rules", "add", "title", "devis", "--op", "contains", "--project", "Devis"}).status, 0);
    auto refused = ombrelo({"projects", "remove", "Devis"});
    EXPECT_EQ(refused.status, 2);
    EXPECT_NE(refused.err.find("1 activité (45 min)"), std::string::npos) << refused.err;
    EXPECT_EQ(ombreloJSON({"search", "dupont", "--json"})["matches"][0]["project"], "Devis");
}

// Billed and paid amounts are priced at the project's current pricing, so a new
// rate would rewrite invoices already sent.
TEST_F(TimeCommandsTest, PricingChangesThatWouldRepriceBilledTimeAreRefused) {
    // Nothing billed yet: the rate changes freely.
    ASSERT_EQ(ombrelo({"projects", "edit", "Refonte", "--rate", "550"}).status, 0);
    ASSERT_EQ(ombrelo({"billing", "mark", "billed", "--ids", std::to_string(refonteIDs[0])}).status, 0);
    ASSERT_EQ(ombrelo({"billing", "mark", "paid", "--ids", std::to_string(refonteIDs[1])}).status, 0);

    struct Case {
        std::vector<std::string> options;
        const char* after;  // each hour billed and paid, priced anew
    };
    for (const Case& c : std::vector<Case>{{{"--rate", "700"}, "100,00"},
                                           {{"--rate-kind", "hour"}, "550,00"},
                                           {{"--rounding", "halfDay"}, "275,00"},
                                           {{"--day-hours", "8"}, "68,75"},
                                           {{"--billable", "non", "--name", "Refonte 2"}, "0,00"}}) {
        std::vector<std::string> arguments{"projects", "edit", "Refonte"};
        arguments.insert(arguments.end(), c.options.begin(), c.options.end());
        auto refused = ombrelo(arguments);
        EXPECT_EQ(refused.status, 2) << c.options[0];
        EXPECT_NE(refused.err.find("Facturé : 1 jour, 78,57\u00a0€ → " + std::string(c.after)), std::string::npos)
            << refused.err;
        EXPECT_NE(refused.err.find("Payé : 1 jour, 78,57\u00a0€ → " + std::string(c.after)), std::string::npos)
            << refused.err;
        EXPECT_NE(refused.err.find("créez un projet pour le nouveau tarif"), std::string::npos) << refused.err;
        EXPECT_NE(refused.err.find("--reprice-billed"), std::string::npos) << refused.err;
    }
    json project = ombreloJSON({"projects", "list", "--json"})["projects"][1];
    EXPECT_EQ(project["name"], "Refonte");
    EXPECT_EQ(project["rate_cents"], 55000);
    EXPECT_EQ(project["billable"], true);
    EXPECT_EQ(ombreloJSON({"billing", "totals", "--json"})["billed_eur"].dump(), "78.57");

    // Whatever does not price is never refused.
    ASSERT_EQ(ombrelo({"projects", "edit", "Refonte", "--name", "Refonte 2026", "--color", "peach", "--budget", "40",
                       "--client", "none"})
                  .status,
              0);
    ASSERT_EQ(ombrelo({"projects", "archive", "Refonte 2026"}).status, 0);
    ASSERT_EQ(ombrelo({"projects", "archive", "Refonte 2026", "--undo"}).status, 0);

    auto english = ombrelo({"projects", "edit", "Refonte 2026", "--rate", "700"}, "en_GB.UTF-8");
    EXPECT_EQ(english.status, 2);
    EXPECT_NE(english.err.find("Billed: 1 day, £78.57 → £100.00"), std::string::npos) << english.err;

    json repriced = ombreloJSON({"projects", "edit", "Refonte 2026", "--rate", "700", "--reprice-billed", "--json"});
    EXPECT_EQ(repriced["rate_cents"], 70000);
    ASSERT_EQ(repriced["repriced"].size(), 2u);
    EXPECT_EQ(repriced["repriced"][0], json({{"status", "billed"}, {"days", 1}, {"before_cents", 7857},
                                             {"after_cents", 10000}}));
    json totals = ombreloJSON({"billing", "totals", "--json"});
    EXPECT_EQ(totals["billed_eur"], 100.0);
    EXPECT_EQ(totals["paid_eur"], 100.0);
    auto told = ombrelo({"projects", "edit", "Refonte 2026", "--rate", "550", "--reprice-billed"});
    ASSERT_EQ(told.status, 0) << told.err;
    EXPECT_NE(told.out.find("Facturé : 1 jour, 100,00\u00a0€ → 78,57\u00a0€"), std::string::npos) << told.out;
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
