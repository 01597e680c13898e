// PendingRestore: the hook through which a backup the user chose is swapped in
// before the database is opened. Backups are not built yet, so there is never a
// restore pending.
#pragma once

#include "support/Clock.h"

#include <filesystem>
#include <string>

namespace ombrelo {

enum class RestoreOutcome { restored, failed, nothingToDo };

struct RestoreResult {
    RestoreOutcome outcome = RestoreOutcome::nothingToDo;
    std::string message;  // why it failed
};

// Called with the database file and the current time before the file is opened.
RestoreResult applyPendingRestore(const std::filesystem::path& database, Instant now);

} // namespace ombrelo
