#include "control/RuntimeFolder.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fmt/format.h>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace ombrelo {

namespace fs = std::filesystem;

namespace {

// FNV-1a: the same name for the same path in every build and process.
std::uint64_t stableHash(const std::string& text) {
    std::uint64_t hash = 14695981039346656037ull;
    for (unsigned char c : text) hash = (hash ^ c) * 1099511628211ull;
    return hash;
}

fs::path folderPath() {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime && *runtime) return fs::path(runtime) / "ombrelo";
    return fs::temp_directory_path() / ("ombrelo-" + std::to_string(::getuid()));
}

} // namespace

fs::path runtimeFolder() {
    fs::path folder = folderPath();
    fs::create_directories(folder.parent_path());
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST)
        throw std::system_error(errno, std::generic_category(), folder.string());
    struct stat status {};
    if (::lstat(folder.c_str(), &status) != 0) throw std::system_error(errno, std::generic_category(), folder.string());
    if (!S_ISDIR(status.st_mode) || status.st_uid != ::geteuid())
        throw std::system_error(EPERM, std::generic_category(), folder.string() + " (not a folder of this user)");
    if ((status.st_mode & 077) != 0 && ::chmod(folder.c_str(), 0700) != 0)
        throw std::system_error(errno, std::generic_category(), folder.string());
    return folder;
}

fs::path trackerFile(const fs::path& database, std::string_view suffix) {
    std::error_code ignored;
    fs::path absolute = fs::weakly_canonical(fs::absolute(database, ignored), ignored);
    return runtimeFolder() / fmt::format("tracker-{:016x}{}", stableHash(absolute.string()), suffix);
}

} // namespace ombrelo
