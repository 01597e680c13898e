#include "platform/linux/LinuxDesktop.h"

#include "capture/PrivacyRules.h"
#include "platform/linux/Applications.h"
#include "platform/linux/Bus.h"
#include "platform/linux/DesktopEntries.h"
#include "platform/linux/DocumentPaths.h"
#include "platform/linux/Logind.h"
#include "platform/linux/Notifier.h"
#include "platform/linux/Processes.h"
#include "platform/linux/SessionServices.h"
#include "platform/linux/WindowSources.h"
#include "support/Browsers.h"
#include "support/Log.h"

#include <asio.hpp>
#include <functional>

namespace ombrelo::platform {

namespace fs = std::filesystem;

namespace {

// Why capture stops while the window in front cannot be seen.
constexpr const char* unseenWindow = "wayland";

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

struct LinuxDesktop::Parts {
    Parts(const DesktopOptions& options, const Preferences& preferences)
        : entries(options.applicationFolders, options.locale),
          applications(entries, processes),
          privacy(preferences),
          home(options.home) {}

    DesktopEntries entries;
    Processes processes;
    Applications applications;
    PrivacyRules privacy;
    fs::path home;

    std::unique_ptr<Bus> systemBus, sessionBus;
    std::unique_ptr<Logind> logind;
    std::unique_ptr<SessionServices> session;
    std::unique_ptr<Notifier> notifier;
    // After the session bus: some sources speak over it.
    std::unique_ptr<WindowSource> windows;

    // The window frontmostApp() last answered for, and its application.
    std::optional<FrontWindow> frontWindow;
    std::optional<FrontApp> frontApp;
    bool windowUnseen = false;
    bool screenSaverActive = false;  // followed only without logind
    bool suspended = false;

    // Last, so that they go first: they refer to the connections above.
    std::vector<std::unique_ptr<Watch>> watches;
};

LinuxDesktop::LinuxDesktop(const DesktopOptions& options, const Preferences& preferences) : preferences_(preferences) {
    parts_ = std::make_unique<Parts>(options, preferences);
    Parts& parts = *parts_;
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

    parts.windows = openWindowSource(options, parts.sessionBus.get());
    parts.windows->frontChanged = [this] { frontMayHaveChanged(); };
    WindowSourceState state = parts.windows->state();
    parts.windowUnseen = state.missing.has_value();
    if (state.missing) Log::get("capture")->warn("Fenêtre au premier plan invisible : {}", *state.missing);
    updateSuspension("");
}

LinuxDesktop::~LinuxDesktop() = default;

void LinuxDesktop::connectSystemBus(const DesktopOptions& options) {
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

void LinuxDesktop::followLockWithoutLogind(const std::string& missing) {
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

std::optional<FrontApp> LinuxDesktop::frontmostApp() {
    Parts& parts = *parts_;
    parts.frontWindow = parts.windows->front();
    parts.frontApp.reset();
    if (parts.frontWindow) parts.frontApp = parts.applications.forWindow(parts.frontWindow->owner);
    return parts.frontApp;
}

std::optional<std::string> LinuxDesktop::windowTitle(const FrontApp& app) {
    Parts& parts = *parts_;
    // The title as it is now, of the window the application was named from.
    std::optional<FrontApp> front = frontmostApp();
    if (!front || !(*front == app)) return std::nullopt;
    return parts.frontWindow->title;
}

std::optional<std::string> LinuxDesktop::documentPath(const FrontApp& app) {
    Parts& parts = *parts_;
    if (isBrowser(app.id)) return std::nullopt;
    // The sample has just read the title of the window in front: no second reading.
    std::optional<std::string> title = parts.frontApp && *parts.frontApp == app ? parts.frontWindow->title
                                                                                 : windowTitle(app);
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

double LinuxDesktop::secondsSinceLastInput() {
    Parts& parts = *parts_;
    std::optional<std::uint64_t> fromSource = parts.windows->idleMilliseconds();
    std::optional<std::uint64_t> milliseconds;
    if (fromSource && parts.windows->idleSeesAllInput()) milliseconds = fromSource;
    if (!milliseconds && parts.session) milliseconds = parts.session->idleMilliseconds();
    if (!milliseconds) milliseconds = fromSource;
    return milliseconds ? double(*milliseconds) / 1000.0 : 0;
}

std::set<std::string> LinuxDesktop::displayAwakeHolders() {
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

bool LinuxDesktop::hasPageContext(const FrontApp& app) { return isBrowser(app.id); }

// The tab's title is the page's own, without the browser's name the window adds.
bool LinuxDesktop::contextReplacesTitle(const FrontApp& app) { return pages_ && pages_->reports(app.pid); }

std::optional<PageContext> LinuxDesktop::currentPage(const FrontApp& app) {
    return pages_ ? pages_->page(app.pid) : std::nullopt;
}

bool LinuxDesktop::isPrivate(const std::optional<std::string>& appID, const std::optional<std::string>& domain,
                             const std::optional<std::string>& title) {
    return parts_->privacy.isPrivate(appID, domain, title);
}

// ---- Notifications to the observer --------------------------------------------

void LinuxDesktop::subscribe(DesktopObserver* observer) {
    observer_ = observer;
    if (observer_ && parts_->suspended) {
        // The reason the state holds now; "sleep" cannot be current at start.
        const Logind::State* state = parts_->logind ? &parts_->logind->state() : nullptr;
        const char* why = (state && state->locked) || parts_->screenSaverActive ? reason::locked
                          : state && !state->active                        ? reason::sessionInactive
                          : state && state->sleeping                       ? reason::sleep
                                                                           : unseenWindow;
        observer_->suspend(why);
    }
}

void LinuxDesktop::updateSuspension(const std::string& why) {
    Parts& parts = *parts_;
    bool suspended = parts.windowUnseen || parts.screenSaverActive;
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

void LinuxDesktop::frontMayHaveChanged() {
    Parts& parts = *parts_;
    WindowSourceState state = parts.windows->state();
    if (state.missing.has_value() != parts.windowUnseen) {
        parts.windowUnseen = state.missing.has_value();
        if (state.missing) Log::get("capture")->warn("Fenêtre au premier plan invisible : {}", *state.missing);
        updateSuspension(unseenWindow);
    }
    if (parts.suspended || !observer_) return;
    if (std::optional<FrontApp> app = frontmostApp()) observer_->appDidActivate(*app);
    else observer_->nothingInFront();
}

// ---- Event loop -------------------------------------------------------------------

void LinuxDesktop::dispatchPending() {
    Parts& parts = *parts_;
    auto processBus = [](std::unique_ptr<Bus>& bus) {
        if (bus && bus->open() && !bus->process())
            Log::get("capture")->error("Connexion au {} perdue", bus->description());
    };
    // A bus handler may make requests that queue window events, and back.
    for (int round = 0; round < 2; ++round) {
        parts.windows->dispatch();
        processBus(parts.systemBus);
        processBus(parts.sessionBus);
    }
    parts.windows->settle();
}

void LinuxDesktop::attach(asio::io_context& io) {
    Parts& parts = *parts_;
    parts.watches.clear();
    if (int fd = parts.windows->fd(); fd >= 0)
        parts.watches.push_back(std::make_unique<Watch>(
            io, fd,
            [this] {
                bool open = parts_->windows->dispatch();
                dispatchPending();
                return open;
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

Notifier& LinuxDesktop::notifier() { return *parts_->notifier; }

WindowSourceState LinuxDesktop::windowSourceState() const { return parts_->windows->state(); }

std::string LinuxDesktop::describeSources() const {
    const Parts& parts = *parts_;
    std::string text = parts.windows->state().description;
    if (parts.session && !parts.windows->idleSeesAllInput())
        text += " (inactivité : celle du compositeur si disponible)";
    text += "; logind : ";
    text += parts.logind && parts.logind->available() ? parts.logind->sessionPath() : "absent";
    if (parts.logind && parts.logind->holdsSleepDelay()) text += " (verrou de veille)";
    text += "; applications connues : " + std::to_string(parts.entries.size());
    return text;
}

} // namespace ombrelo::platform
