#include "reports/ReportTable.h"

#include "classify/Insights.h"
#include "reports/Format.h"
#include "reports/ReportFormat.h"
#include "support/L10n.h"
#include "support/LocalTime.h"
#include "support/Money.h"

#include <algorithm>
#include <map>
#include <unordered_map>

namespace ombrelo {

namespace {

std::string tr(std::string_view french, std::string_view english) { return std::string(L10n::text(french, english)); }

std::string joined(const std::vector<std::string>& parts, std::string_view separator) {
    std::string text;
    for (const std::string& part : parts) {
        if (!text.empty()) text += separator;
        text += part;
    }
    return text;
}

TableCell textOrNone(std::string text) { return text.empty() ? TableCell::none() : TableCell::ofText(std::move(text)); }

TableCell clientCell(const std::optional<Client>& client) {
    return client ? TableCell::ofText(client->name) : TableCell::none();
}

TableRow totalsRow(std::size_t width) {
    TableRow row(width);
    row[0] = TableCell::ofText(tr("Total", "Total"));
    return row;
}

void setColumns(ReportTable& table, std::initializer_list<std::pair<std::string, std::string>> columns) {
    for (const auto& [header, key] : columns) {
        table.headers.push_back(header);
        table.keys.push_back(key);
    }
}

// Statut and Facture of a line.
std::pair<std::string, std::string> billingOf(const ReportLine& line, const BillingStatuses& statuses,
                                              const BillingRows& billing) {
    return {ReportTable::lineStatus(line, statuses), joined(invoicesOf(line.activityIDs, billing), ", ")};
}

void statement(ReportTable& table, const Report& report, const BillingStatuses& statuses,
               const BillingRows& billing) {
    table.title = tr("Relevé d'activité", "Activity statement");
    setColumns(table, {{"Date", "date"},
                       {"Client", "client"},
                       {tr("Projet", "Project"), "projet"},
                       {"Description", "description"},
                       {tr("Durée", "Duration"), "duree"},
                       {tr("Jours", "Days"), "jours"},
                       {tr("Statut", "Status"), "statut"},
                       {tr("Facture", "Invoice"), "facture"},
                       {tr("Taux", "Rate"), "taux"},
                       {tr("Montant HT", "Amount excl. tax"), "montant_ht"}});
    double seconds = 0;
    for (const ReportLine& line : report.lines) {
        auto [status, invoices] = billingOf(line, statuses, billing);
        bool priced = line.project.billable && line.project.rateCents > 0;
        table.rows.push_back({TableCell::ofDate(line.day), clientCell(line.client),
                              TableCell::ofText(line.project.name), textOrNone(line.description()),
                              TableCell::ofDuration(line.seconds), TableCell::ofNumber(line.days),
                              textOrNone(status), textOrNone(invoices),
                              priced ? TableCell::ofMoney(line.project.rateCents) : TableCell::none(),
                              TableCell::ofMoney(line.amountCents)});
        seconds += line.seconds;
    }
    TableRow totals = totalsRow(table.headers.size());
    totals[4] = TableCell::ofDuration(seconds);
    totals[5] = TableCell::ofNumber(report.billedDays);
    totals[9] = TableCell::ofMoney(report.amountCents);
    table.totals = std::move(totals);
}

void timesheet(ReportTable& table, const Report& report, const ReportFormat& format) {
    table.title = tr("Feuille de temps", "Timesheet");
    std::vector<ReportTable::Column> columns = ReportTable::timesheetColumns(report, format);
    setColumns(table, {{tr("Projet", "Project"), "projet"}});
    for (const ReportTable::Column& column : columns) {
        table.headers.push_back(column.label);
        table.keys.push_back(local::formatDay(column.start));
    }
    table.headers.push_back(tr("Total", "Total"));
    table.keys.push_back("total");

    std::unordered_map<std::int64_t, std::size_t> rowOf;
    std::vector<std::vector<double>> seconds;
    for (const ReportProjectRow& project : report.projects) {
        rowOf.emplace(project.project.id, seconds.size());
        seconds.emplace_back(columns.size(), 0.0);
    }
    for (const ReportLine& line : report.lines) {
        auto column = std::find_if(columns.begin(), columns.end(), [&](const ReportTable::Column& c) {
            return line.day >= c.start && line.day < c.end;
        });
        if (column != columns.end()) seconds[rowOf.at(line.project.id)][column - columns.begin()] += line.seconds;
    }

    std::vector<double> columnTotals(columns.size(), 0.0);
    double total = 0;
    for (std::size_t r = 0; r < report.projects.size(); ++r) {
        const ReportProjectRow& project = report.projects[r];
        TableRow row{TableCell::ofText(projectLabel(&project.project, report.clients))};
        for (std::size_t c = 0; c < columns.size(); ++c) {
            double s = seconds[r][c];
            row.push_back(s > 0 ? TableCell::ofDuration(s) : TableCell::none());
            columnTotals[c] += s;
        }
        row.push_back(TableCell::ofDuration(project.seconds));
        total += project.seconds;
        table.rows.push_back(std::move(row));
    }
    TableRow totals{TableCell::ofText(tr("Total", "Total"))};
    for (double s : columnTotals) totals.push_back(TableCell::ofDuration(s));
    totals.push_back(TableCell::ofDuration(total));
    table.totals = std::move(totals);
}

// The detail's row of an activity: its kind and what it names.
std::pair<std::string, std::string> detailKey(const Activity& activity) {
    switch (activity.kind) {
    case Activity::Kind::manual: return {tr("Hors ordinateur", "Away from the computer"), activity.appName};
    case Activity::Kind::privateTime: return {tr("Appli", "App"), activity.label()};
    default: break;
    }
    if (activity.path && !activity.path->empty())
        return {"Document", std::string(Insights::documentName(*activity.path))};
    if (activity.domain) return {"Site", *activity.domain};
    return {tr("Appli", "App"), activity.appName};
}

// One application, site or document of the detail, with the time of each
// (category, project) it was classified in.
struct DetailEntry {
    std::string type, name;
    double seconds = 0;
    std::vector<std::pair<const Classified*, double>> work;

    void add(const Classified& item) {
        double d = item.activity.duration();
        seconds += d;
        auto same = std::find_if(work.begin(), work.end(), [&](const auto& w) {
            return w.first->category == item.category && w.first->project == item.project;
        });
        if (same == work.end()) work.emplace_back(&item, d);
        else same->second += d;
    }
    // The classification that took most of its time, which its row shows.
    const Classified& main() const {
        return *std::max_element(work.begin(), work.end(), [](const auto& a, const auto& b) {
                    return a.second < b.second;
                })->first;
    }
};

// Largest first; absences are no application.
std::vector<DetailEntry> detailEntries(const Report& report) {
    std::map<std::pair<std::string, std::string>, DetailEntry> entries;
    for (const Classified& item : report.items) {
        if (item.activity.kind == Activity::Kind::idle) continue;
        auto key = detailKey(item.activity);
        DetailEntry& entry = entries[key];
        entry.type = key.first;
        entry.name = key.second;
        entry.add(item);
    }
    std::vector<DetailEntry> sorted;
    for (auto& [key, entry] : entries) sorted.push_back(std::move(entry));
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const DetailEntry& a, const DetailEntry& b) { return a.seconds > b.seconds; });
    return sorted;
}

void detail(ReportTable& table, const Report& report) {
    table.title = tr("Détail par appli, site et document", "Detail by app, site and document");
    setColumns(table, {{"Type", "type"},
                       {tr("Appli, site ou document", "App, site or document"), "nom"},
                       {tr("Catégorie", "Category"), "categorie"},
                       {tr("Projet", "Project"), "projet"},
                       {tr("Durée", "Duration"), "duree"}});
    double total = 0;
    for (const DetailEntry& entry : detailEntries(report)) {
        const Classified& main = entry.main();
        table.rows.push_back({TableCell::ofText(entry.type), TableCell::ofText(entry.name),
                              main.category ? TableCell::ofText(main.category->name) : TableCell::none(),
                              TableCell::ofText(projectLabel(main.project.get(), report.clients)),
                              TableCell::ofDuration(entry.seconds)});
        total += entry.seconds;
    }
    TableRow totals = totalsRow(table.headers.size());
    totals[4] = TableCell::ofDuration(total);
    table.totals = std::move(totals);
}

void notes(ReportTable& table, const Report& report) {
    table.title = tr("Notes et descriptions", "Notes and descriptions");
    setColumns(table, {{"Date", "date"},
                       {"Client", "client"},
                       {tr("Projet", "Project"), "projet"},
                       {"Notes", "notes"},
                       {tr("Durée", "Duration"), "duree"}});
    for (const ReportLine& line : report.lines) {
        if (line.notes.empty()) continue;
        table.rows.push_back({TableCell::ofDate(line.day), clientCell(line.client),
                              TableCell::ofText(line.project.name), TableCell::ofText(line.description()),
                              TableCell::ofDuration(line.seconds)});
    }
}

} // namespace

ReportTable ReportTable::make(ReportTemplate reportTemplate, const Report& report, const BillingStatuses& statuses,
                              const BillingRows& billing, const ReportFormat& format) {
    ReportTable table;
    switch (reportTemplate) {
    case ReportTemplate::statement: statement(table, report, statuses, billing); break;
    case ReportTemplate::timesheet: timesheet(table, report, format); break;
    case ReportTemplate::detail: detail(table, report); break;
    case ReportTemplate::notes: notes(table, report); break;
    }
    table.subtitle = report.clientName() + " — " + report.periodLabel(format);
    return table;
}

std::vector<ReportTable::Column> ReportTable::timesheetColumns(const Report& report, const ReportFormat& format) {
    std::vector<Column> columns;
    Instant first = local::startOfDay(report.from);
    int days = 0;
    for (Instant day = first; day < report.to && days <= 7; day = local::addDays(day, 1)) ++days;
    if (days <= 7) {
        Instant day = first;
        do {
            Instant next = local::addDays(day, 1);
            columns.push_back({format.dayLabel(day), day, next});
            day = next;
        } while (day < report.to);
        return columns;
    }
    for (Instant week = Format::weekStart(first); week < report.to;) {
        Instant next = local::addDays(week, 7);
        Instant start = std::max(week, first);
        columns.push_back({tr("Sem. ", "Week ") + std::to_string(Format::weekOfYear(start)), start,
                           std::min(next, report.to)});
        week = next;
    }
    return columns;
}

std::string ReportTable::lineStatus(const ReportLine& line, const BillingStatuses& statuses) {
    bool present[4] = {};
    for (std::int64_t id : line.activityIDs)
        if (auto found = statuses.find(id); found != statuses.end()) present[static_cast<int>(found->second)] = true;
    std::vector<std::string> labels;
    for (BillingStatus status :
         {BillingStatus::toBill, BillingStatus::billed, BillingStatus::paid, BillingStatus::nonBillable})
        if (present[static_cast<int>(status)]) labels.push_back(statusLabel(status));
    return joined(labels, " / ");
}

} // namespace ombrelo
