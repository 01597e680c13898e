#include "platform/WaylandSession.h"

#include "platform/linux/Bus.h"
#include "platform/linux/KWinWindows.h"

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

// What KWin says is in front, to the tests' probe.
int kwinReported(sd_bus_message* message, void* data, sd_bus_error*) {
    const char *window = nullptr, *desktopFile = nullptr, *windowClass = nullptr, *caption = nullptr, *pid = nullptr;
    if (sd_bus_message_read(message, "sssss", &window, &desktopFile, &windowClass, &caption, &pid) < 0)
        return -EINVAL;
    auto* front = static_cast<std::pair<std::mutex, std::pair<std::string, std::string>>*>(data);
    std::lock_guard lock(front->first);
    front->second = {windowClass, caption};
    return sd_bus_reply_method_return(message, "");
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

// ---- Compositors -------------------------------------------------------------------

CompositorSession::CompositorSession() : runtime_(folder_ / "run") {
    fs::create_directories(runtime_);
    fs::permissions(runtime_, fs::perms::owner_all);
}

CompositorSession::~CompositorSession() {
    if (compositor_) compositor_->stop(SIGTERM);
}

std::vector<std::string> CompositorSession::environment() const {
    return {"XDG_RUNTIME_DIR=" + runtime_.string(), "WAYLAND_DISPLAY=" + display_};
}

void CompositorSession::launch(const std::vector<std::string>& argv, const std::vector<std::string>& environment,
                               const std::function<bool()>& ready) {
    TestUser::get().own(folder_.path());
    compositor_ = std::make_unique<ChildProcess>(TestUser::get().wrap(argv), environment, folder_ / "compositor.log");
    if (!eventually([&] { return compositor_->running() && ready(); }, {}, 30s))
        throw std::runtime_error(argv[0] + " did not start: " + readFile(folder_ / "compositor.log"));
}

bool CompositorSession::foundSocket() {
    for (const auto& entry : fs::directory_iterator(runtime_)) {
        std::string name = entry.path().filename().string();
        if (entry.is_socket() && name.rfind("wayland-", 0) == 0) display_ = name;
    }
    return !display_.empty();
}

std::unique_ptr<SwaySession> SwaySession::start(std::string& why) {
    try {
        std::unique_ptr<SwaySession> session(new SwaySession());
        writeFile(session->folder_ / "config", "xwayland disable\noutput HEADLESS-1 resolution 800x600\n");
        // The session's folder stands for a home; an inherited SWAYSOCK would
        // be where Sway listens.
        session->launch({"env", "-u", "SWAYSOCK", "-u", "WAYLAND_DISPLAY", "-u", "DISPLAY",
                         "HOME=" + session->folder_.path().string(), "sway", "-c",
                         (session->folder_ / "config").string()},
                        {"XDG_RUNTIME_DIR=" + session->runtime_.string(), "WLR_BACKENDS=headless",
                         "WLR_RENDERER=pixman", "WLR_LIBINPUT_NO_DEVICES=1"},
                        [&] {
                            for (const auto& entry : fs::directory_iterator(session->runtime_))
                                if (entry.path().filename().string().rfind("sway-ipc.", 0) == 0)
                                    session->ipcSocket_ = entry.path().string();
                            return session->foundSocket() && !session->ipcSocket_.empty() &&
                                   session->focusedAppID().has_value();
                        });
        return session;
    } catch (const std::exception& error) {
        why = error.what();
        return nullptr;
    }
}

std::vector<std::string> SwaySession::environment() const {
    std::vector<std::string> list = CompositorSession::environment();
    list.push_back("SWAYSOCK=" + ipcSocket_);
    return list;
}

void SwaySession::waitForFront(const std::string& appID) const {
    if (!eventually([&] { return focusedAppID() == appID; }, {}, 10s))
        throw std::runtime_error("the window " + appID + " never came to the front");
}

void SwaySession::waitForTitle(const std::string& appID, const std::string& title) const {
    if (!eventually([&] { return titleOf(appID) == title; }, {}, 10s))
        throw std::runtime_error("the title of " + appID + " did not change");
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

std::unique_ptr<DesktopShellSession> DesktopShellSession::start(Shell shell, std::string& why) {
    try {
        std::unique_ptr<DesktopShellSession> session(new DesktopShellSession());
        session->shell_ = shell;
        if (shell == Shell::kwin) session->startKWin();
        else session->startGnomeShell();
        return session;
    } catch (const std::exception& error) {
        why = error.what();
        return nullptr;
    }
}

std::vector<std::string> DesktopShellSession::environment() const {
    std::vector<std::string> list = CompositorSession::environment();
    list.push_back("DBUS_SESSION_BUS_ADDRESS=" + bus_.address());
    return list;
}

int DesktopShellSession::run(const std::vector<std::string>& argv) const {
    std::vector<std::string> env = environment();
    env.insert(env.end(), settings_.begin(), settings_.end());
    return runProgram(TestUser::get().wrap(argv), env);
}

bool DesktopShellSession::owned(const char* name) const {
    try {
        platform::Bus bus(bus_.address(), "test bus");
        return bus.hasOwner(name);
    } catch (const platform::BusError&) {
        return false;
    }
}

void DesktopShellSession::startKWin() {
    // The packaged binary carries a file capability this sandbox may not grant;
    // a copy without it runs. KWin wants its own name to find its Qt platform.
    fs::path kwin = folder_ / "bin/kwin_wayland";
    fs::create_directories(kwin.parent_path());
    fs::copy_file("/usr/bin/kwin_wayland", kwin);
    launch({"env", "-u", "WAYLAND_DISPLAY", "-u", "DISPLAY", "HOME=" + folder_.path().string(), kwin.string(),
            "--virtual", "--no-lockscreen", "--socket", "wayland-kwin", "--width", "800", "--height", "600"},
           // Fake input (the tests' hand on the mouse) is for trusted clients only.
           {"XDG_RUNTIME_DIR=" + runtime_.string(), "DBUS_SESSION_BUS_ADDRESS=" + bus_.address(),
            "KWIN_COMPOSE=Q", "KWIN_WAYLAND_NO_PERMISSION_CHECKS=1"},
           [&] { return foundSocket() && scriptingReady(); });
    followKWinsFront();
}

void DesktopShellSession::startGnomeShell() {
    fs::path home = folder_ / "home", config = folder_ / "config";
    // Ours, as a user installs it, and one of the tests' that closes the
    // overview GNOME Shell opens at start (it would keep new windows from the
    // focus) and runs the tests' code in the shell.
    CommandResult installed = runOmbrelo(home, {"gnome-extension", "install"},
                                         {"XDG_DATA_HOME=" + (home / ".local/share").string(),
                                          "DBUS_SESSION_BUS_ADDRESS=" + bus_.address()});
    if (installed.status != 0) throw std::runtime_error("gnome-extension install: " + installed.err);
    writeFile(home / ".local/share/gnome-shell/extensions/tests@tests.ombrelo.fr/metadata.json",
              R"({"uuid": "tests@tests.ombrelo.fr", "name": "Ombrelo tests", "description": "Tests",)"
              R"( "shell-version": ["42", "43", "44"]})");
    writeFile(home / ".local/share/gnome-shell/extensions/tests@tests.ombrelo.fr/extension.js",
              "const {Gio} = imports.gi;\n"
              "const Main = imports.ui.main;\n"
              "const INTERFACE = '<node><interface name=\"tests.ombrelo.Shell\"><method name=\"Run\">'\n"
              "    + '<arg type=\"s\" direction=\"in\" name=\"code\"/></method></interface></node>';\n"
              "let exported = null;\n"
              "function init() {}\n"
              "function enable() {\n"
              "    Main.overview.hide();\n"
              "    Main.layoutManager.connect('startup-complete', () => Main.overview.hide());\n"
              "    exported = Gio.DBusExportedObject.wrapJSObject(INTERFACE, {Run(code) { (0, eval)(code); }});\n"
              "    exported.export(Gio.DBus.session, '/tests/ombrelo/Shell');\n"
              "    Gio.bus_own_name_on_connection(Gio.DBus.session, 'tests.ombrelo.Shell',\n"
              "        Gio.BusNameOwnerFlags.NONE, null, null);\n"
              "}\n"
              "function disable() {}\n");
    // Settings in a key file, for the shell and the session's programs: no
    // dconf service on this bus.
    writeFile(config / "glib-2.0/settings/keyfile",
              "[org/gnome/shell]\nenabled-extensions=['ombrelo@ombrelo.fr', 'tests@tests.ombrelo.fr']\n");
    settings_ = {"HOME=" + home.string(), "XDG_CONFIG_HOME=" + config.string(),
                 "XDG_DATA_HOME=" + (home / ".local/share").string(), "GSETTINGS_BACKEND=keyfile"};
    std::vector<std::string> command{"env", "-u", "WAYLAND_DISPLAY", "-u", "DISPLAY"};
    command.insert(command.end(), settings_.begin(), settings_.end());
    command.insert(command.end(), {"gnome-shell", "--headless", "--wayland", "--no-x11", "--virtual-monitor",
                                   "800x600", "--wayland-display", "wayland-gnome"});
    launch(command,
           // Resetting the idle time stands for input, which a headless shell has none of.
           {"XDG_RUNTIME_DIR=" + runtime_.string(), "DBUS_SESSION_BUS_ADDRESS=" + bus_.address(),
            "DBUS_SYSTEM_BUS_ADDRESS=" + bus_.address(), "MUTTER_DEBUG_RESET_IDLETIME=1"},
           [&] { return foundSocket() && owned("fr.ombrelo.Shell") && owned("tests.ombrelo.Shell"); });
}

DesktopShellSession::~DesktopShellSession() {
    // The probe's connection first: the shell's bus goes with the object.
    probe_.reset();
    if (compositor_) compositor_->stop(SIGTERM);
    compositor_.reset();
}

// KWin takes its name on the bus before it serves scripting.
bool DesktopShellSession::scriptingReady() const {
    try {
        platform::Bus bus(bus_.address(), "test bus");
        bus.call("org.kde.KWin", "/Scripting", "org.kde.kwin.Scripting", "isScriptLoaded", "s", "none");
        return true;
    } catch (const platform::BusError&) {
        return false;
    }
}

void DesktopShellSession::followKWinsFront() {
    kwinFront_ = std::make_shared<std::pair<std::mutex, std::pair<std::string, std::string>>>();
    probe_ = std::make_unique<ServiceThread>(bus_.address());
    static const sd_bus_vtable table[] = {SD_BUS_VTABLE_START(0),
                                          SD_BUS_METHOD("Front", "sssss", "", kwinReported, SD_BUS_VTABLE_UNPRIVILEGED),
                                          SD_BUS_VTABLE_END};
    probe_->run([&](sd_bus* bus) {
        sd_bus_add_object_vtable(bus, nullptr, platform::KWinWindows::objectPath, platform::KWinWindows::interface,
                                 table, kwinFront_.get());
    });
    probe_->own("tests.ombrelo.Probe");
    // The tracker's own script, reporting to the probe instead.
    runScript(platform::KWinWindows::script("tests.ombrelo.Probe"), true);
}

std::pair<std::string, std::string> DesktopShellSession::front() const {
    if (shell_ == Shell::kwin) {
        std::lock_guard lock(kwinFront_->first);
        return kwinFront_->second;
    }
    try {
        platform::Bus bus(bus_.address(), "test bus");
        platform::Message reply = bus.call("fr.ombrelo.Shell", "/fr/ombrelo/Shell", "fr.ombrelo.Shell.Windows", "Front");
        const char *window = nullptr, *app = nullptr, *windowClass = nullptr, *title = nullptr;
        std::uint32_t pid = 0;
        if (sd_bus_message_read(reply.get(), "ssssu", &window, &app, &windowClass, &title, &pid) > 0)
            return {windowClass, title};
    } catch (const platform::BusError&) {
    }
    return {};
}

void DesktopShellSession::waitForFront(const std::string& appID) const {
    auto lower = [](std::string text) {
        for (char& c : text) c = char(std::tolower(static_cast<unsigned char>(c)));
        return text;
    };
    if (!eventually([&] { return lower(front().first) == lower(appID); }, {}, 10s))
        throw std::runtime_error("the shell never put " + (appID.empty() ? "nothing" : appID) + " in front");
}

void DesktopShellSession::waitForTitle(const std::string& appID, const std::string& title) const {
    if (!eventually([&] { return front().second == title; }, {}, 10s))
        throw std::runtime_error("the title of " + appID + " did not change in the shell");
}

void DesktopShellSession::runScript(const std::string& code, bool keep) const {
    platform::Bus bus(bus_.address(), "test bus");
    if (shell_ == Shell::gnome) {
        bus.call("tests.ombrelo.Shell", "/tests/ombrelo/Shell", "tests.ombrelo.Shell", "Run", "s", code.c_str());
        return;
    }
    static int scripts = 0;
    std::string name = "ombrelo-test-" + std::to_string(++scripts);
    fs::path file = folder_ / (name + ".js");
    writeFile(file, code);
    TestUser::get().own(file);
    platform::Message reply =
        bus.call("org.kde.KWin", "/Scripting", "org.kde.kwin.Scripting", "loadScript", "ss", file.c_str(), name.c_str());
    std::int32_t id = -1;
    sd_bus_message_read(reply.get(), "i", &id);
    bus.call("org.kde.KWin", ("/" + std::to_string(id)).c_str(), "org.kde.kwin.Script", "run");
    if (!keep) bus.call("org.kde.KWin", "/Scripting", "org.kde.kwin.Scripting", "unloadScript", "s", name.c_str());
}

void DesktopShellSession::activate(const std::string& appID) const {
    activateInShell(appID);
    waitForFront(appID);
}

void DesktopShellSession::activateInShell(const std::string& appID) const {
    if (shell_ == Shell::gnome)
        runScript("for (const actor of global.get_window_actors()) { const w = actor.meta_window;"
                  " if ((w.get_wm_class() || '').toLowerCase() === '" + appID + "'.toLowerCase())"
                  " w.activate(global.get_current_time()); }");
    else
        runScript("const all = workspace.windowList ? workspace.windowList() : workspace.clientList();"
                  "for (const w of all) if (String(w.resourceClass).toLowerCase() === '" + appID +
                  "'.toLowerCase()) { if (workspace.activeWindow !== undefined) workspace.activeWindow = w;"
                  " else workspace.activeClient = w; }");
}

void DesktopShellSession::minimizeAll() const {
    if (shell_ == Shell::gnome)
        runScript("for (const actor of global.get_window_actors()) actor.meta_window.minimize();");
    else
        runScript("const all = workspace.windowList ? workspace.windowList() : workspace.clientList();"
                  "for (const w of all) w.minimized = true;");
    waitForFront("");
}

void DesktopShellSession::input() const {
    if (shell_ == Shell::gnome) {
        platform::Bus bus(bus_.address(), "test bus");
        bus.call("org.gnome.Mutter.IdleMonitor", "/org/gnome/Mutter/IdleMonitor/Core", "org.gnome.Mutter.IdleMonitor",
                 "ResetIdletime");
        return;
    }
    if (runProgram(TestUser::get().wrap({OMBRELO_WAYLAND_WINDOW, "--nudge"}), environment()) != 0)
        throw std::runtime_error("KWin took no fake input");
}

// ---- Windows ----------------------------------------------------------------------

WaylandWindow::WaylandWindow(CompositorSession& session, const std::string& appID, const std::string& title)
    : session_(session), appID_(appID), commands_(folder_ / "commands") {
    if (::mkfifo(commands_.c_str(), 0600) != 0) throw std::runtime_error("mkfifo failed");
    TestUser::get().own(folder_.path());
    client_ = std::make_unique<ChildProcess>(
        TestUser::get().wrap({OMBRELO_WAYLAND_WINDOW, appID, title, commands_.string()}), session_.environment(),
        folder_ / "client.log");
    session_.waitForFront(appID_);
}

WaylandWindow::~WaylandWindow() {
    if (client_) client_->stop(SIGTERM);
}

void WaylandWindow::setTitle(const std::string& title) {
    send("title " + title);
    session_.waitForTitle(appID_, title);
}

void WaylandWindow::close() {
    send("close");
    eventually([&] { return !client_->running(); }, {}, 10s);
    client_->stop(SIGTERM);
    client_.reset();
}

void SwayWindow::activate() {
    sway_.command("[app_id=\"" + appID_ + "\"] focus");
    sway_.waitForFront(appID_);
}

void WaylandWindow::send(const std::string& line) {
    // The client holds the FIFO open for reading and writing, so this never blocks.
    std::ofstream(commands_, std::ios::app) << line << '\n';
}

} // namespace ombrelo::testing
