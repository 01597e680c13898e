#include "storage/Database.h"

#include "storage/PendingRestore.h"
#include "storage/Schema.h"
#include "support/Clock.h"
#include "support/Log.h"

#include <chrono>
#include <cstdlib>
#include <random>
#include <sqlite3.h>
#include <thread>
#include <unistd.h>

namespace ombrelo {

namespace fs = std::filesystem;

// ---- Statement -------------------------------------------------------------

Statement::~Statement() {
    if (!statement_) return;
    if (inUse_) {
        sqlite3_reset(statement_);
        sqlite3_clear_bindings(statement_);
        *inUse_ = false;
    } else {
        sqlite3_finalize(statement_);
    }
}

Statement::Statement(Statement&& other) noexcept : db_(other.db_), statement_(other.statement_), inUse_(other.inUse_) {
    other.statement_ = nullptr;
    other.inUse_ = nullptr;
}

bool Statement::step() {
    int result = sqlite3_step(statement_);
    if (result == SQLITE_ROW) return true;
    if (result == SQLITE_DONE) return false;
    throw DatabaseError(sqlite3_errmsg(db_), result);
}

int Statement::columnCount() const { return sqlite3_column_count(statement_); }

std::string Statement::columnName(int column) const { return sqlite3_column_name(statement_, column); }

bool Statement::isNull(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }

std::int64_t Statement::int64(int column) const { return sqlite3_column_int64(statement_, column); }

double Statement::real(int column) const { return sqlite3_column_double(statement_, column); }

std::optional<std::string> Statement::text(int column) const {
    auto view = textView(column);
    return view ? std::optional<std::string>(*view) : std::nullopt;
}

std::optional<std::string_view> Statement::textView(int column) const {
    const unsigned char* text = sqlite3_column_text(statement_, column);
    if (!text) return std::nullopt;
    return std::string_view(reinterpret_cast<const char*>(text),
                            static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)));
}

std::optional<std::int64_t> Statement::optionalInt64(int column) const {
    if (isNull(column)) return std::nullopt;
    return int64(column);
}

std::optional<double> Statement::optionalReal(int column) const {
    if (isNull(column)) return std::nullopt;
    return real(column);
}

SQLValue Statement::value(int column) const {
    switch (sqlite3_column_type(statement_, column)) {
    case SQLITE_INTEGER: return int64(column);
    case SQLITE_FLOAT: return real(column);
    case SQLITE_NULL: return nullptr;
    default: return *text(column);  // TEXT, and BLOB read as bytes
    }
}

// ---- Database --------------------------------------------------------------

namespace {

bool isInstalledReleaseBuild() {
#ifdef OMBRELO_RELEASE_BUILD
    std::error_code error;
    fs::path executable = fs::read_symlink("/proc/self/exe", error);
    return !error && executable.parent_path() == fs::path(OMBRELO_INSTALL_BINDIR);
#else
    return false;
#endif
}

fs::path dataHome() {
    const char* data = std::getenv("XDG_DATA_HOME");
    if (data && *data) return data;
    const char* home = std::getenv("HOME");
    return fs::path(home ? home : ".") / ".local" / "share";
}

} // namespace

fs::path Database::defaultURL() {
    if (const char* override = std::getenv("OMBRELO_DB"); override && *override) return override;
    return dataHome() / "ombrelo" / (isInstalledReleaseBuild() ? "ombrelo.sqlite" : "ombrelo-dev.sqlite");
}

Database::Database(const fs::path& path) : Database(path, schemaVersion) {}

Database::Database(const fs::path& path, std::int64_t targetVersion) : path_(path) {
    auto log = Log::get("database");
    if (path_.has_parent_path()) fs::create_directories(path_.parent_path());

    RestoreResult restore = applyPendingRestore(path_, Clock::system().now());
    if (restore.outcome == RestoreOutcome::restored)
        log->info("Sauvegarde restaurée : {} (base remplacée gardée sous {})", restore.backup.string(),
                  restore.keptAside.empty() ? "-" : restore.keptAside.string());
    else if (restore.outcome == RestoreOutcome::failed)
        log->error("Restauration impossible : {}", restore.message);

    open();
    try {
        std::int64_t found = userVersion();
        if (found > schemaVersion) {
            close();
            log->error("Base d'une version plus récente de Ombrelo ({}) : non ouverte", found);
            throw NewerDatabaseError(found, schemaVersion);
        }
        enableWAL();
        execute("PRAGMA foreign_keys = ON");
        // With WAL, NORMAL still never corrupts the file; it only lets the last
        // commits wait for the next checkpoint to reach the disk, instead of an
        // fsync at each five-second write of the capture loop.
        execute("PRAGMA synchronous = NORMAL");
        // The journals of savepoints (a store's transaction inside a larger one)
        // stay in memory: on disk, a replayed year wrote each page to a temporary
        // file again at every nested write.
        execute("PRAGMA temp_store = MEMORY");
        migrate(*this, targetVersion);
    } catch (...) {
        close();
        throw;
    }
    log->info("Base ouverte : {}", path_.string());
}

void Database::open() {
    // Opening read-only first would not help: SQLite writes nothing until asked,
    // and the version is read before any pragma that could write.
    // No mutex per call: the connection belongs to one thread (see the header).
    int result = sqlite3_open_v2(path_.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                                 nullptr);
    if (result != SQLITE_OK) {
        sqlite3_close(db_);
        db_ = nullptr;
        throw DatabaseError("Impossible d'ouvrir la base : " + path_.string());
    }
    sqlite3_busy_timeout(db_, busyMilliseconds);
}

void Database::enableWAL() {
    // Turning a new file to WAL needs it to itself. When other processes open
    // it at the same instant, each holds a read lock while asking for it, so
    // SQLite answers "locked" at once instead of letting the busy timeout wait:
    // the wait is done here, with random steps so that the contenders part.
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(busyMilliseconds);
    std::minstd_rand random(static_cast<unsigned>(::getpid()));
    for (;;) {
        int result = sqlite3_exec(db_, "PRAGMA journal_mode = WAL", nullptr, nullptr, nullptr);
        if (result == SQLITE_OK) return;
        if ((result & 0xff) != SQLITE_BUSY || std::chrono::steady_clock::now() > deadline) fail();
        std::this_thread::sleep_for(std::chrono::microseconds(500 + random() % 4500));
    }
}

Database::~Database() { close(); }

void Database::close() {
    for (auto& [sql, cached] : statements_) sqlite3_finalize(cached.statement);
    statements_.clear();
    sqlite3_close(db_);
    db_ = nullptr;
}

void Database::fail() const {
    throw DatabaseError(db_ ? sqlite3_errmsg(db_) : "", db_ ? sqlite3_extended_errcode(db_) : 0);
}

sqlite3_stmt* Database::compile(std::string_view sql) {
    sqlite3_stmt* raw = nullptr;
    int result = sqlite3_prepare_v2(db_, sql.data(), static_cast<int>(sql.size()), &raw, nullptr);
    if (result != SQLITE_OK || !raw) {
        sqlite3_finalize(raw);
        fail();
    }
    return raw;
}

Statement Database::prepare(std::string_view sql, const std::vector<SQLValue>& values) {
    auto cached = statements_.find(std::string(sql));
    if (cached == statements_.end() && statements_.size() < maxCachedStatements)
        cached = statements_.emplace(std::string(sql), CachedStatement{compile(sql), false}).first;
    Statement statement = cached != statements_.end() && !cached->second.inUse
                              ? Statement(db_, cached->second.statement, &cached->second.inUse)
                              : Statement(db_, compile(sql), nullptr);
    if (statement.inUse_) *statement.inUse_ = true;
    sqlite3_stmt* raw = statement.statement_;
    int index = 1;
    for (const SQLValue& value : values) {
        int bound = std::visit(
            [&](const auto& v) -> int {
                using T = std::decay_t<decltype(v)>;
                if constexpr (std::is_same_v<T, std::int64_t>) return sqlite3_bind_int64(raw, index, v);
                else if constexpr (std::is_same_v<T, double>) return sqlite3_bind_double(raw, index, v);
                else if constexpr (std::is_same_v<T, std::string>)
                    return sqlite3_bind_text(raw, index, v.c_str(), static_cast<int>(v.size()), SQLITE_TRANSIENT);
                else return sqlite3_bind_null(raw, index);
            },
            value);
        if (bound != SQLITE_OK) fail();
        ++index;
    }
    return statement;
}

std::int64_t Database::run(std::string_view sql, const std::vector<SQLValue>& values) {
    Statement statement = prepare(sql, values);
    if (statement.step()) throw DatabaseError("statement returned rows: " + std::string(sql));
    return sqlite3_last_insert_rowid(db_);
}

void Database::execute(std::string_view sql) {
    char* message = nullptr;
    std::string script(sql);
    if (int result = sqlite3_exec(db_, script.c_str(), nullptr, nullptr, &message); result != SQLITE_OK) {
        std::string description = message ? message : "";
        sqlite3_free(message);
        throw DatabaseError(description, result);
    }
}

std::vector<std::map<std::string, SQLValue>> Database::dump(std::string_view table) {
    Statement statement = prepare("SELECT * FROM " + std::string(table));
    std::vector<std::map<std::string, SQLValue>> rows;
    while (statement.step()) {
        auto& row = rows.emplace_back();
        for (int column = 0; column < statement.columnCount(); ++column)
            if (!statement.isNull(column)) row.emplace(statement.columnName(column), statement.value(column));
    }
    return rows;
}

std::optional<std::int64_t> Database::queryInt(std::string_view sql, const std::vector<SQLValue>& values) {
    Statement statement = prepare(sql, values);
    if (!statement.step()) return std::nullopt;
    return statement.optionalInt64(0);
}

std::int64_t Database::userVersion() { return queryInt("PRAGMA user_version").value_or(0); }

std::int64_t Database::dataVersion() { return queryInt("PRAGMA data_version").value_or(0); }

void Database::setBusyTimeout(int milliseconds) { sqlite3_busy_timeout(db_, milliseconds); }

int Database::changes() const { return sqlite3_changes(db_); }

bool Database::inTransaction() const { return db_ && sqlite3_get_autocommit(db_) == 0; }

// ---- Transaction -----------------------------------------------------------

Transaction::Transaction(Database& db) : db_(db) {
    static int depth = 0;
    if (db_.inTransaction()) {
        savepoint_ = "ombrelo_" + std::to_string(++depth);
        db_.execute("SAVEPOINT " + savepoint_);
    } else {
        // Every transaction writes. Taking the lock at BEGIN lets the busy
        // timeout wait for another process's write; a deferred transaction that
        // read first would fail at once (SQLITE_BUSY) when it came to write.
        db_.execute("BEGIN IMMEDIATE");
    }
}

Transaction::~Transaction() {
    if (done_) return;
    try {
        if (savepoint_.empty()) db_.execute("ROLLBACK");
        else db_.execute("ROLLBACK TO " + savepoint_ + "; RELEASE " + savepoint_);
    } catch (const DatabaseError&) {
        // The transaction may already be gone (SQLite rolls back on some errors).
    }
}

void Transaction::commit() {
    db_.execute(savepoint_.empty() ? "COMMIT" : "RELEASE " + savepoint_);
    done_ = true;
}

} // namespace ombrelo
