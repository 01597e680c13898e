#include "platform/linux/DocumentPaths.h"

#include "support/Fold.h"

#include <string>
#include <vector>

namespace ombrelo::platform {

namespace fs = std::filesystem;

namespace {

std::optional<fs::path> expand(std::string_view text, const fs::path& home) {
    text = trim(text);
    if (text == "~") return home;
    if (text.starts_with("~/")) return home / std::string(text.substr(2));
    if (text.starts_with("/")) return fs::path(std::string(text));
    return std::nullopt;
}

bool isFile(const fs::path& path) {
    std::error_code error;
    return fs::is_regular_file(path, error);
}

bool isFolder(const fs::path& path) {
    std::error_code error;
    return fs::is_directory(path, error);
}

// Unsaved and read-only marks editors put around the name: "*notes.txt",
// "● notes.txt", "notes.txt +" (vim), "notes.txt [+]".
std::string_view withoutMarks(std::string_view name) {
    name = trim(name);
    for (std::string_view lead : {"*", "●", "•"})
        if (name.starts_with(lead)) name = trim(name.substr(lead.size()));
    for (std::string_view tail : {" [+]", " [-]", " +", " =", " -", " *", " +=", " -+"})
        if (name.ends_with(tail)) name = trim(name.substr(0, name.size() - tail.size()));
    return name;
}

// Every place the title splits into "what" and the application's name.
std::vector<std::size_t> separators(std::string_view title) {
    std::vector<std::size_t> found;
    for (std::string_view separator : {" - ", " — ", " – "})
        for (std::size_t at = title.find(separator); at != std::string_view::npos; at = title.find(separator, at + 1))
            found.push_back(at);
    return found;
}

} // namespace

std::optional<fs::path> pathFromEditorTitle(std::string_view title, const fs::path& home) {
    std::vector<std::string_view> heads{title};
    for (std::size_t at : separators(title)) heads.push_back(title.substr(0, at));
    for (std::string_view head : heads) {
        head = withoutMarks(head);
        // "NAME (FOLDER)"
        if (head.ends_with(')')) {
            std::size_t open = head.rfind(" (");
            if (open != std::string_view::npos) {
                std::string_view name = withoutMarks(head.substr(0, open));
                auto folder = expand(head.substr(open + 2, head.size() - open - 3), home);
                if (folder && !name.empty() && name.find('/') == std::string_view::npos) {
                    fs::path file = *folder / std::string(name);
                    if (isFile(file)) return file;
                }
            }
        }
        // A full path first.
        if (auto file = expand(head, home); file && isFile(*file)) return file;
    }
    return std::nullopt;
}

std::optional<fs::path> folderFromShellTitle(std::string_view title, const fs::path& home) {
    std::size_t at = title.find('@');
    if (at == std::string_view::npos || at == 0) return std::nullopt;
    std::size_t colon = title.find(':', at);
    if (colon == std::string_view::npos) return std::nullopt;
    // "user@host" holds no spaces.
    if (title.substr(0, colon).find(' ') != std::string_view::npos) return std::nullopt;
    auto folder = expand(title.substr(colon + 1), home);
    if (folder && isFolder(*folder)) return folder;
    return std::nullopt;
}

} // namespace ombrelo::platform
