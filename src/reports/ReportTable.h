// ReportTable: a report laid out as one table for one template (the client
// statement, the timesheet, the detail by application, site and document, the
// notes), with typed cells, so each writer decides how to print a value: the
// spreadsheet gets true numbers and dates, CSV and HTML formatted text.
//
// Plain values built from a Report and the billing statuses of its activities;
// nothing here reads the database. Any thread.
#pragma once

#include "billing/BillingTotals.h"
#include "reports/Report.h"
#include "support/Clock.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ombrelo {

class ReportFormat;

struct TableCell {
    enum class Kind { text, date, duration, number, money, empty };
    Kind kind = Kind::empty;
    std::string text;
    double value = 0;        // date: the day's start; duration: seconds; number
    std::int64_t cents = 0;  // money

    static TableCell ofText(std::string text) { return {Kind::text, std::move(text)}; }
    static TableCell ofDate(Instant day) { return {Kind::date, {}, day}; }
    static TableCell ofDuration(double seconds) { return {Kind::duration, {}, seconds}; }
    static TableCell ofNumber(double number) { return {Kind::number, {}, number}; }
    static TableCell ofMoney(std::int64_t cents) { return {Kind::money, {}, 0, cents}; }
    static TableCell none() { return {}; }
    // Durations, numbers and amounts: right-aligned where tables are shown.
    bool numeric() const { return kind == Kind::duration || kind == Kind::number || kind == Kind::money; }
};

using TableRow = std::vector<TableCell>;

struct ReportTable {
    // A time column of the timesheet, [start, end).
    struct Column {
        std::string label;
        Instant start = 0;
        Instant end = 0;
    };

    std::string title;
    std::string subtitle;              // the client, or every client, and the period
    std::vector<std::string> headers;  // in the interface language
    std::vector<std::string> keys;     // one per header, the same in every language (JSON)
    std::vector<TableRow> rows;        // each as long as `headers`
    std::optional<TableRow> totals;

    // The table of `report` in `reportTemplate`. `statuses` and `billing` are
    // the billing statuses and stored rows of the report's activities; the
    // statement shows them.
    static ReportTable make(ReportTemplate reportTemplate, const Report& report, const BillingStatuses& statuses,
                            const BillingRows& billing, const ReportFormat& format);

    // One column per day for up to 7 days, else one per week of the report
    // calendar ("Sem. 41"), each clipped to the report.
    static std::vector<Column> timesheetColumns(const Report& report, const ReportFormat& format);

    // The statuses of a line's activities, least advanced first ("À facturer",
    // "Facturé / Payé" when part of the day is billed and part paid); empty
    // when none has a status.
    static std::string lineStatus(const ReportLine& line, const BillingStatuses& statuses);
};

} // namespace ombrelo
