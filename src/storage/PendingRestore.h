// PendingRestore: a backup the user chose, swapped in for the database file at
// the next opening that has the file to itself. The choice is a small file
// beside the database (`<database>.restore`, holding the backup's path); the
// replaced database is kept beside it as `<database>.replaced-<date-time>`; the
// last outcome is kept in `<database>.restore-outcome` for `status`.
#pragma once

#include "support/Clock.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace ombrelo {

enum class RestoreOutcome { restored, failed, nothingToDo };

// "restored", "failed", "nothing": as files and JSON name it.
std::string_view rawValue(RestoreOutcome outcome);

struct RestoreResult {
    RestoreOutcome outcome = RestoreOutcome::nothingToDo;
    std::string message;                  // why it failed, or why it waits
    std::filesystem::path backup;         // the file restored or refused
    std::filesystem::path keptAside;      // where the replaced database went; empty when there was none
    std::optional<Instant> at;            // when it happened (restored or failed)
};

// Checks `backup` (BackupFile's inspectBackup, which throws BackupError) and
// then schedules it for `database`, replacing an earlier choice.
void scheduleRestore(const std::filesystem::path& database, const std::filesystem::path& backup);
// Drops the scheduled restore; false when there was none.
bool cancelRestore(const std::filesystem::path& database);
std::optional<std::filesystem::path> scheduledRestore(const std::filesystem::path& database);

// Called with the database file and the current time before the file is
// opened. Nothing to do when no restore is scheduled, and also while another
// connection has the database open (the restore then stays scheduled, and
// `message` says so). A backup that no longer passes its check fails, and the
// schedule is dropped. Restored and failed outcomes are recorded.
RestoreResult applyPendingRestore(const std::filesystem::path& database, Instant now);

// The last recorded outcome (restored or failed).
std::optional<RestoreResult> lastRestore(const std::filesystem::path& database);

} // namespace ombrelo
