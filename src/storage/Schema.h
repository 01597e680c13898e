// Schema: the numbered migration steps that bring a database file from any older
// version to Database::schemaVersion. Each step runs in its own transaction and
// sets user_version inside it, so a failed step leaves the file at the previous
// version and the next opening resumes there. Processes opening the same file at
// once take turns: each step holds the write lock from its reading of the version.
#pragma once

#include <cstdint>

namespace ombrelo {

class Database;

// Runs every step above the file's user_version up to `target`. Throws
// DatabaseError from the first failing step, after rolling that step back.
void migrate(Database& db, std::int64_t target);

// Runs one step (1 … schemaVersion) inside its own transaction, unless the file
// is already at that version or beyond; for tests that build files of older
// versions.
void migrateStep(Database& db, std::int64_t step);

// Step 9: the identifiers, modification times, outbox and change triggers that
// synchronisation between the user's machines relies on. REQUIRES: inside the
// step's transaction.
void createSyncSchema(Database& db);

// Step 11: insert triggers that leave alone a row written with its identity,
// time and device. REQUIRES: inside the step's transaction.
void skipStampingCompleteRows(Database& db);

} // namespace ombrelo
