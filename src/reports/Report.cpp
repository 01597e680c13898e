#include "reports/Report.h"

#include "billing/DayPricing.h"
#include "classify/Insights.h"
#include "reports/Format.h"
#include "reports/ReportFormat.h"
#include "support/L10n.h"
#include "support/LocalTime.h"
#include "support/Money.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <unordered_map>

namespace ombrelo {

namespace {

bool isIdle(const Classified& item) { return item.activity.kind == Activity::Kind::idle; }

ClassifiedList ofClient(const ClassifiedList& items, const std::optional<Client>& client) {
    if (!client) return items;
    std::vector<Classified> kept;
    for (const Classified& item : items)
        if (item.project && item.project->clientID == client->id) kept.push_back(item);
    return ClassifiedList(std::move(kept));
}

// One line per (day, project) of the items that have a project, in order of
// first appearance, seconds, notes and ids gathered; not yet priced.
std::vector<ReportLine> gather(const ClassifiedList& items, const std::vector<Client>& clients) {
    std::unordered_map<std::int64_t, const Client*> clientByID;
    for (const Client& client : clients) clientByID.emplace(client.id, &client);
    std::map<std::pair<Instant, std::int64_t>, std::size_t> index;
    std::vector<ReportLine> lines;
    DayCursor days;
    for (const Classified& item : items) {
        if (!item.project || isIdle(item)) continue;
        Instant day = days.startOf(item.activity.start);
        auto [found, added] = index.try_emplace({day, item.project->id}, lines.size());
        if (added) {
            ReportLine line{day, *item.project, std::nullopt};
            if (item.project->clientID)
                if (auto client = clientByID.find(*item.project->clientID); client != clientByID.end())
                    line.client = *client->second;
            lines.push_back(std::move(line));
        }
        ReportLine& line = lines[found->second];
        line.seconds += item.activity.duration();
        line.activityIDs.push_back(item.activity.id);
        if (item.note && !item.note->empty() &&
            std::find(line.notes.begin(), line.notes.end(), *item.note) == line.notes.end())
            line.notes.push_back(*item.note);
    }
    return lines;
}

std::string_view clientNameOf(const ReportLine& line) { return line.client ? std::string_view(line.client->name) : ""; }

// By day, then client name, then project name, names in code-point order (the
// byte order of UTF-8), not by the locale's collation.
bool lineOrder(const ReportLine& a, const ReportLine& b) {
    if (a.day != b.day) return a.day < b.day;
    if (int byClient = clientNameOf(a).compare(clientNameOf(b)); byClient != 0) return byClient < 0;
    if (a.project.name != b.project.name) return a.project.name < b.project.name;
    return a.project.id < b.project.id;
}

std::vector<ReportProjectRow> byProject(const std::vector<ReportLine>& lines) {
    std::vector<ReportProjectRow> rows;
    std::unordered_map<std::int64_t, std::size_t> index;
    for (const ReportLine& line : lines) {
        auto [found, added] = index.try_emplace(line.project.id, rows.size());
        if (added) rows.push_back(ReportProjectRow{line.project, line.client});
        ReportProjectRow& row = rows[found->second];
        row.seconds += line.seconds;
        row.days += line.days;
        row.amountCents = addCents(row.amountCents, line.amountCents);
    }
    std::stable_sort(rows.begin(), rows.end(),
                     [](const ReportProjectRow& a, const ReportProjectRow& b) { return a.seconds > b.seconds; });
    return rows;
}

int daysBetween(Instant from, Instant to) {
    int days = 0;
    for (Instant day = local::startOfDay(from); day < to; day = local::addDays(day, 1)) ++days;
    return days;
}

// "1er octobre", "31 octobre 2026"; "1 October", "October 1, 2026".
std::string dayText(Instant day, const ReportFormat& format, bool withYear) {
    local::DateParts p = local::parts(day);
    std::string month = format.monthName(p.month);
    if (L10n::french()) {
        std::string text = p.day == 1 ? fmt::format("1er {}", month) : fmt::format("{} {}", p.day, month);
        return withYear ? fmt::format("{} {}", text, p.year) : text;
    }
    if (format.datePattern().starts_with('M')) {
        std::string text = fmt::format("{} {}", month, p.day);
        return withYear ? fmt::format("{}, {}", text, p.year) : text;
    }
    std::string text = fmt::format("{} {}", p.day, month);
    return withYear ? fmt::format("{} {}", text, p.year) : text;
}

} // namespace

std::string ReportLine::description() const {
    std::string text;
    for (const std::string& note : notes) text += (text.empty() ? "" : " ; ") + note;
    return text;
}

Report Report::build(const ClassifiedList& items, Instant from, Instant to, const std::optional<Client>& client,
                     const std::vector<Client>& clients, const Holidays& holidays) {
    Report report;
    report.from = from;
    report.to = to;
    report.client = client;
    report.clients = clients;
    report.items = ofClient(items, client);

    report.lines = gather(report.items, clients);
    for (ReportLine& line : report.lines) {
        line.days = line.project.billedDays(line.seconds);
        line.amountCents = line.project.amountCents(line.seconds);
        report.billedDays += line.days;
        report.amountCents = addCents(report.amountCents, line.amountCents);
    }
    std::sort(report.lines.begin(), report.lines.end(), lineOrder);
    report.projects = byProject(report.lines);

    report.daily = Insights::daily(report.items, from, daysBetween(from, to));
    for (const DayTotal& day : report.daily) {
        report.active += day.active;
        report.billable += day.billable;
    }
    report.workingDays = holidays.workingDays(from, to);
    report.holidays = holidays.weekdayHolidays(from, to);
    return report;
}

std::string Report::periodLabel(const ReportFormat& format) const {
    Instant first = local::startOfDay(from);
    Instant last = local::addDays(to, -1);
    if (last < first) last = first;
    bool sameYear = local::parts(first).year == local::parts(last).year;
    return fmt::format("{} {} {} {}", L10n::text("du", "from"), dayText(first, format, !sameYear),
                       L10n::text("au", "to"), dayText(last, format, true));
}

std::string Report::clientName() const {
    return client ? client->name : std::string(L10n::text("Tous les clients", "All clients"));
}

std::string_view rawValue(ReportPeriod period) {
    switch (period) {
    case ReportPeriod::thisWeek: return "thisWeek";
    case ReportPeriod::lastWeek: return "lastWeek";
    case ReportPeriod::thisMonth: return "thisMonth";
    case ReportPeriod::lastMonth: return "lastMonth";
    case ReportPeriod::custom: return "custom";
    }
    return "custom";
}

std::optional<ReportPeriod> parseReportPeriod(std::string_view raw) {
    for (ReportPeriod period : {ReportPeriod::thisWeek, ReportPeriod::lastWeek, ReportPeriod::thisMonth,
                                ReportPeriod::lastMonth, ReportPeriod::custom})
        if (raw == rawValue(period)) return period;
    return std::nullopt;
}

std::string label(ReportPeriod period) {
    switch (period) {
    case ReportPeriod::thisWeek: return std::string(L10n::text("Cette semaine", "This week"));
    case ReportPeriod::lastWeek: return std::string(L10n::text("Semaine dernière", "Last week"));
    case ReportPeriod::thisMonth: return std::string(L10n::text("Ce mois-ci", "This month"));
    case ReportPeriod::lastMonth: return std::string(L10n::text("Mois dernier", "Last month"));
    case ReportPeriod::custom: return std::string(L10n::text("Personnalisée", "Custom"));
    }
    return {};
}

ReportInterval interval(ReportPeriod period, Instant now, Instant customStart, Instant customEnd) {
    switch (period) {
    case ReportPeriod::thisWeek:
    case ReportPeriod::lastWeek: {
        Instant start = Format::weekStart(now);
        if (period == ReportPeriod::lastWeek) start = Format::weekStart(local::addDays(start, -7));
        return {start, local::addDays(start, 7)};
    }
    case ReportPeriod::thisMonth:
    case ReportPeriod::lastMonth: {
        Instant start = local::startOfMonth(now);
        if (period == ReportPeriod::lastMonth) start = local::addMonths(start, -1);
        return {start, local::addMonths(start, 1)};
    }
    case ReportPeriod::custom:
        if (customEnd < customStart) std::swap(customStart, customEnd);
        return {local::startOfDay(customStart), local::addDays(local::startOfDay(customEnd), 1)};
    }
    return {};
}

std::string_view rawValue(ReportTemplate reportTemplate) {
    switch (reportTemplate) {
    case ReportTemplate::statement: return "statement";
    case ReportTemplate::timesheet: return "timesheet";
    case ReportTemplate::detail: return "detail";
    case ReportTemplate::notes: return "notes";
    }
    return "statement";
}

std::optional<ReportTemplate> parseReportTemplate(std::string_view raw) {
    for (ReportTemplate t :
         {ReportTemplate::statement, ReportTemplate::timesheet, ReportTemplate::detail, ReportTemplate::notes})
        if (raw == rawValue(t)) return t;
    return std::nullopt;
}

std::string label(ReportTemplate reportTemplate) {
    switch (reportTemplate) {
    case ReportTemplate::statement: return std::string(L10n::text("Relevé client", "Client statement"));
    case ReportTemplate::timesheet: return std::string(L10n::text("Feuille de temps", "Timesheet"));
    case ReportTemplate::detail:
        return std::string(L10n::text("Détail applis, sites, documents", "Apps, sites and documents"));
    case ReportTemplate::notes: return std::string(L10n::text("Notes et descriptions", "Notes and descriptions"));
    }
    return {};
}

} // namespace ombrelo
