// The agent tools over a real database: the catalogue agents read, the results
// and errors they get, and the live state and corrections they change.
#include "agent/MCPTools.h"
#include "focus/FocusController.h"
#include "focus/FocusRecords.h"
#include "support/LocalTime.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

namespace ombrelo {
namespace {

using nlohmann::json;

class MCPToolsTest : public ::testing::Test {
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
    FocusController focus{db, preferences, clock};
    Controls controls{{.projects = projects, .focus = focus, .preferences = preferences, .clock = clock}};
    MCPTools tools{{workspace, projects, catalog, store, controls, queries, "EUR"}};
    Instant today = local::make(2026, 10, 21);
    std::int64_t dupont = 0;
    Project refonte, interne;

    void SetUp() override {
        dupont = projects.save(Client{0, "Dupont"}).id;
        Project day;
        day.name = "Refonte";
        day.clientID = dupont;
        day.rateKind = Project::RateKind::day;
        day.rateCents = 55'000;
        refonte = *projects.project(projects.save(day).id);
        Project internal;
        internal.name = "Interne";
        internal.billable = false;
        interne = *projects.project(projects.save(internal).id);
        focus.start();
    }

    std::int64_t work(double hour, double minutes, std::optional<std::int64_t> project, std::string label = "Travail") {
        Instant start = today + hour * 3600;
        auto ids = workspace.addManual(start, start + minutes * 60, label, project);
        return ids && !ids->empty() ? ids->front() : 0;
    }

    json callTool(const std::string& name, json arguments = json::object()) {
        MCPServer::Outcome outcome =
            tools.handle({{"jsonrpc", "2.0"}, {"id", 1}, {"method", "tools/call"},
                          {"params", {{"name", name}, {"arguments", std::move(arguments)}}}});
        return std::get<json>(outcome);
    }
    json result(const std::string& name, json arguments = json::object()) {
        json reply = callTool(name, std::move(arguments));
        EXPECT_FALSE(reply["isError"].get<bool>()) << reply.dump();
        return reply["structuredContent"];
    }
    std::string failure(const std::string& name, json arguments = json::object()) {
        json reply = callTool(name, std::move(arguments));
        EXPECT_TRUE(reply["isError"].get<bool>()) << reply.dump();
        return reply["content"][0]["text"];
    }
};

TEST_F(MCPToolsTest, HandshakeCatalogueAndUnknownNames) {
    json hello = std::get<json>(tools.handle({{"id", 1}, {"method", "initialize"},
                                              {"params", {{"protocolVersion", "2025-03-26"}}}}));
    EXPECT_EQ(hello["protocolVersion"], "2025-03-26");  // echoed
    EXPECT_EQ(hello["serverInfo"]["name"], "ombrelo");
    EXPECT_NE(hello["instructions"].get<std::string>().find("ordinateur"), std::string::npos);
    EXPECT_EQ(std::get<json>(tools.handle({{"id", 2}, {"method", "ping"}})), json::object());

    std::vector<std::string> names;
    json listed = std::get<json>(tools.handle({{"id", 3}, {"method", "tools/list"}}))["tools"];
    for (const json& tool : listed) names.push_back(tool["name"]);
    EXPECT_EQ(names, (std::vector<std::string>{"get_summary", "get_timeline", "search_activity", "list_projects",
                                               "get_active_project", "set_active_project", "stop_active_project",
                                               "assign_time", "start_focus"}));
    EXPECT_EQ(listed[7]["inputSchema"]["properties"]["activity_ids"]["items"]["type"], "integer");
    EXPECT_EQ(listed[7]["inputSchema"]["additionalProperties"], false);
    EXPECT_EQ(listed[2]["inputSchema"]["required"], json::array({"query"}));

    auto unknown = std::get<MCPServer::RPCError>(tools.handle({{"id", 4}, {"method", "resources/list"}}));
    EXPECT_EQ(unknown.code, -32601);
    EXPECT_EQ(unknown.message, "Méthode inconnue : resources/list");
    EXPECT_EQ(failure("x"), "Outil inconnu : x");

    testing::ScopedLanguage english{"en"};
    json englishList = std::get<json>(tools.handle({{"id", 5}, {"method", "tools/list"}}))["tools"];
    EXPECT_EQ(englishList[0]["name"], "get_summary");
    EXPECT_EQ(englishList[0]["description"], "Time summary over a period: active and billable time, amount excluding "
                                             "tax, by project and by category.");
    EXPECT_EQ(failure("x"), "Unknown tool: x");
    EXPECT_EQ(failure("get_summary", {{"period", "decade"}}), "Unknown period: decade");
}

TEST_F(MCPToolsTest, SummaryAndProjectsOfTheDay) {
    work(9, 120, refonte.id);
    work(11, 30, std::nullopt);
    json summary = result("get_summary");
    EXPECT_EQ(summary["active_minutes"], 150);
    EXPECT_EQ(summary["billable_minutes"], 120);
    EXPECT_DOUBLE_EQ(summary["amount_eur"].get<double>(), 157.14);  // 2/7 of 550
    // The text result is the same object, pretty-printed.
    EXPECT_EQ(json::parse(callTool("get_summary")["content"][0]["text"].get<std::string>()), summary);

    json listed = result("list_projects")["projects"];
    ASSERT_EQ(listed.size(), 2u);
    json refonteEntry = listed[0]["name"] == "Refonte" ? listed[0] : listed[1];
    EXPECT_EQ(refonteEntry["client"], "Dupont");
    EXPECT_EQ(refonteEntry["rate_kind"], "day");
    EXPECT_EQ(refonteEntry["rate_eur"], 550.0);
}

TEST_F(MCPToolsTest, ActiveProjectAndFocusChangeLiveState) {
    json set = result("set_active_project", {{"project", "dupont › refonte"}, {"note", "Maquettes"}});
    EXPECT_EQ(set["active"], true);
    EXPECT_EQ(set["project"], "Dupont › Refonte");
    EXPECT_EQ(set["note"], "Maquettes");
    EXPECT_EQ(set["since"], "18:00");
    EXPECT_EQ(projects.activeNote(), "Maquettes");
    EXPECT_EQ(result("set_active_project", {{"project", std::to_string(interne.id)}})["project_id"], interne.id);
    EXPECT_EQ(result("stop_active_project"), json({{"active", false}}));
    EXPECT_EQ(failure("set_active_project", {{"project", "Nulle part"}}),
              "Projet introuvable : Nulle part. Voir list_projects.");

    json started = result("start_focus", {{"project", refonte.id}});
    EXPECT_EQ(started, json({{"started", true}, {"minutes", 25}, {"project", "Dupont › Refonte"}}));
    EXPECT_TRUE(FocusRecords(db).openSession().has_value());
}

TEST_F(MCPToolsTest, AssignTimeDryRunFirstThenInOneGo) {
    std::int64_t first = work(9, 20, std::nullopt);
    std::int64_t second = work(9.5, 10, interne.id);
    json arguments = {{"project", "Refonte"}, {"activity_ids", {first, second}}};
    json dry = result("assign_time", arguments);
    EXPECT_EQ(dry["dry_run"], true);
    EXPECT_EQ(dry["applied"], false);
    EXPECT_EQ(dry["minutes"], 30);
    EXPECT_EQ(dry["currently"], json({{"Sans projet", 20.0}, {"Interne", 10.0}}));
    EXPECT_EQ(workspace.items(today, today + 86'400).front().project, nullptr);  // nothing written

    arguments["dry_run"] = false;
    json applied = result("assign_time", arguments);
    EXPECT_EQ(applied["applied"], true);
    EXPECT_EQ(applied["to_project"], "Dupont › Refonte");
    for (const Classified& item : workspace.items(today, today + 86'400)) EXPECT_EQ(item.project->id, refonte.id);

    json byRange = result("assign_time", {{"project", "none"}, {"from", "2026-10-21T09:00"},
                                          {"to", "2026-10-21T09:15"}, {"dry_run", false}});
    EXPECT_EQ(byRange["to_project"], "Sans projet");
    EXPECT_EQ(failure("assign_time", {{"project", "none"}}), "Donnez activity_ids ou une plage from/to.");
    EXPECT_EQ(failure("assign_time", {{"project", "none"}, {"from", "2026-10-21T10:00"}, {"to", "2026-10-21T09:00"}}),
              "La fin doit suivre le début.");
    EXPECT_EQ(failure("assign_time", {{"project", "none"}, {"from", "hier"}, {"to", "2026-10-21T09:00"}}),
              "Date et heure invalides : hier (AAAA-MM-JJTHH:MM)");
}

} // namespace
} // namespace ombrelo
