// The window's API over a real database, called as the server calls it on the
// main loop: what it refuses and why, and that its changes are the same
// corrections, marks and settings the commands write.
#include "app/ServedModel.h"
#include "app/window/WindowAPI.h"
#include "billing/BillingStore.h"
#include "focus/FocusController.h"
#include "support/LocalTime.h"
#include "testing/TestSupport.h"

#include <asio/io_context.hpp>
#include <gtest/gtest.h>

namespace ombrelo {
namespace {

using nlohmann::json;

class WindowAPITest : public ::testing::Test {
protected:
    testing::ScopedTimeZone paris{"Europe/Paris"};
    testing::ScopedLanguage french{"fr"};
    testing::TempDir dir;
    Database db{dir / "window.sqlite"};
    Preferences preferences{dir / "settings.json"};
    ManualClock clock{local::make(2026, 11, 18, 18, 0)};  // Wednesday 18 November 2026
    asio::io_context io;
    ActivityStore store{db};
    Catalog catalog{db};
    ProjectStore projects{db, preferences, clock};
    FocusController focus{db, preferences, clock};
    Controls controls{{.projects = projects, .focus = focus, .preferences = preferences, .clock = clock}};
    ServedModel model{{.io = io, .activities = store, .catalog = catalog, .projects = projects,
                       .controls = controls, .clock = clock, .currency = "EUR"}};
    WindowAPI api{{.model = model, .activities = store, .catalog = catalog, .projects = projects,
                   .controls = controls, .preferences = preferences, .clock = clock}};
    Instant today = local::make(2026, 11, 18);
    Project refonte;

    void SetUp() override {
        Project hourly;
        hourly.name = "Refonte";
        hourly.rateCents = 8'000;
        refonte = *projects.project(projects.save(hourly).id);
    }

    std::int64_t record(double hour, double minutes, std::string app = "Code") {
        Activity activity;
        activity.start = today + hour * 3600;
        activity.end = activity.start + minutes * 60;
        activity.appName = app;
        activity.bundleID = app;
        return store.insert(activity);
    }

    ui::Reply call(std::string method, std::string path, json body = json::object(),
                   std::map<std::string, std::string, std::less<>> query = {}) {
        return api.handle(ui::Call{std::move(method), std::move(path), std::move(query), std::move(body)});
    }
    json ok(std::string method, std::string path, json body = json::object(),
            std::map<std::string, std::string, std::less<>> query = {}) {
        ui::Reply reply = call(std::move(method), std::move(path), std::move(body), std::move(query));
        EXPECT_EQ(reply.status, 200) << reply.body;
        return json::parse(reply.body);
    }
    std::pair<int, std::string> refused(std::string method, std::string path, json body = json::object()) {
        ui::Reply reply = call(std::move(method), std::move(path), std::move(body));
        json answer = json::parse(reply.body);
        return {reply.status, answer.value("error", "")};
    }
};

TEST_F(WindowAPITest, UnknownPathsMethodsAndBadArgumentsAreRefusedWithTheirReason) {
    EXPECT_EQ(call("GET", "/api/nothing").status, 404);
    EXPECT_EQ(call("GET", "/api/assign").status, 405);
    EXPECT_EQ(call("POST", "/api/dashboard").status, 405);
    EXPECT_EQ(refused("POST", "/api/assign", {{"activity_ids", json::array()}}),
              std::pair(400, std::string("Aucune activité donnée.")));
    EXPECT_EQ(refused("POST", "/api/assign", {{"activity_ids", {"1"}}}).first, 400);
    EXPECT_EQ(refused("POST", "/api/assign", {{"activity_ids", {1}}, {"project", 999}}),
              std::pair(404, std::string("Projet introuvable.")));
    EXPECT_EQ(refused("POST", "/api/assign", {{"activity_ids", {1}}, {"dry_run", "no"}}).first, 400);
    EXPECT_EQ(refused("POST", "/api/manual", {{"from", "2026-11-18T10:00"}, {"to", "2026-11-18T09:00"},
                                              {"label", "Réunion"}}),
              std::pair(400, std::string("La fin doit suivre le début.")));
    EXPECT_EQ(refused("POST", "/api/manual", {{"from", "hier"}, {"to", "2026-11-18T09:00"}, {"label", "x"}}).first, 400);
    EXPECT_EQ(call("GET", "/api/report", {}, {{"template", "invoice"}}).status, 400);
    EXPECT_EQ(call("GET", "/api/report/file", {}, {{"format", "pdf"}}).status, 400);
}

TEST_F(WindowAPITest, ManualTimeOverRecordedTimeIsRefusedAndNothingIsWritten) {
    record(9, 60);
    auto [status, message] = refused("POST", "/api/manual", {{"from", "2026-11-18T09:30"}, {"to", "2026-11-18T11:00"},
                                                             {"label", "Réunion"}, {"project", refonte.id}});
    EXPECT_EQ(status, 409);
    EXPECT_FALSE(message.empty());
    EXPECT_EQ(store.activities(today, today + 86400).size(), 1u);

    json added = ok("POST", "/api/manual", {{"from", "2026-11-18T11:00"}, {"to", "2026-11-18T12:00"},
                                            {"label", "Réunion"}, {"project", refonte.id}});
    ASSERT_EQ(added["activity_ids"].size(), 1u);
    json summary = ok("GET", "/api/summary", json::object(), {{"period", "today"}});
    EXPECT_EQ(summary["billable_minutes"], 60);
    EXPECT_EQ(summary["amount_eur"], 80.0);
}

// A block cut at a minute: each part keeps the whole's billing mark, and the
// later part alone goes to the project.
TEST_F(WindowAPITest, ASplitBlockKeepsItsMarksAndItsPartsGoTheirOwnWays) {
    std::int64_t first = record(9, 30), second = record(9.5, 60);
    ok("POST", "/api/assign", {{"activity_ids", {first, second}}, {"project", refonte.id}, {"dry_run", false}});
    ok("POST", "/api/billing/mark", {{"activity_ids", {first, second}}, {"status", "billed"}, {"invoice", "F-12"}});

    json split = ok("POST", "/api/split", {{"activity_ids", {first, second}}, {"at", "2026-11-18T10:00"}});
    EXPECT_EQ(split["before"], json({first, second}));
    ASSERT_EQ(split["after"].size(), 1u);
    std::int64_t tail = split["after"][0];
    EXPECT_EQ(store.activity(second)->end, today + 10 * 3600);
    EXPECT_EQ(store.activity(tail)->start, today + 10 * 3600);
    EXPECT_EQ(store.activity(tail)->end, today + 10.5 * 3600);
    BillingRows rows = BillingStore(db, clock).rows({first, second, tail});
    ASSERT_TRUE(rows.contains(tail));
    EXPECT_EQ(rows.at(tail).status, BillingStatus::billed);
    EXPECT_EQ(rows.at(tail).invoice, "F-12");

    ok("POST", "/api/assign", {{"activity_ids", {tail}}, {"project", "none"}, {"dry_run", false}});
    json day = ok("GET", "/api/summary", json::object(), {{"period", "today"}});
    EXPECT_EQ(day["billable_minutes"], 60);
    EXPECT_EQ(day["unassigned_minutes"], 30);

    // Back to the rules, which give it no project.
    ok("POST", "/api/unassign", {{"activity_ids", {first}}});
    EXPECT_EQ(ok("GET", "/api/summary", json::object(), {{"period", "today"}})["unassigned_minutes"], 60);
}

// Lines of a statement are marked one by one: the other line keeps its status.
TEST_F(WindowAPITest, AStatementsLinesAreMarkedOneByOne) {
    std::int64_t yesterday = record(-15, 60), now = record(9, 120);
    ok("POST", "/api/assign", {{"activity_ids", {yesterday, now}}, {"project", refonte.id}, {"dry_run", false}});
    json report = ok("GET", "/api/report", json::object(), {{"period", "week"}});
    ASSERT_EQ(report["rows"].size(), 2u);
    ASSERT_EQ(report["row_activity_ids"], json({{yesterday}, {now}}));
    EXPECT_EQ(report["activity_ids"], json({yesterday, now}));

    ok("POST", "/api/billing/mark", {{"activity_ids", report["row_activity_ids"][1]}, {"status", "paid"}});
    json paid = ok("GET", "/api/report", json::object(), {{"period", "week"}, {"status", "paid"}});
    ASSERT_EQ(paid["rows"].size(), 1u);
    EXPECT_EQ(paid["row_activity_ids"], json({{now}}));
    EXPECT_EQ(ok("GET", "/api/report", json::object(), {{"period", "week"}, {"template", "timesheet"}})
                  ["row_activity_ids"],
              nullptr);

    ui::Reply file = call("GET", "/api/report/file", json::object(), {{"period", "week"}, {"format", "csv"}});
    EXPECT_EQ(file.status, 200);
    EXPECT_EQ(file.fileName, "statement-2026-11-16-2026-11-22.csv");
    EXPECT_EQ(file.contentType, "text/csv; charset=utf-8");
    EXPECT_TRUE(file.body.starts_with("\xEF\xBB\xBF" "Date;Client;Projet")) << file.body.substr(0, 40);
}

TEST_F(WindowAPITest, RepricingBilledTimeNeedsToBeAskedForKnowingly) {
    std::int64_t worked = record(9, 60);
    ok("POST", "/api/assign", {{"activity_ids", {worked}}, {"project", refonte.id}, {"dry_run", false}});
    ok("POST", "/api/billing/mark", {{"activity_ids", {worked}}, {"status", "billed"}});

    auto [status, message] = refused("POST", "/api/projects/save", {{"id", refonte.id}, {"rate_cents", 10'000}});
    EXPECT_EQ(status, 409);
    EXPECT_NE(message.find("80,00"), std::string::npos) << message;
    EXPECT_NE(message.find("100,00"), std::string::npos) << message;
    EXPECT_EQ(projects.project(refonte.id)->rateCents, 8'000);

    // A change that prices nothing billed goes through; so does a knowing one.
    EXPECT_EQ(ok("POST", "/api/projects/save", {{"id", refonte.id}, {"name", "Refonte du site"}})["name"],
              "Refonte du site");
    ok("POST", "/api/projects/save", {{"id", refonte.id}, {"rate_cents", 10'000}, {"reprice_billed", true}});
    EXPECT_EQ(projects.project(refonte.id)->rateCents, 10'000);
    EXPECT_EQ(refused("POST", "/api/projects/save", {{"name", ""}}).first, 400);
}

TEST_F(WindowAPITest, SettingsAreCheckedBeforeTheyAreWritten) {
    auto setting = [&](const std::string& key, json value) {
        return call("POST", "/api/settings", {{"key", key}, {"value", std::move(value)}});
    };
    EXPECT_EQ(setting("idleSeconds", 5).status, 400);
    EXPECT_EQ(setting("idleSeconds", "600").status, 400);
    EXPECT_EQ(setting("workHoursStart", 8.5).status, 400);
    EXPECT_EQ(setting("workDays", json({2, 9})).status, 400);
    EXPECT_EQ(setting("currency", "XYZ").status, 400);
    EXPECT_EQ(setting("pausedUntil", 0).status, 400);  // live state, not a setting
    EXPECT_EQ(setting("mcpPort", 80).status, 400);
    EXPECT_FALSE(preferences.number("idleSeconds"));
    EXPECT_FALSE(preferences.integers("workDays"));

    EXPECT_EQ(json::parse(setting("idleSeconds", 600).body)["value"], 600.0);
    EXPECT_EQ(preferences.number("idleSeconds"), 600.0);
    json days = json::parse(setting("workDays", json({6, 2, 2, 3})).body);
    EXPECT_EQ(days["value"], json({2, 3, 6}));
    setting("privateDomains", json({"bank.fr", "  ", "mail.example\n"}));
    EXPECT_EQ(preferences.texts("privateDomains"), (std::vector<std::string>{"bank.fr", "mail.example"}));
    setting("currency", "CHF");
    EXPECT_EQ(preferences.text("currency"), "CHF");
    setting("currency", "");  // back to the locale's
    EXPECT_FALSE(preferences.text("currency"));

    json listed = ok("GET", "/api/settings");
    auto idle = std::find_if(listed["settings"].begin(), listed["settings"].end(),
                             [](const json& item) { return item["key"] == "idleSeconds"; });
    ASSERT_NE(idle, listed["settings"].end());
    EXPECT_EQ((*idle)["value"], 600.0);
    EXPECT_EQ((*idle)["default"], 300.0);
}

TEST_F(WindowAPITest, ARulePreviewShowsWhatItWouldTakeAndSavesNothing) {
    record(9, 30, "Firefox");
    record(10, 15, "Code");
    json preview = ok("POST", "/api/rules/preview", {{"field", "app"}, {"operator", "contains"}, {"pattern", "fire"}});
    EXPECT_EQ(preview["count"], 1);
    EXPECT_EQ(preview["minutes"], 30);
    EXPECT_EQ(preview["examples"][0]["app"], "Firefox");
    std::size_t rules = catalog.rules().size();
    EXPECT_EQ(refused("POST", "/api/rules/preview", {{"field", "app"}, {"operator", "regex"}, {"pattern", "(("}}).first,
              400);
    EXPECT_EQ(refused("POST", "/api/rules/save", {{"field", "app"}, {"pattern", "fire"}}).first, 400);  // gives nothing
    json saved = ok("POST", "/api/rules/save",
                    {{"field", "app"}, {"operator", "contains"}, {"pattern", "fire"}, {"project_id", refonte.id}});
    EXPECT_EQ(catalog.rules().size(), rules + 1);
    EXPECT_EQ(ok("GET", "/api/summary", json::object(), {{"period", "today"}})["billable_minutes"], 30);
    ok("POST", "/api/rules/delete", {{"id", saved["id"]}});
    EXPECT_EQ(catalog.rules().size(), rules);
}

} // namespace
} // namespace ombrelo
