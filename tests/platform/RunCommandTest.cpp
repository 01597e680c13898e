// `ombrelo run` end to end: the real binary on Xvfb with openbox, a stand-in
// logind on a private system bus, windows switched with xdotool, and the rows
// it writes read back from its SQLite file.
#include "platform/StandIns.h"
#include "platform/TrackerRows.h"
#include "testing/LoopbackClient.h"
#include "testing/TestSupport.h"

#include <csignal>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sqlite3.h>
#include <cstring>
#include <sys/socket.h>
#include <netinet/in.h>
#include <sys/un.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace ombrelo::testing {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

double wallClock() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

class RunCommandTest : public ::testing::Test {
protected:
    void SetUp() override {
        OMBRELO_REQUIRE_X(server);
        writeFile(home / "share/applications/org.example.Editor.desktop",
                  "[Desktop Entry]\nType=Application\nName=Editor\nExec=example-edit\nStartupWMClass=ExampleEdit\n");
        writeFile(home / "share/applications/org.example.Secret.desktop",
                  "[Desktop Entry]\nType=Application\nName=Secret\nExec=secret\nStartupWMClass=Secret\n");
        writeFile(home / "config/ombrelo/settings.json",
                  R"({"language": "en", "idleSeconds": 2, "privateApps": ["org.example.secret"]})");
        writeFile(home / "project/notes.txt", "x");
    }

    void TearDown() override {
        if (fs::is_regular_file(database) && readFile(database).rfind("SQLite format 3", 0) == 0)
            expectActivityInvariants(database);
    }

    std::vector<std::string> environment() const {
        return {"HOME=" + home.path().string(),
                "XDG_DATA_HOME=" + (home / "data").string(),
                "XDG_CONFIG_HOME=" + (home / "config").string(),
                "XDG_RUNTIME_DIR=" + (home / "run").string(),
                "XDG_DATA_DIRS=" + (home / "share").string(),
                "XDG_SESSION_TYPE=x11",
                "XDG_SESSION_ID=" + std::string(StandInLogind::sessionID),
                "DISPLAY=" + server->display(),
                "OMBRELO_SYSTEM_BUS=" + systemBus.address(),
                "DBUS_SESSION_BUS_ADDRESS=" + sessionBus.address(),
                "OMBRELO_DB=" + database.string(),
                "OMBRELO_LOG=info"};
    }

    // `wrapper` runs the tracker (`wrapper… ombrelo run`).
    std::unique_ptr<ChildProcess> startTracker(const std::vector<std::string>& changes = {},
                                               std::vector<std::string> wrapper = {}) {
        fs::create_directories(home / "run");
        std::vector<std::string> env = environment();
        for (const std::string& change : changes) env.insert(env.begin(), change);  // earlier entries win
        wrapper.insert(wrapper.end(), {OMBRELO_BINARY, "run"});
        return std::make_unique<ChildProcess>(wrapper, env, home / "tracker.log");
    }

    // The editor in front and a tracker sampling every 0.2 s, its first row
    // already longer than a second (closing a shorter one would delete it).
    std::unique_ptr<ChildProcess> startTrackingTheEditor() {
        writeFile(home / "config/ombrelo/settings.json", R"({"language": "en", "idleSeconds": 600})");
        inFront.emplace(*server, TestWindow::Properties{.instance = "exampleedit", .className = "ExampleEdit",
                                                        .utf8Title = "Draft"});
        inFront->activate();
        auto tracker = startTracker({"OMBRELO_SAMPLE_SECONDS=0.2"});
        waitForRows([](const auto& list) { return list.size() == 1 && list[0].end - list[0].start > 1.5; },
                    "a first row longer than a second");
        return tracker;
    }

    CommandResult command(const std::vector<std::string>& arguments) {
        return runOmbrelo(home.path(), arguments, {"OMBRELO_DB=" + database.string()});
    }

    // Waits until the rows satisfy `condition`; on failure shows them and the log.
    void waitForRows(const std::function<bool(const std::vector<Row>&)>& condition, const char* what) {
        bool reached = eventually([&] { return condition(rows(database)); }, {}, 15s);
        if (reached) return;
        FAIL() << "never reached: " << what << "\nrows:\n" << describe(rows(database)) << "log:\n" << log();
    }

    std::string log() const { return readFile(home / "tracker.log"); }

    void touchInput() {
        static int x = 0;
        x = (x + 37) % 500;
        runProgram({"xdotool", "mousemove", std::to_string(100 + x), "300"}, {"DISPLAY=" + server->display()});
    }

    XServer* server = nullptr;
    TempDir home;
    std::optional<TestWindow> inFront;
    fs::path database = home / "data/ombrelo/test.sqlite";
    PrivateBus systemBus, sessionBus;
};

std::optional<std::string> sqlText(const fs::path& database, const std::string& sql) {
    sqlite3* db = nullptr;
    std::optional<std::string> value;
    if (sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_busy_timeout(db, 2000);
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK &&
            sqlite3_step(statement) == SQLITE_ROW && sqlite3_column_text(statement, 0))
            value = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
        sqlite3_finalize(statement);
    }
    sqlite3_close(db);
    return value;
}

bool hasRow(const std::vector<Row>& list, const std::string& kind, const std::string& bundleID) {
    return std::any_of(list.begin(), list.end(), [&](const Row& row) { return row.kind == kind && row.bundleID == bundleID; });
}

TEST_F(RunCommandTest, RecordsApplicationsPrivateTimeAndIdleUntilStopped) {
    StandInLogind logind(systemBus.address());
    TestWindow editor(*server, {.instance = "exampleedit", .className = "ExampleEdit",
                                .utf8Title = "notes.txt (~/project) - Editor"});
    TestWindow secret(*server, {.instance = "secret", .className = "Secret", .utf8Title = "Account 1234"});
    TestWindow other(*server, {.instance = "other", .className = "Other", .utf8Title = "Other window"});
    editor.activate();
    touchInput();
    auto tracker = startTracker();
    waitForRows([](const auto& list) { return hasRow(list, "app", "org.example.editor"); }, "the editor's row");

    // Each stays in front over a second: shorter activities are dropped.
    std::this_thread::sleep_for(1200ms);
    secret.activate();
    touchInput();
    waitForRows([](const auto& list) { return hasRow(list, "private", "org.example.secret"); }, "private time");
    std::this_thread::sleep_for(1200ms);
    other.activate();
    touchInput();
    waitForRows([](const auto& list) { return hasRow(list, "app", "other"); }, "the other window's row");
    std::this_thread::sleep_for(1200ms);
    touchInput();

    // No input for longer than idleSeconds (2): a sample opens an idle row from
    // the last input, and input coming back reopens the application in front.
    waitForRows([](const auto& list) { return !list.empty() && list.back().kind == "idle"; }, "an idle row");
    touchInput();
    waitForRows([](const auto& list) { return !list.empty() && list.back().kind == "app"; }, "back from idle");

    std::this_thread::sleep_for(1200ms);
    double stoppedAt = wallClock();
    EXPECT_EQ(tracker->stop(SIGTERM), 0);

    std::vector<Row> list = rows(database);
    ASSERT_EQ(list.size(), 5u) << describe(list) << log();
    EXPECT_EQ(list[0].bundleID, "org.example.editor");
    EXPECT_EQ(list[0].appName, "Editor");
    EXPECT_EQ(list[0].title, "notes.txt (~/project) - Editor");
    EXPECT_EQ(list[0].path, (home / "project/notes.txt").string());
    EXPECT_EQ(list[1].kind, "private");
    EXPECT_EQ(list[1].title, "");  // no title, no path: the time only
    EXPECT_EQ(list[1].path, "");
    EXPECT_EQ(list[2].bundleID, "other");
    EXPECT_EQ(list[2].title, "Other window");
    EXPECT_EQ(list[3].kind, "idle");
    EXPECT_EQ(list[3].appName, "Inactif");
    EXPECT_EQ(list[4].bundleID, "other");
    // Contiguous, give or take the instant the window manager leaves the focus
    // on no window between two.
    for (std::size_t i = 1; i < list.size(); ++i) EXPECT_NEAR(list[i].start, list[i - 1].end, 0.1) << "row " << i;
    // Stopping closed the last activity when it happened, not at the last sample.
    EXPECT_GE(list[4].end, stoppedAt - 1.0);
}

TEST_F(RunCommandTest, LockedAndSwitchedAwayTimeIsAGap) {
    StandInLogind logind(systemBus.address());
    TestWindow editor(*server, {.instance = "exampleedit", .className = "ExampleEdit", .utf8Title = "Draft"});
    editor.activate();
    touchInput();
    auto tracker = startTracker();
    waitForRows([](const auto& list) { return list.size() == 1; }, "the first row");

    std::this_thread::sleep_for(1200ms);
    double lockedAt = wallClock();
    logind.lock();
    std::this_thread::sleep_for(2500ms);
    logind.unlock();
    touchInput();
    waitForRows([](const auto& list) { return list.size() == 2; }, "a row after unlock");

    std::this_thread::sleep_for(1200ms);
    logind.setActive(false);
    std::this_thread::sleep_for(500ms);
    logind.setActive(true);
    touchInput();
    waitForRows([](const auto& list) { return list.size() == 3; }, "a row after switching back");
    std::this_thread::sleep_for(1200ms);
    EXPECT_EQ(tracker->stop(SIGTERM), 0);

    std::vector<Row> list = rows(database);
    ASSERT_EQ(list.size(), 3u) << describe(list) << log();
    EXPECT_LT(list[0].end, lockedAt + 1.5);         // closed at the lock, not at the unlock
    EXPECT_GE(list[1].start - list[0].end, 1.0);     // nothing while locked
    EXPECT_GT(list[2].start, list[1].end);           // nor while switched away
    for (const Row& row : list) EXPECT_EQ(row.bundleID, "org.example.editor");
}

TEST_F(RunCommandTest, AMissingPieceIsNamedAndTheDatabaseLeftAlone) {
    auto attempt = [&](std::vector<std::string> changes) {
        std::vector<std::string> env = environment();
        for (const std::string& change : changes) env.push_back(change);  // later entries win
        return runOmbrelo(home.path(), {"run"}, env);
    };
    CommandResult noDisplay = attempt({"DISPLAY="});
    EXPECT_EQ(noDisplay.status, 2);
    EXPECT_NE(noDisplay.err.find("no X11 display"), std::string::npos) << noDisplay.err;

    CommandResult noSessionBus = attempt({"DBUS_SESSION_BUS_ADDRESS="});
    EXPECT_EQ(noSessionBus.status, 2);
    EXPECT_NE(noSessionBus.err.find("no D-Bus session bus"), std::string::npos) << noSessionBus.err;

    EXPECT_FALSE(fs::exists(database));
    EXPECT_FALSE(fs::exists(home / "data/ombrelo"));
}

// Failures that retrying cannot mend end with statuses the service does not
// restart for, and say why in the journal (stderr).
TEST_F(RunCommandTest, StartUpFailuresThatRetryingCannotMendHaveTheirOwnStatus) {
    StandInLogind logind(systemBus.address());
    fs::create_directories(database.parent_path());
    {
        sqlite3* db = nullptr;
        ASSERT_EQ(sqlite3_open(database.c_str(), &db), SQLITE_OK);
        sqlite3_exec(db, "PRAGMA user_version = 12", nullptr, nullptr, nullptr);
        sqlite3_close(db);
    }
    CommandResult newer = runOmbrelo(home.path(), {"run"}, environment());
    EXPECT_EQ(newer.status, 3) << newer.err;
    EXPECT_NE(newer.err.find("newer version"), std::string::npos) << newer.err;

    writeFile(database, std::string(4096, 'x'));  // not a database
    CommandResult unopenable = runOmbrelo(home.path(), {"run"}, environment());
    EXPECT_EQ(unopenable.status, 4) << unopenable.err;
    EXPECT_NE(unopenable.err.find("cannot open its database"), std::string::npos) << unopenable.err;

    std::string unit = readFile(fs::path(OMBRELO_SOURCE_DIR) / "packaging/ombrelo.service.in");
    EXPECT_NE(unit.find("RestartPreventExitStatus=1 3 4"), std::string::npos);
}

// A process frozen without warning (a suspend without delay lock, or SIGSTOP)
// records nothing for the time it did not run.
TEST_F(RunCommandTest, AFrozenTrackerDoesNotRecordTheTimeItDidNotRun) {
    StandInLogind logind(systemBus.address());
    auto tracker = startTrackingTheEditor();

    ::kill(tracker->pid(), SIGSTOP);
    double frozenAt = wallClock();
    // The frozen stretch itself is the subject: it must outlast a few samples.
    std::this_thread::sleep_for(2s);
    double thawedAt = wallClock();
    ::kill(tracker->pid(), SIGCONT);
    waitForRows([](const auto& list) { return list.size() == 2 && list[1].end - list[1].start > 1.2; },
                "a new row after the frozen stretch");
    EXPECT_EQ(tracker->stop(SIGTERM), 0);

    std::vector<Row> list = rows(database);
    ASSERT_EQ(list.size(), 2u) << describe(list) << log();
    EXPECT_LE(list[0].end, frozenAt + 0.05) << describe(list);
    EXPECT_GE(list[1].start, thawedAt - 0.05) << describe(list);
}

// logind waits for the tracker's delay lock: the activity is closed before the
// machine sleeps, and nothing is recorded until it wakes.
TEST_F(RunCommandTest, SleepWaitsUntilTheActivityIsClosed) {
    StandInLogind logind(systemBus.address());
    auto tracker = startTrackingTheEditor();
    ASSERT_TRUE(eventually([&] { return logind.heldSleepDelays() == 1; })) << log();

    double sleepAt = wallClock();
    logind.prepareForSleep(true);
    ASSERT_TRUE(eventually([&] { return logind.heldSleepDelays() == 0; })) << log();
    // Released only once the row was closed: its end is written and stays.
    std::vector<Row> atRelease = rows(database);
    ASSERT_EQ(atRelease.size(), 1u);
    EXPECT_GE(atRelease[0].end, sleepAt - 0.05);
    ::kill(tracker->pid(), SIGSTOP);  // asleep
    std::this_thread::sleep_for(1s);
    ::kill(tracker->pid(), SIGCONT);
    double wokeAt = wallClock();
    logind.prepareForSleep(false);
    waitForRows([](const auto& list) { return list.size() == 2 && list[1].end - list[1].start > 1.2; },
                "a row after waking");
    EXPECT_TRUE(eventually([&] { return logind.heldSleepDelays() == 1; })) << "taken again on wake";
    EXPECT_EQ(tracker->stop(SIGTERM), 0);

    std::vector<Row> list = rows(database);
    ASSERT_EQ(list.size(), 2u) << describe(list) << log();
    EXPECT_EQ(list[0].end, atRelease[0].end);
    EXPECT_GE(list[1].start, wokeAt - 0.05);
}

// Two trackers on one file would record the same minutes twice.
TEST_F(RunCommandTest, OneTrackerPerDatabaseAndStatusSaysWhichProcess) {
    StandInLogind logind(systemBus.address());
    TestWindow editor(*server, {.instance = "exampleedit", .className = "ExampleEdit", .utf8Title = "Draft"});
    editor.activate();
    auto idleStatus = command({"status", "--json"});
    ASSERT_EQ(idleStatus.status, 0) << idleStatus.err;
    EXPECT_NE(idleStatus.out.find("\"tracker_running\": false"), std::string::npos) << idleStatus.out;

    auto tracker = startTracker();
    waitForRows([](const auto& list) { return list.size() == 1; }, "the first row");
    CommandResult second = runOmbrelo(home.path(), {"run"}, environment());
    EXPECT_EQ(second.status, 2);
    EXPECT_NE(second.err.find("Already tracking this database (process " + std::to_string(tracker->pid()) + ")"),
              std::string::npos)
        << second.err;
    auto running = command({"status", "--json"});
    EXPECT_NE(running.out.find("\"tracker_pid\": " + std::to_string(tracker->pid())), std::string::npos)
        << running.out;

    // The lock dies with its holder, however it ends.
    EXPECT_EQ(tracker->stop(SIGKILL), -1);
    EXPECT_NE(command({"status", "--json"}).out.find("\"tracker_running\": false"), std::string::npos);
    EXPECT_EQ(rows(database).size(), 1u);
}

// Containers, minimal sessions: no system bus at all is no reason not to track.
TEST_F(RunCommandTest, WithoutASystemBusItTracksAndSaysWhatIsMissingOnce) {
    TestWindow editor(*server, {.instance = "exampleedit", .className = "ExampleEdit", .utf8Title = "Draft"});
    editor.activate();
    touchInput();
    auto tracker = startTracker({"OMBRELO_SYSTEM_BUS=unix:path=/nonexistent/system_bus_socket"});
    waitForRows([](const auto& list) { return list.size() == 1; }, "a row without logind");
    EXPECT_EQ(tracker->stop(SIGTERM), 0);
    std::string text = log();
    std::size_t first = text.find("Sans logind");
    ASSERT_NE(first, std::string::npos) << text;
    EXPECT_EQ(text.find("Sans logind", first + 1), std::string::npos) << text;
}

// `ombrelo work` and `ombrelo stop` cut the activity in progress when they are
// given, not at the next sample: the part before keeps what it had, the part
// after follows the new choice.
TEST_F(RunCommandTest, WorkAndStopCutTheActivityInProgressAtOnce) {
    StandInLogind logind(systemBus.address());
    writeFile(home / "config/ombrelo/settings.json", R"({"language": "en", "idleSeconds": 600})");
    ASSERT_EQ(command({"projects", "add", "Refonte"}).status, 0);
    TestWindow editor(*server, {.instance = "exampleedit", .className = "ExampleEdit", .utf8Title = "Draft"});
    editor.activate();
    auto tracker = startTracker();  // samples every 5 s: a cut sooner comes from the change itself
    // Each part lasts over a second, or the cut would delete it as noise.
    waitForRows([](const auto& list) { return list.size() == 1; }, "the first row");
    std::this_thread::sleep_for(1200ms);

    double workAt = wallClock();
    ASSERT_EQ(command({"work", "Refonte"}).status, 0);
    waitForRows([](const auto& list) { return list.size() == 2; }, "a cut when work is given");
    std::this_thread::sleep_for(1200ms);
    double stopAt = wallClock();
    ASSERT_EQ(command({"stop"}).status, 0);
    waitForRows([](const auto& list) { return list.size() == 3; }, "a cut when stop is given");
    std::this_thread::sleep_for(1200ms);
    EXPECT_EQ(tracker->stop(SIGTERM), 0);

    std::vector<Row> list = rows(database);
    ASSERT_EQ(list.size(), 3u) << describe(list) << log();
    EXPECT_NEAR(list[1].start, workAt, 1.0);
    EXPECT_NEAR(list[2].start, stopAt, 1.0);
    auto claim = [&](int row) {
        return sqlText(database, "SELECT p.name FROM activity a JOIN assignment s ON s.activity_id = a.id "
                                 "JOIN project p ON p.id = s.project_id WHERE s.source = 'active' ORDER BY a.start "
                                 "LIMIT 1 OFFSET " + std::to_string(row));
    };
    EXPECT_EQ(claim(0), "Refonte") << "only the middle row is claimed";
    EXPECT_EQ(claim(1), std::nullopt);
    EXPECT_EQ(sqlText(database, "SELECT COUNT(*) FROM assignment WHERE activity_id = (SELECT id FROM activity "
                                "ORDER BY start LIMIT 1 OFFSET 1)"),
              "1");

    // An archived project stops claiming time at once too.
    tracker = startTracker();
    waitForRows([](const auto& rows) { return rows.size() == 4; }, "a row after restart");
    std::this_thread::sleep_for(1200ms);
    ASSERT_EQ(command({"work", "Refonte"}).status, 0);
    waitForRows([](const auto& rows) { return rows.size() == 5; }, "a cut when work is given");
    std::this_thread::sleep_for(1200ms);
    ASSERT_EQ(command({"projects", "archive", "Refonte"}).status, 0);
    waitForRows([](const auto& rows) { return rows.size() == 6; }, "a cut when the project is archived");
    std::this_thread::sleep_for(1200ms);
    EXPECT_EQ(tracker->stop(SIGTERM), 0);
    EXPECT_EQ(sqlText(database, "SELECT COUNT(*) FROM assignment WHERE activity_id = (SELECT id FROM activity "
                                "ORDER BY start DESC LIMIT 1)"),
              "0");
}

// One line to a Unix socket and the line that comes back; nothing when the
// socket cannot be reached or closes without answering.
std::optional<std::string> exchange(const fs::path& socket, const std::string& line) {
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socket.c_str(), sizeof address.sun_path - 1);
    std::optional<std::string> answer;
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        ::send(fd, line.data(), line.size(), MSG_NOSIGNAL) == ssize_t(line.size())) {
        std::string received;
        char buffer[512];
        ssize_t n;
        while ((n = ::recv(fd, buffer, sizeof buffer, 0)) > 0) received.append(buffer, std::size_t(n));
        if (!received.empty()) answer = received;
    }
    ::close(fd);
    return answer;
}

// What another user gets from the socket: run in a child that drops to
// "nobody"; its exit status says whether it got anything done.
bool strangerGetsAnswered(const fs::path& socket) {
    pid_t child = ::fork();
    if (child == 0) {
        if (::setgid(65534) != 0 || ::setuid(65534) != 0) ::_exit(3);
        std::optional<std::string> answer = exchange(socket, R"({"command": "stop"})" "\n");
        ::_exit(answer && answer->find(R"("ok":true)") != std::string::npos ? 0 : 1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Commands reach the running tracker through its socket and act at once; the
// socket answers its own user only, and garbage on it never stops the tracker.
TEST_F(RunCommandTest, CommandsReachTheRunningTrackerThroughItsSocket) {
    StandInLogind logind(systemBus.address());
    ASSERT_EQ(command({"projects", "add", "Refonte"}).status, 0);
    auto tracker = startTrackingTheEditor();
    fs::path folder = home / "run/ombrelo";
    fs::path socket;
    ASSERT_TRUE(eventually([&] {
        for (const auto& entry : fs::directory_iterator(folder))
            if (entry.path().extension() == ".sock") socket = entry.path();
        return !socket.empty();
    })) << log();
    EXPECT_EQ(fs::status(folder).permissions() & fs::perms::all, fs::perms::owner_all);

    // A project made a moment ago by another process is known to the tracker.
    ASSERT_EQ(command({"projects", "add", "Audit"}).status, 0);
    CommandResult focus = command({"focus", "start", "--minutes", "25", "--project", "Audit"});
    ASSERT_EQ(focus.status, 0) << focus.err;
    EXPECT_NE(focus.out.find("Audit"), std::string::npos) << focus.out;
    EXPECT_TRUE(eventually([&] { return log().find("Focus démarré (25 min)") != std::string::npos; }))
        << "done by the tracker itself:\n" << log();
    EXPECT_EQ(sqlText(database, "SELECT p.name FROM focus_session f JOIN project p ON p.id = f.project_id "
                                "WHERE f.end IS NULL"),
              "Audit");

    std::optional<std::string> garbage = exchange(socket, "{\"command\": \"work\", \"project\": [\n");
    ASSERT_TRUE(garbage);
    EXPECT_NE(garbage->find(R"("ok":false)"), std::string::npos) << *garbage;
    if (::geteuid() == 0) {
        EXPECT_FALSE(strangerGetsAnswered(socket));
    }
    EXPECT_TRUE(tracker->running());

    CommandResult link = command({"open", "ombrelo://travailler?projet=Refonte&note=Revue"});
    ASSERT_EQ(link.status, 0) << link.err;
    waitForRows([](const auto& list) { return list.size() == 2; }, "a cut when the link is followed");
    EXPECT_EQ(command({"open", "ombrelo://effacer-tout"}).status, 2);
    EXPECT_EQ(command({"focus", "stop"}).status, 0);
    EXPECT_TRUE(eventually([&] { return log().find("Focus terminé (stopped)") != std::string::npos; })) << log();
    EXPECT_EQ(tracker->stop(SIGTERM), 0);
    EXPECT_FALSE(fs::exists(socket)) << "the socket goes with the tracker";

    // Without a tracker the same command acts on the database, and the next
    // tracker takes the session up.
    ASSERT_EQ(command({"focus", "start"}).status, 0);
    tracker = startTracker({"OMBRELO_SAMPLE_SECONDS=0.2"});
    ASSERT_TRUE(eventually([&] { return fs::exists(socket); })) << log();
    CommandResult stopped = command({"focus", "stop"});
    EXPECT_EQ(stopped.status, 0) << stopped.err;
    EXPECT_EQ(sqlText(database, "SELECT COUNT(*) FROM focus_session WHERE end IS NULL"), "0");
    EXPECT_EQ(tracker->stop(SIGTERM), 0);
}

// A port nobody listens on now, and one held by a listener of the test's.
class Ports {
public:
    Ports() {
        held_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(held_, reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::listen(held_, 1);
        socklen_t length = sizeof address;
        ::getsockname(held_, reinterpret_cast<sockaddr*>(&address), &length);
        taken = ntohs(address.sin_port);
        int probe = ::socket(AF_INET, SOCK_STREAM, 0);
        address.sin_port = 0;
        ::bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
        free = ntohs(address.sin_port);
        ::close(probe);
    }
    ~Ports() { ::close(held_); }
    std::uint16_t free = 0;
    std::uint16_t taken = 0;

private:
    int held_ = -1;
};

int ping(std::uint16_t port, const std::string& token) {
    std::string body = R"({"jsonrpc":"2.0","id":7,"method":"ping"})";
    LoopbackClient client(port);
    if (!client.connected()) return 0;
    client.send("POST /mcp HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                "\r\nAuthorization: Bearer " + token + "\r\nContent-Type: application/json\r\nContent-Length: " +
                std::to_string(body.size()) + "\r\n\r\n" + body);
    return splitReply(client.readAll().bytes).status;
}

// A GET through the window's gate, as the browser sends it once signed in.
struct WindowSession {
    std::uint16_t port = 0;
    std::string cookie, token;

    HttpReply get(const std::string& target) const {
        LoopbackClient client(port);
        client.send("GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\nCookie: " +
                    cookie + "\r\nX-Ombrelo-Token: " + token + "\r\n\r\n");
        return splitReply(client.readAll().bytes);
    }
};

// Trades the one-time address for a session, as the browser does.
std::optional<WindowSession> signIn(const std::string& link) {
    std::string rest = link.substr(std::string("http://127.0.0.1:").size());
    WindowSession session{static_cast<std::uint16_t>(std::stoi(rest)), {}, {}};
    LoopbackClient client(session.port);
    client.send("GET " + rest.substr(rest.find('/')) + " HTTP/1.1\r\nHost: 127.0.0.1:" +
                std::to_string(session.port) + "\r\n\r\n");
    std::string head = splitReply(client.readAll().bytes).head;
    std::size_t cookie = head.find("Set-Cookie: "), token = head.find("#token=");
    if (cookie == std::string::npos || token == std::string::npos) return std::nullopt;
    session.cookie = head.substr(cookie + 12, head.find(';', cookie) - cookie - 12);
    session.token = head.substr(token + 7, head.find('&', token) - token - 7);
    return session;
}

TEST_F(RunCommandTest, TheTrackerServesTheWindowWithWhatItRecordsNow) {
    StandInLogind logind(systemBus.address());
    writeFile(home / "config/ombrelo/settings.json", R"({"language": "en", "idleSeconds": 600, "uiPort": 0})");
    writeFile(home / "browser", "#!/bin/sh\necho \"$1\" > \"$(dirname \"$0\")/opened\"\n");
    fs::permissions(home / "browser", fs::perms::owner_all);
    inFront.emplace(*server, TestWindow::Properties{.instance = "exampleedit", .className = "ExampleEdit",
                                                    .utf8Title = "Draft"});
    inFront->activate();
    auto tracker = startTracker({"OMBRELO_SAMPLE_SECONDS=0.2", "BROWSER=" + (home / "browser").string()});
    waitForRows([](const auto& list) { return list.size() == 1; }, "the first row");

    // `ombrelo ui` gets a one-time address from the tracker through its socket.
    CommandResult ui = command({"ui", "--print", "timeline"});
    ASSERT_EQ(ui.status, 0) << ui.err << log();
    ASSERT_TRUE(ui.out.starts_with("http://127.0.0.1:")) << ui.out;
    std::optional<WindowSession> window = signIn(ui.out.substr(0, ui.out.find('\n')));
    ASSERT_TRUE(window) << ui.out;

    // Today's timeline shows the row the tracker is writing, and its end moves on.
    nlohmann::json day;
    ASSERT_TRUE(eventually([&] {
        day = nlohmann::json::parse(window->get("/api/timeline").body, nullptr, false);
        return !day.is_discarded() && day["blocks"].size() == 1;
    })) << day.dump();
    std::string id = std::to_string(day["blocks"][0]["activity_ids"][0].get<std::int64_t>());
    auto end = [&] {
        auto answer = nlohmann::json::parse(window->get("/api/activities?ids=" + id).body, nullptr, false);
        return answer.is_discarded() ? std::string() : answer["activities"][0]["activity"].value("end", "");
    };
    std::string first = end();
    EXPECT_FALSE(first.empty());
    EXPECT_TRUE(eventually([&] { return end() > first; }, {}, 15s)) << "the window reads the tracker's new writes";

    // A link to a page opens the browser on a fresh address of it.
    CommandResult link = command({"open", "ombrelo://ouvrir?page=rapports"});
    ASSERT_EQ(link.status, 0) << link.err;
    ASSERT_TRUE(eventually([&] { return fs::exists(home / "opened"); })) << log();
    std::string opened = readFile(home / "opened");
    EXPECT_NE(opened.find("/open?ticket="), std::string::npos) << opened;
    EXPECT_NE(opened.find("&page=reports"), std::string::npos) << opened;
    EXPECT_TRUE(signIn(opened.substr(0, opened.find('\n'))));
    EXPECT_EQ(tracker->stop(SIGTERM), 0);
}

// A native message as a browser writes it to its host.
std::string nativeMessage(const nlohmann::json& body) {
    std::string text = body.dump();
    auto length = static_cast<std::uint32_t>(text.size());
    return std::string(reinterpret_cast<const char*>(&length), sizeof length) + text;
}

TEST_F(RunCommandTest, SitesReportedByTheBrowserReachTheRowsAtOnceAndPrivateWindowsLeaveNothing) {
    StandInLogind logind(systemBus.address());
    writeFile(home / "config/ombrelo/settings.json", R"({"language": "en", "idleSeconds": 600})");
    ASSERT_EQ(command({"projects", "add", "Refonte"}).status, 0);
    ASSERT_EQ(command({"rules", "add", "domain", "alpha.test", "--project", "Refonte"}).status, 0);
    // The browser's window belongs to this process, which starts the host as a browser does.
    inFront.emplace(*server, TestWindow::Properties{.instance = "chromium", .className = "Chromium",
                                                    .utf8Title = "Page Alpha - Chromium", .pid = ::getpid()});
    inFront->activate();
    auto tracker = startTracker();  // samples every 5 s: the rows below come from the reports themselves
    waitForRows([](const auto& list) { return list.size() == 1; }, "the browser's first row");
    EXPECT_NE(command({"status"}).out.find("not seen"), std::string::npos);

    // The host lives as long as the browser: its input stays open between reports.
    fs::path pipe = home / "messages";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    struct Host {
        std::thread process;
        std::FILE* input = nullptr;
        // The browser closes (also when a check fails half-way).
        void close() {
            if (input) std::fclose(input);
            input = nullptr;
            if (process.joinable()) process.join();
        }
        ~Host() { close(); }
    } host;
    host.process =
        std::thread([&] { runOmbrelo(home.path(), {"browser-host"}, {"OMBRELO_DB=" + database.string()}, pipe); });
    host.input = std::fopen(pipe.c_str(), "w");
    ASSERT_TRUE(host.input);
    auto report = [&](nlohmann::json message) {
        message["at"] = wallClock() * 1000;
        std::string bytes = nativeMessage(message);
        std::fwrite(bytes.data(), 1, bytes.size(), host.input);
        std::fflush(host.input);
    };
    report({{"kind", "page"}, {"url", "https://alpha.test/a"}, {"title", "Page Alpha"}});
    waitForRows([](const auto& list) { return !list.empty() && list.back().domain == "alpha.test"; },
                "the page's row");
    EXPECT_EQ(rows(database).back().title, "Page Alpha") << "the tab's title, without the browser's name";
    // The site rule classifies the live row as it would a replayed one.
    std::optional<std::string> id = sqlText(database, "SELECT id FROM activity WHERE domain = 'alpha.test'");
    ASSERT_TRUE(id);
    nlohmann::json explained = nlohmann::json::parse(command({"explain", *id, "--json"}).out, nullptr, false);
    EXPECT_EQ(explained["activity"]["project"], "Refonte") << explained.dump();
    report({{"kind", "page"}, {"incognito", true}, {"url", "https://secret.test/"}, {"title", "Secret"}});
    waitForRows([](const auto& list) { return !list.empty() && list.back().kind == "private"; },
                "private time for the private window");
    EXPECT_NE(command({"status"}).out.find("seen (browser extension"), std::string::npos);
    // The browser closes: its last page is in front of nothing, and the window's title is back.
    host.close();
    waitForRows([](const auto& list) { return !list.empty() && list.back().title == "Page Alpha - Chromium"; },
                "the window's title once the browser's host is gone");
    EXPECT_EQ(tracker->stop(SIGTERM), 0);

    for (const Row& row : rows(database)) {
        EXPECT_EQ(row.title.find("Secret"), std::string::npos);
        EXPECT_NE(row.domain, "secret.test");
    }
    EXPECT_EQ(sqlText(database, "SELECT COUNT(*) FROM activity WHERE url LIKE '%secret%' OR title LIKE '%Secret%'"),
              "0");
}

TEST_F(RunCommandTest, TheTrackerServesAgentsAsTheSettingsSay) {
    StandInLogind logind(systemBus.address());
    Ports ports;
    ASSERT_EQ(command({"mcp", "enable", "--port", std::to_string(ports.free)}).status, 0);
    auto token = runOmbrelo(home.path(), {"mcp", "token"}, {"OMBRELO_TOKEN_STORE=file"});
    ASSERT_EQ(token.status, 0) << token.err;
    std::string secret = token.out.substr(0, 64);
    auto tracker = startTracker({"OMBRELO_TOKEN_STORE=file"});
    ASSERT_TRUE(eventually([&] { return ping(ports.free, secret) == 200; })) << log();
    EXPECT_EQ(ping(ports.free, std::string(64, 'f')), 401);
    auto status = [&] { return nlohmann::json::parse(command({"status", "--json"}).out)["agent_server"]; };
    EXPECT_EQ(status()["running"], true);

    // A port already taken: said by status, and tracking goes on.
    ASSERT_EQ(command({"mcp", "enable", "--port", std::to_string(ports.taken)}).status, 0);
    ASSERT_TRUE(eventually([&] { return status()["problem"].is_string(); })) << log();
    EXPECT_NE(status()["problem"].get<std::string>().find(std::to_string(ports.taken)), std::string::npos);
    EXPECT_NE(ping(ports.free, secret), 200);

    // A new token reaches the running server at once; turned off, it closes.
    ASSERT_EQ(command({"mcp", "enable", "--port", std::to_string(ports.free)}).status, 0);
    ASSERT_TRUE(eventually([&] { return ping(ports.free, secret) == 200; })) << log();
    auto renewed = runOmbrelo(home.path(), {"mcp", "token", "--regenerate"},
                              {"OMBRELO_TOKEN_STORE=file", "OMBRELO_DB=" + database.string()});
    ASSERT_EQ(renewed.status, 0) << renewed.err;
    std::string fresh = renewed.out.substr(0, 64);
    EXPECT_TRUE(eventually([&] { return ping(ports.free, fresh) == 200; })) << log();
    EXPECT_EQ(ping(ports.free, secret), 401);
    ASSERT_EQ(command({"mcp", "disable"}).status, 0);
    EXPECT_TRUE(eventually([&] { return ping(ports.free, fresh) == 0; })) << log();
    EXPECT_TRUE(tracker->running());
    EXPECT_EQ(tracker->stop(SIGTERM), 0);
    EXPECT_EQ(log().find(fresh), std::string::npos);
}

// The day's backup meets a full disk (a 64 KiB file system over the backups
// folder, in a mount namespace of the tracker's own): it is logged and shown by
// status, and tracking goes on.
TEST_F(RunCommandTest, ADailyBackupOnAFullDiskLeavesTrackingGoingOn) {
    std::vector<std::string> ownMounts{"unshare", "--user", "--map-current-user", "--mount"};
    if (runProgram({ownMounts[0], ownMounts[1], ownMounts[2], ownMounts[3], "true"}) != 0)
        GTEST_SKIP() << "no user and mount namespaces here to make a full disk";
    ASSERT_EQ(command({"status"}).status, 0);
    {
        sqlite3* db = nullptr;
        ASSERT_EQ(sqlite3_open(database.c_str(), &db), SQLITE_OK);
        std::string fill = "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 2000) "
                           "INSERT INTO activity (start, end, app_name, kind, title) SELECT 1.7e9 + i * 60, "
                           "1.7e9 + i * 60 + 30, 'Editor', 'app', printf('%.100c', 'x') FROM n";
        EXPECT_EQ(sqlite3_exec(db, fill.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
        sqlite3_close(db);
    }
    fs::path backups = database.parent_path() / "backups", failure = database.string() + ".backup-failure";
    fs::create_directories(backups);
    std::vector<std::string> wrapper = ownMounts;
    wrapper.insert(wrapper.end(), {"sh", "-c", "mount -t tmpfs -o size=64k tmpfs \"$0\" && exec \"$@\"",
                                   backups.string()});
    inFront.emplace(*server, TestWindow::Properties{.instance = "exampleedit", .className = "ExampleEdit",
                                                    .utf8Title = "Draft"});
    inFront->activate();
    auto tracker = startTracker({"OMBRELO_SAMPLE_SECONDS=0.2"}, wrapper);
    ASSERT_TRUE(eventually([&] { return fs::exists(failure); }, {}, 15s)) << log();
    EXPECT_NE(log().find("Sauvegarde du jour impossible"), std::string::npos) << log();

    auto tracked = [&] {
        auto list = rows(database);
        return list.empty() ? 0.0 : list.back().end;
    };
    double before = tracked();
    EXPECT_TRUE(eventually([&] { return tracked() > before + 0.5; }, {}, 15s)) << log();
    auto status = command({"status"});
    EXPECT_NE(status.out.find("Backup failure"), std::string::npos) << status.out;
    EXPECT_EQ(tracker->stop(SIGTERM), 0) << log();
}

} // namespace
} // namespace ombrelo::testing
