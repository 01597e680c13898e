#include "platform/linux/X11Desktop.h"

#include "capture/PrivacyRules.h"
#include "platform/linux/Applications.h"
#include "platform/linux/Bus.h"
#include "platform/linux/DesktopEntries.h"
#include "platform/linux/DocumentPaths.h"
#include "platform/linux/Logind.h"
#include "platform/linux/Notifier.h"
#include "platform/linux/Processes.h"
#include "platform/linux/SessionServices.h"
#include "platform/linux/X11Display.h"
#include "support/Browsers.h"
#include "support/L10n.h"
#include "support/Log.h"

#include <asio.hpp>
#include <cstdlib>
#include <functional>

namespace ombrelo::platform {

namespace fs = std::filesystem;

namespace {

// Why capture stops while a native Wayland window is in front.
constexpr const char* waylandWindow = "wayland";

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

const char* reasonFor(Logind::Event event) {
    switch (event) {
    case Logind::Event::sleep: return reason::sleep;
    case Logind::Event::wake: return reason::wake;
    case Logind::Event::lock: return reason::locked;
    case Logind::Event::unlock: return reason::unlocked;
    case Logind::Event::sessionAway: return reason::sessionInactive;
    case Logind::Event::sessionBack: return reason::sessionActive;
    }
    return "";
}

// One descriptor watched on the event loop: `ready` runs when it is readable
// (or writable, while `wantsWrite` says output is waiting) and answers whether
// to go on watching. The descriptor stays owned by its connection.
class Watch {
public:
    Watch(asio::io_context& io, int fd, std::function<bool()> ready, std::function<bool()> wantsWrite)
        : descriptor_(io, fd), ready_(std::move(ready)), wantsWrite_(std::move(wantsWrite)) {
        arm();
    }
    ~Watch() { descriptor_.release(); }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

private:
    void arm() {
        if (!reading_) {
            reading_ = true;
            descriptor_.async_wait(asio::posix::stream_descriptor::wait_read, [this](std::error_code error) {
                if (error) return;  // cancelled: the watch may be gone
                reading_ = false;
                fire();
            });
        }
        if (!writing_ && wantsWrite_ && wantsWrite_()) {
            writing_ = true;
            descriptor_.async_wait(asio::posix::stream_descriptor::wait_write, [this](std::error_code error) {
                if (error) return;
                writing_ = false;
                fire();
            });
        }
    }
    void fire() {
        // A closed connection stays readable forever: stop rather than spin.
        if (ready_()) arm();
        else descriptor_.cancel();
    }

    asio::posix::stream_descriptor descriptor_;
    std::function<bool()> ready_;
    std::function<bool()> wantsWrite_;
    bool reading_ = false, writing_ = false;
};

} // namespace

DesktopOptions DesktopOptions::fromEnvironment() {
    DesktopOptions options;
    options.systemBus = Bus::addressFromEnvironment(Bus::Kind::system);
    options.sessionBus = Bus::addressFromEnvironment(Bus::Kind::session);
    if (std::string id = environment("XDG_SESSION_ID"); !id.empty()) options.sessionID = id;
    options.applicationFolders = DesktopEntries::defaultFolders();
    options.locale = nameLocale(L10n::language());
    options.wayland = environment("XDG_SESSION_TYPE") == "wayland";
    options.home = environment("HOME");
    options.requireSessionBus = true;
    return options;
}

struct X11Desktop::Parts {
    Parts(const DesktopOptions& options, const Preferences& preferences)
        : display(options.display),
          entries(options.applicationFolders, options.locale),
          applications(entries, processes),
          privacy(preferences),
          wayland(options.wayland),
          home(options.home) {}

    X11Display display;
    DesktopEntries entries;
    Processes processes;
    Applications applications;
    PrivacyRules privacy;
    bool wayland;
    fs::path home;

    std::unique_ptr<Bus> systemBus, sessionBus;
    std::unique_ptr<Logind> logind;
    std::unique_ptr<SessionServices> session;
    std::unique_ptr<Notifier> notifier;

    // The active window as last seen, to tell a real change from a rewrite.
    std::optional<WindowID> lastActive;
    bool activeKnown = false;
    // The window frontmostApp() last answered for, and its application.
    std::optional<WindowID> frontWindow;
    std::optional<FrontApp> frontApp;
    bool nativeWaylandFront = false;
    bool screenSaverActive = false;  // followed only without logind
    bool suspended = false;

    // Last, so that they go first: they refer to the connections above.
    std::vector<std::unique_ptr<Watch>> watches;
};

X11Desktop::X11Desktop(const DesktopOptions& options, const Preferences& preferences) : preferences_(preferences) {
    auto log = Log::get("capture");
    try {
        parts_ = std::make_unique<Parts>(options, preferences);
    } catch (const DisplayError& error) {
        throw DesktopUnavailable(DesktopUnavailable::Piece::display, error.what());
    }
    Parts& parts = *parts_;
    if (!parts.display.hasIdleExtension())
        log->warn("Extension MIT-SCREEN-SAVER absente : le temps d'inactivité n'est pas mesuré");

    if (options.requireSessionBus && !options.sessionBus)
        throw DesktopUnavailable(DesktopUnavailable::Piece::sessionBus,
                                 "DBUS_SESSION_BUS_ADDRESS is unset and $XDG_RUNTIME_DIR/bus does not exist");
    if (options.sessionBus) {
        try {
            parts.sessionBus = std::make_unique<Bus>(*options.sessionBus, "session bus");
        } catch (const BusError& error) {
            throw DesktopUnavailable(DesktopUnavailable::Piece::sessionBus, error.what());
        }
        parts.session = std::make_unique<SessionServices>(*parts.sessionBus);
    }
    connectSystemBus(options);
    parts.notifier = std::make_unique<Notifier>(parts.sessionBus.get());

    parts.display.watchRoot();
    parts.lastActive = parts.display.activeWindow();
    parts.activeKnown = true;
    if (parts.wayland) {
        parts.nativeWaylandFront = !parts.lastActive;
        log->warn("Session Wayland : seules les fenêtres XWayland sont suivies (application, titre, dossier) ; "
                  "le temps passé dans une fenêtre Wayland native n'est pas enregistré (suivi suspendu tant "
                  "qu'elle est au premier plan). Pages des navigateurs : non suivies.");
    }
    updateSuspension("");
}

X11Desktop::~X11Desktop() = default;

void X11Desktop::connectSystemBus(const DesktopOptions& options) {
    Parts& parts = *parts_;
    if (!options.systemBus) {
        followLockWithoutLogind("pas de bus système");
        return;
    }
    try {
        parts.systemBus = std::make_unique<Bus>(*options.systemBus, "system bus");
    } catch (const BusError& error) {
        followLockWithoutLogind(std::string("bus système injoignable (") + error.what() + ")");
        return;
    }
    parts.logind = std::make_unique<Logind>(*parts.systemBus, options.sessionID);
    parts.logind->onChange = [this](Logind::Event event, const Logind::State&) {
        updateSuspension(reasonFor(event));
    };
    if (!parts.logind->present()) followLockWithoutLogind("logind absent du bus système");
    else if (!parts.logind->available()) followLockWithoutLogind("session logind introuvable");
}

void X11Desktop::followLockWithoutLogind(const std::string& missing) {
    Parts& parts = *parts_;
    bool sleepFollowed = parts.logind && parts.logind->present();
    Log::get("capture")->warn("Sans logind ({}) : {}le verrouillage est suivi par le signal de l'économiseur d'écran{}",
                              missing, sleepFollowed ? "" : "la veille est repérée au temps sans échantillon, ",
                              parts.session ? "" : " (indisponible sans bus de session)");
    if (!parts.session) return;
    parts.session->watchScreenSaver([this](bool active) {
        parts_->screenSaverActive = active;
        updateSuspension(active ? reason::locked : reason::unlocked);
    });
}

// ---- What is in front ----------------------------------------------------------

std::optional<FrontApp> X11Desktop::frontmostApp() {
    Parts& parts = *parts_;
    std::optional<WindowID> window = parts.display.activeWindow();
    parts.frontWindow.reset();
    parts.frontApp.reset();
    if (!window || !parts.display.isApplicationWindow(*window)) return std::nullopt;
    WindowOwner owner{parts.display.windowClass(*window), parts.display.gtkApplicationID(*window),
                      parts.display.pid(*window)};
    std::optional<FrontApp> app = parts.applications.forWindow(owner);
    if (app) {
        parts.frontWindow = window;
        parts.frontApp = app;
    }
    return app;
}

std::optional<std::string> X11Desktop::windowTitle(const FrontApp& app) {
    Parts& parts = *parts_;
    if (!(parts.frontApp && *parts.frontApp == app)) {
        std::optional<FrontApp> front = frontmostApp();
        if (!front || !(*front == app)) return std::nullopt;
    }
    return parts.display.title(*parts.frontWindow);
}

std::optional<std::string> X11Desktop::documentPath(const FrontApp& app) {
    Parts& parts = *parts_;
    if (isBrowser(app.id)) return std::nullopt;
    std::optional<std::string> title = windowTitle(app);
    std::optional<fs::path> path;
    if (parts.applications.isTerminal(app.id)) {
        if (app.pid) path = parts.processes.terminalWorkingDirectory(*app.pid);
        if (!path && title) path = folderFromShellTitle(*title, parts.home);
    } else if (title) {
        path = pathFromEditorTitle(*title, parts.home);
    }
    if (!path) return std::nullopt;
    return path->string();
}

double X11Desktop::secondsSinceLastInput() {
    Parts& parts = *parts_;
    // Under Wayland, XWayland only sees input to its own windows.
    if (parts.wayland && parts.session)
        if (auto milliseconds = parts.session->idleMilliseconds()) return double(*milliseconds) / 1000.0;
    if (auto milliseconds = parts.display.idleMilliseconds()) return double(*milliseconds) / 1000.0;
    return 0;
}

std::set<std::string> X11Desktop::displayAwakeHolders() {
    Parts& parts = *parts_;
    std::set<std::string> holders;
    if (parts.logind)
        for (int pid : parts.logind->idleInhibitorPids())
            if (auto id = parts.applications.idForProcess(pid)) holders.insert(*id);
    if (parts.session)
        for (const std::string& id : parts.session->idleInhibitorApps()) {
            const DesktopEntry* entry = parts.entries.byID(id);
            holders.insert(entry ? entry->id : id);
        }
    return holders;
}

bool X11Desktop::hasPageContext(const FrontApp& app) { return isBrowser(app.id); }

// The tab's title is the page's own, without the browser's name the window adds.
bool X11Desktop::contextReplacesTitle(const FrontApp& app) { return pages_ && pages_->reports(app.pid); }

std::optional<PageContext> X11Desktop::currentPage(const FrontApp& app) {
    return pages_ ? pages_->page(app.pid) : std::nullopt;
}

bool X11Desktop::isPrivate(const std::optional<std::string>& appID, const std::optional<std::string>& domain,
                           const std::optional<std::string>& title) {
    return parts_->privacy.isPrivate(appID, domain, title);
}

// ---- Notifications to the observer --------------------------------------------

void X11Desktop::subscribe(DesktopObserver* observer) {
    observer_ = observer;
    if (observer_ && parts_->suspended) {
        // The reason the state holds now; "sleep" cannot be current at start.
        const Logind::State* state = parts_->logind ? &parts_->logind->state() : nullptr;
        const char* why = (state && state->locked) || parts_->screenSaverActive ? reason::locked
                          : state && !state->active                        ? reason::sessionInactive
                          : state && state->sleeping                       ? reason::sleep
                                                                           : waylandWindow;
        observer_->suspend(why);
    }
}

void X11Desktop::updateSuspension(const std::string& why) {
    Parts& parts = *parts_;
    bool suspended = parts.nativeWaylandFront || parts.screenSaverActive;
    if (parts.logind) {
        const Logind::State& state = parts.logind->state();
        suspended |= state.sleeping || state.locked || !state.active;
    }
    if (suspended == parts.suspended) return;
    parts.suspended = suspended;
    if (!observer_ || why.empty()) return;
    if (suspended) observer_->suspend(why);
    else observer_->resume(why);
}

void X11Desktop::activeWindowMayHaveChanged() {
    Parts& parts = *parts_;
    std::optional<WindowID> active = parts.display.activeWindow();
    if (parts.activeKnown && active == parts.lastActive) return;
    parts.lastActive = active;
    parts.activeKnown = true;
    if (parts.wayland) {
        parts.nativeWaylandFront = !active;
        updateSuspension(waylandWindow);
    }
    if (parts.suspended || !observer_) return;
    if (std::optional<FrontApp> app = frontmostApp()) observer_->appDidActivate(*app);
    else observer_->nothingInFront();
}

// ---- Event loop -------------------------------------------------------------------

void X11Desktop::dispatchPending() {
    Parts& parts = *parts_;
    auto processBus = [](std::unique_ptr<Bus>& bus) {
        if (bus && bus->open() && !bus->process())
            Log::get("capture")->error("Connexion au {} perdue", bus->description());
    };
    // Each handler may make requests that queue further events: go round until
    // the X queue is empty (bounded, in case a client floods it).
    for (int round = 0; round < 16; ++round) {
        bool changed = parts.display.drainEvents();
        if (changed) activeWindowMayHaveChanged();
        processBus(parts.systemBus);
        processBus(parts.sessionBus);
        if (!changed) break;
    }
}

void X11Desktop::attach(asio::io_context& io) {
    Parts& parts = *parts_;
    parts.watches.clear();
    parts.watches.push_back(std::make_unique<Watch>(
        io, parts.display.fd(),
        [this] {
            dispatchPending();
            return true;
        },
        nullptr));
    for (Bus* bus : {parts.systemBus.get(), parts.sessionBus.get()}) {
        if (!bus) continue;
        auto ready = [this, bus] {
            dispatchPending();
            return bus->open();
        };
        parts.watches.push_back(
            std::make_unique<Watch>(io, bus->fd(), ready, [bus] { return bus->open() && bus->wantsWrite(); }));
    }
}

Notifier& X11Desktop::notifier() { return *parts_->notifier; }

std::string X11Desktop::describeSources() const {
    const Parts& parts = *parts_;
    std::string text = parts.wayland ? "Wayland (fenêtres XWayland)" : "X11";
    text += "; inactivité : ";
    text += parts.wayland && parts.session ? "compositeur si disponible, sinon XWayland"
            : parts.display.hasIdleExtension() ? "MIT-SCREEN-SAVER"
                                               : "non mesurée";
    text += "; logind : ";
    text += parts.logind && parts.logind->available() ? parts.logind->sessionPath() : "absent";
    if (parts.logind && parts.logind->holdsSleepDelay()) text += " (verrou de veille)";
    text += "; applications connues : " + std::to_string(parts.entries.size());
    return text;
}

} // namespace ombrelo::platform
