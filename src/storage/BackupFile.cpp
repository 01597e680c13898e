#include "storage/BackupFile.h"

#include "storage/Database.h"
#include "support/L10n.h"
#include "support/LocalTime.h"

#include <cstdio>
#include <fcntl.h>
#include <fmt/format.h>
#include <memory>
#include <sqlite3.h>
#include <unistd.h>

namespace ombrelo {

namespace fs = std::filesystem;

namespace {

// As long as the program's own connection waits for another's lock.
constexpr int busyMilliseconds = 2000;

struct CloseConnection {
    void operator()(sqlite3* db) const { sqlite3_close(db); }
};
using Connection = std::unique_ptr<sqlite3, CloseConnection>;

Connection openReadOnly(const fs::path& file) {
    sqlite3* raw = nullptr;
    int result = sqlite3_open_v2(file.c_str(), &raw, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr);
    Connection db(raw);
    if (result != SQLITE_OK)
        throw BackupError(fmt::format("{}{}", L10n::text("Impossible d'ouvrir ", "Cannot open "), file.string()));
    sqlite3_busy_timeout(db.get(), busyMilliseconds);
    return db;
}

// Steps a one-row statement and hands its row to `read`; SQLite's failure comes
// back as its result code and message.
template <typename Read>
int queryRow(sqlite3* db, const char* sql, Read read, std::string* message = nullptr) {
    sqlite3_stmt* raw = nullptr;
    int result = sqlite3_prepare_v2(db, sql, -1, &raw, nullptr);
    std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> statement(raw, sqlite3_finalize);
    if (result == SQLITE_OK) {
        result = sqlite3_step(raw);
        if (result == SQLITE_ROW) {
            read(raw);
            result = SQLITE_OK;
        } else if (result == SQLITE_DONE) {
            result = SQLITE_OK;
        }
    }
    if (result != SQLITE_OK && message) *message = sqlite3_errmsg(db);
    return result;
}

std::optional<Instant> optionalReal(sqlite3_stmt* row, int column) {
    if (sqlite3_column_type(row, column) == SQLITE_NULL) return std::nullopt;
    return sqlite3_column_double(row, column);
}

[[noreturn]] void refuse(const fs::path& file, std::string_view french, std::string_view english,
                         const std::string& detail = {}) {
    throw BackupError(fmt::format("{} {}{}", file.string(), L10n::text(french, english),
                                  detail.empty() ? "" : " (" + detail + ")"));
}

std::int64_t readVersion(sqlite3* db, const fs::path& file) {
    std::int64_t version = 0;
    std::string message;
    int result = queryRow(db, "PRAGMA user_version", [&](sqlite3_stmt* row) { version = sqlite3_column_int64(row, 0); },
                          &message);
    if ((result & 0xff) == SQLITE_NOTADB)
        refuse(file, "n'est pas une base de données.", "is not a database.");
    if (result != SQLITE_OK) refuse(file, "est illisible ou endommagé.", "is unreadable or damaged.", message);
    return version;
}

void checkOwnTables(sqlite3* db, const fs::path& file, std::int64_t version) {
    std::int64_t found = 0;
    std::string message;
    int result = queryRow(db,
                          "SELECT COUNT(*) FROM sqlite_master WHERE type = 'table' AND name IN "
                          "('activity', 'assignment', 'category', 'client', 'project')",
                          [&](sqlite3_stmt* row) { found = sqlite3_column_int64(row, 0); }, &message);
    if (result != SQLITE_OK) refuse(file, "est endommagé.", "is damaged.", message);
    if (version < 1 || found != 5)
        refuse(file, "n'est pas une base d'Ombrelo.", "is not an Ombrelo database.");
}

void checkPages(sqlite3* db, const fs::path& file) {
    std::string verdict, message;
    int result = queryRow(
        db, "PRAGMA integrity_check(1)",
        [&](sqlite3_stmt* row) { verdict = reinterpret_cast<const char*>(sqlite3_column_text(row, 0)); }, &message);
    if (result != SQLITE_OK) refuse(file, "est endommagé.", "is damaged.", message);
    if (verdict != "ok") refuse(file, "est endommagé.", "is damaged.", verdict);
}

void syncToDisk(const fs::path& file) {
    int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return;
    ::fsync(fd);
    ::close(fd);
}

} // namespace

fs::path unusedName(const fs::path& path, std::string_view extension) {
    auto named = [&](const std::string& suffix) {
        fs::path file = path;
        file += suffix;
        file += extension;
        return file;
    };
    std::error_code error;
    fs::path file = named("");
    for (int copy = 2; fs::exists(file, error); ++copy) file = named("-" + std::to_string(copy));
    return file;
}

std::string fileStamp(Instant t) {
    local::DateParts p = local::parts(t);
    return fmt::format("{:04}-{:02}-{:02}-{:02}{:02}{:02}", p.year, p.month, p.day, p.hour, p.minute, p.second);
}

BackupContents inspectBackup(const fs::path& file, PageCheck pages) {
    std::error_code error;
    if (!fs::is_regular_file(file, error))
        refuse(file, "n'existe pas ou n'est pas un fichier.", "does not exist or is not a file.");
    Connection db = openReadOnly(file);
    BackupContents contents;
    contents.schemaVersion = readVersion(db.get(), file);
    if (contents.schemaVersion > Database::schemaVersion)
        refuse(file, "vient d'une version plus récente d'Ombrelo", "comes from a newer version of Ombrelo",
               fmt::format("schema {} > {}", contents.schemaVersion, Database::schemaVersion));
    checkOwnTables(db.get(), file, contents.schemaVersion);
    if (pages == PageCheck::full) checkPages(db.get(), file);
    std::string message;
    int result = queryRow(
        db.get(), "SELECT COUNT(*), MIN(start), MAX(end) FROM activity",
        [&](sqlite3_stmt* row) {
            contents.activities = sqlite3_column_int64(row, 0);
            contents.firstStart = optionalReal(row, 1);
            contents.lastEnd = optionalReal(row, 2);
        },
        &message);
    if (result != SQLITE_OK) refuse(file, "est endommagé.", "is damaged.", message);
    return contents;
}

BackupContents copyDatabase(const fs::path& source, const fs::path& target) {
    auto failed = [&](const std::string& why) {
        return BackupError(fmt::format("{}{}{}{}", L10n::text("Copie impossible vers ", "Cannot copy to "),
                                       target.string(), L10n::text(" : ", ": "), why));
    };
    std::error_code error;
    if (fs::exists(target, error)) throw failed(std::string(L10n::text("le fichier existe déjà", "the file exists")));
    if (target.has_parent_path()) {
        fs::create_directories(target.parent_path(), error);
        if (error) throw failed(error.message());
    }
    // Written under another name, so that a copy cut short (a full disk, a stop)
    // is never taken for a backup.
    fs::path partial = target;
    partial += ".partial";
    fs::remove(partial, error);

    Connection db = openReadOnly(source);
    std::int64_t version = readVersion(db.get(), source);
    sqlite3_stmt* raw = nullptr;
    int result = sqlite3_prepare_v2(db.get(), "VACUUM INTO ?", -1, &raw, nullptr);
    if (result == SQLITE_OK) {
        sqlite3_bind_text(raw, 1, partial.c_str(), -1, SQLITE_TRANSIENT);
        result = sqlite3_step(raw);
        if (result == SQLITE_DONE) result = SQLITE_OK;
    }
    std::string message = result == SQLITE_OK ? "" : sqlite3_errmsg(db.get());
    sqlite3_finalize(raw);
    db.reset();
    try {
        if (result != SQLITE_OK) throw failed(message);
        BackupContents contents;
        try {
            contents = inspectBackup(partial);
        } catch (const BackupError& check) {
            throw failed(std::string(L10n::text("la copie ne passe pas la vérification : ",
                                                "the copy fails its check: ")) + check.what());
        }
        if (contents.schemaVersion != version)
            throw failed(fmt::format("{} ({} ≠ {})", L10n::text("version du schéma changée", "schema version changed"),
                                     contents.schemaVersion, version));
        syncToDisk(partial);
        fs::rename(partial, target);
        syncToDisk(target.parent_path());
        return contents;
    } catch (const fs::filesystem_error& move) {
        fs::remove(partial, error);
        throw failed(move.code().message());
    } catch (...) {
        fs::remove(partial, error);
        throw;
    }
}

} // namespace ombrelo
