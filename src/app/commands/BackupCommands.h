// What other commands take from the backup commands: the backup a destructive
// command takes before it changes anything, and the lines about backups that
// `status` shows.
#pragma once

#include "backup/Backups.h"
#include "storage/PendingRestore.h"

#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>
#include <vector>

namespace ombrelo {

class Session;

namespace commands {

// Backs the database up into its backups folder, named after `reason`, and says
// where. Throws CommandFailure (status 2) when the backup cannot be written, so
// that nothing is destroyed without one.
void backUpBefore(Session& session, std::string_view reason);

// The backups of the session's database and its restores, as status shows them.
struct BackupState {
    std::filesystem::path folder;
    std::vector<BackupEntry> entries;  // newest first
    std::optional<BackupFailure> failure;
    std::optional<std::filesystem::path> scheduled;
    std::optional<RestoreResult> lastRestore;
};

BackupState backupState(Session& session);
// The newest backup and its age at `now`, the last automatic failure and the
// restores, as status fields or as the "backups" and "restore" members of its JSON.
void printBackupStatus(const BackupState& state, Instant now);
nlohmann::json backupStatusJSON(const BackupState& state, Instant now);

} // namespace commands
} // namespace ombrelo
