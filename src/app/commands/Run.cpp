// ombrelo run: the long-running tracker. One thread, one event loop: the X11
// connection and both buses are watched on it, the 5-second sample is a timer on
// it, the settings file and the database are watched on it (another process's
// change of the project in progress, the pause, a project or a rule reaches the
// tracker at once), focus sessions tick on it every five seconds, the control
// socket answers other commands' requests on it (ControlSocket.h), and
// SIGINT/SIGTERM end it after closing the current activity, so the last row ends
// at the moment the tracker stopped. The daily backup alone runs on a thread of
// its own (AutoBackup.h); the agent server and the window take their requests
// on threads of their own and answer them on the loop.
#include "agent/MCPService.h"
#include "app/ServedModel.h"
#include "app/window/Browser.h"
#include "app/window/WindowHost.h"
#include "app/Commands.h"
#include "app/Session.h"
#include "app/FocusOnDesktop.h"
#include "app/ProjectInProgress.h"
#include "app/TrackerLock.h"
#include "backup/AutoBackup.h"
#include "control/ControlRequest.h"
#include "control/ControlSocket.h"
#include "control/Controls.h"
#include "billing/ProjectStore.h"
#include "capture/ActivityTracker.h"
#include "classify/Catalog.h"
#include "focus/FocusController.h"
#include "platform/linux/FolderWatch.h"
#include "platform/linux/Notifier.h"
#include "platform/linux/LinuxDesktop.h"
#include "reports/Format.h"
#include "support/L10n.h"
#include "support/LocalTime.h"
#include "support/Log.h"

#include <asio.hpp>
#include <fmt/format.h>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <unistd.h>

namespace ombrelo::commands {

namespace {

using platform::DesktopUnavailable;

std::string missingPiece(const DesktopUnavailable& error) {
    std::string_view text;
    switch (error.piece) {
    case DesktopUnavailable::Piece::display:
        text = L10n::text("Suivi impossible : pas d'écran X11 (DISPLAY absent, ou le serveur X ne répond pas).",
                          "Cannot track: no X11 display (DISPLAY is unset, or the X server does not answer).");
        break;
    case DesktopUnavailable::Piece::sessionBus:
        text = L10n::text("Suivi impossible : pas de bus de session D-Bus.", "Cannot track: no D-Bus session bus.");
        break;
    case DesktopUnavailable::Piece::compositor:
        text = L10n::text("Suivi impossible : aucun moyen de voir la fenêtre au premier plan dans cette session.",
                          "Cannot track: nothing in this session tells which window is in front.");
        break;
    }
    return std::string(text) + std::string(L10n::text(" Détail : ", " Detail: ")) + error.what();
}

// $OMBRELO_SAMPLE_SECONDS, for tests that cannot wait five seconds a sample.
double sampleInterval() {
    const char* text = std::getenv("OMBRELO_SAMPLE_SECONDS");
    if (!text || !*text) return ActivityTracker::defaultSampleInterval;
    char* end = nullptr;
    double seconds = std::strtod(text, &end);
    if (*end != '\0' || !(seconds >= 0.05 && seconds <= 60))
        throw CommandFailure(exitStatus::usage,
                             std::string("OMBRELO_SAMPLE_SECONDS: ") + text +
                                 std::string(L10n::text(" (de 0,05 à 60 secondes)", " (0.05 to 60 seconds)")));
    return seconds;
}

// Samples every interval on a fixed schedule; after a stall (the machine was
// asleep) the schedule starts again from now rather than catching up.
class Sampler {
public:
    Sampler(asio::io_context& io, double seconds, std::function<void()> sample)
        : timer_(io), sample_(std::move(sample)),
          interval(std::chrono::duration_cast<std::chrono::steady_clock::duration>(
              std::chrono::duration<double>(seconds))) {}

    void start() {
        next_ = std::chrono::steady_clock::now() + interval;
        arm();
    }

private:

    void arm() {
        timer_.expires_at(next_);
        timer_.async_wait([this](std::error_code error) {
            if (error) return;
            sample_();
            auto now = std::chrono::steady_clock::now();
            next_ += interval;
            if (next_ <= now) next_ = now + interval;
            arm();
        });
    }

    asio::steady_timer timer_;
    std::function<void()> sample_;
    const std::chrono::steady_clock::duration interval;
    std::chrono::steady_clock::time_point next_;
};

// The tracker's connection waits this long for another process's write lock; a
// write that still cannot go through is tried again at the next sample.
constexpr int trackerBusyTimeoutMilliseconds = 250;

void track(Session& session) {
    Log::setDefaultLevel(spdlog::level::info);
    auto log = Log::get("capture");
    double interval = sampleInterval();
    // Declared first so that it outlives everything watched on it.
    asio::io_context io;
    // Taken over at once: a stop during start-up still closes the activity.
    asio::signal_set stop(io, SIGINT, SIGTERM);

    // The desktop before the database: without a display or a bus, nothing is
    // opened, created or migrated.
    std::unique_ptr<platform::LinuxDesktop> desktop;
    try {
        desktop = std::make_unique<platform::LinuxDesktop>(platform::DesktopOptions::fromEnvironment(),
                                                         session.preferences());
    } catch (const DesktopUnavailable& error) {
        throw CommandFailure(exitStatus::failure, missingPiece(error));
    }
    log->info("Bureau : {}", desktop->describeSources());

    std::optional<TrackerLock> onlyTracker = TrackerLock::acquire(session.databasePath());
    if (!onlyTracker) {
        std::optional<int> holder = TrackerLock::holder(session.databasePath());
        throw CommandFailure(exitStatus::failure,
                             fmt::format("{}{}{}", L10n::text("Suivi déjà en cours pour cette base (processus ",
                                                              "Already tracking this database (process "),
                                         holder.value_or(0),
                                         L10n::text(") : un seul suivi à la fois, sinon le même temps compterait "
                                                    "deux fois.",
                                                    "): one tracker at a time, or the same time would count twice.")));
    }

    ActivityStore& store = session.activities();
    Database& db = session.database();
    Catalog catalog(db);
    ProjectStore projects(db, session.preferences(), session.clock());
    db.setBusyTimeout(trackerBusyTimeoutMilliseconds);
    ActivityTracker tracker(&store, *desktop, session.clock(), session.preferences());
    tracker.setSampleInterval(interval);
    ProjectInProgress inProgress(tracker, catalog, projects, db);

    AutoBackup dailyBackup(db.path(), session.preferences(), session.clock());

    // Sites as the browser extension reports them (ombrelo browser-host).
    BrowserPages pages;
    desktop->readPagesFrom(&pages);

    desktop->attach(io);
    tracker.start();
    desktop->dispatchPending();
    Sampler sampler(io, interval, [&] {
        local::followTimeZoneChanges();  // a zone changed while running counts from this sample
        tracker.tick();
        inProgress.takeInChanges();
        dailyBackup.tick();
        // The sample's requests may have queued events the descriptors no
        // longer announce.
        desktop->dispatchPending();
    });
    sampler.start();

    FocusOnDesktop focusDesk(tracker, catalog, projects, *desktop, desktop->notifier());
    FocusController focus(db, session.preferences(), session.clock(), &focusDesk);
    focus.start();
    Sampler focusTicks(io, FocusController::tickSeconds, [&] {
        focus.tick();
        desktop->dispatchPending();
    });
    focusTicks.start();

    // Made once the tools exist; the control socket asks after them before then.
    std::unique_ptr<MCPService> agentServer;
    std::unique_ptr<WindowHost> window;
    Controls controls({.projects = projects,
                       .focus = focus,
                       .preferences = session.preferences(),
                       .clock = session.clock(),
                       .tracker = &tracker,
                       .projectChanged = [&] { inProgress.takeInChanges(); },
                       .open =
                           [&](Page page) {
                               if (auto link = window ? window->link(page) : std::nullopt) Browser::open(*link);
                               else log->warn("Page {} : l'interface n'est pas servie", rawValue(page));
                           },
                       .windowLink = [&](Page page) { return window ? window->link(page) : std::nullopt; },
                       .agentServer =
                           [&] {
                               return agentServer ? AgentServerState{agentServer->running(), agentServer->boundPort(),
                                                                     agentServer->lastError()}
                                                  : AgentServerState{};
                           },
                       .agentTokenChanged =
                           [&] {
                               if (agentServer) agentServer->reloadToken();
                           },
                       .pages = &pages,
                       // A new page in front starts its activity at once, not at the next sample.
                       .pageChanged = [&] { tracker.checkTitle(session.clock().now()); },
                       .windowSource = [&] { return desktop->windowSourceState(); }});
    ServedModel model({.io = io, .activities = store, .catalog = catalog, .projects = projects, .controls = controls,
                       .clock = session.clock(), .currency = Format::currency(session.preferences())});
    agentServer = std::make_unique<MCPService>(session.preferences(), model.dispatch(), model.poster());
    agentServer->apply();
    window = std::make_unique<WindowHost>(io, WindowAPI::Parts{.model = model,
                                                               .activities = store,
                                                               .catalog = catalog,
                                                               .projects = projects,
                                                               .controls = controls,
                                                               .preferences = session.preferences(),
                                                               .clock = session.clock(),
                                                               .changed = [&] { inProgress.takeInChanges(); }});
    std::uint16_t windowPort = WindowHost::port(session.preferences());
    try {
        window->start(windowPort);
    } catch (const std::system_error& error) {
        // Tracking goes on without its window; the log says why.
        log->error("{}", windowPortUnavailable(windowPort, error.code()));
    }
    focusDesk.onBreakChoice = [&](FocusOnDesktop::BreakChoice choice) {
        try {
            if (choice == FocusOnDesktop::BreakChoice::endSession) controls.stopFocus();
            if (choice == FocusOnDesktop::BreakChoice::skipBreak) controls.endBreak(true);
        } catch (const ControlFailure& failure) {
            log->error("{}", failure.what());
        }
    };
    ControlServer control(
        io, controlSocketFor(session.databasePath()),
        [&](std::string_view request) {
            inProgress.takeInChanges();  // a project another process just made must be known
            nlohmann::json answer = ControlRequest::perform(request, controls);
            desktop->dispatchPending();
            return answer;
        },
        ::geteuid());

    const std::filesystem::path& settings = session.preferences().path();
    platform::FolderWatch settingsWatch(io, settings.parent_path(), {settings.filename().string()}, [&] {
        tracker.takeInSettings();
        inProgress.takeInChanges();
        agentServer->apply();
    });
    std::string databaseName = db.path().filename().string();
    platform::FolderWatch databaseWatch(io, db.path().parent_path(), {databaseName, databaseName + "-wal"},
                                        [&] { inProgress.takeInChanges(); });

    stop.async_wait([&](std::error_code error, int signal) {
        if (error) return;
        // The last writes may wait their turn: nothing else runs any more.
        db.setBusyTimeout(5000);
        agentServer->stop();
        window->stop();
        tracker.quit();
        if (tracker.unsavedWrites() > 0)
            log->error("{} écriture(s) perdue(s) : la base est restée occupée", tracker.unsavedWrites());
        log->info("Suivi arrêté (signal {})", signal);
        io.stop();
    });
    io.run();
}

} // namespace

void run(CLI::App& program, Session& session) {
    CLI::App* command = program.add_subcommand(
        "run", std::string(L10n::text("Suit le temps de travail en continu", "Track work time continuously")));
    command->callback([&session] { track(session); });
}

} // namespace ombrelo::commands
