// ombrelo pause, resume, focus, break, open: the live state beside the project
// in progress. Changes go to the running tracker (LiveRequests.h); reads come
// from the database, where the tracker keeps sessions and breaks as it goes.
#include "app/Commands.h"
#include "app/Output.h"
#include "app/Session.h"
#include "app/commands/LiveRequests.h"
#include "app/commands/LiveViews.h"
#include "app/commands/ProjectArguments.h"
#include "app/commands/TimeModel.h"
#include "control/Controls.h"
#include "capture/ActivityTracker.h"
#include "focus/FocusController.h"
#include "reports/Format.h"
#include "support/L10n.h"
#include "support/LocalTime.h"
#include "support/Settings.h"

#include <memory>

namespace ombrelo::commands {

namespace {

using nlohmann::json;


// --- pause, resume ---

void pauseTracking(Session& session, std::optional<double> minutes) {
    json request = {{"command", "pause"}};
    if (minutes) request["minutes"] = *minutes;
    carryOut(session, request);
    if (!minutes) {
        output::line(L10n::text("Suivi en pause jusqu'à reprise (ombrelo resume)",
                                "Tracking paused until resumed (ombrelo resume)"));
        return;
    }
    output::line(std::string(L10n::text("Suivi en pause jusqu'à ", "Tracking paused until ")) +
                 dayAndTime(session.clock().now() + *minutes * 60));
}

void resumeTracking(Session& session) {
    carryOut(session, {{"command", "resume"}});
    output::line(L10n::text("Suivi repris", "Tracking resumed"));
}

// --- focus ---

struct FocusArguments {
    std::optional<std::int64_t> minutes;
    std::optional<std::string> project;
    std::optional<std::string> period, from, to;
};

struct FocusState {
    std::optional<FocusSession> session;
    std::optional<BreakRecord> activeBreak;
    std::optional<Project> project;
};

FocusState readFocusState(Session& session, const ProjectStore& projects) {
    FocusRecords records(session.database());
    FocusState state{records.openSession(), records.openBreak(), std::nullopt};
    if (state.session && state.session->projectID) state.project = projects.project(*state.session->projectID);
    return state;
}

void showFocus(Session& session) {
    ProjectStore projects = openProjects(session);
    FocusState state = readFocusState(session, projects);
    Instant now = session.clock().now();
    if (session.json) {
        output::json(focusJSON(session.database(), projects, now));
        return;
    }
    if (!state.session) {
        output::line(L10n::text("Aucune session de concentration en cours", "No focus session running"));
    } else {
        const FocusSession& s = *state.session;
        output::field(L10n::text("Session de concentration", "Focus session"),
                      std::string(L10n::text("depuis ", "since ")) + dayAndTime(s.start));
        output::field(L10n::text("Projet", "Project"),
                      state.project ? projects.label(state.project) : std::string(L10n::text("aucun", "none")));
        output::field(L10n::text("Écoulé", "Elapsed"), Format::duration(now - s.start));
        output::field(L10n::text("Restant", "Remaining"),
                      s.plannedEnd ? Format::duration(*s.plannedEnd - now)
                                   : std::string(L10n::text("sans fin prévue", "open-ended")));
    }
    if (state.activeBreak)
        output::field(L10n::text("Pause", "Break"),
                      std::string(L10n::text("en cours, jusqu'à ", "running, until ")) +
                          local::formatTime(state.activeBreak->plannedEnd));
}

void startFocus(Session& session, const FocusArguments& arguments) {
    json request = {{"command", "focus-start"}};
    if (arguments.minutes) request["minutes"] = *arguments.minutes;
    if (arguments.project) request["project"] = requireProject(openProjects(session), *arguments.project).id;
    carryOut(session, request);
    showFocus(session);
}

void stopFocus(Session& session) {
    carryOut(session, {{"command", "focus-stop"}});
    if (!session.json) output::line(L10n::text("Session de concentration arrêtée", "Focus session stopped"));
    if (session.json) showFocus(session);
}

// "1 prise, 2 sautées" / "1 taken, 2 skipped".
std::string breaksLine(const FocusStats& stats) {
    if (!L10n::french())
        return std::to_string(stats.breaksTaken) + " taken, " + std::to_string(stats.breaksSkipped) + " skipped";
    auto plural = [](std::int64_t n) { return n > 1 ? "s" : ""; };
    return std::to_string(stats.breaksTaken) + " prise" + plural(stats.breaksTaken) + ", " +
           std::to_string(stats.breaksSkipped) + " sautée" + plural(stats.breaksSkipped);
}

void showStats(Session& session, const FocusArguments& arguments) {
    json asked = periodArguments(arguments.period ? arguments.period : std::optional<std::string>("week"),
                                 arguments.from, arguments.to);
    Period range = answer([&] { return period(asked, session.clock().now()); });
    FocusStats stats = FocusRecords(session.database()).stats(range.start, range.end, session.clock().now());
    if (session.json) {
        output::json({{"from", local::formatDay(range.start)},
                      {"to", local::formatDay(range.end - 1)},
                      {"focus_seconds", stats.focusTime},
                      {"completed", stats.completed},
                      {"interrupted", stats.interrupted},
                      {"longest_stretch_seconds", stats.longestStretch},
                      {"breaks_taken", stats.breaksTaken},
                      {"breaks_skipped", stats.breaksSkipped}});
        return;
    }
    output::line(std::string(L10n::text("Concentration du ", "Focus from ")) + local::formatDay(range.start) +
                 std::string(L10n::text(" au ", " to ")) + local::formatDay(range.end - 1));
    output::field(L10n::text("Temps de concentration", "Focus time"), Format::duration(stats.focusTime));
    output::field(L10n::text("Sessions terminées", "Completed sessions"), std::to_string(stats.completed));
    output::field(L10n::text("Sessions interrompues", "Interrupted sessions"), std::to_string(stats.interrupted));
    output::field(L10n::text("Plus longue série", "Longest stretch"), Format::duration(stats.longestStretch));
    output::line(std::string(L10n::text("Pauses : ", "Breaks: ")) + breaksLine(stats));
}

// --- break ---

void changeBreak(Session& session, const char* request, std::string_view done) {
    carryOut(session, {{"command", request}});
    output::line(done);
}

// --- open ---

void openLink(Session& session, const std::string& url) {
    json answer = carryOut(session, {{"command", "link"}, {"url", url}});
    if (!answer.contains("page")) {
        output::line(L10n::text("Lien suivi", "Link followed"));
        return;
    }
    Page page = pageFromRaw(answer.value("page", "")).value_or(Page::dashboard);
    output::line(std::string(L10n::text("Page à ouvrir : ", "Page to open: ")) + std::string(title(page)));
}

void addJSONFlag(CLI::App* command, Session& session) {
    command->add_flag("--json", session.json, std::string(L10n::text("Sortie JSON", "JSON output")));
}

} // namespace

void live(CLI::App& program, Session& session) {
    auto minutes = std::make_shared<std::optional<double>>();
    CLI::App* pause = program.add_subcommand(
        "pause", std::string(L10n::text("Met le suivi en pause (sans durée : jusqu'à reprise)",
                                        "Pause tracking (without minutes: until resumed)")));
    pause->add_option("MINUTES", *minutes, std::string(L10n::text("Durée en minutes", "Length in minutes")))
        ->check(CLI::PositiveNumber);
    pause->callback([&session, minutes] { pauseTracking(session, *minutes); });
    program.add_subcommand("resume", std::string(L10n::text("Reprend le suivi", "Resume tracking")))
        ->callback([&session] { resumeTracking(session); });

    auto focusArguments = std::make_shared<FocusArguments>();
    CLI::App* focus = program.add_subcommand(
        "focus", std::string(L10n::text("Sessions de concentration", "Focus sessions")));
    focus->require_subcommand(1);
    CLI::App* start = focus->add_subcommand(
        "start", std::string(L10n::text("Démarre une session (sans durée : jusqu'à l'arrêt)",
                                        "Start a session (without minutes: until stopped)")));
    start->add_option("--minutes", focusArguments->minutes, std::string(L10n::text("Durée prévue", "Planned length")))
        ->check(CLI::PositiveNumber);
    start->add_option("--project", focusArguments->project, std::string(L10n::text("Projet (nom ou id)", "Project (name or id)")));
    addJSONFlag(start, session);
    start->callback([&session, focusArguments] { startFocus(session, *focusArguments); });
    CLI::App* stop = focus->add_subcommand("stop", std::string(L10n::text("Arrête la session", "Stop the session")));
    addJSONFlag(stop, session);
    stop->callback([&session] { stopFocus(session); });
    CLI::App* status = focus->add_subcommand(
        "status", std::string(L10n::text("La session et la pause en cours", "The running session and break")));
    addJSONFlag(status, session);
    status->callback([&session] { showFocus(session); });
    CLI::App* stats = focus->add_subcommand(
        "stats", std::string(L10n::text("Bilan d'une période (cette semaine par défaut)",
                                        "Statistics of a period (this week by default)")));
    addPeriodOptions(*stats, focusArguments->period, focusArguments->from, focusArguments->to, "week");
    addJSONFlag(stats, session);
    stats->callback([&session, focusArguments] { showStats(session, *focusArguments); });

    CLI::App* pauseBreak = program.add_subcommand("break", std::string(L10n::text("Pauses", "Breaks")));
    pauseBreak->require_subcommand(1);
    pauseBreak->add_subcommand("start", std::string(L10n::text("Commence une pause de 5 minutes", "Start a 5-minute break")))
        ->callback([&session] {
            changeBreak(session, "break-start", L10n::text("Pause commencée (5 min)", "Break started (5 min)"));
        });
    pauseBreak->add_subcommand("end", std::string(L10n::text("Termine la pause", "End the break")))->callback([&session] {
        changeBreak(session, "break-end", L10n::text("Pause terminée", "Break ended"));
    });
    pauseBreak->add_subcommand("skip", std::string(L10n::text("Passe la pause", "Skip the break")))->callback([&session] {
        changeBreak(session, "break-skip", L10n::text("Pause passée", "Break skipped"));
    });

    auto url = std::make_shared<std::string>();
    CLI::App* open = program.add_subcommand(
        "open", std::string(L10n::text("Suit un lien ombrelo:// (travailler, focus, pause, ouvrir…)",
                                       "Follow an ombrelo:// link (work, focus, pause, open…)")));
    open->add_option("URL", *url, "ombrelo://…")->required();
    open->callback([&session, url] { openLink(session, *url); });
}

} // namespace ombrelo::commands
