// Database: the one SQLite connection of the process, to the single file that
// holds everything Ombrelo records. Opening locates the file, refuses a file from
// a newer version without writing to it, and migrates older files step by step
// to the current schema. Every store holds a reference to the same Database and
// writes its own SQL through prepare/run/execute.
//
// Lives on the main loop's thread; not thread-safe. Other processes may open the
// same file: WAL and a 2 s busy timeout make that safe.
#pragma once

#include "storage/Errors.h"
#include "support/SharedText.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <variant>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace ombrelo {

// A value bound to a statement parameter: 64-bit integer, double, UTF-8 text or
// NULL.
using SQLValue = std::variant<std::int64_t, double, std::string, std::nullptr_t>;

inline SQLValue sqlText(const std::optional<std::string>& text) {
    return text ? SQLValue(*text) : SQLValue(nullptr);
}
inline SQLValue sqlText(const SharedText& text) { return text ? SQLValue(*text) : SQLValue(nullptr); }
inline SQLValue sqlInt(const std::optional<std::int64_t>& value) {
    return value ? SQLValue(*value) : SQLValue(nullptr);
}

// A prepared statement with its bound values. When it goes out of scope it is
// finalized, or reset and handed back to its Database's cache.
class Statement {
public:
    ~Statement();
    Statement(Statement&& other) noexcept;
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    Statement& operator=(Statement&&) = delete;

    // Advances to the next row: true when a row is available, false when done.
    // Throws DatabaseError on any other result.
    bool step();

    int columnCount() const;
    std::string columnName(int column) const;
    bool isNull(int column) const;
    std::int64_t int64(int column) const;
    double real(int column) const;
    // NULL reads as absent.
    std::optional<std::string> text(int column) const;
    // The same without a copy, valid until the next step.
    std::optional<std::string_view> textView(int column) const;
    std::optional<std::int64_t> optionalInt64(int column) const;
    std::optional<double> optionalReal(int column) const;
    // The column as a SQLValue of its storage class.
    SQLValue value(int column) const;

private:
    friend class Database;
    // `inUse` is the cache entry's flag for a cached statement, else nullptr.
    Statement(sqlite3* db, sqlite3_stmt* statement, bool* inUse) : db_(db), statement_(statement), inUse_(inUse) {}

    sqlite3* db_;
    sqlite3_stmt* statement_;
    bool* inUse_;
};

class Database {
public:
    static constexpr std::int64_t schemaVersion = 11;

    // The database file: $OMBRELO_DB when set; otherwise
    // $XDG_DATA_HOME/ombrelo/ombrelo.sqlite for an installed release build and
    // ombrelo-dev.sqlite for every other build, so development never touches the
    // user's real data.
    static std::filesystem::path defaultURL();

    // Opens or creates the database at `path` and migrates it to schemaVersion.
    // Throws std::filesystem::filesystem_error when the folder cannot be made,
    // DatabaseError when SQLite fails, NewerDatabaseError for a newer file (then
    // left byte for byte as it was).
    explicit Database(const std::filesystem::path& path);
    ~Database();

    // For testing: opens like the constructor above but migrates only up to
    // `version`, to make files of older versions.
    Database(const std::filesystem::path& path, std::int64_t targetVersion);

    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    const std::filesystem::path& path() const { return path_; }

    // Compiles one statement (or reuses the compiled one for the same text) and
    // binds `values` to parameters 1, 2, …
    Statement prepare(std::string_view sql, const std::vector<SQLValue>& values = {});
    // Prepares and steps once; the statement must finish. Returns the last
    // inserted row id.
    std::int64_t run(std::string_view sql, const std::vector<SQLValue>& values = {});
    // Runs a script of one or more statements.
    void execute(std::string_view sql);
    // Every row of a table, each as column → value; NULL columns are left out.
    std::vector<std::map<std::string, SQLValue>> dump(std::string_view table);

    // The first column of the first row, or absent when there is no row or it is NULL.
    std::optional<std::int64_t> queryInt(std::string_view sql, const std::vector<SQLValue>& values = {});

    // "PRAGMA user_version" (no row counts as 0).
    std::int64_t userVersion();
    // Changes whenever another connection commits to the file ("PRAGMA
    // data_version"); this connection's own writes leave it as it is.
    std::int64_t dataVersion();
    // How long a statement waits for another process's lock before failing with
    // "database is locked" (2000 ms from the opening). The capture loop shortens
    // it, so that a long write of another process cannot stall a sample for
    // seconds.
    void setBusyTimeout(int milliseconds);
    // Rows changed by the last statement.
    int changes() const;
    // True while a transaction is open on this connection.
    bool inTransaction() const;

private:
    // A compiled statement kept for its SQL text. Compiling is the largest cost
    // of the capture loop's writes (the sync triggers are compiled with each
    // insert and update), so each text is compiled once per connection.
    struct CachedStatement {
        sqlite3_stmt* statement = nullptr;
        bool inUse = false;  // a Statement holds it; a second user gets its own copy
    };
    static constexpr std::size_t maxCachedStatements = 256;

    static constexpr int busyMilliseconds = 2000;

    void open();
    void enableWAL();
    void close();
    sqlite3_stmt* compile(std::string_view sql);
    [[noreturn]] void fail() const;

    std::filesystem::path path_;
    sqlite3* db_ = nullptr;
    std::unordered_map<std::string, CachedStatement> statements_;
};

// A transaction that rolls back unless committed. At the outermost level it is
// "BEGIN IMMEDIATE" … "COMMIT" / "ROLLBACK", holding the write lock from the
// start; inside another transaction it becomes a savepoint, so a store's
// transaction can run inside a larger one (a replayed session's rows and their
// claims).
class Transaction {
public:
    explicit Transaction(Database& db);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void commit();

private:
    Database& db_;
    std::string savepoint_;  // empty at the outermost level
    bool done_ = false;
};

} // namespace ombrelo
