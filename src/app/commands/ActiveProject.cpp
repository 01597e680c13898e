// ombrelo work PROJECT [--note TEXT], ombrelo stop, ombrelo active: the project
// in progress, which takes the time being recorded until it is stopped or the
// day ends. The change is a request to the running tracker (LiveRequests.h),
// which cuts the activity in progress at once.
#include "app/Commands.h"
#include "app/Output.h"
#include "app/Session.h"
#include "app/commands/LiveRequests.h"
#include "app/commands/ProjectArguments.h"
#include "app/commands/ProjectViews.h"
#include "app/commands/TimeModel.h"
#include "support/Fold.h"
#include "support/L10n.h"
#include "support/LocalTime.h"
#include "support/Money.h"

#include <memory>

namespace ombrelo::commands {

namespace {

struct Arguments {
    std::string project;
    std::optional<std::string> note;
};

void show(Session& session, ProjectStore& store) {
    if (session.json) {
        output::json(activeJSON(store, currencyCode(session.preferences())));
        return;
    }
    std::optional<Project> active = store.activeProject();
    if (!active) {
        output::line(L10n::text("Aucun projet en cours", "No project in progress"));
        return;
    }
    Instant since = *store.activeSince();
    output::field(L10n::text("Projet en cours", "Project in progress"), store.label(active));
    output::field(L10n::text("Depuis", "Since"), dayAndTime(since));
    if (auto note = store.activeNote()) output::field(L10n::text("Note", "Note"), *note);
}

void startWork(Session& session, const Arguments& arguments) {
    Project project = requireProject(openProjects(session), arguments.project);
    nlohmann::json request = {{"command", "work"}, {"project", project.id}};
    if (arguments.note) request["note"] = *arguments.note;
    carryOut(session, request);
    ProjectStore store = openProjects(session);
    show(session, store);
}

void stopWork(Session& session) {
    std::optional<Project> active = openProjects(session).activeProject();
    carryOut(session, {{"command", "stop"}});
    ProjectStore store = openProjects(session);
    if (session.json) {
        show(session, store);
        return;
    }
    output::line(active ? std::string(L10n::text("Projet en cours arrêté : ", "Project in progress stopped: ")) +
                              store.label(active)
                        : std::string(L10n::text("Aucun projet en cours", "No project in progress")));
}

} // namespace

void work(CLI::App& program, Session& session) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App* command = program.add_subcommand(
        "work", std::string(L10n::text("Choisit le projet en cours : le temps suivant est noté pour lui",
                                       "Choose the project in progress: the time that follows goes to it")));
    command->add_option("PROJECT", arguments->project, std::string(L10n::text("Nom ou id", "Name or id")))->required();
    command->add_option("--note", arguments->note,
                        std::string(L10n::text("Note jointe au temps du projet en cours",
                                               "Note attached to the time of the project in progress")));
    command->add_flag("--json", session.json, std::string(L10n::text("Sortie JSON", "JSON output")));
    command->callback([&session, arguments] { startWork(session, *arguments); });
}

void stop(CLI::App& program, Session& session) {
    CLI::App* command = program.add_subcommand(
        "stop", std::string(L10n::text("Arrête le projet en cours", "Stop the project in progress")));
    command->add_flag("--json", session.json, std::string(L10n::text("Sortie JSON", "JSON output")));
    command->callback([&session] { stopWork(session); });
}

void active(CLI::App& program, Session& session) {
    CLI::App* command = program.add_subcommand(
        "active", std::string(L10n::text("Affiche le projet en cours", "Show the project in progress")));
    command->add_flag("--json", session.json, std::string(L10n::text("Sortie JSON", "JSON output")));
    command->callback([&session] {
        ProjectStore store = openProjects(session);
        show(session, store);
    });
}

} // namespace ombrelo::commands
