#include "app/GnomeExtensionFiles.h"

#include "support/AtomicFile.h"

#include <regex>
#include <stdexcept>

namespace ombrelo {

namespace fs = std::filesystem;

namespace {

constexpr int firstModuleVersion = 45;

std::string read(const fs::path& file) {
    std::optional<std::string> text = readWholeFile(file);
    if (!text) throw std::runtime_error("missing extension file: " + file.string());
    return *text;
}

std::string replaced(std::string text, const std::string& marker, const std::string& value) {
    auto at = text.find(marker);
    if (at == std::string::npos) throw std::runtime_error("extension template without " + marker);
    return text.replace(at, marker.size(), value);
}

} // namespace

std::map<std::string, std::string> gnomeExtensionFiles(const fs::path& folder, int major) {
    bool module = major >= firstModuleVersion;
    std::string versions = module ? R"(["45", "46", "47", "48", "49", "50"])" : R"(["42", "43", "44"])";
    return {{"extension.js", replaced(read(folder / (module ? "module.js" : "legacy.js")), "@WINDOWS@",
                                      read(folder / "windows.js"))},
            {"metadata.json", replaced(read(folder / "metadata.json"), "@VERSIONS@", versions)}};
}

std::optional<int> gnomeShellMajor(const std::string& versionLine) {
    static const std::regex pattern(R"(GNOME Shell (\d+))");
    std::smatch match;
    if (!std::regex_search(versionLine, match, pattern)) return std::nullopt;
    return std::stoi(match[1]);
}

} // namespace ombrelo
