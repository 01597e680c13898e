#include "storage/PendingRestore.h"

#include "storage/BackupFile.h"
#include "support/AtomicFile.h"
#include "support/L10n.h"
#include "support/LocalTime.h"

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <sqlite3.h>
#include <sys/file.h>
#include <unistd.h>
#include <vector>

namespace ombrelo {

namespace fs = std::filesystem;

std::string_view rawValue(RestoreOutcome outcome) {
    switch (outcome) {
    case RestoreOutcome::restored: return "restored";
    case RestoreOutcome::failed: return "failed";
    case RestoreOutcome::nothingToDo: return "nothing";
    }
    return {};
}

namespace {

fs::path beside(const fs::path& database, std::string_view suffix) {
    fs::path file = database;
    file += suffix;
    return file;
}

fs::path marker(const fs::path& database) { return beside(database, ".restore"); }
fs::path outcomeFile(const fs::path& database) { return beside(database, ".restore-outcome"); }

void record(const fs::path& database, const RestoreResult& result) {
    nlohmann::json entry{{"outcome", rawValue(result.outcome)},
                         {"message", result.message},
                         {"backup", result.backup.string()},
                         {"kept_aside", result.keptAside.string()},
                         {"at", result.at.value_or(0)}};
    try {
        writeFileAtomically(outcomeFile(database), entry.dump() + "\n", 0600);
    } catch (const std::system_error&) {
        // The outcome is also logged by the opening; status then shows an older one.
    }
}

RestoreResult failure(const fs::path& database, const fs::path& backup, Instant now, std::string message) {
    RestoreResult result{RestoreOutcome::failed, std::move(message), backup, {}, now};
    record(database, result);
    return result;
}

// Whether another connection has the database open, found by asking SQLite to
// leave WAL mode: it can only while no one else holds the file. That also folds
// the WAL into the file, so the replaced database is whole on its own. A file
// SQLite cannot read at all (the damage a restore repairs) is in no one's use.
enum class Exclusive { yes, inUse };

Exclusive takeOver(const fs::path& database) {
    sqlite3* raw = nullptr;
    int result = sqlite3_open_v2(database.c_str(), &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    std::unique_ptr<sqlite3, int (*)(sqlite3*)> db(raw, sqlite3_close);
    if (result != SQLITE_OK) return Exclusive::yes;
    sqlite3_busy_timeout(raw, 100);
    sqlite3_stmt* pragma = nullptr;
    result = sqlite3_prepare_v2(raw, "PRAGMA journal_mode = DELETE", -1, &pragma, nullptr);
    if (result == SQLITE_OK) result = sqlite3_step(pragma);
    // A mode that could not change is answered with the old one, or with "locked".
    bool left = result == SQLITE_ROW &&
                std::string_view(reinterpret_cast<const char*>(sqlite3_column_text(pragma, 0))) == "delete";
    sqlite3_finalize(pragma);
    int primary = result & 0xff;
    bool unreadable = primary == SQLITE_NOTADB || primary == SQLITE_CORRUPT;
    return left || unreadable ? Exclusive::yes : Exclusive::inUse;
}

using Moves = std::vector<std::pair<fs::path, fs::path>>;

// Moves the database and whatever journal SQLite left beside it to `aside`,
// keeping their suffixes so the set-aside copy opens as it was. `moved` says
// what went, so that a failure can put it back.
void setAside(const fs::path& database, const fs::path& aside, Moves& moved) {
    for (std::string_view suffix : {"", "-wal", "-shm", "-journal"}) {
        fs::path from = beside(database, suffix);
        std::error_code missing;
        if (!suffix.empty() && !fs::exists(from, missing)) continue;
        fs::rename(from, beside(aside, suffix));
        moved.emplace_back(from, beside(aside, suffix));
    }
}

// False when something could not go back; the message then names the aside file.
bool putBack(const Moves& moved) {
    bool whole = true;
    for (auto move = moved.rbegin(); move != moved.rend(); ++move) {
        std::error_code error;
        fs::rename(move->second, move->first, error);
        whole = whole && !error;
    }
    return whole;
}

// Openings take turns at a scheduled restore: one swaps the file while the
// others wait, then find nothing scheduled and open the restored file.
class RestoreTurn {
public:
    explicit RestoreTurn(const fs::path& database)
        : fd_(::open(beside(database, ".restore.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
        if (fd_ >= 0)
            while (::flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
            }
    }
    ~RestoreTurn() {
        if (fd_ >= 0) ::close(fd_);
    }
    RestoreTurn(const RestoreTurn&) = delete;
    RestoreTurn& operator=(const RestoreTurn&) = delete;

private:
    int fd_;
};

} // namespace

void scheduleRestore(const fs::path& database, const fs::path& backup) {
    inspectBackup(backup);
    writeFileAtomically(marker(database), fs::absolute(backup).string() + "\n", 0600);
}

bool cancelRestore(const fs::path& database) {
    std::error_code error;
    return fs::remove(marker(database), error);
}

std::optional<fs::path> scheduledRestore(const fs::path& database) {
    std::optional<std::string> text = readWholeFile(marker(database));
    if (!text) return std::nullopt;
    while (!text->empty() && (text->back() == '\n' || text->back() == '\r')) text->pop_back();
    return fs::path(*text);
}

RestoreResult applyPendingRestore(const fs::path& database, Instant now) {
    if (!scheduledRestore(database)) return {};
    RestoreTurn turn(database);
    std::optional<fs::path> backup = scheduledRestore(database);  // another opening may have applied it
    if (!backup) return {};
    std::error_code error;
    bool replacing = fs::exists(database, error);
    if (replacing && takeOver(database) == Exclusive::inUse)
        return {RestoreOutcome::nothingToDo,
                std::string(L10n::text("la base est ouverte par un autre processus (le suivi ?) ; la restauration "
                                       "attend qu'elle soit libre",
                                       "the database is open in another process (the tracker?); the restore waits "
                                       "until it is free")),
                *backup};
    RestoreResult result{RestoreOutcome::restored, {}, *backup, {}, now};
    // Copied first under another name: a copy cut short (a full disk) leaves the
    // database where it was. Copied by SQLite, so that a backup left in WAL mode
    // comes with what its journal holds.
    fs::path incoming = beside(database, ".restoring");
    fs::remove(incoming, error);
    Moves moved;
    try {
        copyDatabase(*backup, incoming);
        if (replacing) {
            result.keptAside = unusedName(beside(database, ".replaced-" + fileStamp(now)));
            setAside(database, result.keptAside, moved);
        }
        fs::rename(incoming, database);
    } catch (const std::exception& failed) {  // BackupError or filesystem_error
        fs::remove(incoming, error);
        std::string message = failed.what();
        if (!putBack(moved))
            message += std::string(L10n::text(" ; la base remplacée est restée sous ",
                                              "; the replaced database stayed as ")) + result.keptAside.string();
        cancelRestore(database);
        return failure(database, *backup, now, message);
    }
    cancelRestore(database);
    record(database, result);
    return result;
}

std::optional<RestoreResult> lastRestore(const fs::path& database) {
    std::optional<std::string> text = readWholeFile(outcomeFile(database));
    if (!text) return std::nullopt;
    nlohmann::json entry = nlohmann::json::parse(*text, nullptr, false);
    if (!entry.is_object()) return std::nullopt;
    RestoreResult result;
    result.outcome = entry.value("outcome", "") == rawValue(RestoreOutcome::restored) ? RestoreOutcome::restored
                                                                                      : RestoreOutcome::failed;
    result.message = entry.value("message", "");
    result.backup = entry.value("backup", "");
    result.keptAside = entry.value("kept_aside", "");
    result.at = entry.value("at", 0.0);
    return result;
}

} // namespace ombrelo
