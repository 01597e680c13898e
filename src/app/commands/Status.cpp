// ombrelo status: where the data lives and what it holds.
#include "app/Commands.h"
#include "app/Output.h"
#include "app/Session.h"
#include "app/TrackerLock.h"
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
};

StatusReport gather(Session& session) {
    Database& db = session.database();
    StatusReport report{session.databasePath().string(), db.userVersion(),
                        db.queryInt("SELECT COUNT(*) FROM activity").value_or(0), session.activities().firstStart(),
                        std::nullopt, TrackerLock::holder(session.databasePath())};
    auto paused = session.preferences().number(settings::pausedUntil);
    if (paused && *paused > session.clock().now()) report.pausedUntil = paused;
    return report;
}

void render(const StatusReport& report, bool asJSON) {
    auto optionalTime = [](const std::optional<Instant>& t) {
        return t ? nlohmann::json(local::formatDateTime(*t)) : nlohmann::json(nullptr);
    };
    if (asJSON) {
        output::json({{"database", report.path},
                      {"schema_version", report.schemaVersion},
                      {"activities", report.activities},
                      {"first_activity", optionalTime(report.firstActivity)},
                      {"paused", report.pausedUntil.has_value()},
                      {"paused_until", optionalTime(report.pausedUntil)},
                      {"tracker_running", report.tracker.has_value()},
                      {"tracker_pid", report.tracker ? nlohmann::json(*report.tracker) : nlohmann::json(nullptr)}});
        return;
    }
    output::field(L10n::text("Base de données", "Database"), report.path);
    output::field(L10n::text("Version du schéma", "Schema version"), std::to_string(report.schemaVersion));
    output::field(L10n::text("Activités", "Activities"), std::to_string(report.activities));
    output::field(L10n::text("Première activité", "First activity"),
                  report.firstActivity ? local::formatDay(*report.firstActivity) + " " +
                                             local::formatTime(*report.firstActivity)
                                       : std::string(L10n::text("aucune", "none")));
    std::string tracking = report.pausedUntil
                               ? std::string(L10n::text("en pause jusqu'à ", "paused until ")) +
                                     local::formatDay(*report.pausedUntil) + " " + local::formatTime(*report.pausedUntil)
                               : std::string(L10n::text("actif", "active"));
    output::field(L10n::text("Suivi", "Tracking"), tracking);
    output::field(L10n::text("Suivi en cours", "Tracker"),
                  report.tracker ? std::string(L10n::text("lancé (processus ", "running (process ")) +
                                       std::to_string(*report.tracker) + ")"
                                 : std::string(L10n::text("arrêté (ombrelo run)", "not running (ombrelo run)")));
}

} // namespace

void status(CLI::App& program, Session& session) {
    CLI::App* command = program.add_subcommand(
        "status", std::string(L10n::text("Ouvre la base et résume son contenu", "Open the database and summarise it")));
    command->add_flag("--json", session.json, std::string(L10n::text("Sortie JSON", "JSON output")));
    command->callback([&session] { render(gather(session), session.json); });
}

} // namespace ombrelo::commands
