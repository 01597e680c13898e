// ombrelo backup [--to FILE], ombrelo backups, ombrelo restore FILE|DATE
// [--cancel]: copies of the database taken beside the running tracker, their
// list, and the restore of one, applied at the next opening of the database
// (at once when nothing else has it open), the replaced file kept aside.
#include "app/Commands.h"
#include "app/Output.h"
#include "app/Session.h"
#include "app/TrackerLock.h"
#include "app/commands/BackupCommands.h"
#include "app/commands/TextTable.h"
#include "app/commands/TimeModel.h"
#include "backup/Backups.h"
#include "storage/PendingRestore.h"
#include "support/L10n.h"
#include "support/LocalTime.h"

#include <fmt/format.h>
#include <memory>

namespace ombrelo::commands {

namespace fs = std::filesystem;

namespace {

struct Arguments {
    std::string to;
    std::string target;
    bool cancel = false;
};

[[noreturn]] void refuse(const std::string& message) { throw CommandFailure(exitStatus::failure, message); }

constexpr std::string_view restoreReason = "restore";

std::string sizeText(std::uintmax_t bytes) {
    std::string text = fmt::format("{:.1f} {}", double(bytes) / 1e6, L10n::text("Mo", "MB"));
    if (L10n::french()) std::replace(text.begin(), text.end(), '.', ',');
    return text;
}

// "il y a 3 h" / "3 h ago".
std::string ageText(Instant then, Instant now) {
    double hours = std::max(0.0, now - then) / 3600;
    std::string amount = hours < 1    ? fmt::format("{} min", int(hours * 60))
                         : hours < 48 ? fmt::format("{} h", int(hours))
                                      : fmt::format("{} {}", int(hours / 24), L10n::text("j", "days"));
    return L10n::french() ? "il y a " + amount : amount + " ago";
}

nlohmann::json optionalDay(const std::optional<Instant>& t) {
    return t ? nlohmann::json(local::formatDay(*t)) : nlohmann::json(nullptr);
}

nlohmann::json contentsJSON(const fs::path& file, const BackupContents& contents) {
    std::error_code error;
    return {{"file", file.string()},
            {"size", fs::file_size(file, error)},
            {"schema_version", contents.schemaVersion},
            {"activities", contents.activities},
            {"first_day", optionalDay(contents.firstStart)},
            {"last_day", optionalDay(contents.lastEnd)}};
}

// "1 234 activités, du 2024-01-02 au 2026-11-22".
std::string contentsText(const BackupContents& contents) {
    std::string text = activityCount(std::size_t(contents.activities));
    if (contents.firstStart && contents.lastEnd)
        text += fmt::format("{}{}{}{}", L10n::text(", du ", ", from "), local::formatDay(*contents.firstStart),
                            L10n::text(" au ", " to "), local::formatDay(*contents.lastEnd));
    return text;
}

fs::path existingDatabase(Session& session) {
    fs::path database = session.databasePath();
    std::error_code error;
    if (!fs::is_regular_file(database, error))
        refuse(std::string(L10n::text("Pas de base à sauvegarder : ", "No database to back up: ")) + database.string());
    return database;
}

void backUp(Session& session, const Arguments& arguments) {
    fs::path database = existingDatabase(session);
    fs::path file;
    BackupContents contents;
    try {
        if (arguments.to.empty()) {
            BackupEntry entry = Backups(database).take(session.clock().now());
            file = entry.file;
            contents = *entry.contents;
        } else {
            file = arguments.to;
            contents = copyDatabase(database, file);
        }
    } catch (const BackupError& error) {
        refuse(error.what());
    }
    if (session.json) return output::json(contentsJSON(file, contents));
    output::line(fmt::format("{}{} ({})", L10n::text("Sauvegarde écrite : ", "Backup written: "), file.string(),
                             contentsText(contents)));
}

void list(Session& session) {
    Backups backups(session.databasePath());
    std::vector<BackupEntry> entries = backups.list();
    std::optional<fs::path> scheduled = scheduledRestore(session.databasePath());
    auto details = [](const BackupEntry& entry) -> std::optional<BackupContents> {
        try {
            return inspectBackup(entry.file, PageCheck::skip);
        } catch (const BackupError&) {
            return std::nullopt;
        }
    };
    if (session.json) {
        nlohmann::json list = nlohmann::json::array();
        for (const BackupEntry& entry : entries) {
            std::optional<BackupContents> contents = details(entry);
            nlohmann::json item = contents ? contentsJSON(entry.file, *contents)
                                           : nlohmann::json{{"file", entry.file.string()}, {"size", entry.size}};
            item["taken_at"] = local::formatDateTime(entry.takenAt);
            item["reason"] = entry.reason;
            item["readable"] = contents.has_value();
            list.push_back(item);
        }
        return output::json({{"folder", backups.folder().string()},
                             {"backups", list},
                             {"scheduled_restore", scheduled ? nlohmann::json(scheduled->string()) : nullptr}});
    }
    output::field(L10n::text("Dossier", "Folder"), backups.folder().string());
    if (scheduled) output::field(L10n::text("Restauration prévue", "Restore scheduled"), scheduled->string());
    if (entries.empty())
        return output::line(L10n::text("Aucune sauvegarde (ombrelo backup en fait une).",
                                       "No backup (ombrelo backup makes one)."));
    output::TextTable table({std::string(L10n::text("Prise le", "Taken")), std::string(L10n::text("Taille", "Size")),
                             std::string(L10n::text("Activités", "Activities")), std::string(L10n::text("Du", "From")),
                             std::string(L10n::text("Au", "To")), std::string(L10n::text("Avant", "Before"))});
    for (const BackupEntry& entry : entries) {
        std::optional<BackupContents> contents = details(entry);
        auto day = [](const std::optional<Instant>& t) { return t ? local::formatDay(*t) : std::string("—"); };
        table.add({dayAndTime(entry.takenAt), sizeText(entry.size),
                   contents ? std::to_string(contents->activities) : std::string(L10n::text("illisible", "unreadable")),
                   contents ? day(contents->firstStart) : "", contents ? day(contents->lastEnd) : "", entry.reason});
    }
    table.print(std::cout);
}

// A path when it names a file, else a day's newest backup; the copies restores
// make of the database they replace are not what a date means.
fs::path chosenBackup(Session& session, const std::string& target) {
    std::error_code error;
    if (fs::exists(target, error)) return target;
    std::optional<Instant> day = local::parseDay(target);
    if (!day)
        refuse(fmt::format("{}{}", L10n::text("Ni fichier ni date (AAAA-MM-JJ) : ", "Neither a file nor a date (YYYY-MM-DD): "),
                           target));
    std::vector<BackupEntry> entries = Backups(session.databasePath()).onDay(*day);
    std::erase_if(entries, [](const BackupEntry& entry) { return entry.reason == restoreReason; });
    if (entries.empty())
        refuse(fmt::format("{}{}{}", L10n::text("Aucune sauvegarde du ", "No backup of "), target,
                           L10n::text(" (ombrelo backups les liste).", " (ombrelo backups lists them).")));
    return entries.front().file;
}

void cancel(Session& session) {
    output::line(cancelRestore(session.databasePath())
                     ? L10n::text("Restauration annulée.", "Restore cancelled.")
                     : L10n::text("Aucune restauration prévue.", "No restore was scheduled."));
}

void restore(Session& session, const Arguments& arguments) {
    if (arguments.cancel) return cancel(session);
    if (arguments.target.empty())
        usageFailure(std::string(L10n::text("Indiquez la sauvegarde : un fichier ou une date.",
                                            "Give the backup: a file or a date.")));
    fs::path database = session.databasePath();
    fs::path backup = chosenBackup(session, arguments.target);
    try {
        scheduleRestore(database, backup);
    } catch (const BackupError& error) {
        refuse(std::string(L10n::text("Restauration refusée, rien n'est prévu : ", "Restore refused, nothing scheduled: ")) +
               error.what());
    }
    // The replaced file is kept aside anyway; this copy is for the backups list.
    std::error_code error;
    if (fs::is_regular_file(database, error)) {
        try {
            BackupEntry before = Backups(database).take(session.clock().now(), restoreReason);
            output::line(std::string(L10n::text("Sauvegarde de la base actuelle : ", "Backup of the current database: ")) +
                         before.file.string());
        } catch (const BackupError& failed) {
            output::line(std::string(L10n::text("Pas de sauvegarde de la base actuelle (elle sera gardée à part) : ",
                                                "No backup of the current database (it will be kept aside): ")) +
                         failed.what());
        }
    }
    if (std::optional<int> tracker = TrackerLock::holder(database)) {
        output::line(fmt::format("{}{}{}{}", L10n::text("Restauration prévue : ", "Restore scheduled: "), backup.string(),
                                 L10n::text(". Le suivi est en cours (processus ", ". The tracker is running (process "),
                                 *tracker));
        return output::line(L10n::text(") : arrêtez-le puis relancez-le pour l'appliquer "
                                       "(systemctl --user restart ombrelo).",
                                       "): stop and start it again to apply it (systemctl --user restart ombrelo)."));
    }
    // Nothing tracks: this opening applies it.
    session.database();
    if (std::optional<fs::path> waiting = scheduledRestore(database)) {
        output::line(std::string(L10n::text("Restauration prévue : ", "Restore scheduled: ")) + waiting->string());
        return output::line(L10n::text("La base est ouverte par un autre processus : elle sera restaurée à sa "
                                       "prochaine ouverture.",
                                       "The database is open in another process: it will be restored at its next "
                                       "opening."));
    }
    std::optional<RestoreResult> done = lastRestore(database);
    if (!done || done->outcome != RestoreOutcome::restored) refuse(done ? done->message : std::string(L10n::text("erreur inconnue", "unknown error")));
    output::line(std::string(L10n::text("Sauvegarde restaurée : ", "Backup restored: ")) + done->backup.string());
    if (!done->keptAside.empty())
        output::line(std::string(L10n::text("L'ancienne base est gardée sous ", "The replaced database is kept as ")) +
                     done->keptAside.string());
}

std::string restoreText(const RestoreResult& restore) {
    std::string when = restore.at ? dayAndTime(*restore.at) : "";
    if (restore.outcome == RestoreOutcome::restored)
        return fmt::format("{}{} ({}){}", L10n::text("restaurée le ", "restored on "), when, restore.backup.string(),
                           restore.keptAside.empty()
                               ? ""
                               : std::string(L10n::text(", ancienne base gardée sous ", ", replaced database kept as ")) +
                                     restore.keptAside.string());
    return fmt::format("{}{} : {}", L10n::text("échec le ", "failed on "), when, restore.message);
}

} // namespace

void backUpBefore(Session& session, std::string_view reason) {
    try {
        BackupEntry entry = Backups(session.databasePath()).take(session.clock().now(), reason);
        output::line(std::string(L10n::text("Sauvegarde avant modification : ", "Backup before the change: ")) +
                     entry.file.string());
    } catch (const BackupError& error) {
        refuse(std::string(L10n::text("Rien n'est modifié, faute de sauvegarde : ",
                                      "Nothing changed, for want of a backup: ")) + error.what());
    }
}

BackupState backupState(Session& session) {
    Backups backups(session.databasePath());
    return {backups.folder(), backups.list(), backups.lastFailure(), scheduledRestore(session.databasePath()),
            lastRestore(session.databasePath())};
}

void printBackupStatus(const BackupState& state, Instant now) {
    output::field(L10n::text("Sauvegarde", "Backup"),
                  state.entries.empty()
                      ? std::string(L10n::text("aucune (ombrelo backup)", "none (ombrelo backup)"))
                      : fmt::format("{} ({}), {} {}", dayAndTime(state.entries.front().takenAt),
                                    ageText(state.entries.front().takenAt, now), state.entries.size(),
                                    L10n::text("au total dans ", "in all in ")) + state.folder.string());
    if (state.failure)
        output::field(L10n::text("Échec de sauvegarde", "Backup failure"),
                      dayAndTime(state.failure->at) + " : " + state.failure->message);
    if (state.scheduled) output::field(L10n::text("Restauration prévue", "Restore scheduled"), state.scheduled->string());
    if (state.lastRestore)
        output::field(L10n::text("Dernière restauration", "Last restore"), restoreText(*state.lastRestore));
}

nlohmann::json backupStatusJSON(const BackupState& state, Instant now) {
    nlohmann::json newest = nullptr;
    if (!state.entries.empty())
        newest = {{"file", state.entries.front().file.string()},
                  {"taken_at", local::formatDateTime(state.entries.front().takenAt)},
                  {"age_hours", std::max(0.0, now - state.entries.front().takenAt) / 3600}};
    nlohmann::json failure = nullptr;
    if (state.failure) failure = {{"at", local::formatDateTime(state.failure->at)}, {"message", state.failure->message}};
    nlohmann::json last = nullptr;
    if (state.lastRestore)
        last = {{"outcome", rawValue(state.lastRestore->outcome)},
                {"message", state.lastRestore->message},
                {"backup", state.lastRestore->backup.string()},
                {"kept_aside", state.lastRestore->keptAside.string()},
                {"at", state.lastRestore->at ? nlohmann::json(local::formatDateTime(*state.lastRestore->at)) : nullptr}};
    return {{"backups",
             {{"folder", state.folder.string()}, {"count", state.entries.size()}, {"newest", newest},
              {"last_failure", failure}}},
            {"restore", {{"scheduled", state.scheduled ? nlohmann::json(state.scheduled->string()) : nullptr},
                         {"last", last}}}};
}

void backup(CLI::App& program, Session& session) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App* command = program.add_subcommand(
        "backup", std::string(L10n::text("Sauvegarde la base, même pendant le suivi",
                                         "Back up the database, even while tracking")));
    command->add_option("--to", arguments->to,
                        std::string(L10n::text("Le fichier à écrire (sinon le dossier des sauvegardes)",
                                               "The file to write (else the backups folder)")));
    command->add_flag("--json", session.json, std::string(L10n::text("Sortie JSON", "JSON output")));
    command->callback([&session, arguments] { backUp(session, *arguments); });

    CLI::App* listCommand = program.add_subcommand(
        "backups", std::string(L10n::text("Les sauvegardes, les plus récentes d'abord", "Backups, newest first")));
    listCommand->add_flag("--json", session.json, std::string(L10n::text("Sortie JSON", "JSON output")));
    listCommand->callback([&session] { list(session); });

    CLI::App* restoreCommand = program.add_subcommand(
        "restore", std::string(L10n::text("Remet une sauvegarde à la place de la base",
                                          "Put a backup in place of the database")));
    restoreCommand->add_option("backup", arguments->target,
                               std::string(L10n::text("Le fichier, ou la date de la sauvegarde (AAAA-MM-JJ)",
                                                      "The file, or the backup's date (YYYY-MM-DD)")));
    restoreCommand->add_flag("--cancel", arguments->cancel,
                             std::string(L10n::text("Annule la restauration prévue", "Cancel the scheduled restore")));
    restoreCommand->callback([&session, arguments] { restore(session, *arguments); });
}

} // namespace ombrelo::commands
