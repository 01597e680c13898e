// ombrelo assign, note, unassign: corrections by hand. `assign` gives
// activities a project (or none, which sticks even where a project rule
// matches) and optionally a category; `note` attaches a note without changing
// the classification; `unassign` returns activities to the rules, keeping their
// notes. Activities are named by id, or for `assign` by a period.
#include "app/Commands.h"
#include "app/Output.h"
#include "app/Session.h"
#include "app/commands/ClassifyArguments.h"
#include "app/commands/ProjectArguments.h"
#include "support/Fold.h"
#include "support/L10n.h"

#include <fmt/format.h>
#include <memory>

namespace ombrelo::commands {

namespace {

struct Arguments {
    std::string target;  // project, or none; the note text for `note`
    std::optional<std::string> ids, from, to, category;
    bool idle = false;
};

std::string activitiesText(std::size_t count) {
    if (L10n::french()) return fmt::format("{} activité{}", count, count > 1 ? "s" : "");
    return fmt::format("{} activit{}", count, count == 1 ? "y" : "ies");
}

[[noreturn]] void writeFailed(const Catalog& catalog) {
    throw CommandFailure(exitStatus::failure,
                         fmt::format("{}{}{}", L10n::text("Affectation impossible : ", "Assignment failed: "),
                                     catalog.lastError().value_or(""),
                                     L10n::text(". Rien n'a été modifié.", ". Nothing was changed.")));
}

std::vector<std::int64_t> requireIDs(Session& session, const std::optional<std::string>& ids) {
    if (!ids)
        throw CommandFailure(exitStatus::usage, std::string(L10n::text("Indiquez les activités : --ids 12,13,15",
                                                                       "Name the activities: --ids 12,13,15")));
    std::vector<std::int64_t> parsed = idsOption(*ids);
    requireActivities(session, parsed);
    return parsed;
}

// The activities of --ids, or those overlapping [--from, --to) (absences only
// with --idle).
std::vector<std::int64_t> selection(Session& session, const Arguments& arguments) {
    bool period = arguments.from || arguments.to;
    if (period == arguments.ids.has_value())
        throw CommandFailure(exitStatus::usage,
                             std::string(L10n::text("Indiquez soit --ids, soit --from et --to.",
                                                    "Give either --ids, or --from and --to.")));
    if (!period) return requireIDs(session, arguments.ids);
    if (!arguments.from || !arguments.to)
        throw CommandFailure(exitStatus::usage, std::string(L10n::text("--from et --to vont ensemble.",
                                                                       "--from and --to go together.")));
    Instant from = dateTimeOption("--from", *arguments.from), to = dateTimeOption("--to", *arguments.to);
    if (to <= from)
        throw CommandFailure(exitStatus::usage,
                             std::string(L10n::text("--to doit suivre --from.", "--to must come after --from.")));
    std::vector<std::int64_t> ids;
    for (const Activity& activity : session.activities().activities(from, to))
        if (arguments.idle || activity.kind != Activity::Kind::idle) ids.push_back(activity.id);
    return ids;
}

void assign(Session& session, const Arguments& arguments) {
    Catalog catalog = openCatalog(session);
    ProjectStore projects = openProjects(session);
    std::optional<Project> project;
    if (!isNone(arguments.target)) project = requireProject(projects, arguments.target);
    std::optional<Category> category;
    if (arguments.category && !isNone(*arguments.category)) category = requireCategory(catalog, *arguments.category);
    std::vector<std::int64_t> ids = selection(session, arguments);
    if (ids.empty()) {
        output::line(L10n::text("Aucune activité dans cette période ; rien n'a été modifié.",
                                "No activity in this period; nothing was changed."));
        return;
    }
    if (!catalog.assign(ids, project ? std::optional(project->id) : std::nullopt,
                        category ? std::optional(category->id) : std::nullopt, source::manual))
        writeFailed(catalog);
    std::string text = fmt::format("{} → {}", activitiesText(ids.size()), projects.label(project));
    if (category) text += fmt::format(" ({})", category->name);
    output::line(text);
}

void note(Session& session, const Arguments& arguments) {
    Catalog catalog = openCatalog(session);
    std::vector<std::int64_t> ids = requireIDs(session, arguments.ids);
    std::string text(trim(arguments.target));
    if (!catalog.setNote(ids, text.empty() ? std::nullopt : std::optional(text))) writeFailed(catalog);
    output::line(text.empty()
                     ? fmt::format("{}{}", L10n::text("Note retirée : ", "Note removed: "), activitiesText(ids.size()))
                     : fmt::format("{}{}", L10n::text("Note : enregistrée sans changer le classement, ",
                                                      "Note saved without changing the classification, "),
                                   activitiesText(ids.size())));
}

void unassign(Session& session, const Arguments& arguments) {
    Catalog catalog = openCatalog(session);
    std::vector<std::int64_t> ids = requireIDs(session, arguments.ids);
    if (!catalog.clearAssignments(ids)) writeFailed(catalog);
    output::line(fmt::format("{} : {}", activitiesText(ids.size()),
                             L10n::text("revient au classement automatique par les règles.",
                                        "back to automatic classification by the rules.")));
}

std::string idsHelp() {
    return std::string(L10n::text("Ids des activités, séparés par des virgules", "Activity ids, separated by commas"));
}

} // namespace

void corrections(CLI::App& program, Session& session) {
    auto arguments = std::make_shared<Arguments>();

    CLI::App* assignCommand = program.add_subcommand(
        "assign", std::string(L10n::text("Affecte des activités à un projet (correction manuelle)",
                                         "Assign activities to a project (manual correction)")));
    assignCommand->add_option("PROJECT", arguments->target,
                              std::string(L10n::text("Projet (nom ou id), ou none pour sans projet",
                                                     "Project (name or id), or none for no project")))
        ->required();
    assignCommand->add_option("--ids", arguments->ids, idsHelp());
    assignCommand->add_option("--from", arguments->from,
                              std::string(L10n::text("Début de période, AAAA-MM-JJTHH:MM", "Period start, YYYY-MM-DDTHH:MM")));
    assignCommand->add_option("--to", arguments->to,
                              std::string(L10n::text("Fin de période (exclue), AAAA-MM-JJTHH:MM",
                                                     "Period end (excluded), YYYY-MM-DDTHH:MM")));
    assignCommand->add_option("--category", arguments->category,
                              std::string(L10n::text("Catégorie choisie aussi (nom ou id)", "Category chosen too (name or id)")));
    assignCommand->add_flag("--idle", arguments->idle,
                            std::string(L10n::text("Avec --from/--to, prend aussi les absences",
                                                   "With --from/--to, take absences too")));
    assignCommand->callback([&session, arguments] { assign(session, *arguments); });

    CLI::App* noteCommand = program.add_subcommand(
        "note", std::string(L10n::text("Note sur des activités, sans changer leur classement",
                                       "Note on activities, without changing their classification")));
    noteCommand->add_option("TEXT", arguments->target,
                            std::string(L10n::text("Texte de la note (vide pour la retirer)", "Note text (empty to remove it)")))
        ->required();
    noteCommand->add_option("--ids", arguments->ids, idsHelp());
    noteCommand->callback([&session, arguments] { note(session, *arguments); });

    CLI::App* unassignCommand = program.add_subcommand(
        "unassign", std::string(L10n::text("Revient au classement automatique par les règles.",
                                           "Back to automatic classification by the rules.")));
    unassignCommand->add_option("--ids", arguments->ids, idsHelp());
    unassignCommand->callback([&session, arguments] { unassign(session, *arguments); });
}

} // namespace ombrelo::commands
