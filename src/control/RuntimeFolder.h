// RuntimeFolder: where the tracker's lock and control socket live, one pair per
// database: $XDG_RUNTIME_DIR/ombrelo/ (/tmp/ombrelo-<uid>/ without a runtime
// folder), private to the user.
#pragma once

#include <filesystem>
#include <string_view>

namespace ombrelo {

// The folder, made with mode 0700 when missing. Throws std::system_error when it
// cannot be made, or when it exists and belongs to someone else or is open to
// others (another user could then reach the tracker through it).
std::filesystem::path runtimeFolder();

// "<folder>/tracker-<hash of the database's absolute path><suffix>": the same
// name in every process for the same file.
std::filesystem::path trackerFile(const std::filesystem::path& database, std::string_view suffix);

} // namespace ombrelo
