// ombrelo projects list|add|edit|archive|remove: the projects time goes to and
// how each is priced. Removing a project with time, and a pricing edit that
// would reprice billed or paid time, are refused unless asked for explicitly.
#include "app/Commands.h"
#include "app/Output.h"
#include "app/Session.h"
#include "app/commands/ProjectArguments.h"
#include "app/commands/ProjectViews.h"
#include "app/commands/TextTable.h"
#include "app/commands/TimeModel.h"
#include "billing/ProjectChanges.h"
#include "reports/Format.h"
#include "support/L10n.h"
#include "support/Money.h"

#include <fmt/format.h>
#include <memory>

namespace ombrelo::commands {

namespace {

struct Arguments {
    std::string project;  // name or id of an existing project
    std::string name;
    std::optional<std::string> newName;
    ProjectOptions options;
    bool undo = false;
    bool force = false, yes = false;  // remove
    bool repriceBilled = false;       // edit
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

// Decisions on the time of a project see it as every other command does.
ProjectChanges projectChanges(Session& session, TimeModel& model) {
    return ProjectChanges(session.database(), model.projects,
                          [&model](Instant from, Instant to) { return model.workspace.items(from, to); });
}

void edit(Session& session, const Arguments& arguments) {
    TimeModel model(session);
    Project p = requireProject(model.projects, arguments.project);
    std::string label = model.projects.label(p);
    if (arguments.newName) p.name = *arguments.newName;
    arguments.options.applyTo(p, model.projects);
    validate(p);
    EditResult result = projectChanges(session, model).save(p, arguments.repriceBilled);
    std::string currency = Format::currency(session.preferences());
    bool repriced = result.repricing.changesAmounts();
    if (result.refused) {
        std::string message = fmt::format(
            fmt::runtime(L10n::text("Projet non modifié : {} a du temps facturé ou payé dont le montant changerait :",
                                    "Project not changed: {} has billed or paid time whose amount would change:")),
            label);
        for (const std::string& line : repricingLines(result.repricing, currency)) message += "\n  " + line;
        message += std::string(L10n::text(
            "\nPour garder ces montants, créez un projet pour le nouveau tarif (ombrelo projects add NOM …) et "
            "donnez-lui le temps à venir ; si ce temps doit être refacturé, remettez-le d'abord à facturer "
            "(ombrelo billing clear). Pour appliquer quand même le nouveau tarif à ce temps : --reprice-billed.",
            "\nTo keep these amounts, create a project for the new rate (ombrelo projects add NAME …) and give it "
            "the time to come; if this time is to be invoiced again, send it back to bill first (ombrelo billing "
            "clear). To apply the new rate to this time anyway: --reprice-billed."));
        throw CommandFailure(exitStatus::failure, message);
    }
    check(result.saved.error, L10n::text("Projet non enregistré", "Project not saved"));
    Project saved = *model.projects.project(result.saved.id);
    if (session.json) {
        nlohmann::json document = projectJSON(saved, model.projects, currency);
        document["repriced"] = repriced ? repricingJSON(result.repricing) : nlohmann::json::array();
        output::json(document);
        return;
    }
    output::line(std::string(L10n::text("Projet enregistré : ", "Project saved: ")) + model.projects.label(saved) +
                 " (id " + std::to_string(saved.id) + ")");
    if (!repriced) return;
    output::line(L10n::text("Temps déjà facturé ou payé repris au nouveau tarif :",
                            "Billed or paid time repriced at the new rate:"));
    for (const std::string& line : repricingLines(result.repricing, currency)) output::line("  " + line);
}

void archive(Session& session, const Arguments& arguments) {
    ProjectStore store = openProjects(session);
    Project p = requireProject(store, arguments.project);
    p.archived = !arguments.undo;
    saved(session, store, store.save(p),
          arguments.undo ? L10n::text("Projet réactivé : ", "Project restored: ")
                         : L10n::text("Projet archivé : ", "Project archived: "));
}

// What --force alone prints: what would become "Sans projet", and nothing done.
void showRemoval(const std::string& label, const RemovalImpact& impact, const std::string& currency) {
    if (!impact.hasTime()) {
        output::line(fmt::format(fmt::runtime(L10n::text("{} n'a pas de temps : rien ne passerait « Sans projet ».",
                                                         "{} has no time: nothing would move to \"No project\".")),
                                 label));
        return;
    }
    output::line(fmt::format(fmt::runtime(L10n::text("Supprimer {} ferait passer « Sans projet » {}.",
                                                     "Deleting {} would move {} to \"No project\".")),
                             label, timeText(impact)));
    output::line(fmt::format(fmt::runtime(L10n::text("Ne compteraient plus sous un projet : {}.",
                                                     "No longer counted under a project: {}.")),
                             amountsText(impact, currency)));
    if (impact.fromRules > 0)
        output::line(fmt::format(fmt::runtime(L10n::text("Ses règles partent avec lui : le temps qu'elles lui "
                                                         "donnaient ({}) revient aux autres règles.",
                                                         "Its rules go with it: the time they gave it ({}) goes "
                                                         "back to the other rules.")),
                                 activityCount(impact.fromRules)));
}

void remove(Session& session, const Arguments& arguments) {
    TimeModel model(session);
    Project p = requireProject(model.projects, arguments.project);
    std::string label = model.projects.label(p);
    std::string word = commandWord(model.projects, p);
    std::string currency = Format::currency(session.preferences());
    using Removal = ProjectChanges::Removal;
    Removal how = !arguments.force ? Removal::ifWithoutTime : arguments.yes ? Removal::force : Removal::preview;
    RemovalResult result = projectChanges(session, model).remove(p, how);
    check(result.error, L10n::text("Projet non supprimé", "Project not deleted"));
    const RemovalImpact& impact = result.impact;

    if (how == Removal::preview) {
        showRemoval(label, impact, currency);
        throw CommandFailure(exitStatus::failure,
                             fmt::format(fmt::runtime(L10n::text(
                                             "Rien n'a été supprimé. Pour confirmer : ombrelo projects remove {} "
                                             "--force --yes",
                                             "Nothing was deleted. To confirm: ombrelo projects remove {} "
                                             "--force --yes")),
                                         word));
    }
    if (!result.removed)
        throw CommandFailure(
            exitStatus::failure,
            fmt::format(fmt::runtime(L10n::text(
                            "Projet non supprimé : {} a du temps, {}.\nArchivez-le plutôt : il quitte les choix et "
                            "garde son temps. ombrelo projects archive {}\nPour le supprimer quand même, --force "
                            "montre d'abord ce qui passerait « Sans projet ».",
                            "Project not deleted: {} has time, {}.\nArchive it instead: it leaves the choices and "
                            "keeps its time. ombrelo projects archive {}\nTo delete it anyway, --force first shows "
                            "what would move to \"No project\".")),
                        label, timeText(impact), word));

    std::string done = std::string(L10n::text("Projet supprimé : ", "Project deleted: ")) + label;
    if (impact.hasTime())
        done += fmt::format(fmt::runtime(L10n::text(". {} passent « Sans projet » ; {} ne comptent plus sous un "
                                                    "projet.",
                                                    ". {} move to \"No project\"; {} no longer count under a "
                                                    "project.")),
                            timeText(impact), amountsText(impact, currency));
    output::line(done);
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
    editCommand->add_flag("--reprice-billed", arguments->repriceBilled,
                          std::string(L10n::text("Applique le nouveau tarif au temps déjà facturé ou payé",
                                                 "Apply the new pricing to time already billed or paid")));
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
    CLI::Option* force =
        removeCommand->add_flag("--force", arguments->force,
                                std::string(L10n::text("Même s'il a du temps : montre ce qui passerait « Sans projet »",
                                                       "Even with time: shows what would move to \"No project\"")));
    removeCommand->add_flag("--yes", arguments->yes,
                            std::string(L10n::text("Confirme --force", "Confirms --force")))
        ->needs(force);
    removeCommand->callback([&session, arguments] { remove(session, *arguments); });
}

} // namespace ombrelo::commands
