// ombrelo projects list|add|edit|archive|remove: the projects time goes to and
// how each is priced.
#include "app/Commands.h"
#include "app/Output.h"
#include "app/Session.h"
#include "app/commands/ProjectArguments.h"
#include "app/commands/ProjectViews.h"
#include "app/commands/TextTable.h"
#include "support/L10n.h"
#include "support/Money.h"

#include <memory>

namespace ombrelo::commands {

namespace {

struct Arguments {
    std::string project;  // name or id of an existing project
    std::string name;
    std::optional<std::string> newName;
    ProjectOptions options;
    bool undo = false;
};

std::string yes(bool value) { return std::string(value ? L10n::text("oui", "yes") : L10n::text("non", "no")); }

void list(Session& session) {
    ProjectStore store = openProjects(session);
    std::string currency = currencyCode(session.preferences());
    if (session.json) {
        nlohmann::json projects = nlohmann::json::array();
        for (const Project& p : store.projects()) projects.push_back(projectJSON(p, store, currency));
        output::json({{"projects", projects}});
        return;
    }
    if (store.projects().empty()) {
        output::line(L10n::text("Aucun projet. Ajoutez-en un : ombrelo projects add NOM",
                                "No projects. Add one: ombrelo projects add NAME"));
        return;
    }
    output::TextTable table({"ID", std::string(L10n::text("Projet", "Project")), std::string(L10n::text("Taux", "Rate")),
                             std::string(L10n::text("Arrondi", "Rounding")), std::string(L10n::text("Journée", "Day")),
                             std::string(L10n::text("Facturable", "Billable")), "Budget",
                             std::string(L10n::text("Archivé", "Archived"))});
    for (const Project& p : store.projects())
        table.add({std::to_string(p.id), store.label(p), p.rateLabel(currency), roundingLabel(p.rounding),
                   hoursText(p.dayHours), yes(p.billable),
                   p.budgetMinutes ? hoursText(static_cast<double>(*p.budgetMinutes) / 60) : "—",
                   p.archived ? yes(true) : ""});
    table.print(std::cout);
}

void saved(Session& session, ProjectStore& store, const SaveResult& result, std::string_view done) {
    check(result.error, L10n::text("Projet non enregistré", "Project not saved"));
    Project p = *store.project(result.id);
    if (session.json)
        output::json(projectJSON(p, store, currencyCode(session.preferences())));
    else
        output::line(std::string(done) + store.label(p) + " (id " + std::to_string(p.id) + ")");
}

void add(Session& session, const Arguments& arguments) {
    ProjectStore store = openProjects(session);
    Project p;
    p.name = arguments.name;
    p.color = "teal";
    arguments.options.applyTo(p, store);
    validate(p);
    saved(session, store, store.save(p), L10n::text("Projet enregistré : ", "Project saved: "));
}

void edit(Session& session, const Arguments& arguments) {
    ProjectStore store = openProjects(session);
    Project p = requireProject(store, arguments.project);
    if (arguments.newName) p.name = *arguments.newName;
    arguments.options.applyTo(p, store);
    validate(p);
    saved(session, store, store.save(p), L10n::text("Projet enregistré : ", "Project saved: "));
}

void archive(Session& session, const Arguments& arguments) {
    ProjectStore store = openProjects(session);
    Project p = requireProject(store, arguments.project);
    p.archived = !arguments.undo;
    saved(session, store, store.save(p),
          arguments.undo ? L10n::text("Projet réactivé : ", "Project restored: ")
                         : L10n::text("Projet archivé : ", "Project archived: "));
}

void remove(Session& session, const Arguments& arguments) {
    ProjectStore store = openProjects(session);
    Project p = requireProject(store, arguments.project);
    std::string label = store.label(p);
    check(store.remove(p), L10n::text("Projet non supprimé", "Project not deleted"));
    output::line(std::string(L10n::text("Projet supprimé : ", "Project deleted: ")) + label +
                 std::string(L10n::text(" (son temps reste, sans projet)", " (its time stays, without project)")));
}

} // namespace

void projects(CLI::App& program, Session& session) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App* command = program.add_subcommand("projects", std::string(L10n::text("Projets", "Projects")));
    command->require_subcommand(1);
    auto jsonFlag = [&session](CLI::App* sub) {
        sub->add_flag("--json", session.json, std::string(L10n::text("Sortie JSON", "JSON output")));
    };
    auto projectArgument = [&](CLI::App* sub) {
        sub->add_option("PROJECT", arguments->project, std::string(L10n::text("Nom ou id", "Name or id")))->required();
    };

    CLI::App* listCommand =
        command->add_subcommand("list", std::string(L10n::text("Liste les projets", "List projects")));
    jsonFlag(listCommand);
    listCommand->callback([&session] { list(session); });

    CLI::App* addCommand = command->add_subcommand("add", std::string(L10n::text("Ajoute un projet", "Add a project")));
    addCommand->add_option("NAME", arguments->name, std::string(L10n::text("Nom", "Name")))->required();
    arguments->options.addTo(*addCommand);
    jsonFlag(addCommand);
    addCommand->callback([&session, arguments] { add(session, *arguments); });

    CLI::App* editCommand =
        command->add_subcommand("edit", std::string(L10n::text("Modifie un projet", "Edit a project")));
    projectArgument(editCommand);
    editCommand->add_option("--name", arguments->newName, std::string(L10n::text("Nouveau nom", "New name")));
    arguments->options.addTo(*editCommand);
    jsonFlag(editCommand);
    editCommand->callback([&session, arguments] { edit(session, *arguments); });

    CLI::App* archiveCommand = command->add_subcommand(
        "archive", std::string(L10n::text("Archive un projet (gardé dans l'historique)",
                                          "Archive a project (kept in history)")));
    projectArgument(archiveCommand);
    archiveCommand->add_flag("--undo", arguments->undo,
                             std::string(L10n::text("Sort le projet des archives", "Bring it back from the archive")));
    archiveCommand->callback([&session, arguments] { archive(session, *arguments); });

    CLI::App* removeCommand = command->add_subcommand(
        "remove", std::string(L10n::text("Supprime un projet et ses règles", "Delete a project and its rules")));
    projectArgument(removeCommand);
    removeCommand->callback([&session, arguments] { remove(session, *arguments); });
}

} // namespace ombrelo::commands
