// ombrelo search: the time spent on something, found by application, window
// title, site or document over the last days (30 by default), grouped by title,
// application and project. --json gives the agent tool's search_activity result.
#include "app/Commands.h"
#include "app/Output.h"
#include "app/commands/TextTable.h"
#include "app/commands/TimeModel.h"
#include "reports/Format.h"
#include "support/L10n.h"
#include "support/LocalTime.h"

#include <fmt/format.h>
#include <memory>

namespace ombrelo::commands {

namespace {

struct Arguments {
    std::string text;
    std::optional<std::int64_t> days;
};

void render(const SearchReport& report, const ProjectStore& projects) {
    std::string heading = L10n::french() ? fmt::format("« {} » sur {} jour{} : {}, {}", report.query, report.days,
                                                       report.days > 1 ? "s" : "", Format::duration(report.seconds),
                                                       activityCount(report.activityIDs.size()))
                                         : fmt::format("\"{}\" over {} day{}: {}, {}", report.query, report.days,
                                                       report.days > 1 ? "s" : "", Format::duration(report.seconds),
                                                       activityCount(report.activityIDs.size()));
    output::line(heading);
    if (report.cut()) {
        std::string day = local::formatDay(*report.countedFrom);
        output::line(L10n::french()
                         ? fmt::format("Seules les {} activités les plus récentes sont comptées, depuis le {} ; {} "
                                       "activités correspondent en tout.",
                                       report.activityIDs.size(), day, report.matchedActivities)
                         : fmt::format("Only the newest {} activities are counted, since {}; {} activities match "
                                       "in all.",
                                       report.activityIDs.size(), day, report.matchedActivities));
    }
    if (report.matches.empty()) return;
    std::vector<std::string> times;
    for (const SearchMatch& match : report.matches) times.push_back(Format::duration(match.seconds));
    alignRight(times);
    output::TextTable table({std::string(L10n::text("Temps", "Time")), std::string(L10n::text("Titre", "Title")),
                             std::string(L10n::text("Appli", "App")), std::string(L10n::text("Projet", "Project"))});
    for (std::size_t i = 0; i < report.matches.size(); ++i) {
        const SearchMatch& match = report.matches[i];
        table.add({times[i], match.title, match.app, projectCell(projects, match.project.get())});
    }
    output::line("");
    table.print(std::cout);
}

void find(Session& session, const Arguments& arguments) {
    nlohmann::json asked = {{"query", arguments.text}};
    if (arguments.days) asked["days"] = *arguments.days;
    TimeModel model(session);
    SearchReport report = answer([&] { return model.queries.search(asked); });
    if (session.json) {
        output::json(model.queries.toJSON(report));
        return;
    }
    render(report, model.projects);
}

} // namespace

void search(CLI::App& program, Session& session) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App* command = program.add_subcommand(
        "search", std::string(L10n::text("Cherche du temps par appli, titre de fenêtre, site ou document",
                                         "Find time by app, window title, site or document")));
    command->add_option("TEXT", arguments->text, std::string(L10n::text("Texte cherché", "Text to find")))->required();
    command->add_option("--days", arguments->days,
                        std::string(L10n::text("Nombre de jours en arrière (30 par défaut)",
                                               "Number of days back (30 by default)")));
    command->add_flag("--json", session.json, std::string(L10n::text("Sortie JSON", "JSON output")));
    command->callback([&session, arguments] { find(session, *arguments); });
}

} // namespace ombrelo::commands
