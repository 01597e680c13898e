// TableExport and CSVExport: a report table written as a file a client or a
// spreadsheet can open — CSV, an XLSX workbook, a standalone HTML page, or JSON —
// and the statement CSV with rates written straight from a report.
//
// CSV is the dialect spreadsheets open without asking: UTF-8 with a byte-order
// mark, CR LF after every record, ";" where the locale's decimal separator is a
// comma (else ","), quotes only where needed. The workbook is assembled here
// (six XML parts in a stored ZIP archive) so that amounts and durations are true
// numbers and dates true dates in it.
//
// Producing the bytes cannot fail and reads nothing; writing them to a file is
// the caller's. Any thread.
#pragma once

#include "reports/Report.h"
#include "reports/ReportFormat.h"
#include "reports/ReportTable.h"

#include <string>
#include <string_view>
#include <vector>

namespace ombrelo {

namespace TableExport {

std::string csv(const ReportTable& table, DurationStyle style, const ReportFormat& format);
std::string xlsx(const ReportTable& table, DurationStyle style, const ReportFormat& format);
std::string html(const ReportTable& table, const ReportFormat& format);
// Pretty-printed with sorted keys: "titre", "client", "lignes" (one object per
// row, by the table's keys), "totaux" (the totals row, "montant_ht_total" and
// "heures_facturables"), "genere_par".
std::string json(const ReportTable& table, const Report& report, const ReportFormat& format);

// The text of a cell in CSV and on a terminal.
std::string cellText(const TableCell& cell, DurationStyle style, const ReportFormat& format);

} // namespace TableExport

namespace CSVExport {

// The CSV record of `fields` with `separator`, ended by CR LF.
std::string row(const std::vector<std::string>& fields, char separator);
// The statement with rates and the billable flag, one record per line and a
// total record.
std::string summary(const Report& report, const ReportFormat& format);

} // namespace CSVExport

} // namespace ombrelo
