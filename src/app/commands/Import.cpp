// ombrelo import: another tracker's CSV export brought in as one batch — a
// preview first (the source recognised, the column of each meaning, the
// entries, the projects to create, each skipped row and why), then the import.
// `import list` shows past batches, `import undo` removes one whole. Bad input
// writes nothing and says why.
#include "app/Commands.h"
#include "app/Output.h"
#include "app/Session.h"
#include "app/commands/ClassifyArguments.h"
#include "app/commands/ProjectArguments.h"
#include "app/commands/BackupCommands.h"
#include "app/commands/TextTable.h"
#include "app/commands/TimeModel.h"
#include "import/Importer.h"
#include "reports/Format.h"
#include "support/Fold.h"
#include "support/L10n.h"
#include "support/LocalTime.h"

#include <fmt/format.h>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>

namespace ombrelo::commands {

namespace {

struct Arguments {
    std::string file;
    std::string batch;
    bool dryRun = false;
    bool keepOverlaps = false;
};

// Exports of years of work stay far below this; a bigger file is no export.
constexpr std::uintmax_t maxFileBytes = 512ull * 1024 * 1024;

[[noreturn]] void refuse(const std::string& message) { throw CommandFailure(exitStatus::failure, message); }

std::string readExport(const std::string& path) {
    std::error_code error;
    auto size = std::filesystem::file_size(path, error);
    if (error) refuse(std::string(L10n::text("Fichier illisible : ", "Cannot read the file: ")) + path + " (" +
                      error.message() + ")");
    if (size > maxFileBytes) refuse(std::string(L10n::text("Fichier trop grand pour un export : ",
                                                           "File too large for an export: ")) + path);
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    if (!in && !in.eof()) refuse(std::string(L10n::text("Fichier illisible : ", "Cannot read the file: ")) + path);
    return bytes.str();
}

// The preview of a file that can be imported, or the reason it cannot.
ImportPreview readPreview(const std::string& path) {
    std::string bytes = readExport(path);
    if (trim(bytes).empty()) refuse(std::string(L10n::text("Fichier vide : ", "Empty file: ")) + path);
    if (looksBinary(bytes))
        refuse(std::string(L10n::text("Ce n'est pas un fichier CSV (données binaires) : ",
                                      "This is not a CSV file (binary data): ")) + path);
    ImportPreview preview = ImportReader::preview(bytes);
    if (std::vector<ImportMapping::Meaning> missing = preview.missing(); !missing.empty()) {
        std::string lacking, found;
        for (ImportMapping::Meaning meaning : missing)
            lacking += (lacking.empty() ? "" : ", ") + std::string(meaningName(meaning));
        for (const std::string& header : preview.headers) found += (found.empty() ? "« " : " », « ") + header;
        refuse(fmt::format("{}{}\n{}{}{}", L10n::text("Colonnes introuvables : ", "Columns not found: "), lacking,
                           L10n::text("Colonnes du fichier : ", "Columns of the file: "), found,
                           found.empty() ? "" : " »"));
    }
    if (preview.entries.empty()) {
        std::string reasons;
        for (std::size_t i = 0; i < preview.warnings.size() && i < 5; ++i) reasons += "\n  " + preview.warnings[i];
        refuse(std::string(L10n::text("Aucune ligne lisible dans ", "No readable row in ")) + path + reasons);
    }
    return preview;
}

std::string pathLabel(const std::optional<std::string>& client, const std::string& project) {
    return client ? *client + " › " + project : project;
}

// The clients and projects the import would create.
std::vector<std::string> toCreate(const ImportPreview& preview, const ProjectStore& projects) {
    std::set<std::string> known, shown;
    std::vector<std::string> created;
    for (const Client& client : projects.clients()) known.insert("client:" + fold(client.name));
    for (const Project& project : projects.projects()) known.insert(fold(project.name));
    for (const ImportEntry& entry : preview.entries) {
        if (entry.client && !known.contains("client:" + fold(*entry.client)) &&
            shown.insert("client:" + fold(*entry.client)).second)
            created.push_back(std::string(L10n::text("client ", "client ")) + *entry.client);
        if (entry.project && !known.contains(fold(*entry.project)) && shown.insert(fold(*entry.project)).second)
            created.push_back(std::string(L10n::text("projet ", "project ")) + pathLabel(entry.client, *entry.project));
    }
    return created;
}

double totalSeconds(const ImportPreview& preview) {
    double seconds = 0;
    for (const ImportEntry& entry : preview.entries) seconds += entry.end - entry.start;
    return seconds;
}

nlohmann::json columnsJSON(const ImportPreview& preview) {
    nlohmann::json columns = nlohmann::json::object();
    static constexpr const char* keys[] = {"start_date", "start_time", "end_date", "end_time", "duration",
                                           "client",     "project",    "title",    "notes",    "billable"};
    for (int meaning = 0; meaning < ImportMapping::count; ++meaning)
        if (auto column = preview.mapping.column[meaning]) columns[keys[meaning]] = preview.headers[*column];
    return columns;
}

void showPreview(const ImportPreview& preview, const std::vector<std::string>& created) {
    output::field(L10n::text("Source", "Source"),
                  std::string(appName(preview.source)) +
                      (preview.encoding == TextEncoding::windows1252
                           ? std::string(L10n::text(" (lu en Windows-1252 : ce n'est pas de l'UTF-8)",
                                                    " (read as Windows-1252: not UTF-8)"))
                           : ""));
    std::string columns;
    for (int meaning = 0; meaning < ImportMapping::count; ++meaning)
        if (auto column = preview.mapping.column[meaning])
            columns += (columns.empty() ? "" : ", ") +
                       fmt::format("{} ← « {} »", meaningName(static_cast<ImportMapping::Meaning>(meaning)),
                                   preview.headers[*column]);
    output::field(L10n::text("Colonnes", "Columns"), columns);
    output::field(L10n::text("Entrées", "Entries"),
                  fmt::format("{} ({})", preview.entries.size(), Format::duration(totalSeconds(preview))));
    for (std::size_t i = 0; i < created.size(); ++i)
        output::field(i == 0 ? L10n::text("À créer", "To create") : "", created[i]);
    for (std::size_t i = 0; i < preview.warnings.size(); ++i)
        output::field(i == 0 ? L10n::text("Ignorées", "Skipped") : "", preview.warnings[i]);
}

void importFile(Session& session, const Arguments& arguments) {
    ImportPreview preview = readPreview(arguments.file);
    ProjectStore projects = openProjects(session);
    std::vector<std::string> created = toCreate(preview, projects);
    nlohmann::json document = {{"source", appName(preview.source)},
                               {"encoding", preview.encoding == TextEncoding::utf8 ? "utf-8" : "windows-1252"},
                               {"columns", columnsJSON(preview)},
                               {"entries", preview.entries.size()},
                               {"hours", std::llround(totalSeconds(preview) / 36) / 100.0},
                               {"to_create", created},
                               {"skipped", preview.warnings},
                               {"result", nullptr}};
    if (!session.json) showPreview(preview, created);
    if (arguments.dryRun) {
        if (session.json) output::json(document);
        else output::line(L10n::text("\nAperçu seulement : rien n'a été importé.", "\nPreview only: nothing imported."));
        return;
    }
    Catalog catalog = openCatalog(session);
    Importer importer(session.database(), session.activities(), catalog, session.clock());
    std::string name = std::filesystem::path(arguments.file).filename().string();
    std::optional<Importer::Result> result = importer.run(preview, name, !arguments.keepOverlaps);
    if (!result)
        refuse(std::string(L10n::text("Import impossible : ", "Import failed: ")) +
               importer.lastError().value_or("erreur inconnue") +
               std::string(L10n::text(". Rien n'a été importé.", ". Nothing was imported.")));
    if (session.json) {
        document["result"] = {{"batch", result->batch},
                              {"imported", result->imported},
                              {"skipped_overlaps", result->skippedOverlaps},
                              {"projects_created", result->projectsCreated}};
        output::json(document);
        return;
    }
    output::line("");
    output::line(fmt::format("{}{} {}, {} {}, {} {}. {}{}", L10n::text("Importé : ", "Imported: "), result->imported,
                             L10n::text("entrées", "entries"), result->skippedOverlaps,
                             L10n::text("déjà suivies (ignorées)", "already tracked (skipped)"),
                             result->projectsCreated,
                             L10n::text("clients ou projets créés", "clients or projects created"),
                             L10n::text("Lot ", "Batch "), result->batch));
    output::line(std::string(L10n::text("Pour l'annuler : ombrelo import undo ", "To undo it: ombrelo import undo ")) +
                 result->batch.substr(0, 8));
}

void list(Session& session) {
    Catalog catalog = openCatalog(session);
    Importer importer(session.database(), session.activities(), catalog, session.clock());
    std::vector<ImportBatch> batches = importer.batches();
    if (session.json) {
        nlohmann::json list = nlohmann::json::array();
        for (const ImportBatch& batch : batches)
            list.push_back({{"id", batch.id}, {"source", batch.source}, {"file", batch.file},
                            {"at", local::formatDateTime(batch.at)}, {"count", batch.count}});
        output::json({{"batches", list}});
        return;
    }
    if (batches.empty()) return output::line(L10n::text("Aucun import.", "No import."));
    output::TextTable table({std::string(L10n::text("Lot", "Batch")), "Source",
                             std::string(L10n::text("Fichier", "File")), std::string(L10n::text("Le", "At")),
                             std::string(L10n::text("Entrées", "Entries"))});
    for (const ImportBatch& batch : batches)
        table.add({batch.id.substr(0, 8), batch.source, batch.file,
                   dayAndTime(batch.at), std::to_string(batch.count)});
    table.print(std::cout);
}

void undo(Session& session, const Arguments& arguments) {
    Catalog catalog = openCatalog(session);
    Importer importer(session.database(), session.activities(), catalog, session.clock());
    std::vector<const ImportBatch*> matches;
    std::vector<ImportBatch> batches = importer.batches();
    std::string wanted(trim(arguments.batch));
    for (const ImportBatch& batch : batches)
        if (!wanted.empty() && batch.id.rfind(wanted, 0) == 0) matches.push_back(&batch);
    if (matches.empty()) refuse(std::string(L10n::text("Lot introuvable : ", "No such batch: ")) + wanted);
    if (matches.size() > 1)
        throw CommandFailure(exitStatus::usage, std::string(L10n::text("Plusieurs lots commencent par ",
                                                                       "Several batches start with ")) + wanted);
    backUpBefore(session, "import-undo");
    if (!importer.undo(matches.front()->id))
        refuse(std::string(L10n::text("Annulation impossible : ", "Undo failed: ")) +
               importer.lastError().value_or("erreur inconnue"));
    output::line(fmt::format("{}{} ({} {})", L10n::text("Import annulé : ", "Import undone: "), matches.front()->file,
                             matches.front()->count, L10n::text("entrées retirées", "entries removed")));
}

} // namespace

void import(CLI::App& program, Session& session) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App* command = program.add_subcommand(
        "import", std::string(L10n::text("Importe l'export CSV d'un autre outil (Toggl Track, Clockify, Harvest, "
                                         "Timing, Rize ou autre)",
                                         "Imports another tool's CSV export (Toggl Track, Clockify, Harvest, "
                                         "Timing, Rize or other)")));
    command->add_option("file", arguments->file, std::string(L10n::text("Le fichier CSV", "The CSV file")));
    command->add_flag("--dry-run", arguments->dryRun,
                      std::string(L10n::text("Montre l'aperçu sans rien importer", "Shows the preview, imports nothing")));
    command->add_flag("--keep-overlaps", arguments->keepOverlaps,
                      std::string(L10n::text("Importe aussi ce qui chevauche le temps déjà suivi",
                                             "Also imports what overlaps time already tracked")));
    command->add_flag("--json", session.json, std::string(L10n::text("Sortie JSON", "JSON output")));
    command->callback([&session, arguments, command] {
        if (command->get_subcommands().empty()) {
            if (arguments->file.empty()) usageFailure(std::string(L10n::text("Indiquez le fichier CSV.",
                                                                             "Give the CSV file.")));
            importFile(session, *arguments);
        }
    });

    CLI::App* listCommand = command->add_subcommand(
        "list", std::string(L10n::text("Les imports passés, les plus récents d'abord", "Past imports, newest first")));
    listCommand->add_flag("--json", session.json, std::string(L10n::text("Sortie JSON", "JSON output")));
    listCommand->callback([&session] { list(session); });
    CLI::App* undoCommand = command->add_subcommand(
        "undo", std::string(L10n::text("Retire un import entier", "Removes a whole import")));
    undoCommand->add_option("batch", arguments->batch,
                            std::string(L10n::text("Le lot (son début suffit)", "The batch (its start is enough)")))
        ->required();
    undoCommand->callback([&session, arguments] { undo(session, *arguments); });
}

} // namespace ombrelo::commands
