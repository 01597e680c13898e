// ombrelo activities and ombrelo explain: the classified activities of a period,
// and for one activity why its time landed where it did (every rule that
// applies with its score, the winners, the stored correction).
#include "app/Commands.h"
#include "app/Output.h"
#include "app/Session.h"
#include "app/commands/ClassifyArguments.h"
#include "app/commands/ClassifyViews.h"
#include "app/commands/ProjectArguments.h"
#include "app/commands/TextTable.h"
#include "support/L10n.h"
#include "support/LocalTime.h"

#include <fmt/format.h>
#include <memory>

namespace ombrelo::commands {

namespace {

struct Arguments {
    std::string from, to, activity;
};

// At most `width` code points, an ellipsis marking the cut.
std::string shortened(std::string_view text, std::size_t width) {
    std::size_t points = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xC0) == 0x80) continue;
        if (++points > width) return std::string(text.substr(0, i)) + "…";
    }
    return std::string(text);
}

void listActivities(Session& session, const Arguments& arguments) {
    Instant from = dayOption("--from", arguments.from);
    Instant lastDay = dayOption("--to", arguments.to);
    if (lastDay < from)
        throw CommandFailure(exitStatus::usage,
                             std::string(L10n::text("--to ne peut pas précéder --from.", "--to cannot precede --from.")));
    Instant to = local::addDays(lastDay, 1);  // --to is the last day included

    Catalog catalog = openCatalog(session);
    ProjectStore projects = openProjects(session);
    std::vector<Classification> results =
        catalog.classifyDetailed(session.activities().activities(from, to), projects.projects());

    if (session.json) {
        output::jsonWithList({{"from", local::formatDay(from)}, {"to", local::formatDay(lastDay)}}, "activities",
                             results.size(), [&](std::size_t i) { return activityJSON(results[i], projects); });
        return;
    }
    if (results.empty()) {
        output::line(L10n::text("Aucune activité sur cette période.", "No activity in this period."));
        return;
    }
    output::TextTable table({"ID", std::string(L10n::text("Quand", "When")), std::string(L10n::text("Activité", "Activity")),
                             std::string(L10n::text("Catégorie", "Category")), std::string(L10n::text("Projet", "Project")),
                             std::string(L10n::text("Titre", "Title"))});
    for (const Classification& result : results) {
        const Classified& item = result.item;
        std::string project = projects.label(item.project);
        if (item.manual) project += std::string(L10n::text(" (manuel)", " (manual)"));
        std::string title = shortened(item.activity.title.value_or(""), 48);
        if (item.note) title += (title.empty() ? "" : " ") + std::string(L10n::text("— note : ", "— note: ")) + *item.note;
        table.add({std::to_string(item.activity.id), spanText(item.activity), shortened(sourceText(item.activity), 40),
                   item.category ? item.category->name : "—", project, title});
    }
    table.print(std::cout);
}

std::string reasonText(const std::optional<std::string>& reason, const std::optional<std::int64_t>& ruleID) {
    if (!reason) return std::string(L10n::text("aucune règle ne s'applique", "no rule applies"));
    if (*reason == "rule") return fmt::format("{}{}", L10n::text("règle #", "rule #"), *ruleID);
    if (*reason == "manual") return std::string(L10n::text("correction manuelle", "manual correction"));
    if (*reason == "active") return std::string(L10n::text("projet en cours", "project in progress"));
    if (*reason == "ai") return std::string(L10n::text("proposée par le modèle", "suggested by the model"));
    if (*reason == "navigation") return std::string(L10n::text("navigateur sans règle", "browser without a rule"));
    return std::string(L10n::text("temps privé : jamais de catégorie", "private time: never a category"));
}

void explain(Session& session, const Arguments& arguments) {
    std::vector<std::int64_t> ids = idsOption(arguments.activity);
    if (ids.size() != 1)
        throw CommandFailure(exitStatus::usage,
                             std::string(L10n::text("Une seule activité à la fois.", "One activity at a time.")));
    requireActivities(session, ids);
    Activity activity = *session.activities().activity(ids.front());
    Catalog catalog = openCatalog(session);
    ProjectStore projects = openProjects(session);
    Classification result = catalog.classifyDetailed({activity}, projects.projects()).front();
    std::vector<RuleScore> applicable = catalog.applicableRules(activity);
    auto categoryWhy = categoryReason(result);
    auto projectWhy = projectReason(result);

    if (session.json) {
        output::json(explainJSON(result, applicable, catalog, projects));
        return;
    }

    output::line(fmt::format("{}{} : {}", L10n::text("Activité ", "Activity "), activity.id, sourceText(activity)));
    output::field(L10n::text("Quand", "When"), spanText(activity));
    if (activity.title) output::field(L10n::text("Titre", "Title"), *activity.title);
    if (activity.path) output::field(L10n::text("Chemin", "Path"), *activity.path);
    if (activity.url) output::field(L10n::text("Adresse", "Address"), *activity.url);
    output::line("");
    if (applicable.empty()) {
        output::line(L10n::text("Aucune règle ne s'applique.", "No rule applies."));
    } else {
        output::line(L10n::text("Règles qui s'appliquent (la plus précise l'emporte, la plus ancienne à égalité) :",
                                "Rules that apply (the most precise wins, the oldest on a tie):"));
        output::TextTable table({"ID", "Score", std::string(L10n::text("Règle", "Rule")),
                                 std::string(L10n::text("Donne", "Gives"))});
        for (const RuleScore& scored : applicable) {
            std::string gives = ruleTarget(scored.rule, catalog, projects);
            if (result.categoryRuleID == scored.rule.id) gives += std::string(L10n::text("  ← catégorie", "  ← category"));
            if (result.projectRuleID == scored.rule.id) gives += std::string(L10n::text("  ← projet", "  ← project"));
            table.add({std::to_string(scored.rule.id), std::to_string(scored.score), ruleTest(scored.rule), gives});
        }
        table.print(std::cout);
    }
    if (activity.kind == Activity::Kind::idle)
        output::line(L10n::text("Absence : les règles de projet ne s'y appliquent pas.",
                                "Absence: project rules do not apply to it."));
    output::line("");
    const Classified& item = result.item;
    output::field(L10n::text("Catégorie", "Category"),
                  fmt::format("{} ({})", item.category ? item.category->name : "—",
                              reasonText(categoryWhy, result.categoryRuleID)));
    output::field(L10n::text("Projet", "Project"),
                  fmt::format("{} ({})", projects.label(item.project), reasonText(projectWhy, result.projectRuleID)));
    std::string stored(L10n::text("aucune", "none"));
    if (const auto& row = result.assignment) {
        if (row->source == source::manual) stored = L10n::text("manuelle", "manual");
        else if (row->source == source::active) stored = L10n::text("projet en cours", "project in progress");
        else if (row->source == source::ai) stored = L10n::text("modèle", "model");
        else if (row->source == source::note) stored = L10n::text("note seule", "note only");
        else stored = row->source;
        if (row->projectID) {
            auto project = projects.project(*row->projectID);
            stored += fmt::format(", {}{}", L10n::text("projet ", "project "),
                                  project ? projects.label(project) : "#" + std::to_string(*row->projectID));
        } else if (row->source == source::manual) {
            stored += fmt::format(", {}", projects.label(std::nullopt));
        }
        if (row->categoryID) {
            auto category = catalog.category(*row->categoryID);
            stored += fmt::format(", {}{}", L10n::text("catégorie ", "category "),
                                  category ? category->name : "#" + std::to_string(*row->categoryID));
        }
        if (row->note) stored += fmt::format(", {}{}", L10n::text("note : ", "note: "), *row->note);
    }
    output::field(L10n::text("Correction enregistrée", "Stored correction"), stored);
}

} // namespace

void activities(CLI::App& program, Session& session) {
    auto arguments = std::make_shared<Arguments>();
    auto jsonFlag = [&session](CLI::App* sub) {
        sub->add_flag("--json", session.json, std::string(L10n::text("Sortie JSON", "JSON output")));
    };

    CLI::App* listCommand = program.add_subcommand(
        "activities", std::string(L10n::text("Activités classées d'une période", "Classified activities of a period")));
    listCommand->add_option("--from", arguments->from, std::string(L10n::text("Premier jour, AAAA-MM-JJ", "First day, YYYY-MM-DD")))
        ->required();
    listCommand->add_option("--to", arguments->to,
                            std::string(L10n::text("Dernier jour inclus, AAAA-MM-JJ", "Last day included, YYYY-MM-DD")))
        ->required();
    jsonFlag(listCommand);
    listCommand->callback([&session, arguments] { listActivities(session, *arguments); });

    CLI::App* explainCommand = program.add_subcommand(
        "explain", std::string(L10n::text("Explique le classement d'une activité", "Explain how an activity is classified")));
    explainCommand->add_option("ID", arguments->activity, std::string(L10n::text("Id de l'activité", "Activity id")))
        ->required();
    jsonFlag(explainCommand);
    explainCommand->callback([&session, arguments] { explain(session, *arguments); });
}

} // namespace ombrelo::commands
