// What other commands take from the backup commands: the backup a destructive
// command takes before it changes anything, and the lines about backups that
// `status` shows.
#pragma once

#include <nlohmann/json.hpp>
#include <string_view>

namespace ombrelo {

class Session;

namespace commands {

// Backs the database up into its backups folder, named after `reason`, and says
// where. Throws CommandFailure (status 2) when the backup cannot be written, so
// that nothing is destroyed without one.
void backUpBefore(Session& session, std::string_view reason);

// The newest backup, its age, the last automatic failure and the restores, as
// status fields or as the "backups" and "restore" members of its JSON.
void printBackupStatus(Session& session);
nlohmann::json backupStatusJSON(Session& session);

} // namespace commands
} // namespace ombrelo
