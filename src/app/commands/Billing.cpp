// ombrelo billing: where billable time stands. `mark` moves time to bill, billed
// (with an invoice reference) or paid; `clear` sends it back to bill; `totals`
// shows the "À facturer" card: the amount and hours still to bill, and what is
// billed and paid, over the whole history or the days given.
//
// Time is named by activity ids, or by a period: then every activity of
// billable project time in it (of one project with --project) is marked whole,
// even the part of it that lies outside the period.
#include "app/Commands.h"
#include "app/Output.h"
#include "app/commands/ClassifyArguments.h"
#include "app/commands/LiveViews.h"
#include "app/commands/ProjectArguments.h"
#include "app/commands/TimeModel.h"
#include "billing/BillingStore.h"
#include "reports/Format.h"
#include "support/Fold.h"
#include "support/L10n.h"
#include "support/LocalTime.h"

#include <fmt/format.h>
#include <memory>
#include <set>

namespace ombrelo::commands {

namespace {

struct Arguments {
    std::string status;
    std::optional<std::string> ids, from, to, project, invoice;
};

// The activities the arguments name: the ids given (each must exist), or the
// billable project time of the period.
std::vector<std::int64_t> targets(Session& session, TimeModel& model, BillingStore& billing,
                                  const Arguments& arguments) {
    bool period = arguments.from || arguments.to;
    if (period == arguments.ids.has_value())
        usageFailure(std::string(L10n::text("Indiquez soit --ids, soit --from et --to.",
                                            "Give either --ids, or --from and --to.")));
    if (arguments.ids) {
        if (arguments.project)
            usageFailure(std::string(L10n::text("--project va avec --from et --to.", "--project goes with --from and --to.")));
        std::vector<std::int64_t> ids = idsOption(*arguments.ids);
        requireActivities(session, ids);
        return ids;
    }
    if (!arguments.from || !arguments.to)
        usageFailure(std::string(L10n::text("--from et --to vont ensemble.", "--from and --to go together.")));
    std::optional<Project> project;
    if (arguments.project) project = requireProject(model.projects, *arguments.project);
    Period range = rangeOptions(*arguments.from, *arguments.to);

    ClassifiedList items = model.workspace.items(range.start, range.end);
    BillingStatuses statuses = billing.statuses(items);
    std::vector<std::int64_t> ids;
    std::set<std::int64_t> seen;
    for (const Classified& item : items) {
        auto status = statuses.find(item.activity.id);
        if (status == statuses.end() || status->second == BillingStatus::nonBillable) continue;
        if (project && item.project->id != project->id) continue;
        if (seen.insert(item.activity.id).second) ids.push_back(item.activity.id);
    }
    return ids;
}

void change(Session& session, const Arguments& arguments, std::optional<BillingStatus> status) {
    TimeModel model(session);
    BillingStore billing(session.database(), session.clock());
    std::vector<std::int64_t> ids = targets(session, model, billing, arguments);
    if (ids.empty()) {
        output::line(L10n::text("Aucun temps facturable dans cette période ; rien n'a été modifié.",
                                "No billable time in this period; nothing was changed."));
        return;
    }
    bool written = status ? billing.mark(ids, *status, arguments.invoice) : billing.clear(ids);
    if (!written)
        throw CommandFailure(exitStatus::failure,
                             std::string(status ? L10n::text("Statut impossible à enregistrer : ",
                                                             "Cannot record the status: ")
                                                : L10n::text("Statut impossible à annuler : ", "Cannot clear the status: ")) +
                                 billing.writeError().value_or(""));
    BillingStatus shown = status.value_or(BillingStatus::toBill);
    std::string invoice = arguments.invoice && !trim(*arguments.invoice).empty()
                              ? fmt::format(fmt::runtime(L10n::text(" (facture {})", " (invoice {})")), trim(*arguments.invoice))
                              : "";
    output::line(fmt::format(fmt::runtime(L10n::text("{} : {}{}.", "{}: {}{}.")), activityCount(ids.size()),
                             statusLabel(shown), invoice));
}

void mark(Session& session, const Arguments& arguments) {
    std::string raw = lowerASCII(trim(arguments.status));
    auto status = parseBillingStatus(raw);
    if (!status || *status == BillingStatus::nonBillable)
        usageFailure(std::string(L10n::text("Statut inconnu : ", "Unknown status: ")) + arguments.status +
                     std::string(L10n::text(" (tobill, billed ou paid)", " (tobill, billed or paid)")));
    change(session, arguments, status);
}

void totals(Session& session, const Arguments& arguments) {
    if (arguments.to && !arguments.from)
        usageFailure(std::string(L10n::text("--to va avec --from.", "--to goes with --from.")));
    TimeModel model(session);
    BillingStore billing(session.database(), session.clock());
    Instant now = session.clock().now();
    std::optional<Period> range;
    if (arguments.from)
        range = answer([&] { return period(periodArguments(std::nullopt, arguments.from, arguments.to), now); });
    std::string currency = Format::currency(session.preferences());
    PeriodTotals totals = billingTotals(model.workspace, session.activities(), billing, now, range);
    if (session.json) return output::json(toJSON(totals, currency));
    const BillingTotals& sums = totals.sums;
    if (totals.wholeHistory) output::line(L10n::text("À facturer (tout l'historique)", "To bill (whole history)"));
    else
        output::line(fmt::format(fmt::runtime(L10n::text("À facturer du {} au {}", "To bill from {} to {}")),
                                 local::formatDay(totals.range.start), local::formatDay(totals.range.end - 1)));
    std::vector<std::string> amounts{Format::money(sums.toBillCents, currency), Format::money(sums.billedCents, currency),
                                     Format::money(sums.paidCents, currency)};
    alignRight(amounts);
    output::line("");
    output::field(statusLabel(BillingStatus::toBill), amounts[0] + "   " + Format::duration(sums.toBillSeconds));
    output::field(statusLabel(BillingStatus::billed), amounts[1]);
    output::field(statusLabel(BillingStatus::paid), amounts[2]);
}

void addSelection(CLI::App* command, Arguments& arguments) {
    command->add_option("--ids", arguments.ids,
                        std::string(L10n::text("Activités (12,13,15)", "Activities (12,13,15)")));
    command->add_option("--from", arguments.from,
                        std::string(L10n::text("Début : AAAA-MM-JJ (jour entier) ou AAAA-MM-JJTHH:MM",
                                               "Start: YYYY-MM-DD (whole day) or YYYY-MM-DDTHH:MM")));
    command->add_option("--to", arguments.to,
                        std::string(L10n::text("Fin : AAAA-MM-JJ (jour inclus) ou AAAA-MM-JJTHH:MM",
                                               "End: YYYY-MM-DD (day included) or YYYY-MM-DDTHH:MM")));
    command->add_option("--project", arguments.project,
                        std::string(L10n::text("Seulement ce projet (nom ou id)", "Only this project (name or id)")));
}

} // namespace

void billing(CLI::App& program, Session& session) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App* command = program.add_subcommand(
        "billing", std::string(L10n::text("Statut de facturation du temps", "Billing status of time")));
    command->require_subcommand(1);

    CLI::App* markCommand = command->add_subcommand(
        "mark", std::string(L10n::text("Marque du temps à facturer, facturé ou payé",
                                       "Mark time as to bill, billed or paid")));
    markCommand->add_option("STATUS", arguments->status, "tobill, billed, paid")->required();
    addSelection(markCommand, *arguments);
    markCommand->add_option("--invoice", arguments->invoice,
                            std::string(L10n::text("Référence de facture (gardée si absente)",
                                                   "Invoice reference (kept when absent)")));
    markCommand->callback([&session, arguments] { mark(session, *arguments); });

    CLI::App* clearCommand = command->add_subcommand(
        "clear", std::string(L10n::text("Remet du temps à facturer", "Send time back to bill")));
    addSelection(clearCommand, *arguments);
    clearCommand->callback([&session, arguments] { change(session, *arguments, std::nullopt); });

    CLI::App* totalsCommand = command->add_subcommand(
        "totals", std::string(L10n::text("À facturer, facturé et payé", "To bill, billed and paid")));
    totalsCommand->add_option("--from", arguments->from,
                              std::string(L10n::text("Premier jour (AAAA-MM-JJ)", "First day (YYYY-MM-DD)")));
    totalsCommand->add_option("--to", arguments->to,
                              std::string(L10n::text("Dernier jour inclus (AAAA-MM-JJ)", "Last day, included (YYYY-MM-DD)")));
    totalsCommand->add_flag("--json", session.json, std::string(L10n::text("Sortie JSON", "JSON output")));
    totalsCommand->callback([&session, arguments] { totals(session, *arguments); });
}

} // namespace ombrelo::commands
