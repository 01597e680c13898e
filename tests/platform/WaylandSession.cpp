#include "platform/WaylandSession.h"

#include <nlohmann/json.hpp>

#include <fstream>

#include <csignal>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ombrelo::testing {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

constexpr const char* testAccount = "ombrelo-test";

// The focused node of Sway's tree, depth first.
const nlohmann::json* focusedNode(const nlohmann::json& node) {
    if (node.value("focused", false)) return &node;
    for (const char* children : {"nodes", "floating_nodes"})
        if (node.contains(children))
            for (const auto& child : node[children])
                if (const nlohmann::json* found = focusedNode(child)) return found;
    return nullptr;
}

const nlohmann::json* windowWithAppID(const nlohmann::json& node, const std::string& appID) {
    if (node.contains("app_id") && node["app_id"].is_string() && node["app_id"] == appID) return &node;
    for (const char* children : {"nodes", "floating_nodes"})
        if (node.contains(children))
            for (const auto& child : node[children])
                if (const nlohmann::json* found = windowWithAppID(child, appID)) return found;
    return nullptr;
}

} // namespace

const TestUser& TestUser::get() {
    static const TestUser user = [] {
        TestUser made;
        if (::geteuid() != 0) return made;
        // Tests running side by side may both try: whoever loses finds it made.
        if (!::getpwnam(testAccount))
            runProgram({"useradd", "--system", "--no-create-home", "--home-dir", "/nonexistent", "--shell",
                        "/usr/sbin/nologin", testAccount});
        const passwd* account = ::getpwnam(testAccount);
        if (!account) throw std::runtime_error("cannot make the account ombrelo-test (useradd)");
        made.name_ = testAccount;
        made.uid_ = account->pw_uid;
        made.gid_ = account->pw_gid;
        return made;
    }();
    return user;
}

std::vector<std::string> TestUser::wrap(std::vector<std::string> argv) const {
    if (name_.empty()) return argv;
    // setpriv runs the program in its own process (no runuser in between to
    // outlive), and dies with the test even when the test is killed.
    argv.insert(argv.begin(), {"setpriv", "--reuid=" + std::to_string(uid_), "--regid=" + std::to_string(gid_),
                               "--clear-groups", "--pdeathsig=KILL", "--"});
    return argv;
}

void TestUser::own(const fs::path& path) const {
    if (name_.empty()) return;
    auto hand = [this](const fs::path& each) {
        if (::lchown(each.c_str(), uid_, gid_) != 0) throw std::runtime_error("chown failed: " + each.string());
    };
    hand(path);
    if (fs::is_directory(path))
        for (const auto& entry : fs::recursive_directory_iterator(path)) hand(entry.path());
}

std::unique_ptr<SwaySession> SwaySession::start(std::string& why) {
    std::unique_ptr<SwaySession> session(new SwaySession());
    try {
        const TestUser& user = TestUser::get();
        session->runtime_ = session->folder_ / "run";
        fs::create_directories(session->runtime_);
        fs::permissions(session->runtime_, fs::perms::owner_all);
        writeFile(session->folder_ / "config", "xwayland disable\noutput HEADLESS-1 resolution 800x600\n");
        user.own(session->folder_.path());
        // The session's folder stands for a home; an inherited SWAYSOCK would
        // be where Sway listens.
        session->sway_ = std::make_unique<ChildProcess>(
            user.wrap({"env", "-u", "SWAYSOCK", "-u", "WAYLAND_DISPLAY", "-u", "DISPLAY",
                       "HOME=" + session->folder_.path().string(), "sway", "-c",
                       (session->folder_ / "config").string()}),
            std::vector<std::string>{"XDG_RUNTIME_DIR=" + session->runtime_.string(), "WLR_BACKENDS=headless",
                                     "WLR_RENDERER=pixman", "WLR_LIBINPUT_NO_DEVICES=1"},
            session->folder_ / "sway.log");
    } catch (const std::exception& error) {
        why = error.what();
        return nullptr;
    }
    // Ready once its Wayland socket and its IPC socket are there.
    bool ready = eventually(
        [&] {
            for (const auto& entry : fs::directory_iterator(session->runtime_)) {
                std::string name = entry.path().filename().string();
                if (!entry.is_socket()) continue;
                if (name.rfind("wayland-", 0) == 0) session->display_ = name;
                if (name.rfind("sway-ipc.", 0) == 0) session->ipcSocket_ = entry.path().string();
            }
            return !session->display_.empty() && !session->ipcSocket_.empty() && session->focusedAppID().has_value();
        },
        {}, 15s);
    if (!ready) {
        why = "sway did not start (is it installed?): " + readFile(session->folder_ / "sway.log");
        return nullptr;
    }
    return session;
}

SwaySession::~SwaySession() {
    if (sway_) sway_->stop(SIGTERM);
}

std::vector<std::string> SwaySession::environment() const {
    return {"XDG_RUNTIME_DIR=" + runtime_.string(), "WAYLAND_DISPLAY=" + display_, "SWAYSOCK=" + ipcSocket_};
}

bool SwaySession::command(const std::string& text) const {
    return runProgram({"swaymsg", "--quiet", text}, environment()) == 0;
}

std::optional<std::string> SwaySession::tree() const {
    return programOutput({"swaymsg", "--raw", "-t", "get_tree"}, environment());
}

std::optional<std::string> SwaySession::focusedAppID() const {
    std::optional<std::string> text = tree();
    if (!text) return std::nullopt;
    nlohmann::json root = nlohmann::json::parse(*text, nullptr, false);
    if (root.is_discarded()) return std::nullopt;
    const nlohmann::json* focused = focusedNode(root);
    if (!focused || !focused->contains("app_id") || !(*focused)["app_id"].is_string()) return std::string();
    return (*focused)["app_id"].get<std::string>();
}

std::optional<std::string> SwaySession::titleOf(const std::string& appID) const {
    std::optional<std::string> text = tree();
    if (!text) return std::nullopt;
    nlohmann::json root = nlohmann::json::parse(*text, nullptr, false);
    if (root.is_discarded()) return std::nullopt;
    const nlohmann::json* window = windowWithAppID(root, appID);
    if (!window || !(*window)["name"].is_string()) return std::nullopt;
    return (*window)["name"].get<std::string>();
}

void SwaySession::pressKey() const {
    runProgram(TestUser::get().wrap({"wtype", "-k", "Shift_L"}), environment());
}

// ---- Windows ----------------------------------------------------------------------

WaylandWindow::WaylandWindow(SwaySession& session, const std::string& appID, const std::string& title)
    : session_(session), appID_(appID), commands_(folder_ / "commands") {
    if (::mkfifo(commands_.c_str(), 0600) != 0) throw std::runtime_error("mkfifo failed");
    TestUser::get().own(folder_.path());
    client_ = std::make_unique<ChildProcess>(TestUser::get().wrap({OMBRELO_WAYLAND_WINDOW, appID, title, commands_.string()}),
                                             session_.environment(), folder_ / "client.log");
    if (!eventually([&] { return session_.focusedAppID() == appID_; }, {}, 10s))
        throw std::runtime_error("the window " + appID + " never came to the front: " +
                                 readFile(folder_ / "client.log"));
}

WaylandWindow::~WaylandWindow() {
    if (client_) client_->stop(SIGTERM);
}

void WaylandWindow::activate() {
    session_.command("[app_id=\"" + appID_ + "\"] focus");
    if (!eventually([&] { return session_.focusedAppID() == appID_; }, {}, 10s))
        throw std::runtime_error("Sway did not focus " + appID_);
}

void WaylandWindow::setTitle(const std::string& title) {
    send("title " + title);
    if (!eventually([&] { return session_.titleOf(appID_) == title; }, {}, 10s))
        throw std::runtime_error("the title of " + appID_ + " did not change");
}

void WaylandWindow::close() {
    send("close");
    eventually([&] { return !client_->running(); }, {}, 10s);
    client_->stop(SIGTERM);
    client_.reset();
}

void WaylandWindow::send(const std::string& line) {
    // The client holds the FIFO open for reading and writing, so this never blocks.
    std::ofstream(commands_, std::ios::app) << line << '\n';
}

} // namespace ombrelo::testing
