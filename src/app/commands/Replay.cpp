// ombrelo replay FILE: a recorded desktop session through the real capture loop.
#include "app/Commands.h"
#include "app/Output.h"
#include "app/Session.h"
#include "app/ProjectInProgress.h"
#include "app/commands/ClassifyArguments.h"
#include "capture/ActivityTracker.h"
#include "capture/Replay.h"
#include "support/L10n.h"

#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <optional>

namespace ombrelo::commands {

namespace {

std::string writtenText(std::int64_t count) {
    if (L10n::french())
        return fmt::format("{} {}", count, count > 1 ? "activités enregistrées" : "activité enregistrée");
    return fmt::format("{} {}", count, count == 1 ? "activity written" : "activities written");
}

void replayFile(Session& session, const std::string& file) {
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(file, ignored))
        throw CommandFailure(exitStatus::usage,
                             std::string(L10n::text("Fichier introuvable : ", "No such file: ")) + file);
    try {
        // Checked whole before the database is opened, so a bad file changes nothing.
        std::vector<ReplayEvent> events = Replay::read(file);
        Catalog catalog = openCatalog(session);
        // The active project as the session's own settings and clock see it.
        std::optional<ProjectStore> projects;
        std::optional<ReplayedClaims> claims;
        auto claimForActiveProject = [&](ActivityTracker& tracker, Preferences& settings, Clock& clock) {
            projects.emplace(session.database(), settings, clock);
            claims.emplace(catalog, *projects);
            tracker.onRecorded = [&](const Activity& activity) { claims->recorded(activity); };
        };
        auto writeClaims = [&](const std::vector<ActivityBuffer::Written>& rows) { claims->write(rows); };
        Replay::Outcome outcome =
            Replay::run(events, session.activities(), session.preferences(), claimForActiveProject, writeClaims);
        output::line(writtenText(outcome.written));
    } catch (const ReplayError& error) {
        throw CommandFailure(exitStatus::failure, error.what());
    } catch (const DatabaseError& error) {
        throw CommandFailure(exitStatus::failure,
                             std::string(L10n::text("Rejeu annulé, rien n'a été enregistré : ",
                                                    "Replay cancelled, nothing was written: ")) +
                                 error.what());
    }
}

} // namespace

void replay(CLI::App& program, Session& session) {
    auto file = std::make_shared<std::string>();
    CLI::App* command = program.add_subcommand(
        "replay", std::string(L10n::text("Rejoue une session enregistrée (JSON Lines)",
                                         "Replay a recorded session (JSON Lines)")));
    command->add_option("FILE", *file, std::string(L10n::text("Fichier d'événements", "Event file")))->required();
    command->callback([&session, file] { replayFile(session, *file); });
}

} // namespace ombrelo::commands
