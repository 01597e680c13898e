// ombrelo summary: the totals of a period (today by default): active, billable
// and distraction time, the amount, and the breakdown by project and category,
// each with a bar of its share. --json gives the agent tool's get_summary result.
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

struct Arguments {
    std::optional<std::string> period, from, to;
};

std::string periodTitle(const Period& period) {
    std::string first = local::formatDay(period.start);
    std::string last = local::formatDay(period.end - 1);
    if (first == last) return std::string(L10n::text("Résumé du ", "Summary for ")) + first;
    return std::string(L10n::text("Résumé du ", "Summary from ")) + first + std::string(L10n::text(" au ", " to ")) +
           last;
}

// A total of the period: none at all reads "0 min", not "< 1 min".
std::string total(double seconds) { return seconds > 0 ? Format::duration(seconds) : "0 min"; }

void render(const SummaryReport& report, const ProjectStore& projects, const std::string& currency) {
    const Summary& summary = report.summary;
    output::line(periodTitle(report.period));
    if (summary.active <= 0) {
        output::line(L10n::text("Aucun temps enregistré sur cette période.", "No time recorded in this period."));
        return;
    }
    output::line("");
    output::field(L10n::text("Temps actif", "Active time"), total(summary.active));
    output::field(L10n::text("Facturable", "Billable"), total(summary.billable));
    output::field(L10n::text("Montant HT", "Amount excl. tax"), Format::money(summary.amountCents, currency));
    output::field(L10n::text("Distractions", "Distractions"), total(summary.distraction));
    output::field(L10n::text("Sans projet", "No project"), total(summary.unassigned()));

    std::vector<std::string> names, times, amounts;
    for (const ProjectTotal& total : summary.byProject) {
        names.push_back(projects.label(total.project));
        times.push_back(Format::duration(total.seconds));
        amounts.push_back(total.project && total.project->billable ? Format::money(total.amountCents, currency) : "");
    }
    alignRight(times);
    alignRight(amounts);
    output::TextTable byProject({std::string(L10n::text("Projet", "Project")), std::string(L10n::text("Temps", "Time")),
                                 std::string(L10n::text("Part", "Share")), "",
                                 std::string(L10n::text("Montant HT", "Amount"))});
    std::vector<std::string> shares;
    for (const ProjectTotal& total : summary.byProject) shares.push_back(percent(total.seconds, summary.active));
    alignRight(shares);
    for (std::size_t i = 0; i < names.size(); ++i)
        byProject.add({names[i], times[i], bar(summary.byProject[i].seconds, summary.active), shares[i], amounts[i]});
    output::line("");
    byProject.print(std::cout);

    std::vector<std::string> categoryTimes, categoryShares;
    for (const CategoryTotal& total : summary.byCategory) {
        categoryTimes.push_back(Format::duration(total.seconds));
        categoryShares.push_back(percent(total.seconds, summary.active));
    }
    alignRight(categoryTimes);
    alignRight(categoryShares);
    output::TextTable byCategory({std::string(L10n::text("Catégorie", "Category")),
                                  std::string(L10n::text("Temps", "Time")), std::string(L10n::text("Part", "Share")),
                                  ""});
    for (std::size_t i = 0; i < summary.byCategory.size(); ++i) {
        const CategoryTotal& total = summary.byCategory[i];
        std::string name = total.category ? total.category->name
                                          : std::string(L10n::text("Non classé", "Uncategorized"));
        if (total.category && total.category->isDistraction) name += L10n::text(" (distraction)", " (distraction)");
        byCategory.add({name, categoryTimes[i], bar(total.seconds, summary.active), categoryShares[i]});
    }
    output::line("");
    byCategory.print(std::cout);
}

void show(Session& session, const Arguments& arguments) {
    nlohmann::json asked = periodArguments(arguments.period, arguments.from, arguments.to);
    TimeModel model(session);
    SummaryReport report = answer([&] { return model.queries.summary(asked); });
    if (session.json) {
        output::json(model.queries.toJSON(report));
        return;
    }
    render(report, model.projects, Format::currency(session.preferences()));
}

} // namespace

void summary(CLI::App& program, Session& session) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App* command = program.add_subcommand(
        "summary", std::string(L10n::text("Totaux d'une période : temps actif, facturable, montant, par projet et "
                                          "par catégorie",
                                          "Totals of a period: active and billable time, amount, by project and "
                                          "by category")));
    addPeriodOptions(*command, arguments->period, arguments->from, arguments->to, "today");
    command->add_flag("--json", session.json, std::string(L10n::text("Sortie JSON", "JSON output")));
    command->callback([&session, arguments] { show(session, *arguments); });
}

} // namespace ombrelo::commands
