// ombrelo report: the statement of a period for one client or for all — or its
// timesheet, detail or notes — shown in the terminal, or written as CSV, XLSX,
// HTML or JSON for the client and the spreadsheet. The file is replaced whole or
// not at all.
#include "app/Commands.h"
#include "app/Output.h"
#include "app/commands/ProjectArguments.h"
#include "app/commands/TextTable.h"
#include "app/commands/TimeModel.h"
#include "reports/Format.h"
#include "reports/ReportFiles.h"
#include "reports/ReportQuery.h"
#include "reports/TableExport.h"
#include "support/AtomicFile.h"
#include "support/Fold.h"
#include "support/L10n.h"
#include "support/LocalTime.h"

#include <fmt/format.h>
#include <memory>
#include <unistd.h>

namespace ombrelo::commands {

namespace {

struct Arguments {
    std::optional<std::string> period, from, to, client, format, output;
    std::string reportTemplate = "statement";
    std::string status = "all";
    std::string style = "decimal";
};

// --format, else what the output file's extension says.
std::optional<ReportFileFormat> chosenFormat(const Arguments& arguments) {
    if (arguments.format) return reportFileFormat(*arguments.format);
    if (!arguments.output || *arguments.output == "-") return std::nullopt;
    std::string extension = lowerASCII(std::filesystem::path(*arguments.output).extension().string());
    if (extension == ".htm") extension = ".html";
    for (const ReportFileFormat& format : reportFileFormats())
        if ("." + std::string(format.extension) == extension) return format;
    usageFailure(std::string(L10n::text("Format inconnu pour « ", "Unknown format for \"")) + *arguments.output +
                 std::string(L10n::text(" » : indiquez --format.", "\": give --format.")));
}

void writeExport(const std::string& bytes, const std::string& path) {
    try {
        writeFileAtomically(path, bytes);
    } catch (const std::exception& error) {
        throw CommandFailure(exitStatus::failure, std::string(L10n::text("L'export n'a pas pu être enregistré.",
                                                                         "The export could not be saved.")) +
                                                      "\n" + error.what());
    }
    output::line(std::string(L10n::text("Export enregistré : ", "Export saved: ")) + path);
}

void exportFile(const ReportFileFormat& fileFormat, const BuiltReport& built, const Arguments& arguments,
                const ReportFormat& format) {
    bool toStandardOutput = arguments.output && *arguments.output == "-";
    if (toStandardOutput && fileFormat.binary && ::isatty(STDOUT_FILENO))
        usageFailure(std::string(L10n::text("Un classeur XLSX ne s'affiche pas : indiquez -o FICHIER.",
                                            "An XLSX workbook cannot be shown: give -o FILE.")));
    ReportTemplate reportTemplate = *parseReportTemplate(arguments.reportTemplate);
    std::string bytes = reportFileBytes(fileFormat, built, reportTemplate, *parseDurationStyle(arguments.style), format);
    if (toStandardOutput) {
        std::cout << bytes << std::flush;
        return;
    }
    writeExport(bytes, arguments.output.value_or(reportFileName(built.report, arguments.reportTemplate, fileFormat)));
}

// The table with its numbers right-aligned, the totals last.
void printTable(const ReportTable& table, DurationStyle style, const ReportFormat& format) {
    std::vector<std::vector<std::string>> rows;
    for (const TableRow& row : table.rows) rows.push_back(reportRowTexts(row, style, format));
    if (table.totals) rows.push_back(reportRowTexts(*table.totals, style, format));
    const TableRow* sample = table.rows.empty() ? (table.totals ? &*table.totals : nullptr) : &table.rows.front();
    for (std::size_t column = 0; sample && column < table.headers.size(); ++column) {
        if (!(*sample)[column].numeric()) continue;
        std::vector<std::string> texts;
        for (const auto& row : rows) texts.push_back(row[column]);
        alignRight(texts);
        for (std::size_t r = 0; r < rows.size(); ++r) rows[r][column] = texts[r];
    }
    output::TextTable text(table.headers);
    for (auto& row : rows) text.add(std::move(row));
    text.print(std::cout);
}

void render(const ReportTable& table, const Report& report, DurationStyle style, const ReportFormat& format) {
    output::line(table.title);
    output::line(table.subtitle);
    output::line("");
    if (table.rows.empty())
        output::line(L10n::text("Rien à montrer sur cette période.", "Nothing to show in this period."));
    else
        printTable(table, style, format);
    output::line("");
    output::field(L10n::text("Jours ouvrés", "Working days"), std::to_string(report.workingDays));
    if (report.holidays.empty()) {
        output::field(L10n::text("Jours fériés", "Public holidays"), L10n::text("aucun", "none"));
        return;
    }
    for (std::size_t i = 0; i < report.holidays.size(); ++i) {
        const Holiday& holiday = report.holidays[i];
        output::field(i == 0 ? L10n::text("Jours fériés", "Public holidays") : "",
                      format.dayLabel(holiday.date) + "  " + Holidays::localizedName(holiday.name));
    }
}

void run(Session& session, const Arguments& arguments) {
    std::optional<ReportFileFormat> fileFormat = chosenFormat(arguments);
    nlohmann::json asked =
        periodArguments(std::optional<std::string>(arguments.period.value_or("month")), arguments.from, arguments.to);
    Period range = answer([&] { return period(asked, session.clock().now()); });
    TimeModel model(session);
    ReportRequest request{range.start, range.end};
    if (arguments.client) request.client = requireClient(model.projects, *arguments.client);
    request.status = *parseStatusFilter(arguments.status);

    BillingStore billing(session.database(), session.clock());
    Holidays holidays = Holidays::fromPreferences(session.preferences());
    BuiltReport built = buildReport(request, model.workspace, model.projects, billing, holidays);
    ReportFormat format = ReportFormat::current(Format::currency(session.preferences()));

    if (fileFormat) return exportFile(*fileFormat, built, arguments, format);
    ReportTemplate reportTemplate = *parseReportTemplate(arguments.reportTemplate);
    ReportTable table = built.table(reportTemplate, format);
    if (session.json) {
        std::cout << TableExport::json(table, built.report, format);
        return;
    }
    render(table, built.report, *parseDurationStyle(arguments.style), format);
}

} // namespace

void report(CLI::App& program, Session& session) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App* command = program.add_subcommand(
        "report", std::string(L10n::text("Relevé d'une période (ou feuille de temps, détail, notes), à l'écran ou "
                                         "exporté en CSV, XLSX, HTML ou JSON",
                                         "Statement of a period (or timesheet, detail, notes), on screen or "
                                         "exported as CSV, XLSX, HTML or JSON")));
    addPeriodOptions(*command, arguments->period, arguments->from, arguments->to, "month");
    command->add_option("--client", arguments->client,
                        std::string(L10n::text("Un seul client (nom ou id)", "One client only (name or id)")));
    command->add_option("--template", arguments->reportTemplate, "statement, timesheet, detail, notes")
        ->check(CLI::IsMember({"statement", "timesheet", "detail", "notes"}));
    command->add_option("--status", arguments->status, "all, toBill, billed, paid")
        ->check(CLI::IsMember({"all", "toBill", "billed", "paid"}));
    command->add_option("--style", arguments->style,
                        std::string(L10n::text("Durées : decimal (3,50) ou clock (3:30)",
                                               "Durations: decimal (3.50) or clock (3:30)")))
        ->check(CLI::IsMember({"decimal", "clock"}));
    command->add_option("--format", arguments->format, "csv, xlsx, html, json, summary-csv")
        ->check(CLI::IsMember({"csv", "xlsx", "html", "json", "summary-csv"}));
    command->add_option("-o,--output", arguments->output,
                        std::string(L10n::text("Fichier écrit (- : la sortie standard)",
                                               "File to write (-: standard output)")));
    command->add_flag("--json", session.json, std::string(L10n::text("Sortie JSON", "JSON output")));
    command->callback([&session, arguments] { run(session, *arguments); });
}

} // namespace ombrelo::commands
