#include "platform/linux/KWinWindows.h"

#include "support/L10n.h"
#include "support/Log.h"

#include <cstdlib>
#include <fstream>
#include <unistd.h>

namespace ombrelo::platform {

namespace fs = std::filesystem;

namespace {

constexpr const char* scripting = "org.kde.kwin.Scripting";
constexpr auto reloadDelay = std::chrono::seconds(2);

// KWin 5 and 6 name the active window differently; identifiers may come as
// byte arrays; every argument goes as a string, so the call's signature is
// the same whatever the engine makes of numbers.
constexpr const char* scriptTemplate = R"js(// Ombrelo: reports the active window to the tracker.
const tracker = "@TRACKER@";
function text(value) {
    if (value === undefined || value === null) return "";
    if (value instanceof ArrayBuffer) return String.fromCharCode.apply(null, new Uint8Array(value));
    return String(value);
}
function activeWindow() {
    return workspace.activeWindow !== undefined ? workspace.activeWindow : workspace.activeClient;
}
function report() {
    const w = activeWindow();
    callDBus(tracker, "@PATH@", "@INTERFACE@", "Front",
             w ? text(w.internalId) : "", w ? text(w.desktopFileName) : "", w ? text(w.resourceClass) : "",
             w ? text(w.caption) : "", w && w.pid > 0 ? String(w.pid) : "");
}
let followed = null;
function follow(w) {
    if (followed) followed.captionChanged.disconnect(report);
    followed = w || null;
    if (followed) followed.captionChanged.connect(report);
    report();
}
(workspace.windowActivated || workspace.clientActivated).connect(follow);
follow(activeWindow());
)js";

std::string replaced(std::string text, const std::string& marker, const std::string& value) {
    for (auto at = text.find(marker); at != std::string::npos; at = text.find(marker, at + value.size()))
        text.replace(at, marker.size(), value);
    return text;
}

int onReport(sd_bus_message* message, void* data, sd_bus_error*) {
    return static_cast<KWinWindows*>(data)->report(message);
}

int onOwnerChanged(sd_bus_message* message, void* data, sd_bus_error*) {
    const char *name = nullptr, *before = nullptr, *after = nullptr;
    if (sd_bus_message_read(message, "sss", &name, &before, &after) >= 0)
        static_cast<KWinWindows*>(data)->kwinChanged(after ? after : "");
    return 0;
}

const sd_bus_vtable reportTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Front", "sssss", "", onReport, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

fs::path scriptFolder() {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    return runtime && *runtime ? fs::path(runtime) : fs::temp_directory_path();
}

} // namespace

std::string KWinWindows::script(const std::string& trackerName) {
    std::string text = replaced(scriptTemplate, "@TRACKER@", trackerName);
    text = replaced(text, "@PATH@", objectPath);
    return replaced(text, "@INTERFACE@", interface);
}

KWinWindows::KWinWindows(Bus& bus, std::unique_ptr<WaylandConnection> compositor)
    : bus_(bus), compositor_(std::move(compositor)) {
    sd_bus_slot* slot = nullptr;
    if (sd_bus_add_object_vtable(bus_.get(), &slot, objectPath, interface, reportTable, this) >= 0) object_.reset(slot);
    ownerWatch_ = bus_.watchOwner(service, onOwnerChanged, this);
    scriptFile_ = scriptFolder() / ("ombrelo-kwin-" + std::to_string(getpid()) + ".js");
    kwin_ = bus_.ownerOf(service);
    load();
}

KWinWindows::~KWinWindows() {
    unload();
    std::error_code ignored;
    fs::remove(scriptFile_, ignored);
}

bool KWinWindows::dispatch() {
    // KWin takes its name on the bus before it serves scripting: at login the
    // first try may come too early.
    if (problem_ && kwin_ && std::chrono::steady_clock::now() - lastLoad_ >= reloadDelay) {
        load();
        if (!problem_) announceNow();
    }
    return !compositor_ || compositor_->dispatch();
}

void KWinWindows::load() {
    lastLoad_ = std::chrono::steady_clock::now();
    if (!kwin_) {
        problem_ = std::string(L10n::text("KWin ne répond pas sur le bus de session", "KWin does not answer on the session bus"));
        return;
    }
    try {
        std::ofstream(scriptFile_, std::ios::trunc) << script(bus_.uniqueName());
        // A script left by a tracker that did not stop cleanly reports to no one.
        unload();
        Message reply = bus_.call(service, "/Scripting", scripting, "loadScript", "ss", scriptFile_.c_str(), pluginName);
        std::int32_t id = -1;
        sd_bus_message_read(reply.get(), "i", &id);
        if (id < 0) throw BusError("loadScript: KWin refused the script", -EINVAL);
        // KWin 5 serves each script under /<id>, KWin 6 under /Scripting/Script<id>.
        try {
            bus_.call(service, ("/" + std::to_string(id)).c_str(), "org.kde.kwin.Script", "run");
        } catch (const BusError&) {
            bus_.call(service, ("/Scripting/Script" + std::to_string(id)).c_str(), "org.kde.kwin.Script", "run");
        }
        problem_.reset();
        Log::get("capture")->info("Script KWin chargé ({})", scriptFile_.string());
    } catch (const BusError& error) {
        problem_ = std::string(L10n::text("KWin n'a pas chargé le script de suivi : ",
                                          "KWin did not load the tracking script: ")) +
                   error.what();
    }
}

void KWinWindows::unload() {
    if (!kwin_) return;
    try {
        bus_.call(service, "/Scripting", scripting, "unloadScript", "s", pluginName);
    } catch (const BusError&) {
        // Already gone with its KWin.
    }
}

int KWinWindows::report(sd_bus_message* message) {
    const char* sender = sd_bus_message_get_sender(message);
    if (!kwin_ || !sender || *kwin_ != sender)
        return sd_bus_reply_method_errorf(message, "org.freedesktop.DBus.Error.AccessDenied",
                                          "only KWin reports windows");
    const char *window = nullptr, *desktop = nullptr, *windowClass = nullptr, *caption = nullptr, *pid = nullptr;
    if (sd_bus_message_read(message, "sssss", &window, &desktop, &windowClass, &caption, &pid) < 0)
        return sd_bus_reply_method_errorf(message, "org.freedesktop.DBus.Error.InvalidArgs", "five strings expected");
    WindowReport report{window, desktop, windowClass, caption, std::atoi(pid)};
    if (report.desktopID.ends_with(".desktop")) report.desktopID.resize(report.desktopID.size() - 8);
    take(report);
    return sd_bus_reply_method_return(message, "");
}

void KWinWindows::kwinChanged(const std::string& owner) {
    if (owner.empty()) {
        kwin_.reset();
        problem_ = std::string(L10n::text("KWin a quitté le bus de session", "KWin left the session bus"));
        forget();
        announceNow();
        return;
    }
    kwin_ = owner;
    load();
    announceNow();
}

std::optional<std::uint64_t> KWinWindows::idleMilliseconds() {
    return compositor_ ? compositor_->idleMilliseconds() : std::nullopt;
}

WindowSourceState KWinWindows::state() const {
    std::string idle = compositor_ ? compositor_->idleProtocol() : "";
    return {"kwin",
            std::string(L10n::text("KDE Plasma (script KWin) ; inactivité : ", "KDE Plasma (KWin script); idle: ")) +
                (idle.empty() ? std::string(L10n::text("celle de la session", "the session's")) : idle),
            problem_};
}

} // namespace ombrelo::platform
