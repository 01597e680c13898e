// The XLSX writer of TableExport: a workbook of one sheet in the smallest
// package spreadsheet programs accept (six parts, no shared strings).
#include "reports/Markup.h"
#include "reports/TableExport.h"
#include "reports/ZipWriter.h"
#include "support/LocalTime.h"
#include "support/Money.h"

#include <chrono>
#include <cmath>
#include <fmt/format.h>

namespace ombrelo::TableExport {

namespace {

constexpr std::string_view declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n";
constexpr std::string_view mainNamespace = "http://schemas.openxmlformats.org/spreadsheetml/2006/main";
constexpr std::string_view relationshipsNamespace =
    "http://schemas.openxmlformats.org/officeDocument/2006/relationships";
constexpr std::string_view packageRelationshipsNamespace =
    "http://schemas.openxmlformats.org/package/2006/relationships";

// Cell formats of the style sheet, by index.
enum Style { plain = 0, dateStyle = 1, clockStyle = 2, numberStyle = 3, moneyStyle = 4, bold = 5 };

std::string contentTypes() {
    std::string ml = "application/vnd.openxmlformats-officedocument.spreadsheetml.";
    return std::string(declaration) +
           "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
           "<Default Extension=\"rels\" ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/>"
           "<Default Extension=\"xml\" ContentType=\"application/xml\"/>"
           "<Override PartName=\"/xl/workbook.xml\" ContentType=\"" + ml + "sheet.main+xml\"/>"
           "<Override PartName=\"/xl/worksheets/sheet1.xml\" ContentType=\"" + ml + "worksheet+xml\"/>"
           "<Override PartName=\"/xl/styles.xml\" ContentType=\"" + ml + "styles+xml\"/>"
           "</Types>";
}

std::string packageRelationships() {
    return fmt::format("{}<Relationships xmlns=\"{}\"><Relationship Id=\"rId1\" Type=\"{}/officeDocument\" "
                       "Target=\"xl/workbook.xml\"/></Relationships>",
                       declaration, packageRelationshipsNamespace, relationshipsNamespace);
}

// Spreadsheet programs refuse a sheet name over 31 characters or with any of
// []:*?/\ in it, so the title is cut and cleaned for the tab.
std::string sheetName(std::string_view title) {
    std::string name;
    int characters = 0;
    for (std::size_t i = 0; i < title.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(title[i]);
        bool startsCharacter = (c & 0xC0) != 0x80;
        if (startsCharacter && ++characters > 31) break;
        name += std::string_view("[]:*?/\\").find(static_cast<char>(c)) == std::string_view::npos ? title[i] : ' ';
    }
    return name;
}

std::string workbook(const std::string& title) {
    return fmt::format("{}<workbook xmlns=\"{}\" xmlns:r=\"{}\"><sheets><sheet name=\"{}\" sheetId=\"1\" "
                       "r:id=\"rId1\"/></sheets></workbook>",
                       declaration, mainNamespace, relationshipsNamespace, markup::escape(sheetName(title)));
}

std::string workbookRelationships() {
    return fmt::format("{}<Relationships xmlns=\"{}\">"
                       "<Relationship Id=\"rId1\" Type=\"{}/worksheet\" Target=\"worksheets/sheet1.xml\"/>"
                       "<Relationship Id=\"rId2\" Type=\"{}/styles\" Target=\"styles.xml\"/></Relationships>",
                       declaration, packageRelationshipsNamespace, relationshipsNamespace, relationshipsNamespace);
}

std::string lowered(std::string text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return text;
}

std::string styles(const ReportFormat& format) {
    std::string symbol = "\"" + format.currencySymbol() + "\"";
    std::string moneyCode = format.decimalSeparator() == ',' ? "#,##0.00\\ " + symbol : symbol + "#,##0.00";
    std::string xf = "<xf numFmtId=\"{}\" fontId=\"{}\" fillId=\"0\" borderId=\"0\" xfId=\"0\"{}/>";
    auto cellFormat = [&](int numberFormat, int font) {
        std::string applies = numberFormat != 0 ? " applyNumberFormat=\"1\"" : "";
        if (font != 0) applies += " applyFont=\"1\"";
        return fmt::format(fmt::runtime(xf), numberFormat, font, applies);
    };
    return fmt::format(
        "{}<styleSheet xmlns=\"{}\"><numFmts count=\"3\">"
        "<numFmt numFmtId=\"164\" formatCode=\"{}\"/><numFmt numFmtId=\"165\" formatCode=\"[h]:mm\"/>"
        "<numFmt numFmtId=\"166\" formatCode=\"{}\"/></numFmts>"
        "<fonts count=\"2\"><font><sz val=\"11\"/><name val=\"Calibri\"/></font>"
        "<font><b/><sz val=\"11\"/><name val=\"Calibri\"/></font></fonts>"
        "<fills count=\"2\"><fill><patternFill patternType=\"none\"/></fill>"
        "<fill><patternFill patternType=\"gray125\"/></fill></fills>"
        "<borders count=\"1\"><border><left/><right/><top/><bottom/><diagonal/></border></borders>"
        "<cellStyleXfs count=\"1\"><xf numFmtId=\"0\" fontId=\"0\" fillId=\"0\" borderId=\"0\"/></cellStyleXfs>"
        "<cellXfs count=\"6\">{}{}{}{}{}{}</cellXfs>"
        "<cellStyles count=\"1\"><cellStyle name=\"Normal\" xfId=\"0\" builtinId=\"0\"/></cellStyles></styleSheet>",
        declaration, mainNamespace, markup::escape(lowered(format.datePattern())), markup::escape(moneyCode),
        cellFormat(0, 0), cellFormat(164, 0), cellFormat(165, 0), cellFormat(4, 0), cellFormat(166, 0),
        cellFormat(0, 1));
}

// "A", "B", … "Z", "AA", … for column `index` from 0.
std::string columnLetters(std::size_t index) {
    std::string letters;
    for (std::size_t n = index + 1; n > 0; n = (n - 1) / 26)
        letters.insert(letters.begin(), static_cast<char>('A' + (n - 1) % 26));
    return letters;
}

// Days from the spreadsheet epoch (30 December 1899) to the local day of `day`.
std::int64_t serialDay(Instant day) {
    using namespace std::chrono;
    local::DateParts p = local::parts(day);
    sys_days date = year{p.year} / p.month / p.day;
    return (date - sys_days{year{1899} / December / 30}).count();
}

std::size_t characters(std::string_view text) {
    std::size_t count = 0;
    for (unsigned char c : text) count += (c & 0xC0) != 0x80;
    return count;
}

void cell(std::string& out, const std::string& reference, const TableCell& cell, DurationStyle style, bool strong) {
    auto number = [&](Style s, const std::string& value) {
        out += fmt::format("<c r=\"{}\" s=\"{}\"><v>{}</v></c>", reference, static_cast<int>(s), value);
    };
    switch (cell.kind) {
    case TableCell::Kind::text:
        out += fmt::format("<c r=\"{}\" t=\"inlineStr\"{}><is><t xml:space=\"preserve\">{}</t></is></c>", reference,
                           strong ? " s=\"5\"" : "", markup::escape(cell.text));
        break;
    case TableCell::Kind::date: number(dateStyle, std::to_string(serialDay(cell.value))); break;
    case TableCell::Kind::duration:
        if (style == DurationStyle::decimal)
            number(numberStyle, fmt::format("{}", static_cast<double>(std::llround(cell.value / 36)) / 100));
        else
            number(clockStyle, fmt::format("{}", cell.value / 86'400));
        break;
    case TableCell::Kind::number: number(numberStyle, fmt::format("{}", cell.value)); break;
    case TableCell::Kind::money: number(moneyStyle, centsText(cell.cents)); break;
    case TableCell::Kind::empty: break;
    }
}

void sheetRow(std::string& out, std::size_t number, const TableRow& row, DurationStyle style, bool strong) {
    out += fmt::format("<row r=\"{}\">", number);
    for (std::size_t i = 0; i < row.size(); ++i)
        cell(out, columnLetters(i) + std::to_string(number), row[i], style, strong);
    out += "</row>";
}

std::string sheet(const ReportTable& table, DurationStyle style) {
    std::string out = fmt::format("{}<worksheet xmlns=\"{}\" xmlns:r=\"{}\">", declaration, mainNamespace,
                                  relationshipsNamespace);
    out += "<sheetViews><sheetView workbookViewId=\"0\"><pane ySplit=\"1\" topLeftCell=\"A2\" "
           "activePane=\"bottomLeft\" state=\"frozen\"/></sheetView></sheetViews><cols>";
    for (std::size_t i = 0; i < table.headers.size(); ++i) {
        int width = i == 0 || characters(table.headers[i]) >= 11 ? 24 : 14;
        out += fmt::format("<col min=\"{0}\" max=\"{0}\" width=\"{1}\" customWidth=\"1\"/>", i + 1, width);
    }
    out += "</cols><sheetData>";
    TableRow headers;
    for (const std::string& header : table.headers) headers.push_back(TableCell::ofText(header));
    std::size_t number = 1;
    sheetRow(out, number++, headers, style, true);
    for (const TableRow& row : table.rows) sheetRow(out, number++, row, style, false);
    if (table.totals) sheetRow(out, number, *table.totals, style, true);
    out += "</sheetData></worksheet>";
    return out;
}

} // namespace

std::string xlsx(const ReportTable& table, DurationStyle style, const ReportFormat& format) {
    return ZipWriter::stored({{"[Content_Types].xml", contentTypes()},
                              {"_rels/.rels", packageRelationships()},
                              {"xl/workbook.xml", workbook(table.title)},
                              {"xl/_rels/workbook.xml.rels", workbookRelationships()},
                              {"xl/styles.xml", styles(format)},
                              {"xl/worksheets/sheet1.xml", sheet(table, style)}});
}

} // namespace ombrelo::TableExport
