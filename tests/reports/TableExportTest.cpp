// Exported files as their readers see them: the statement CSV byte for byte in
// each export locale, the workbook opened by a real spreadsheet library and
// checked by unzip, the HTML and JSON pages, the timesheet's columns.
#include "reports/ReportItems.h"
#include "reports/TableExport.h"
#include "reports/ZipWriter.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <fmt/format.h>

namespace ombrelo {
namespace {

class TableExportTest : public ::testing::Test {
protected:
    testing::ScopedTimeZone paris{"Europe/Paris"};
    testing::ScopedLanguage french{"fr"};
    testing::TempDir folder;
    testing::ReportItems make;
    Holidays france{HolidayCountry::france};

    Report statement() {
        return Report::build(make.statementExample(), local::make(2026, 10, 1), local::make(2026, 11, 1), make.dupont,
                             {make.dupont}, france);
    }

    // Runs a command, returning its standard output; fails the test on a
    // non-zero status.
    static std::string run(const std::string& command) {
        std::string out;
        FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
        char buffer[4096];
        for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
        int status = ::pclose(pipe);
        EXPECT_EQ(status, 0) << command << "\n" << out;
        return out;
    }
};

constexpr std::string_view bom = "\xEF\xBB\xBF";

TEST_F(TableExportTest, StatementCSVInEachExportLocale) {
    Report report = statement();
    std::string frenchCSV = CSVExport::summary(report, ReportFormat("fr_FR", "EUR"));
    EXPECT_EQ(frenchCSV, std::string(bom) +
                             "Date;Client;Projet;Description;Heures;Jours;Facturable;Taux;Montant HT\r\n"
                             "05/10/2026;Atelier Dupont;\"Refonte; site\";;3,00;0,50;Oui;550,00 /j;275,00\r\n"
                             "07/10/2026;Atelier Dupont;\"Refonte; site\";;5,00;1,00;Oui;550,00 /j;550,00\r\n"
                             "Total;Atelier Dupont;;;8,00;1,50;;;825,00\r\n");
    {
        testing::ScopedLanguage english{"en"};
        std::string us = CSVExport::summary(report, ReportFormat("en_US", "EUR"));
        EXPECT_NE(us.find("\r\n10/05/2026,Atelier Dupont,Refonte; site,,3.00,0.50,Yes,550.00 /day,275.00\r\n"),
                  std::string::npos)
            << us;
        EXPECT_NE(CSVExport::summary(report, ReportFormat("en_GB", "GBP")).find("\r\n05/10/2026,"), std::string::npos);
        std::string german = CSVExport::summary(report, ReportFormat("en_DE", "EUR"));
        EXPECT_NE(german.find(";\"Refonte; site\";;3,00;0,50;"), std::string::npos) << german;
        EXPECT_EQ(ReportFormat("en_US", "USD").time(local::make(2026, 10, 5, 14, 5)), "14:05:00");
    }
    EXPECT_EQ(CSVExport::summary(report, ReportFormat("fr_FR", "EUR")), frenchCSV);
}

TEST_F(TableExportTest, TableCSVQuotesAndDurationStyles) {
    Report report = Report::build({make.item(local::make(2026, 10, 5, 9, 0), 3.5 * 3600, make.refonte,
                                             "Appel \"lancement\"\nsuite"),
                                   make.item(local::make(2026, 10, 6, 9, 0), 27 * 3600 + 300, make.refonte)},
                                  local::make(2026, 10, 1), local::make(2026, 11, 1), std::nullopt, {make.dupont},
                                  france);
    ReportFormat format("fr_FR", "EUR");
    ReportTable table = ReportTable::make(ReportTemplate::notes, report, {}, {}, format);
    std::string decimal = TableExport::csv(table, DurationStyle::decimal, format);
    EXPECT_NE(decimal.find("\"Appel \"\"lancement\"\"\nsuite\";3,50\r\n"), std::string::npos) << decimal;
    ReportTable sheet = ReportTable::make(ReportTemplate::statement, report, {}, {}, format);
    std::string clock = TableExport::csv(sheet, DurationStyle::clock, format);
    EXPECT_NE(clock.find(";3:30;"), std::string::npos);
    EXPECT_NE(clock.find(";27:05;"), std::string::npos);
    EXPECT_NE(clock.find("\r\nTotal;;;;30:35;"), std::string::npos) << clock;
}

TEST_F(TableExportTest, StatementShowsStatusesAndInvoices) {
    Report report = statement();
    std::int64_t first = report.lines[0].activityIDs[0], second = report.lines[1].activityIDs[0];
    BillingStatuses statuses{{first, BillingStatus::billed}, {second, BillingStatus::toBill}};
    BillingRows rows{{first, BillingRow{BillingStatus::billed, "F-2026-12"}}};
    ReportTable table = ReportTable::make(ReportTemplate::statement, report, statuses, rows, ReportFormat("fr_FR", "EUR"));
    EXPECT_EQ(table.rows[0][6].text, "Facturé");
    EXPECT_EQ(table.rows[0][7].text, "F-2026-12");
    EXPECT_EQ(table.rows[1][6].text, "À facturer");
    EXPECT_EQ(table.rows[1][7].kind, TableCell::Kind::empty);
    // A day part billed, part paid says both.
    ReportLine mixed = report.lines[0];
    mixed.activityIDs = {first, second};
    EXPECT_EQ(ReportTable::lineStatus(mixed, {{first, BillingStatus::paid}, {second, BillingStatus::billed}}),
              "Facturé / Payé");
}

TEST_F(TableExportTest, WorkbookOpensInARealSpreadsheetReader) {
    Report report = statement();
    std::int64_t first = report.lines[0].activityIDs[0];
    ReportFormat format("fr_FR", "EUR");
    ReportTable table = ReportTable::make(ReportTemplate::statement, report, {{first, BillingStatus::billed}},
                                          {{first, BillingRow{BillingStatus::billed, "F-2026-12"}}}, format);
    table.title = "Relevé \"Dupont\" & fils <2026>";
    testing::writeFile(folder / "statement.xlsx", TableExport::xlsx(table, DurationStyle::decimal, format));
    run("unzip -tq " + (folder / "statement.xlsx").string());
    testing::writeFile(folder / "read.py", R"(import sys, datetime, openpyxl
book = openpyxl.load_workbook(sys.argv[1])
sheet = book.active
print(sheet.title, sheet.freeze_panes, sep='|')
for row in sheet.iter_rows(values_only=True):
    print('|'.join(type(v).__name__ + ':' + str(v) for v in row))
print(sheet['A2'].number_format, sheet['J2'].number_format, sep='|')
)");
    std::string read = run("/usr/bin/python3 " + (folder / "read.py").string() + " " +
                           (folder / "statement.xlsx").string());
    EXPECT_NE(read.find("Relevé \"Dupont\" & fils <2026>|A2"), std::string::npos) << read;
    EXPECT_NE(read.find("datetime:2026-10-05 00:00:00|str:Atelier Dupont|str:Refonte; site|NoneType:None|int:3|"
                        "float:0.5|str:Facturé|str:F-2026-12|float:550.0|float:275.0"),
              std::string::npos)
        << read;
    EXPECT_NE(read.find("str:Total|NoneType:None|NoneType:None|NoneType:None|int:8|float:1.5|"), std::string::npos);
    EXPECT_NE(read.find("dd/mm/yyyy|#,##0.00\\ \"€\""), std::string::npos) << read;

    // Every part is well-formed XML.
    run("cd " + folder.path().string() + " && unzip -oq statement.xlsx -d parts && xmllint --noout "
        "'parts/[Content_Types].xml' parts/_rels/.rels parts/xl/*.xml parts/xl/_rels/*.rels parts/xl/worksheets/*.xml");
}

TEST_F(TableExportTest, ClockDurationsAndDollarAmountsInTheWorkbook) {
    testing::ScopedLanguage english{"en"};
    ReportFormat format("en_US", "USD");
    ReportTable table = ReportTable::make(ReportTemplate::statement, statement(), {}, {}, format);
    testing::writeFile(folder / "clock.xlsx", TableExport::xlsx(table, DurationStyle::clock, format));
    testing::writeFile(folder / "read.py", R"(import sys, openpyxl
sheet = openpyxl.load_workbook(sys.argv[1]).active
print(sheet['E2'].value, sheet['E2'].number_format, sheet['J2'].number_format, sheet['A2'].number_format, sep='|')
)");
    std::string read = run("/usr/bin/python3 " + (folder / "read.py").string() + " " + (folder / "clock.xlsx").string());
    // 3 h is an eighth of a day, shown past 24 hours as [h]:mm.
    EXPECT_EQ(read, "3:00:00|[h]:mm|\"$\"#,##0.00|mm/dd/yyyy\n");
}

TEST_F(TableExportTest, HTMLPageEscapesAndShowsClockDurations) {
    ReportFormat format("fr_FR", "EUR");
    ReportTable table = ReportTable::make(ReportTemplate::statement, statement(), {}, {}, format);
    table.title = "Relevé \"Dupont\" & fils";
    std::string page = TableExport::html(table, format);
    EXPECT_EQ(page.rfind("<!doctype html>\n<html lang=\"fr\">", 0), 0u);
    EXPECT_NE(page.find("<title>Relevé &quot;Dupont&quot; &amp; fils</title>"), std::string::npos);
    EXPECT_NE(page.find("<td class=\"n\">3:00</td>"), std::string::npos);
    EXPECT_NE(page.find("<td class=\"n\">825,00\u00A0€</td>"), std::string::npos) << page;
    EXPECT_NE(page.find("<tfoot><tr><td>Total</td>"), std::string::npos);
    EXPECT_NE(page.find("prefers-color-scheme:dark"), std::string::npos);
    testing::writeFile(folder / "page.html", page);
    run("xmllint --html --noout " + (folder / "page.html").string());
}

TEST_F(TableExportTest, JSONSummaryReadsBack) {
    ReportFormat format("fr_FR", "EUR");
    Report report = statement();
    std::string text = TableExport::json(ReportTable::make(ReportTemplate::statement, report, {}, {}, format), report,
                                         format);
    EXPECT_NE(text.find("\"montant_ht_total\" : 825"), std::string::npos) << text;
    nlohmann::json document = nlohmann::json::parse(text);
    EXPECT_EQ(document["titre"], "Relevé d'activité");
    EXPECT_EQ(document["client"], "Atelier Dupont");
    EXPECT_EQ(document["genere_par"], "Ombrelo");
    ASSERT_EQ(document["lignes"].size(), 2u);
    EXPECT_EQ(document["lignes"][0]["date"], "2026-10-05");
    EXPECT_EQ(document["lignes"][0]["jours"], 0.5);
    EXPECT_EQ(document["lignes"][0]["montant_ht"], 275);
    EXPECT_EQ(document["totaux"]["heures_facturables"], 8);
    EXPECT_EQ(document["totaux"]["jours"], 1.5);
}

TEST_F(TableExportTest, TimesheetColumnsByDayUpToAWeekThenByWeek) {
    ReportFormat format("fr_FR", "EUR");
    Instant monday = local::make(2026, 10, 5);
    Report week = Report::build(make.statementExample(), monday, local::make(2026, 10, 12), std::nullopt,
                                {make.dupont}, france);
    ReportTable sheet = ReportTable::make(ReportTemplate::timesheet, week, {}, {}, format);
    ASSERT_EQ(sheet.headers.size(), 9u);  // project, seven days, total
    EXPECT_EQ(sheet.headers[1], "lun. 05/10");
    EXPECT_EQ(sheet.rows[0][0].text, "Atelier Dupont › Refonte; site");
    EXPECT_DOUBLE_EQ(sheet.rows[0][3].value, 5 * 3600);  // Wednesday
    EXPECT_EQ(sheet.rows[0][2].kind, TableCell::Kind::empty);
    EXPECT_DOUBLE_EQ(sheet.totals->back().value, 8 * 3600);

    Report month = Report::build(make.statementExample(), local::make(2026, 10, 1), local::make(2026, 11, 1),
                                 std::nullopt, {make.dupont}, france);
    std::vector<ReportTable::Column> columns = ReportTable::timesheetColumns(month, format);
    std::vector<std::string> labels;
    for (const auto& column : columns) labels.push_back(column.label);
    // ISO weeks; the first and last are clipped to the month.
    EXPECT_EQ(labels, (std::vector<std::string>{"Sem. 40", "Sem. 41", "Sem. 42", "Sem. 43", "Sem. 44"}));
    EXPECT_EQ(columns.front().start, local::make(2026, 10, 1));
    EXPECT_EQ(columns.back().end, local::make(2026, 11, 1));
    ReportTable byWeek = ReportTable::make(ReportTemplate::timesheet, month, {}, {}, format);
    EXPECT_DOUBLE_EQ(byWeek.rows[0][2].value, 8 * 3600);  // both days in week 41
}

TEST_F(TableExportTest, DetailByApplicationSiteAndDocument) {
    Instant nine = local::make(2026, 10, 5, 9, 0);
    auto with = [](Classified item, auto change) {
        change(item.activity);
        return item;
    };
    ClassifiedList items{
        with(make.item(nine, 600, make.refonte), [](Activity& a) { a.domain = "figma.com"; }),
        with(make.item(nine + 600, 1200, std::nullopt), [](Activity& a) { a.domain = "figma.com"; }),
        with(make.item(nine + 1800, 300, make.refonte), [](Activity& a) { a.path = "/home/me/devis.pdf"; }),
        make.item(nine + 2100, 900, make.refonte, {}, Activity::Kind::manual),
        make.item(nine + 3000, 60, std::nullopt, {}, Activity::Kind::privateTime),
        make.item(nine + 3060, 3600, std::nullopt, {}, Activity::Kind::idle)};
    Report report = Report::build(items, local::make(2026, 10, 1), local::make(2026, 11, 1), std::nullopt,
                                  {make.dupont}, france);
    ReportTable table = ReportTable::make(ReportTemplate::detail, report, {}, {}, ReportFormat("fr_FR", "EUR"));
    std::vector<std::string> rows;
    for (const TableRow& row : table.rows)
        rows.push_back(row[0].text + "|" + row[1].text + "|" + row[3].text + "|" + std::to_string(int(row[4].value)));
    // A site's row shows the project that took most of its time; an absence is
    // no row at all.
    EXPECT_EQ(rows, (std::vector<std::string>{"Site|figma.com|Sans projet|1800", "Hors ordinateur|Figma|Atelier "
                                              "Dupont › Refonte; site|900",
                                              "Document|devis.pdf|Atelier Dupont › Refonte; site|300",
                                              "Appli|Privé|Sans projet|60"}));
    EXPECT_DOUBLE_EQ(table.totals->back().value, 3060);
}

TEST_F(TableExportTest, ZipArchiveLayout) {
    EXPECT_EQ(ZipWriter::crc32("123456789"), 0xCBF43926u);
    EXPECT_EQ(ZipWriter::crc32(""), 0u);
    std::string archive = ZipWriter::stored({{"a.txt", "alpha"}, {"dossier/b.txt", ""}});
    testing::writeFile(folder / "two.zip", archive);
    std::string listing = run("unzip -l " + (folder / "two.zip").string());
    EXPECT_NE(listing.find("dossier/b.txt"), std::string::npos) << listing;
    run("unzip -tq " + (folder / "two.zip").string());
    EXPECT_EQ(archive.substr(0, 4), std::string("PK\x03\x04", 4));
    EXPECT_EQ(archive.substr(archive.size() - 22, 4), std::string("PK\x05\x06", 4));
}

} // namespace
} // namespace ombrelo
