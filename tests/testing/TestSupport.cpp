#include "testing/TestSupport.h"

#include "support/L10n.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <optional>
#include <sqlite3.h>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ombrelo::testing {

namespace fs = std::filesystem;

TempDir::TempDir() {
    std::string pattern = (fs::temp_directory_path() / "ombrelo-test-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

ScopedTimeZone::ScopedTimeZone(const char* zone) {
    const char* current = std::getenv("TZ");
    had_ = current != nullptr;
    if (had_) previous_ = current;
    ::setenv("TZ", zone, 1);
    ::tzset();
}

ScopedTimeZone::~ScopedTimeZone() {
    if (had_) ::setenv("TZ", previous_.c_str(), 1);
    else ::unsetenv("TZ");
    ::tzset();
}

ScopedLanguage::ScopedLanguage(const char* code) : previous_(L10n::language()) { L10n::setLanguage(code); }

ScopedLanguage::~ScopedLanguage() { L10n::setLanguage(previous_); }

std::string readFile(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

void writeFile(const fs::path& file, const std::string& text) {
    if (file.has_parent_path()) fs::create_directories(file.parent_path());
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out << text;
}

ScopedEnvironment::ScopedEnvironment(const char* name, const std::optional<std::string>& value) : name_(name) {
    if (const char* old = std::getenv(name)) previous_ = old;
    if (value) ::setenv(name, value->c_str(), 1);
    else ::unsetenv(name);
}

ScopedEnvironment::~ScopedEnvironment() {
    if (previous_) ::setenv(name_.c_str(), previous_->c_str(), 1);
    else ::unsetenv(name_.c_str());
}

CommandResult runOmbrelo(const fs::path& home, const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment, const std::optional<fs::path>& input) {
    fs::path outFile = home / ".ombrelo-out", errFile = home / ".ombrelo-err";
    fs::create_directories(home / "run");
    fs::permissions(home / "run", fs::perms::owner_all);
    pid_t child = ::fork();
    if (child == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // never outlives a test that crashed
        int out = ::open(outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        int err = ::open(errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ::dup2(out, 1);
        ::dup2(err, 2);
        int in = ::open(input ? input->c_str() : "/dev/null", O_RDONLY);
        ::dup2(in, 0);
        ::setenv("HOME", home.c_str(), 1);
        ::setenv("XDG_DATA_HOME", (home / "data").c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", (home / "config").c_str(), 1);
        ::setenv("XDG_RUNTIME_DIR", (home / "run").c_str(), 1);
        ::unsetenv("OMBRELO_DB");
        ::setenv("OMBRELO_LOG", "warn", 1);
        for (const std::string& entry : environment) ::putenv(const_cast<char*>(entry.c_str()));
        std::vector<char*> argv{const_cast<char*>(OMBRELO_BINARY)};
        for (const std::string& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        ::execv(OMBRELO_BINARY, argv.data());
        ::_exit(127);
    }
    // A command that hangs fails its test instead of the whole suite.
    int status = 0;
    auto deadline = std::chrono::steady_clock::now() + commandTimeout;
    while (::waitpid(child, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() >= deadline) {
            ::kill(child, SIGKILL);
            ::waitpid(child, &status, 0);
            return {-1, readFile(outFile), readFile(errFile) + "\n[timed out and killed]"};
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(outFile), readFile(errFile)};
}

// ---- Invariants of the activity table ---------------------------------------

namespace {

// Read-only, so that a check never repairs or changes what it inspects.
class ReadOnlyConnection {
public:
    explicit ReadOnlyConnection(const fs::path& file) {
        if (::sqlite3_open_v2(file.c_str(), &db_, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
            error_ = db_ ? ::sqlite3_errmsg(db_) : "out of memory";
            ::sqlite3_close(db_);
            db_ = nullptr;
            return;
        }
        ::sqlite3_busy_timeout(db_, 2000);
    }
    ~ReadOnlyConnection() { ::sqlite3_close(db_); }
    ReadOnlyConnection(const ReadOnlyConnection&) = delete;
    ReadOnlyConnection& operator=(const ReadOnlyConnection&) = delete;

    sqlite3* get() const { return db_; }
    const std::string& error() const { return error_; }

private:
    sqlite3* db_ = nullptr;
    std::string error_;
};

struct Row {
    std::int64_t id;
    double start, end;
    std::string appName, kind, device;
};

std::string localText(double t) {
    std::time_t whole = static_cast<std::time_t>(std::floor(t));
    std::tm parts{};
    ::localtime_r(&whole, &parts);
    char text[48];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    std::string out = text;
    if (double fraction = t - static_cast<double>(whole); fraction > 0) {
        char decimals[16];
        std::snprintf(decimals, sizeof decimals, "%.3f", std::min(fraction, 0.999));
        out += decimals + 1;  // from the point on
    }
    std::strftime(text, sizeof text, " %Z", &parts);  // CET or CEST: which side of a change
    return out + text;
}

std::string describe(const Row& row) {
    std::ostringstream out;
    out << "  id " << row.id << " [" << localText(row.start) << " -> " << localText(row.end) << "] "
        << row.appName << " (" << row.kind << ") device " << (row.device.empty() ? "NULL" : row.device)
        << " (" << std::to_string(row.start) << " -> " << std::to_string(row.end) << ")\n";
    return out.str();
}

// The start of the local day `days` after the one holding `t`. mktime resolves
// the wall-clock midnight, so DST days come out 23 or 25 hours long.
double localMidnight(double t, int days) {
    std::time_t whole = static_cast<std::time_t>(std::floor(t));
    std::tm parts{};
    ::localtime_r(&whole, &parts);
    parts.tm_mday += days;
    parts.tm_hour = parts.tm_min = parts.tm_sec = 0;
    parts.tm_isdst = -1;
    return static_cast<double>(std::mktime(&parts));
}

constexpr std::size_t maxListed = 20;

} // namespace

std::string integrityCheck(const fs::path& database) {
    ReadOnlyConnection connection(database);
    if (!connection.get()) return "cannot open: " + connection.error();
    sqlite3_stmt* statement = nullptr;
    if (::sqlite3_prepare_v2(connection.get(), "PRAGMA integrity_check", -1, &statement, nullptr) != SQLITE_OK)
        return std::string("cannot check: ") + ::sqlite3_errmsg(connection.get());
    std::string result;
    int status;
    while ((status = ::sqlite3_step(statement)) == SQLITE_ROW) {
        if (!result.empty()) result += '\n';
        const unsigned char* line = ::sqlite3_column_text(statement, 0);
        result += line ? reinterpret_cast<const char*>(line) : "";
    }
    if (status != SQLITE_DONE) result += std::string(result.empty() ? "" : "\n") + ::sqlite3_errmsg(connection.get());
    ::sqlite3_finalize(statement);
    return result;
}

void expectActivityInvariants(const fs::path& database) {
    ReadOnlyConnection connection(database);
    if (!connection.get()) {
        ADD_FAILURE() << "cannot open " << database << ": " << connection.error();
        return;
    }
    std::vector<Row> rows;
    {
        sqlite3_stmt* statement = nullptr;
        if (::sqlite3_prepare_v2(connection.get(),
                                 "SELECT id, start, end, app_name, kind, COALESCE(device, '') FROM activity "
                                 "ORDER BY COALESCE(device, ''), start, id",
                                 -1, &statement, nullptr) != SQLITE_OK) {
            ADD_FAILURE() << "cannot read " << database << ": " << ::sqlite3_errmsg(connection.get());
            return;
        }
        auto text = [&](int column) {
            const unsigned char* value = ::sqlite3_column_text(statement, column);
            return value ? std::string(reinterpret_cast<const char*>(value)) : std::string();
        };
        int status;
        while ((status = ::sqlite3_step(statement)) == SQLITE_ROW)
            rows.push_back({::sqlite3_column_int64(statement, 0), ::sqlite3_column_double(statement, 1),
                            ::sqlite3_column_double(statement, 2), text(3), text(4), text(5)});
        bool failed = status != SQLITE_DONE;
        std::string message = failed ? ::sqlite3_errmsg(connection.get()) : "";
        ::sqlite3_finalize(statement);
        if (failed) {
            ADD_FAILURE() << "cannot read " << database << ": " << message;
            return;
        }
    }

    // Overlaps: rows come by device then start, so a row overlaps an earlier
    // one exactly when it starts before the latest end seen so far on its device.
    {
        std::string listing;
        std::size_t count = 0;
        const Row* latest = nullptr;
        for (const Row& row : rows) {
            if (latest && latest->device != row.device) latest = nullptr;
            if (latest && latest->end > row.start) {
                if (++count <= maxListed) listing += describe(*latest) + describe(row) + "\n";
            }
            if (!latest || row.end > latest->end) latest = &row;
        }
        if (count > 0)
            ADD_FAILURE() << count << " row(s) overlapping an earlier row of the same device"
                          << (count > maxListed ? " (first " + std::to_string(maxListed) + ")" : "") << ":\n"
                          << listing;
    }

    // Rows crossing midnight; one ending exactly at midnight belongs to its day.
    {
        std::string listing;
        std::size_t count = 0;
        for (const Row& row : rows) {
            double midnight = localMidnight(row.start, 1);
            if (row.end > midnight) {
                if (++count <= maxListed)
                    listing += describe(row) + "    crosses midnight " + localText(midnight) + "\n";
            }
        }
        if (count > 0)
            ADD_FAILURE() << count << " row(s) spanning two local days"
                          << (count > maxListed ? " (first " + std::to_string(maxListed) + ")" : "") << ":\n"
                          << listing;
    }

    // Non-idle time per local day, clipped to the day.
    {
        std::map<double, double> totals;  // day start -> seconds
        for (const Row& row : rows) {
            if (row.kind == "idle" || !(row.end > row.start)) continue;
            for (double day = localMidnight(row.start, 0); day < row.end;) {
                double next = localMidnight(day, 1);
                if (next <= day) break;  // a broken zone must not hang the check
                totals[day] += std::min(row.end, next) - std::max(row.start, day);
                day = next;
            }
        }
        for (const auto& [day, seconds] : totals) {
            double length = localMidnight(day, 1) - day;
            if (seconds <= length + 1e-6) continue;
            std::string listing;
            std::size_t listed = 0;
            for (const Row& row : rows)
                if (row.kind != "idle" && row.end > day && row.start < day + length && ++listed <= maxListed)
                    listing += describe(row);
            ADD_FAILURE() << "the day of " << localText(day) << " lasts " << length << " s but holds " << seconds
                          << " s of non-idle activity; its rows" << (listed > maxListed ? " (first 20)" : "")
                          << ":\n"
                          << listing;
        }
    }
}

} // namespace ombrelo::testing
