#include "app/UserFolders.h"

#include <cstdlib>

namespace ombrelo {

namespace fs = std::filesystem;

fs::path homeFolder() {
    const char* home = std::getenv("HOME");
    return home && *home ? fs::path(home) : fs::path("/");
}

fs::path xdgFolder(const char* variable, const fs::path& fallback) {
    const char* value = std::getenv(variable);
    return value && *value == '/' ? fs::path(value) : homeFolder() / fallback;
}

fs::path shippedFolder(std::string_view name, const fs::path& sources, std::string_view marker) {
    std::error_code error;
    fs::path program = fs::read_symlink("/proc/self/exe", error);
    fs::path installed = program.parent_path().parent_path() / "share/ombrelo" / name;
    if (!error && fs::exists(installed / marker)) return installed;
    return sources;
}

} // namespace ombrelo
