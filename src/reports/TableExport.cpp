#include "reports/TableExport.h"

#include "reports/Markup.h"
#include "support/JSONText.h"
#include "support/L10n.h"
#include "support/LocalTime.h"

#include <cmath>
#include <nlohmann/json.hpp>

namespace ombrelo {

namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

std::string tr(std::string_view french, std::string_view english) { return std::string(L10n::text(french, english)); }

std::string csvRecord(const TableRow& row, DurationStyle style, const ReportFormat& format) {
    std::vector<std::string> fields;
    fields.reserve(row.size());
    for (const TableCell& cell : row) fields.push_back(TableExport::cellText(cell, style, format));
    return CSVExport::row(fields, format.csvSeparator());
}

// Hours, days and amounts as JSON numbers: two decimals at most, and whole
// amounts as integers ("montant_ht_total" : 1100).
nlohmann::json hundredths(std::int64_t value) {
    if (value % 100 == 0) return value / 100;
    return static_cast<double>(value) / 100;
}

nlohmann::json jsonValue(const TableCell& cell) {
    switch (cell.kind) {
    case TableCell::Kind::text: return cell.text;
    case TableCell::Kind::date: return local::formatDay(cell.value);
    case TableCell::Kind::duration: return hundredths(std::llround(cell.value / 36));  // hours
    case TableCell::Kind::number: return hundredths(std::llround(cell.value * 100));
    case TableCell::Kind::money: return hundredths(cell.cents);
    case TableCell::Kind::empty: return nullptr;
    }
    return nullptr;
}

nlohmann::json jsonRow(const ReportTable& table, const TableRow& row) {
    nlohmann::json object = nlohmann::json::object();
    for (std::size_t i = 0; i < row.size() && i < table.keys.size(); ++i) object[table.keys[i]] = jsonValue(row[i]);
    return object;
}

// The sums of the totals row, by the keys of their columns; its label and empty
// cells are no totals.
nlohmann::json jsonTotals(const ReportTable& table) {
    nlohmann::json object = nlohmann::json::object();
    if (!table.totals) return object;
    for (std::size_t i = 0; i < table.totals->size() && i < table.keys.size(); ++i)
        if ((*table.totals)[i].numeric()) object[table.keys[i]] = jsonValue((*table.totals)[i]);
    return object;
}

constexpr std::string_view htmlStyle = R"(:root{--ink:#1F1D22;--muted:#76707A;--rule:#ECE7E9;--accent:#C92B55;--band:#FBF1F4}
@media (prefers-color-scheme:dark){:root{--ink:#F2EEF0;--muted:#A49CA8;--rule:#2F2D33;--band:#241F25}
body{background:#141315}}
body{font:14px/1.45 -apple-system,BlinkMacSystemFont,"Helvetica Neue",sans-serif;color:var(--ink);
margin:40px auto;max-width:1080px;padding:0 20px}
h1{font-size:26px;margin:0 0 4px}
p.sub{color:var(--accent);font-weight:600;margin:0 0 24px}
table{width:100%;border-collapse:collapse}
th{text-align:left;color:var(--muted);font-size:12px;font-weight:600;border-bottom:2px solid var(--accent);
padding:8px 6px}
td{padding:8px 6px;border-bottom:1px solid var(--rule)}
tbody tr:nth-child(even){background:var(--band)}
td.n{text-align:right;font-variant-numeric:tabular-nums;white-space:nowrap}
tfoot td{font-weight:700;border-top:2px solid var(--ink);border-bottom:none}
footer{margin-top:28px;color:var(--muted);font-size:12px}
)";

std::string htmlCell(const TableCell& cell, const ReportFormat& format) {
    std::string text = cell.kind == TableCell::Kind::money ? format.money(cell.cents)
                                                            : TableExport::cellText(cell, DurationStyle::clock, format);
    return (cell.numeric() ? "<td class=\"n\">" : "<td>") + markup::escape(text) + "</td>";
}

void htmlRow(const TableRow& row, const ReportFormat& format, std::string& out) {
    out += "<tr>";
    for (const TableCell& cell : row) out += htmlCell(cell, format);
    out += "</tr>\n";
}

} // namespace

namespace TableExport {

std::string cellText(const TableCell& cell, DurationStyle style, const ReportFormat& format) {
    switch (cell.kind) {
    case TableCell::Kind::text: return cell.text;
    case TableCell::Kind::date: return format.date(cell.value);
    case TableCell::Kind::duration: return format.duration(cell.value, style);
    case TableCell::Kind::number: return format.decimal(cell.value);
    case TableCell::Kind::money: return format.units(cell.cents);
    case TableCell::Kind::empty: return {};
    }
    return {};
}

std::string csv(const ReportTable& table, DurationStyle style, const ReportFormat& format) {
    std::string out(byteOrderMark);
    out += CSVExport::row(table.headers, format.csvSeparator());
    for (const TableRow& row : table.rows) out += csvRecord(row, style, format);
    if (table.totals) out += csvRecord(*table.totals, style, format);
    return out;
}

std::string html(const ReportTable& table, const ReportFormat& format) {
    std::string out = "<!doctype html>\n<html lang=\"" + markup::escape(L10n::language()) + "\">\n<head>\n";
    out += "<meta charset=\"utf-8\">\n";
    out += "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n";
    out += "<title>" + markup::escape(table.title) + "</title>\n";
    out += "<style>\n" + std::string(htmlStyle) + "</style>\n</head>\n<body>\n";
    out += "<h1>" + markup::escape(table.title) + "</h1>\n";
    out += "<p class=\"sub\">" + markup::escape(table.subtitle) + "</p>\n";
    out += "<table>\n<thead><tr>";
    for (const std::string& header : table.headers) out += "<th>" + markup::escape(header) + "</th>";
    out += "</tr></thead>\n<tbody>\n";
    for (const TableRow& row : table.rows) htmlRow(row, format, out);
    out += "</tbody>\n";
    if (table.totals) {
        out += "<tfoot>";
        htmlRow(*table.totals, format, out);
        out += "</tfoot>\n";
    }
    out += "</table>\n<footer>" +
           markup::escape(tr("Montants hors taxes. Généré par Ombrelo — données locales.",
                             "Amounts exclude tax. Made by Ombrelo — local data.")) +
           "</footer>\n</body>\n</html>\n";
    return out;
}

std::string json(const ReportTable& table, const Report& report, const ReportFormat&) {
    nlohmann::json rows = nlohmann::json::array();
    for (const TableRow& row : table.rows) rows.push_back(jsonRow(table, row));
    nlohmann::json totals = jsonTotals(table);
    totals["montant_ht_total"] = hundredths(report.amountCents);
    totals["heures_facturables"] = hundredths(std::llround(report.billable / 36));
    nlohmann::json document = {{"titre", table.title},
                               {"client", report.clientName()},
                               {"lignes", std::move(rows)},
                               {"totaux", std::move(totals)},
                               {"genere_par", "Ombrelo"}};
    return prettyJSON(document) + "\n";
}

} // namespace TableExport

namespace CSVExport {

std::string row(const std::vector<std::string>& fields, char separator) {
    std::string out;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (i > 0) out += separator;
        const std::string& field = fields[i];
        if (field.find_first_of(std::string{separator, '"', '\n', '\r'}) == std::string::npos) {
            out += field;
            continue;
        }
        out += '"';
        for (char c : field) {
            if (c == '"') out += '"';
            out += c;
        }
        out += '"';
    }
    return out + "\r\n";
}

std::string summary(const Report& report, const ReportFormat& format) {
    char separator = format.csvSeparator();
    std::string out(byteOrderMark);
    out += row({"Date", "Client", tr("Projet", "Project"), "Description", tr("Heures", "Hours"), tr("Jours", "Days"),
                tr("Facturable", "Billable"), tr("Taux", "Rate"), tr("Montant HT", "Amount excl. tax")},
               separator);
    double seconds = 0;
    for (const ReportLine& line : report.lines) {
        const Project& project = line.project;
        std::string unit = project.rateKind == Project::RateKind::day ? tr(" /j", " /day") : " /h";
        out += row({format.date(line.day), line.client ? line.client->name : "", project.name, line.description(),
                    format.hours(line.seconds), format.decimal(line.days),
                    project.billable ? tr("Oui", "Yes") : tr("Non", "No"),
                    project.rateCents > 0 ? format.units(project.rateCents) + unit : "",
                    format.units(line.amountCents)},
                   separator);
        seconds += line.seconds;
    }
    out += row({tr("Total", "Total"), report.client ? report.client->name : "", "", "", format.hours(seconds),
                format.decimal(report.billedDays), "", "", format.units(report.amountCents)},
               separator);
    return out;
}

} // namespace CSVExport

} // namespace ombrelo
