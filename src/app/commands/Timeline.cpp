// ombrelo timeline: the blocks of one day (today by default), each with its
// times, duration, project, category and what was used. --json gives the agent
// tool's get_timeline result, with the activity ids of each block.
#include "app/Commands.h"
#include "app/Output.h"
#include "app/commands/TextTable.h"
#include "app/commands/TimeModel.h"
#include "reports/Format.h"
#include "support/L10n.h"
#include "support/LocalTime.h"

#include <memory>

namespace ombrelo::commands {

namespace {

// "Xcode (1 h 05), github.com (20 min)": the block's three largest labels.
std::string usedText(const Block& block) {
    std::string text;
    int shown = 0;
    for (const LabelTotal& total : block.labels()) {
        if (shown++ == 3) break;
        if (!text.empty()) text += ", ";
        text += total.label + " (" + Format::duration(total.seconds) + ")";
    }
    return text;
}

void render(const TimelineReport& report, const ProjectStore& projects) {
    output::line(std::string(L10n::text("Journée du ", "Day ")) + local::formatDay(report.day));
    if (report.blocks.empty()) {
        output::line(L10n::text("Aucun temps enregistré ce jour-là.", "No time recorded that day."));
        return;
    }
    std::vector<std::string> durations;
    double active = 0;
    for (const Block& block : report.blocks) {
        durations.push_back(Format::duration(block.seconds()));
        if (!block.idle()) active += block.seconds();
    }
    alignRight(durations);
    output::TextTable table({std::string(L10n::text("Début", "Start")), std::string(L10n::text("Fin", "End")),
                             std::string(L10n::text("Durée", "Time")), std::string(L10n::text("Projet", "Project")),
                             std::string(L10n::text("Catégorie", "Category")), std::string(L10n::text("Titre", "Title")),
                             std::string(L10n::text("Applis et sites", "Apps and sites"))});
    for (std::size_t i = 0; i < report.blocks.size(); ++i) {
        const Block& block = report.blocks[i];
        std::string title = block.title();
        if (auto note = block.note()) title += " — " + *note;
        // Time entered by hand is manual by nature; say so only of recorded time moved by hand.
        if (block.manual() && block.items.front().activity.kind != Activity::Kind::manual)
            title += L10n::text(" (à la main)", " (by hand)");
        table.add({local::formatTime(block.start()), local::formatTime(block.end()), durations[i],
                   block.idle() ? "" : projectCell(projects, block.project().get()),
                   block.category() ? block.category()->name : "—", title, usedText(block)});
    }
    output::line("");
    table.print(std::cout);
    output::line("");
    output::field(L10n::text("Temps actif", "Active time"), Format::duration(active));
}

void show(Session& session, const std::optional<std::string>& date) {
    nlohmann::json asked = nlohmann::json::object();
    if (date) asked["date"] = *date;
    TimeModel model(session);
    TimelineReport report = answer([&] { return model.queries.timeline(asked); });
    if (session.json) {
        output::json(model.queries.toJSON(report));
        return;
    }
    render(report, model.projects);
}

} // namespace

void timeline(CLI::App& program, Session& session) {
    auto date = std::make_shared<std::optional<std::string>>();
    CLI::App* command = program.add_subcommand(
        "timeline", std::string(L10n::text("Blocs de temps d'une journée", "Time blocks of a day")));
    command->add_option("DATE", *date,
                        std::string(L10n::text("Jour (AAAA-MM-JJ), aujourd'hui par défaut",
                                               "Day (YYYY-MM-DD), today by default")));
    command->add_flag("--json", session.json, std::string(L10n::text("Sortie JSON", "JSON output")));
    command->callback([&session, date] { show(session, *date); });
}

} // namespace ombrelo::commands
