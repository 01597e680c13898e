// Report: what a period's tracked time amounts to for one client or for all,
// computed on demand from classified activities and never stored. It is the one
// source of every export and of the statement shown on screen: the writers
// render a Report (through a ReportTable) and never read the database.
//
// Billing is decided per project and per calendar day, so each line is one
// project on one day priced on its own, and every total is a sum of those
// priced days, never re-rounded.
//
// Immutable values built on the caller's thread from items already loaded; they
// may be handed to another thread.
#pragma once

#include "billing/Project.h"
#include "calendar/Holidays.h"
#include "classify/Classified.h"
#include "classify/Totals.h"
#include "support/Clock.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ombrelo {

class ReportFormat;

// One project on one day.
struct ReportLine {
    Instant day = 0;  // start of the calendar day
    Project project;
    std::optional<Client> client;
    double seconds = 0;
    double days = 0;  // billed days for that day
    std::int64_t amountCents = 0;
    std::vector<std::string> notes;  // distinct, in order of first appearance
    std::vector<std::int64_t> activityIDs;

    // The notes as one description: "Maquettes ; Revue".
    std::string description() const;
};

// One project over the period.
struct ReportProjectRow {
    Project project;
    std::optional<Client> client;
    double seconds = 0;
    double days = 0;
    std::int64_t amountCents = 0;
};

struct Report {
    Instant from = 0;  // start of the first day
    Instant to = 0;    // start of the day after the last
    std::optional<Client> client;  // none: every client
    std::vector<Client> clients;   // every client, to label projects
    std::vector<ReportLine> lines;            // by day, client name, project name
    std::vector<ReportProjectRow> projects;   // largest first
    std::vector<DayTotal> daily;              // one per day of the period
    ClassifiedList items;                     // the period's items that passed the client filter
    double active = 0;
    double billable = 0;
    double billedDays = 0;
    std::int64_t amountCents = 0;
    int workingDays = 0;
    std::vector<Holiday> holidays;  // those on a weekday inside the period

    // `items` are the classified activities of [from, to) (each within one
    // calendar day, as the workspace serves them); with a client, only the time
    // of that client's projects is kept. `clients` resolves each project's
    // client. Aborts (through Project::amountCents) rather than carry an amount
    // beyond the 64-bit range.
    static Report build(const ClassifiedList& items, Instant from, Instant to, const std::optional<Client>& client,
                        const std::vector<Client>& clients, const Holidays& holidays);

    // "du 1er octobre au 31 octobre 2026"; "from 1 October to 31 October 2026"
    // (month first where the locale writes dates month first). The year is
    // written once when both days are in the same year.
    std::string periodLabel(const ReportFormat& format) const;
    // The client's name, or "Tous les clients".
    std::string clientName() const;
};

// The periods the reports offer.
enum class ReportPeriod { thisWeek, lastWeek, thisMonth, lastMonth, custom };
// "thisWeek", "lastWeek", "thisMonth", "lastMonth", "custom".
std::string_view rawValue(ReportPeriod period);
std::optional<ReportPeriod> parseReportPeriod(std::string_view raw);
// "Cette semaine", "Semaine dernière", "Ce mois-ci", "Mois dernier", "Personnalisée".
std::string label(ReportPeriod period);

struct ReportInterval {
    Instant start = 0;
    Instant end = 0;  // exclusive
};
// The half-open interval of `period` at `now`, weeks by the report calendar
// (Format::weekStart). For `custom`, the two days in either order, the later one
// included whole.
ReportInterval interval(ReportPeriod period, Instant now, Instant customStart = 0, Instant customEnd = 0);

// The layouts a report is exported in.
enum class ReportTemplate { statement, timesheet, detail, notes };
// "statement", "timesheet", "detail", "notes".
std::string_view rawValue(ReportTemplate reportTemplate);
std::optional<ReportTemplate> parseReportTemplate(std::string_view raw);
// "Relevé client", "Feuille de temps", "Détail applis, sites, documents", "Notes et descriptions".
std::string label(ReportTemplate reportTemplate);

} // namespace ombrelo
