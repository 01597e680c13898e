// BackupFile: a copy of the database taken while other connections write it,
// and the check that a file is an intact database of this program that it can
// open. Both work on their own connections, never on the program's one, so
// they can run beside the tracker and on files the program does not own.
#pragma once

#include "support/Clock.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace ombrelo {

// Why a file cannot serve as a backup, in the user's language.
class BackupError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// What a checked backup holds.
struct BackupContents {
    std::int64_t schemaVersion = 0;
    std::int64_t activities = 0;
    std::optional<Instant> firstStart, lastEnd;
};

enum class PageCheck { full, skip };

// Opens `file` read-only and checks it: it exists, is a SQLite database of this
// program's tables, with a schema version no newer than this program's, and
// (unless skipped, as a listing does) every page intact. Throws BackupError
// saying which check failed; reads only.
BackupContents inspectBackup(const std::filesystem::path& file, PageCheck pages = PageCheck::full);

// Writes a consistent copy of the database `source` to `target` (which must not
// exist) with VACUUM INTO, beside the writers of `source`, then checks the copy.
// A copy that cannot be written or fails its check is removed, and BackupError
// says why.
BackupContents copyDatabase(const std::filesystem::path& source, const std::filesystem::path& target);

// `path`, or when it is taken the first free of `path-2`, `path-3`… (the
// number before `extension` when given), so a file is never replaced.
std::filesystem::path unusedName(const std::filesystem::path& path, std::string_view extension = {});

// The local date and time as backups and set-aside files are named:
// "2026-11-23-014502", which sorts as it reads.
std::string fileStamp(Instant t);

} // namespace ombrelo
