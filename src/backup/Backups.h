// Backups: the folder of a database's backups (`backups/` beside the file),
// named by the local date and time they were taken and, for those taken before a
// destructive command, the command: "ombrelo-2026-11-23-014502-forget.sqlite".
// The name is the record: listing, retention and restore by date read names
// only, so a backup copied back into the folder by hand is found again.
#pragma once

#include "storage/BackupFile.h"
#include "support/Clock.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ombrelo {

class Preferences;

struct BackupEntry {
    std::filesystem::path file;
    Instant takenAt = 0;
    std::string reason;  // empty for the daily and manual ones
    std::uintmax_t size = 0;
    std::optional<BackupContents> contents;  // known when it was just taken
};

// How many backups are kept: every backup of the `days` most recent days that
// have one, and the first backup of each of the `months` most recent months
// that have one. Counting days with backups rather than calendar days keeps a
// history through weeks when the computer stayed off.
struct Retention {
    std::int64_t days = 14;
    std::int64_t months = 12;
    static Retention fromPreferences(const Preferences& preferences);
};

// The entries `retention` lets go, from any list.
std::vector<BackupEntry> beyondRetention(const std::vector<BackupEntry>& entries, const Retention& retention);

// Why the last automatic backup failed, kept until one succeeds.
struct BackupFailure {
    Instant at = 0;
    std::string message;
};

class Backups {
public:
    explicit Backups(std::filesystem::path database);

    const std::filesystem::path& folder() const { return folder_; }
    // Newest first; files of other databases and stray files are left out.
    std::vector<BackupEntry> list() const;
    // The local day's backups, newest first.
    std::vector<BackupEntry> onDay(Instant day) const;

    // Writes and checks a backup of the database now. Throws BackupError.
    BackupEntry take(Instant now, std::string_view reason = {}) const;
    // Deletes what `retention` lets go, except a backup scheduled for restoring;
    // returns what went.
    std::vector<BackupEntry> prune(const Retention& retention) const;

    void recordFailure(const BackupFailure& failure) const;
    void clearFailure() const;
    std::optional<BackupFailure> lastFailure() const;

private:
    std::optional<BackupEntry> parse(const std::filesystem::directory_entry& file) const;
    std::filesystem::path failureFile() const;

    std::filesystem::path database_;
    std::filesystem::path folder_;
    std::string prefix_;  // the database's file stem and "-"
};

} // namespace ombrelo
