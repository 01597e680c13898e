// ombrelo manual: records a stretch of time by hand (a meeting away from the
// machine, a call), optionally on a project. Such time is assigned by hand, so
// no rule ever moves it to another project.
#include "app/Commands.h"
#include "app/Output.h"
#include "app/commands/ClassifyArguments.h"
#include "app/commands/ProjectArguments.h"
#include "app/commands/TimeModel.h"
#include "reports/Format.h"
#include "support/Fold.h"
#include "support/L10n.h"
#include "support/LocalTime.h"

#include <fmt/format.h>
#include <memory>

namespace ombrelo::commands {

namespace {

struct Arguments {
    std::string from, to, label;
    std::optional<std::string> project;
    bool replace = false;
};

// What the entry would count a second time, one line each.
std::string overlapList(const std::vector<Activity>& under) {
    std::string text;
    for (const Activity& activity : under)
        text += fmt::format("\n  {} {}–{} {} ({})", local::formatDay(activity.start), local::formatTime(activity.start),
                            local::formatTime(activity.end), activity.label(), Format::duration(activity.duration()));
    return text;
}

void add(Session& session, const Arguments& arguments) {
    Instant from = dateTimeOption("--from", arguments.from);
    Instant to = dateTimeOption("--to", arguments.to);
    if (!(to > from))
        usageFailure(std::string(L10n::text("La fin doit suivre le début.", "The end must come after the start.")));
    std::string label(trim(arguments.label));
    if (label.empty()) usageFailure(std::string(L10n::text("Le libellé est vide.", "The label is empty.")));

    TimeModel model(session);
    std::optional<Project> project;
    if (arguments.project && !isNone(*arguments.project)) project = requireProject(model.projects, *arguments.project);
    if (!arguments.replace) {
        std::vector<Activity> under = model.workspace.countedUnder(from, to);
        if (!under.empty())
            throw CommandFailure(
                exitStatus::failure,
                std::string(L10n::text("Temps manuel refusé : il recouvre du temps déjà enregistré, qui compterait "
                                       "deux fois. --replace coupe ce temps pour que l'entrée reste seule.",
                                       "Manual time refused: it overlaps time already recorded, which would count "
                                       "twice. --replace cuts that time so that the entry stands alone.")) +
                    overlapList(under));
    }
    auto overlap = arguments.replace ? Workspace::Overlap::replace : Workspace::Overlap::refuse;
    auto ids =
        model.workspace.addManual(from, to, label, project ? std::optional(project->id) : std::nullopt, overlap);
    if (!ids)
        throw CommandFailure(exitStatus::failure,
                             std::string(L10n::text("Temps manuel non enregistré : ", "Manual time not recorded: ")) +
                                 model.workspace.writeError().value_or(""));
    output::line(fmt::format("{}{}, {} {}–{} ({}), {}. {}{}.", L10n::text("Temps manuel ajouté : ", "Manual time added: "),
                             label, local::formatDay(from), local::formatTime(from), local::formatTime(to),
                             Format::duration(to - from), model.projects.label(project),
                             L10n::text(ids->size() > 1 ? "Activités " : "Activité ",
                                        ids->size() > 1 ? "Activities " : "Activity "),
                             fmt::join(*ids, ", ")));
}

} // namespace

void manual(CLI::App& program, Session& session) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App* command = program.add_subcommand(
        "manual", std::string(L10n::text("Ajoute du temps à la main", "Add time by hand")));
    command->add_option("--from", arguments->from, std::string(L10n::text("Début (AAAA-MM-JJTHH:MM)", "Start (YYYY-MM-DDTHH:MM)")))
        ->required();
    command->add_option("--to", arguments->to, std::string(L10n::text("Fin (AAAA-MM-JJTHH:MM)", "End (YYYY-MM-DDTHH:MM)")))
        ->required();
    command->add_option("LABEL", arguments->label, std::string(L10n::text("Libellé", "Label")))->required();
    command->add_option("--project", arguments->project,
                        std::string(L10n::text("Projet (nom ou id ; « aucun » pour aucun)",
                                               "Project (name or id; \"none\" for none)")));
    command->add_flag("--replace", arguments->replace,
                      std::string(L10n::text("Coupe le temps enregistré dessous (sinon refusé)",
                                             "Cut the time recorded under it (refused otherwise)")));
    command->callback([&session, arguments] { add(session, *arguments); });
}

} // namespace ombrelo::commands
