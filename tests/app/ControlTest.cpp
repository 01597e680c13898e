// Links and requests carried out on real stores (a database file and a settings
// file), and the control socket served on a real Unix socket.
#include "control/ControlRequest.h"
#include "control/ControlSocket.h"
#include "control/URLCommands.h"
#include "capture/ActivityTracker.h"
#include "focus/FocusController.h"
#include "storage/Database.h"
#include "support/Preferences.h"
#include "support/Settings.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>
#include <chrono>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace ombrelo::testing {
namespace {

using nlohmann::json;

constexpr Instant t0 = 1'780'000'000;

class LinkTest : public ::testing::Test {
protected:
    LinkTest() {
        std::int64_t client = db.run("INSERT INTO client (name, color) VALUES ('Durant SA', 'teal')");
        db.run("INSERT INTO project (client_id, name, color) VALUES (?, 'Site Durant', 'teal')", {client});
        db.run("INSERT INTO project (name, color) VALUES ('Durable', 'green')");
        db.run("INSERT INTO project (name, color, archived) VALUES ('Ancien', 'green', 1)");
        projects.reload();
    }

    bool follow(std::string_view url) { return URLCommands::handle(url, controls).handled; }
    std::optional<std::string> active() {
        std::optional<Project> project = projects.activeProject();
        return project ? std::optional(project->name) : std::nullopt;
    }
    std::int64_t count(const char* sql) { return db.queryInt(sql).value_or(-1); }

    ScopedLanguage french{"fr"};
    TempDir folder;
    Database db{folder / "links.sqlite"};
    Preferences preferences{folder / "settings.json"};
    ManualClock clock{t0};
    ProjectStore projects{db, preferences, clock};
    FocusController focus{db, preferences, clock};
    std::vector<Page> opened;
    Controls controls{{.projects = projects, .focus = focus, .preferences = preferences, .clock = clock,
                       .open = [this](Page page) { opened.push_back(page); }}};
};

TEST_F(LinkTest, WorkAndStopInBothLanguages) {
    EXPECT_TRUE(follow("ombrelo://travailler?projet=Durant&note=Audit%20s%C3%A9curit%C3%A9"));
    EXPECT_EQ(active(), "Site Durant") << "a partial name is enough; the first in list order wins";
    EXPECT_EQ(projects.activeNote(), "Audit sécurité");
    EXPECT_TRUE(follow("ombrelo://work?project=durant%20sa%20%E2%80%BA%20site%20durant"));
    EXPECT_EQ(active(), "Site Durant") << "the client › project label, any case";
    EXPECT_TRUE(follow("ombrelo://work?projet=Durable&project=Site"));
    EXPECT_EQ(active(), "Durable") << "projet is read before project";

    EXPECT_TRUE(follow("OMBRELO://arreter"));
    EXPECT_EQ(active(), std::nullopt);
    EXPECT_TRUE(follow("ombrelo://stop"));
}

TEST_F(LinkTest, RefusedLinksChangeNothing) {
    ASSERT_TRUE(follow("ombrelo://work?projet=Durable"));
    for (const char* url : {"ombrelo://effacer-tout", "ombrelo://travailler?projet=Inconnu", "ombrelo://travailler",
                            "ombrelo://travailler?projet=Ancien", "http://travailler?projet=Durant",
                            "ombrelo://Travailler?projet=Durant", "ombrelo://travailler?projet=%ZZ", "pas un lien",
                            "ombrelo://focus/pause"}) {
        URLCommands::Result result = URLCommands::handle(url, controls);
        EXPECT_FALSE(result.handled) << url;
        EXPECT_FALSE(result.message.empty()) << url;
    }
    EXPECT_EQ(active(), "Durable");
    EXPECT_EQ(count("SELECT COUNT(*) FROM focus_session"), 0);
}

TEST_F(LinkTest, FocusPauseAndPages) {
    EXPECT_TRUE(follow("ombrelo://focus?minutes=25&projet=Durable"));
    ASSERT_TRUE(focus.session());
    EXPECT_EQ(focus.session()->plannedEnd, t0 + 25 * 60);
    EXPECT_EQ(focus.session()->projectID, projects.findByName("Durable")->id);
    EXPECT_TRUE(follow("ombrelo://focus/arreter"));
    EXPECT_FALSE(focus.session());
    for (const char* url : {"ombrelo://focus", "ombrelo://focus?minutes=vingt", "ombrelo://focus?minutes=0",
                            "ombrelo://focus?minutes=99999999999999999999&projet=Personne"}) {
        EXPECT_TRUE(follow(url)) << url;
        ASSERT_TRUE(focus.session());
        EXPECT_FALSE(focus.session()->plannedEnd) << url << " is open-ended";
        EXPECT_FALSE(focus.session()->projectID);
    }
    EXPECT_TRUE(follow("ombrelo://focus/stop"));
    EXPECT_EQ(count("SELECT COUNT(*) FROM focus_session WHERE outcome = 'completed'"), 4);

    EXPECT_TRUE(follow("ombrelo://pause?minutes=1.5"));
    EXPECT_EQ(preferences.number(settings::pausedUntil), t0 + 90);
    EXPECT_TRUE(follow("ombrelo://reprendre"));
    EXPECT_EQ(preferences.number(settings::pausedUntil), std::nullopt);
    EXPECT_TRUE(follow("ombrelo://pause?minutes=bientot"));
    EXPECT_EQ(preferences.number(settings::pausedUntil), ActivityTracker::indefinitely);
    EXPECT_TRUE(follow("ombrelo://resume"));

    for (const char* url : {"ombrelo://ouvrir?page=Rapports", "ombrelo://open?page=unknown", "ombrelo://open",
                            "ombrelo://ouvrir?page=chronologie", "ombrelo://open?page=reglages"})
        EXPECT_TRUE(follow(url));
    EXPECT_EQ(opened, (std::vector<Page>{Page::reports, Page::dashboard, Page::dashboard, Page::timeline,
                                         Page::settings}));
}

TEST_F(LinkTest, RequestsAreCheckedBeforeAnythingIsDone) {
    auto perform = [&](std::string_view line) { return ControlRequest::perform(line, controls); };
    for (const char* line : {"", "garbage", "[1, 2]", "{}", R"({"command": 12})", R"({"command": "format"})",
                             R"({"command": "work"})", R"({"command": "work", "project": "Durable"})",
                             R"({"command": "work", "project": 999})", R"({"command": "pause", "minutes": "10"})",
                             R"({"command": "link", "url": "ombrelo://effacer-tout"})",
                             "{\"command\": \"link\", \"url\": \"ombrelo://x\xff\"}"}) {
        json answer = perform(line);
        EXPECT_EQ(answer["ok"], false) << line;
        EXPECT_TRUE(answer["error"].is_string()) << line;
    }
    EXPECT_EQ(active(), std::nullopt);
    EXPECT_EQ(perform(R"({"command": "link", "url": "ombrelo://ouvrir?page=projets"})"),
              json({{"ok", true}, {"page", "projects"}}));
    EXPECT_EQ(perform(R"({"command": "focus-start", "minutes": 50})")["ok"], true);
    EXPECT_EQ(perform(R"({"command": "break-start"})")["ok"], true);
    EXPECT_EQ(perform(R"({"command": "break-skip"})")["ok"], true);
    EXPECT_EQ(count("SELECT COUNT(*) FROM pause WHERE end IS NOT NULL AND taken = 0"), 1);
}

// A server on its own loop thread, for the socket's own rules.
class ControlSocketTest : public ::testing::Test {
protected:
    void serve(uid_t allowed) {
        server.emplace(io, socket, [](std::string_view line) { return json{{"ok", true}, {"echo", line}}; }, allowed);
        loop = std::thread([this] { io.run(); });
    }
    ~ControlSocketTest() override {
        asio::post(io, [this] { server.reset(); });
        work.reset();
        if (loop.joinable()) loop.join();
    }

    int rawConnection() {
        int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, socket.c_str());
        EXPECT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        return fd;
    }

    TempDir folder;
    std::filesystem::path socket = folder / "control.sock";
    asio::io_context io;
    asio::executor_work_guard<asio::io_context::executor_type> work = asio::make_work_guard(io);
    std::optional<ControlServer> server;
    std::thread loop;
};

TEST_F(ControlSocketTest, AnswersItsUserOnlyAndSurvivesBadClients) {
    EXPECT_EQ(ControlClient::send(socket, {{"command", "stop"}}), std::nullopt) << "no tracker: nobody answers";
    serve(::getuid());
    EXPECT_EQ((std::filesystem::status(socket).permissions() & std::filesystem::perms::all),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    std::optional<json> answer = ControlClient::send(socket, {{"command", "stop"}});
    ASSERT_TRUE(answer);
    EXPECT_EQ((*answer)["echo"], R"({"command":"stop"})");

    // An oversized request is answered with an error.
    int big = rawConnection();
    std::string huge(ControlRequest::maxRequestBytes + 10, 'x');
    ::send(big, huge.data(), huge.size(), MSG_NOSIGNAL);
    char reply[256] = {};
    ASSERT_GT(::recv(big, reply, sizeof reply - 1, 0), 0);
    EXPECT_NE(std::string(reply).find("\"ok\":false"), std::string::npos) << reply;
    ::close(big);

    // Connections over the cap are closed at once; the server still answers once they go.
    std::vector<int> idle;
    for (int i = 0; i < ControlServer::maxConnections; ++i) idle.push_back(rawConnection());
    EXPECT_THROW(ControlClient::send(socket, {{"command", "stop"}}), std::runtime_error);
    for (int fd : idle) ::close(fd);
    auto answered = [&] {
        try {
            return ControlClient::send(socket, {{"command", "stop"}}).has_value();
        } catch (const std::runtime_error&) {
            return false;
        }
    };
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!answered() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_TRUE(answered());
}

TEST_F(ControlSocketTest, AnotherUsersRequestIsRefused) {
    serve(::getuid() + 1);
    std::optional<json> answer = ControlClient::send(socket, {{"command", "stop"}});
    ASSERT_TRUE(answer);
    EXPECT_EQ((*answer)["ok"], false);
    EXPECT_FALSE(answer->contains("echo"));
}

} // namespace
} // namespace ombrelo::testing
