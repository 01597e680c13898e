// The summary, timeline and search results agents get, over a real database.
#include "agent/TimeQueries.h"
#include "support/LocalTime.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace ombrelo {
namespace {

using nlohmann::json;

class TimeQueriesTest : public ::testing::Test {
protected:
    testing::ScopedTimeZone paris{"Europe/Paris"};
    testing::ScopedLanguage french{"fr"};
    testing::TempDir dir;
    Database db{dir / "agent.sqlite"};
    Preferences preferences{dir / "settings.json"};
    ManualClock clock{local::make(2026, 10, 21, 18, 0)};  // Wednesday 21 October 2026
    ActivityStore store{db};
    Catalog catalog{db};
    ProjectStore projects{db, preferences, clock};
    Workspace workspace{&store, catalog, projects, clock};
    TimeQueries queries{workspace, projects, clock};
    Instant today = local::make(2026, 10, 21);

    Project addProject(const std::string& name, std::optional<std::int64_t> client = std::nullopt) {
        Project p;
        p.name = name;
        p.color = "teal";
        p.clientID = client;
        SaveResult saved = projects.save(p);
        EXPECT_TRUE(saved);
        return *projects.project(saved.id);
    }
    // Manual time on `project` from `hour` for `minutes`.
    std::int64_t work(double hour, double minutes, std::optional<std::int64_t> project, std::string label = "Travail",
                      Instant day = 0) {
        Instant start = (day ? day : today) + hour * 3600;
        auto ids = workspace.addManual(start, start + minutes * 60, label, project);
        EXPECT_TRUE(ids && ids->size() == 1);
        return ids && !ids->empty() ? ids->front() : 0;
    }
    std::int64_t record(Instant start, double seconds, std::string app, std::optional<std::string> title,
                        Activity::Kind kind = Activity::Kind::app, std::optional<std::string> domain = std::nullopt) {
        Activity a;
        a.start = start;
        a.end = start + seconds;
        a.appName = std::move(app);
        a.title = std::move(title);
        a.domain = std::move(domain);
        a.kind = kind;
        return store.insert(a);
    }
    std::string errorOf(const std::function<void()>& call) {
        try {
            call();
        } catch (const ToolError& error) {
            return error.message;
        }
        return "(no error)";
    }
    std::pair<std::string, std::string> days(const json& arguments) {
        Period p = period(arguments, clock.now());
        return {local::formatDay(p.start), local::formatDay(p.end)};
    }
};

TEST_F(TimeQueriesTest, PeriodsByNameAndByDays) {
    using Days = std::pair<std::string, std::string>;
    EXPECT_EQ(days(json::object()), Days("2026-10-21", "2026-10-22"));
    EXPECT_EQ(days({{"period", "yesterday"}}), Days("2026-10-20", "2026-10-21"));
    EXPECT_EQ(days({{"period", "week"}}), Days("2026-10-19", "2026-10-26"));
    EXPECT_EQ(days({{"period", "last_week"}}), Days("2026-10-12", "2026-10-19"));
    EXPECT_EQ(days({{"period", "month"}}), Days("2026-10-01", "2026-11-01"));
    EXPECT_EQ(days({{"period", "last_month"}}), Days("2026-09-01", "2026-10-01"));
    // from wins over period; the last day is included; reversed days are put in order.
    EXPECT_EQ(days({{"period", "nope"}, {"from", "2026-10-05"}, {"to", "2026-10-09"}}),
              Days("2026-10-05", "2026-10-10"));
    EXPECT_EQ(days({{"from", "2026-10-09"}, {"to", "2026-10-05"}}), Days("2026-10-05", "2026-10-10"));
    EXPECT_EQ(days({{"from", "2026-10-05"}}), Days("2026-10-05", "2026-10-22"));
    EXPECT_EQ(days({{"from", "2026-12-01"}}), Days("2026-12-01", "2026-12-02"));

    EXPECT_EQ(errorOf([&] { days({{"period", "fortnight"}}); }), "Période inconnue : fortnight");
    EXPECT_EQ(errorOf([&] { days({{"from", "21/10/2026"}}); }), "Date invalide : 21/10/2026 (AAAA-MM-JJ)");
    EXPECT_EQ(errorOf([&] { days({{"from", "2026-02-30"}}); }), "Date invalide : 2026-02-30 (AAAA-MM-JJ)");
    EXPECT_EQ(errorOf([&] { parseDateTime("2026-10-21 10:00"); }),
              "Date et heure invalides : 2026-10-21 10:00 (AAAA-MM-JJTHH:MM)");
    EXPECT_EQ(parseDateTime("2026-10-21T10:05"), local::make(2026, 10, 21, 10, 5));
}

TEST_F(TimeQueriesTest, EnglishWeeksFollowTheRegionAndErrorsAreEnglish) {
    testing::ScopedLanguage english{"en"};
    {
        testing::ScopedEnvironment american("LC_ALL", "en_US.UTF-8");
        EXPECT_EQ(days({{"period", "week"}}), (std::pair<std::string, std::string>("2026-10-18", "2026-10-25")));
    }
    {
        testing::ScopedEnvironment british("LC_ALL", "en_GB.UTF-8");
        EXPECT_EQ(days({{"period", "week"}}), (std::pair<std::string, std::string>("2026-10-19", "2026-10-26")));
    }

    EXPECT_EQ(errorOf([&] { days({{"period", "x"}}); }), "Unknown period: x");
    EXPECT_EQ(errorOf([&] { queries.search(json::object()); }), "Missing \"query\" parameter.");
}

TEST_F(TimeQueriesTest, SummaryMinutesAmountsAndLabels) {
    std::int64_t client = projects.save(Client{0, "Dupont", "teal"}).id;
    Project refonte = addProject("Refonte", client);
    refonte.rateKind = Project::RateKind::day;
    refonte.rateCents = 55000;
    ASSERT_TRUE(projects.save(refonte));
    Project interne = addProject("Interne");
    interne.billable = false;
    ASSERT_TRUE(projects.save(interne));

    // 150 active minutes: 120 billable on Refonte (2 h of a 7-hour day at 550),
    // 20 on a non-billable project, 10 without project; and an absence.
    work(9, 120, refonte.id);
    work(11.5, 20, interne.id);
    work(14, 10.9, std::nullopt);
    record(today + 15 * 3600, 1800, "Inactif", std::nullopt, Activity::Kind::idle);

    json result = queries.getSummary(json::object());
    EXPECT_EQ(result["from"], "2026-10-21");
    EXPECT_EQ(result["to"], "2026-10-21");
    EXPECT_EQ(result["active_minutes"], 150);
    EXPECT_EQ(result["billable_minutes"], 120);
    EXPECT_EQ(result["unassigned_minutes"], 10);
    EXPECT_EQ(result["distraction_minutes"], 0);
    EXPECT_EQ(result["amount_eur"], 157.14);
    EXPECT_EQ(result["amount_eur"].dump(), "157.14");
    ASSERT_EQ(result["by_project"].size(), 3u);
    EXPECT_EQ(result["by_project"][0],
              json({{"project", "Dupont › Refonte"}, {"project_id", refonte.id}, {"minutes", 120}, {"amount_eur", 157.14}}));
    EXPECT_EQ(result["by_project"][2]["project"], "Sans projet");
    EXPECT_TRUE(result["by_project"][2]["project_id"].is_null());
    // Manual time has no category rule here.
    EXPECT_EQ(result["by_category"][0], json({{"category", "Non classé"}, {"minutes", 150}}));

    testing::ScopedLanguage english{"en"};
    result = queries.getSummary({{"period", "today"}});
    EXPECT_EQ(result["by_project"][2]["project"], "No project");
    EXPECT_EQ(result["by_category"][0]["category"], "Uncategorized");
}

TEST_F(TimeQueriesTest, TimelineBlocksOfTheDay) {
    Project refonte = addProject("Refonte");
    Instant monday = local::make(2026, 10, 19);
    std::int64_t first = work(9, 30, refonte.id, "Réunion", monday);
    std::int64_t second = work(9.5, 14.6, refonte.id, "Réunion", monday);  // 44.6 min: 45 rounded
    record(monday + 10 * 3600, 600, "Banque", std::nullopt, Activity::Kind::privateTime);

    json result = queries.getTimeline({{"date", "2026-10-19"}});
    EXPECT_EQ(result["date"], "2026-10-19");
    ASSERT_EQ(result["blocks"].size(), 2u);
    json block = result["blocks"][0];
    EXPECT_EQ(block["start"], "09:00");
    EXPECT_EQ(block["end"], "09:44");
    EXPECT_EQ(block["minutes"], 45);
    EXPECT_EQ(block["kind"], "manual");
    EXPECT_EQ(block["title"], "Réunion");
    EXPECT_EQ(block["project"], "Refonte");
    EXPECT_TRUE(block["category"].is_null());
    EXPECT_TRUE(block["note"].is_null());
    EXPECT_EQ(block["manual"], true);
    EXPECT_EQ(block["apps_and_sites"], json({"Réunion (45 min)"}));
    EXPECT_EQ(block["activity_ids"], json({first, second}));
    EXPECT_EQ(result["blocks"][1]["kind"], "private");
    EXPECT_EQ(result["blocks"][1]["title"], "Privé");
    EXPECT_TRUE(result["blocks"][1]["project"].is_null());

    // Without a date: today.
    EXPECT_EQ(queries.getTimeline(json::object())["date"], "2026-10-21");
    EXPECT_EQ(errorOf([&] { queries.getTimeline({{"date", "hier"}}); }), "Date invalide : hier (AAAA-MM-JJ)");
}

TEST_F(TimeQueriesTest, SearchTotalsAndGroupsMatches) {
    Instant day = local::make(2026, 10, 12);
    std::int64_t a = record(day + 9 * 3600, 3600, "Mail", std::string("Devis Dupont"));
    std::int64_t b = record(day + 11 * 3600, 1800, "Mail", std::string("Devis Dupont"));
    std::int64_t c = record(day + 14 * 3600, 1800, "Firefox", std::nullopt, Activity::Kind::app,
                            std::string("dupont.fr"));
    record(day + 15 * 3600, 1800, "Mail", std::string("Autre"));
    record(day + 16 * 3600, 1800, "Inactif", std::string("Dupont"), Activity::Kind::idle);
    // Older than the window of 3 days is left out.
    json recent = queries.searchActivity({{"query", " dupont "}, {"days", 3}});
    EXPECT_EQ(recent["total_minutes"], 0);

    json result = queries.searchActivity({{"query", " dupont "}});
    EXPECT_EQ(result["query"], "dupont");
    EXPECT_EQ(result["days"], 30);
    EXPECT_EQ(result["total_minutes"], 120);
    EXPECT_EQ(result["activity_ids"], json({c, b, a}));
    ASSERT_EQ(result["matches"].size(), 2u);
    EXPECT_EQ(result["matches"][0], json({{"title", "Devis Dupont"}, {"app", "Mail"}, {"minutes", 90}, {"project", nullptr}}));
    EXPECT_EQ(result["matches"][1]["title"], "dupont.fr");
    EXPECT_EQ(result["truncated"], false);
    EXPECT_EQ(result["matched_activities"], 3);
    EXPECT_EQ(result["counted_from"], nullptr);

    EXPECT_EQ(queries.searchActivity({{"query", "dupont"}, {"days", -4}})["days"], 1);
    EXPECT_EQ(errorOf([&] { queries.searchActivity({{"query", "   "}}); }), "Paramètre « query » manquant.");
}

TEST_F(TimeQueriesTest, ASearchCutAtItsLimitSaysWhatItLeftOut) {
    // Five minutes every ten minutes from 1 October: more matches than
    // a search counts.
    std::size_t matching = Workspace::searchLimit + 150;
    Instant first = local::make(2026, 10, 1, 8);
    {
        Transaction transaction(db);
        for (std::size_t i = 0; i < matching; ++i) record(first + 600.0 * i, 300, "Mail", std::string("Dupont"));
        transaction.commit();
    }
    SearchReport report = queries.search({{"query", "dupont"}});
    EXPECT_TRUE(report.cut());
    EXPECT_EQ(report.activityIDs.size(), static_cast<std::size_t>(Workspace::searchLimit));
    EXPECT_EQ(report.matchedActivities, matching);
    // The newest ones are counted: the oldest counted is the 151st.
    EXPECT_EQ(report.countedFrom, first + 600.0 * 150);
    EXPECT_EQ(report.seconds, 300.0 * Workspace::searchLimit);

    json result = queries.toJSON(report);
    EXPECT_EQ(result["truncated"], true);
    EXPECT_EQ(result["matched_activities"], matching);
    EXPECT_EQ(result["counted_from"], local::formatDay(first + 600.0 * 150));
    EXPECT_EQ(result["total_minutes"], 5 * Workspace::searchLimit);  // the counted time, as before
}

} // namespace
} // namespace ombrelo
