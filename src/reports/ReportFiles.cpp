#include "reports/ReportFiles.h"

#include "support/Fold.h"
#include "support/LocalTime.h"

#include <cctype>
#include <fmt/format.h>

namespace ombrelo {

namespace {

constexpr ReportFileFormat formats[] = {
    {"csv", "csv", false, "text/csv; charset=utf-8"},
    {"xlsx", "xlsx", true, "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
    {"html", "html", false, "text/html; charset=utf-8"},
    {"json", "json", false, "application/json"},
    {"summary-csv", "csv", false, "text/csv; charset=utf-8"},
};

} // namespace

std::span<const ReportFileFormat> reportFileFormats() { return formats; }

std::optional<ReportFileFormat> reportFileFormat(std::string_view name) {
    for (const ReportFileFormat& format : formats)
        if (format.name == name) return format;
    return std::nullopt;
}

std::string reportFileName(const Report& report, std::string_view reportTemplate, const ReportFileFormat& format) {
    std::string slug(reportTemplate);
    if (report.client) {
        std::string name = fold(report.client->name);
        std::string part;
        for (char c : name) part += std::isalnum(static_cast<unsigned char>(c)) ? c : '-';
        slug += "-" + part;
    }
    return fmt::format("{}-{}-{}.{}", slug, local::formatDay(report.from),
                       local::formatDay(local::addDays(report.to, -1)), format.extension);
}

std::vector<std::string> reportRowTexts(const TableRow& row, DurationStyle style, const ReportFormat& format) {
    std::vector<std::string> texts;
    for (const TableCell& cell : row)
        texts.push_back(cell.kind == TableCell::Kind::money ? format.money(cell.cents)
                                                             : TableExport::cellText(cell, style, format));
    return texts;
}

std::string reportFileBytes(const ReportFileFormat& fileFormat, const BuiltReport& built, ReportTemplate reportTemplate,
                            DurationStyle style, const ReportFormat& format) {
    if (fileFormat.name == "summary-csv") return CSVExport::summary(built.report, format);
    ReportTable table = built.table(reportTemplate, format);
    if (fileFormat.name == "xlsx") return TableExport::xlsx(table, style, format);
    if (fileFormat.name == "html") return TableExport::html(table, format);
    if (fileFormat.name == "json") return TableExport::json(table, built.report, format);
    return TableExport::csv(table, style, format);
}

} // namespace ombrelo
