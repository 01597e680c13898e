// ReportFiles: a built report as the file a person downloads or writes, in
// each format, with the name it gets when none is given. The command line and
// the window make their files here, so both give the same bytes.
#pragma once

#include "reports/ReportQuery.h"
#include "reports/TableExport.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ombrelo {

struct ReportFileFormat {
    std::string_view name;  // "csv", "xlsx", "html", "json", "summary-csv"
    std::string_view extension;
    bool binary;
    std::string_view contentType;
};

std::span<const ReportFileFormat> reportFileFormats();
std::optional<ReportFileFormat> reportFileFormat(std::string_view name);

// "statement-atelier-dupont-2026-10-01-2026-10-31.xlsx".
std::string reportFileName(const Report& report, std::string_view reportTemplate, const ReportFileFormat& format);

// A row's cells as a screen shows them: amounts with their currency,
// durations in `style`.
std::vector<std::string> reportRowTexts(const TableRow& row, DurationStyle style, const ReportFormat& format);

std::string reportFileBytes(const ReportFileFormat& fileFormat, const BuiltReport& built, ReportTemplate reportTemplate,
                            DurationStyle style, const ReportFormat& format);

} // namespace ombrelo
