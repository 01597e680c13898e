// ombrelo status: where the data lives and what it holds.
#include "app/Commands.h"
#include "app/Output.h"
#include "app/Session.h"
#include "app/TrackerLock.h"
#include "app/commands/BackupCommands.h"
#include "app/commands/TimeModel.h"
#include "agent/MCPService.h"
#include "control/ControlRequest.h"
#include "control/ControlSocket.h"
#include "control/Controls.h"
#include "support/L10n.h"
#include "support/LocalTime.h"
#include "support/Settings.h"

namespace ombrelo::commands {

namespace {

struct StatusReport {
    std::string path;
    std::int64_t schemaVersion;
    std::int64_t activities;
    std::optional<Instant> firstActivity;
    std::optional<Instant> pausedUntil;  // present only while the pause lasts
    std::optional<int> tracker;          // the process tracking this database
    bool agentsEnabled = false;
    std::uint16_t agentPort = 0;
    std::optional<AgentServerState> agentServer;  // what the running tracker says of it
    std::optional<Instant> lastPageReport;        // the browser extension's, as the running tracker took it
    std::optional<WindowSourceState> windows;     // what the running tracker follows the windows with
    BackupState backups;
    Instant now;
};

// The running tracker's agent server, asked through its control socket.
std::optional<AgentServerState> askAgentServer(Session& session) {
    try {
        auto answer = ControlClient::send(controlSocketFor(session.databasePath()), {{"command", "agent-state"}});
        if (!answer || !answer->contains("agent_server") || !(*answer)["agent_server"].is_object())
            return std::nullopt;
        const nlohmann::json& state = (*answer)["agent_server"];
        AgentServerState result{state.value("running", false), state.value("port", std::uint16_t{0})};
        if (state.contains("problem") && state["problem"].is_string()) result.problem = state["problem"];
        return result;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

// When the running tracker last heard from the browser extension.
std::optional<Instant> askLastPageReport(Session& session) {
    try {
        auto answer = ControlClient::send(controlSocketFor(session.databasePath()), {{"command", "browser-state"}});
        if (!answer || !(*answer)["last_page_report"].is_number()) return std::nullopt;
        return (*answer)["last_page_report"].get<double>();
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

// Which source the running tracker follows the windows with.
std::optional<WindowSourceState> askWindowSource(Session& session) {
    try {
        auto answer = ControlClient::send(controlSocketFor(session.databasePath()), {{"command", "desktop-state"}});
        if (!answer || !answer->contains("window_source")) return std::nullopt;
        return ControlRequest::windowSourceFromJSON((*answer)["window_source"]);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

StatusReport gather(Session& session) {
    Database& db = session.database();
    StatusReport report{session.databasePath().string(), db.userVersion(),
                        db.queryInt("SELECT COUNT(*) FROM activity").value_or(0), session.activities().firstStart(),
                        std::nullopt, TrackerLock::holder(session.databasePath())};
    auto paused = session.preferences().number(settings::pausedUntil);
    if (paused && *paused > session.clock().now()) report.pausedUntil = paused;
    report.agentsEnabled = MCPService::enabled(session.preferences());
    report.agentPort = MCPService::port(session.preferences());
    if (report.tracker && report.agentsEnabled) report.agentServer = askAgentServer(session);
    if (report.tracker) report.lastPageReport = askLastPageReport(session);
    if (report.tracker) report.windows = askWindowSource(session);
    report.backups = backupState(session);
    report.now = session.clock().now();
    return report;
}

// "sur 127.0.0.1:8473", "désactivé", or why it does not run.
std::string agentServerText(const StatusReport& report) {
    if (!report.agentsEnabled)
        return std::string(L10n::text("désactivé (ombrelo mcp enable)", "off (ombrelo mcp enable)"));
    std::string address = "127.0.0.1:" + std::to_string(report.agentPort);
    if (!report.tracker)
        return std::string(L10n::text("activé, servi par le suivi sur ", "on, served by the tracker on ")) + address;
    if (report.agentServer && report.agentServer->problem) return *report.agentServer->problem;
    if (report.agentServer && report.agentServer->running)
        return std::string(L10n::text("en service sur ", "serving on ")) + "127.0.0.1:" +
               std::to_string(report.agentServer->port);
    return std::string(L10n::text("activé, pas encore en service", "on, not serving yet"));
}

// What follows the windows, and what it cannot see.
std::string windowsText(const StatusReport& report) {
    if (!report.windows) return std::string(L10n::text("inconnu (suivi arrêté)", "unknown (tracker not running)"));
    if (report.windows->missing)
        return report.windows->description + std::string(L10n::text(" — rien n'est noté : ", " — nothing is recorded: ")) +
               *report.windows->missing;
    return report.windows->description;
}

// Whether the tracker sees browsers' sites, or only their window titles.
std::string sitesText(const StatusReport& report) {
    if (report.lastPageReport)
        return std::string(L10n::text("vus (extension de navigateur, dernier rapport ",
                                      "seen (browser extension, last report ")) +
               dayAndTime(*report.lastPageReport) + ")";
    return std::string(L10n::text("non vus : les navigateurs sont suivis par le titre de leurs fenêtres "
                                  "(ombrelo browser install)",
                                  "not seen: browsers are followed by their window titles (ombrelo browser install)"));
}

void render(const StatusReport& report, bool asJSON) {
    auto optionalTime = [](const std::optional<Instant>& t) {
        return t ? nlohmann::json(local::formatDateTime(*t)) : nlohmann::json(nullptr);
    };
    if (asJSON) {
        nlohmann::json document{
            {"database", report.path},
            {"schema_version", report.schemaVersion},
            {"activities", report.activities},
            {"first_activity", optionalTime(report.firstActivity)},
            {"paused", report.pausedUntil.has_value()},
            {"paused_until", optionalTime(report.pausedUntil)},
            {"tracker_running", report.tracker.has_value()},
            {"tracker_pid", report.tracker ? nlohmann::json(*report.tracker) : nlohmann::json(nullptr)},
            {"agent_server",
             {{"enabled", report.agentsEnabled},
              {"port", report.agentPort},
              {"running", report.agentServer && report.agentServer->running},
              {"problem", report.agentServer && report.agentServer->problem ? nlohmann::json(*report.agentServer->problem)
                                                                            : nlohmann::json(nullptr)}}},
            {"sites_seen", report.lastPageReport.has_value()},
            {"last_page_report", optionalTime(report.lastPageReport)},
            {"window_source",
             report.windows ? ControlRequest::windowSourceJSON(*report.windows) : nlohmann::json(nullptr)}};
        document.update(backupStatusJSON(report.backups, report.now));
        return output::json(document);
    }
    output::field(L10n::text("Base de données", "Database"), report.path);
    output::field(L10n::text("Version du schéma", "Schema version"), std::to_string(report.schemaVersion));
    output::field(L10n::text("Activités", "Activities"), std::to_string(report.activities));
    output::field(L10n::text("Première activité", "First activity"),
                  report.firstActivity ? dayAndTime(*report.firstActivity)
                                       : std::string(L10n::text("aucune", "none")));
    std::string tracking = report.pausedUntil
                               ? std::string(L10n::text("en pause jusqu'à ", "paused until ")) +
                                     dayAndTime(*report.pausedUntil)
                               : std::string(L10n::text("actif", "active"));
    output::field(L10n::text("Suivi", "Tracking"), tracking);
    output::field(L10n::text("Suivi en cours", "Tracker"),
                  report.tracker ? std::string(L10n::text("lancé (processus ", "running (process ")) +
                                       std::to_string(*report.tracker) + ")"
                                 : std::string(L10n::text("arrêté (ombrelo run)", "not running (ombrelo run)")));
    output::field(L10n::text("Serveur agents", "Agent server"), agentServerText(report));
    output::field(L10n::text("Fenêtres", "Windows"), windowsText(report));
    output::field(L10n::text("Sites", "Sites"), sitesText(report));
    printBackupStatus(report.backups, report.now);
}

} // namespace

void status(CLI::App& program, Session& session) {
    CLI::App* command = program.add_subcommand(
        "status", std::string(L10n::text("Ouvre la base et résume son contenu", "Open the database and summarise it")));
    command->add_flag("--json", session.json, std::string(L10n::text("Sortie JSON", "JSON output")));
    command->callback([&session] { render(gather(session), session.json); });
}

} // namespace ombrelo::commands
