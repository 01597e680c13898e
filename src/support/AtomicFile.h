// AtomicFile: a file replaced whole or not at all. The bytes go to a temporary
// file beside the target, are flushed to disk, and the temporary is renamed over
// the target, so a reader sees the old file or the new one, never a part, and a
// failed write leaves nothing behind.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace ombrelo {

// Writes `bytes` to `path` atomically, the file created with `mode` less the
// process umask. Throws std::system_error (with the path) on failure, after
// removing the temporary file.
void writeFileAtomically(const std::filesystem::path& path, std::string_view bytes, mode_t mode = 0666);

// The whole of a small file such as the above writes, or nothing when it cannot
// be opened (most often: it does not exist).
std::optional<std::string> readWholeFile(const std::filesystem::path& path);

} // namespace ombrelo
