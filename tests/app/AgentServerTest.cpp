// The agent server as agents meet it: `ombrelo mcp serve` on a real loopback
// port, driven by the official MCP client (Node.js, Streamable HTTP transport).
#include "storage/ActivityStore.h"
#include "storage/Database.h"
#include "support/LocalTime.h"
#include "testing/Processes.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdio>

namespace ombrelo {
namespace {

using nlohmann::json;

const std::filesystem::path client = std::filesystem::path(OMBRELO_SOURCE_DIR) / "tests/agent/client";

// Wednesday 21 October 2026: 2 h on Dupont › Refonte (a day rate of 550), half
// an hour in a window about Dupont's quote, without project.
class AgentServerTest : public ::testing::Test {
protected:
    testing::ScopedTimeZone paris{"Europe/Paris"};
    testing::TempDir home;
    std::string file = (home / "ombrelo.sqlite").string();
    std::vector<std::string> environment = {"OMBRELO_NOW=2026-10-21T18:00:00", "LANG=fr_FR.UTF-8",
                                            "LC_ALL=fr_FR.UTF-8", "OMBRELO_TOKEN_STORE=file", "TZ=Europe/Paris"};
    std::int64_t quote = 0;

    void SetUp() override {
        ASSERT_TRUE(std::filesystem::exists(client / "node_modules/@modelcontextprotocol/sdk"))
            << "the test agent is not installed: npm ci --prefix " << client.string();
        Database db{file};
        ActivityStore store{db};
        std::int64_t dupont = db.run("INSERT INTO client (name, color) VALUES ('Dupont', 'teal')");
        std::int64_t refonte = db.run("INSERT INTO project (client_id, name, color, rate_kind, rate_cents, day_hours) "
                                      "VALUES (?, 'Refonte', 'teal', 'day', 55000, 7)",
                                      {dupont});
        Activity work;
        work.start = local::make(2026, 10, 21, 9, 0);
        work.end = work.start + 2 * 3600;
        work.kind = Activity::Kind::manual;
        work.appName = "Atelier";
        db.run("INSERT INTO assignment (activity_id, project_id, source) VALUES (?, ?, 'manual')",
               {store.insert(work), refonte});
        Activity mail;
        mail.start = local::make(2026, 10, 21, 14, 0);
        mail.end = mail.start + 1800;
        mail.appName = "Thunderbird";
        mail.title = "Devis Dupont";
        quote = store.insert(mail);
    }

    // The server's address once it says where it listens.
    std::string waitForAddress(const std::filesystem::path& log) {
        std::string text;
        std::size_t start = std::string::npos, end = std::string::npos;
        bool listening = testing::eventually([&] {
            text = std::filesystem::exists(log) ? testing::readFile(log) : "";
            start = text.find("http://127.0.0.1:");
            end = start == std::string::npos ? start : text.find("/mcp", start);
            return end != std::string::npos;
        });
        EXPECT_TRUE(listening) << text;
        return listening ? text.substr(start, end + 4 - start) : "";
    }

    json agent(const std::string& address, const std::string& token, const json& plan) {
        std::string command = "node " + (client / "agent.mjs").string() + " '" + address + "' '" + token + "' '" +
                              plan.dump() + "' 2>&1";
        std::string out;
        FILE* pipe = ::popen(command.c_str(), "r");
        char buffer[4096];
        for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
        EXPECT_EQ(::pclose(pipe), 0) << out;
        json answer = json::parse(out, nullptr, false);
        EXPECT_FALSE(answer.is_discarded()) << out;
        return answer;
    }
};

TEST_F(AgentServerTest, TheOfficialClientUsesEveryTool) {
    auto token = testing::runOmbrelo(home.path(), {"--db", file, "mcp", "token"}, environment);
    ASSERT_EQ(token.status, 0) << token.err;
    std::string secret = token.out.substr(0, 64);
    EXPECT_EQ(std::filesystem::status(home / "data/ombrelo/mcp-token").permissions() & std::filesystem::perms::all,
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);

    std::vector<std::string> serveEnvironment = environment;
    for (const char* folder : {"XDG_DATA_HOME=data", "XDG_CONFIG_HOME=config", "XDG_RUNTIME_DIR=run"}) {
        std::string entry(folder);
        std::size_t equals = entry.find('=');
        serveEnvironment.push_back(entry.substr(0, equals + 1) + (home / entry.substr(equals + 1)).string());
    }
    std::filesystem::create_directories(home / "run");
    std::filesystem::permissions(home / "run", std::filesystem::perms::owner_all);
    testing::ChildProcess server({OMBRELO_BINARY, "--db", file, "mcp", "serve", "--port", "0"}, serveEnvironment,
                                 home / "serve.log");
    std::string address = waitForAddress(home / "serve.log");
    ASSERT_FALSE(address.empty());

    json plan = json::array({
        {{"name", "get_summary"}, {"arguments", json::object()}},
        {{"name", "get_timeline"}, {"arguments", json::object()}},
        {{"name", "search_activity"}, {"arguments", {{"query", "dupont"}}}},
        {{"name", "list_projects"}, {"arguments", json::object()}},
        {{"name", "set_active_project"}, {"arguments", {{"project", "Refonte"}, {"note", "Maquettes"}}}},
        {{"name", "get_active_project"}, {"arguments", json::object()}},
        {{"name", "stop_active_project"}, {"arguments", json::object()}},
        {{"name", "assign_time"},
         {"arguments", {{"project", "Refonte"}, {"activity_ids", {quote}}, {"dry_run", false}}}},
        {{"name", "start_focus"}, {"arguments", {{"minutes", 0}}}},
        {{"name", "get_summary"}, {"arguments", {{"period", "someday"}}}},
    });
    json seen = agent(address, secret, plan);
    ASSERT_EQ(seen["connected"], true) << seen.dump();
    EXPECT_EQ(seen["server"]["name"], "ombrelo");
    EXPECT_EQ(seen["tools"].size(), 9u);
    const json& calls = seen["calls"];
    ASSERT_EQ(calls.size(), plan.size());
    for (std::size_t i = 0; i + 1 < calls.size(); ++i)
        EXPECT_FALSE(calls[i]["isError"].get<bool>()) << calls[i].dump();
    EXPECT_EQ(calls[0]["structured"]["active_minutes"], 150);
    EXPECT_DOUBLE_EQ(calls[0]["structured"]["amount_eur"].get<double>(), 157.14);
    EXPECT_EQ(calls[1]["structured"]["blocks"].size(), 2u);
    EXPECT_EQ(calls[2]["structured"]["total_minutes"], 30);
    EXPECT_EQ(calls[5]["structured"]["note"], "Maquettes");
    EXPECT_EQ(calls[6]["structured"], json({{"active", false}}));
    EXPECT_EQ(calls[7]["structured"]["applied"], true);
    EXPECT_EQ(calls[8]["structured"]["minutes"], 0);
    EXPECT_EQ(calls[9]["isError"], true);
    EXPECT_EQ(calls[9]["text"], "Période inconnue : someday");

    // The correction was written: the quote's half hour now bills too.
    auto summary = testing::runOmbrelo(home.path(), {"--db", file, "summary", "--json"}, environment);
    EXPECT_EQ(json::parse(summary.out)["billable_minutes"], 150);

    json refused = agent(address, std::string(64, '0'), json::array());
    EXPECT_EQ(refused["connected"], false) << refused.dump();

    EXPECT_EQ(server.stop(SIGTERM), 0);
    // The token is in no log line and no settings file.
    EXPECT_EQ(testing::readFile(home / "serve.log").find(secret), std::string::npos);
    if (std::filesystem::exists(home / "config/ombrelo/settings.json")) {
        EXPECT_EQ(testing::readFile(home / "config/ombrelo/settings.json").find(secret), std::string::npos);
    }
}

} // namespace
} // namespace ombrelo
