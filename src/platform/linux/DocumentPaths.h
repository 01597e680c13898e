// DocumentPaths: the file or folder a window's title names, by the conventions
// that editors and shells follow. A path is returned only when it exists on
// disk, so a title that merely looks like a path records nothing.
//
//   "notes.txt (~/projets/site) - GVIM"  → ~/projets/site/notes.txt (vim, gedit,
//                                          pluma, xed: "NAME (FOLDER) - APP")
//   "~/projets/site/index.html - Mousepad" → that file (editors that show the
//                                          full path first)
//   "marie@poste: ~/projets/site"       → that folder (the shell prompt title
//                                          most distributions set in terminals)
//
// Stateless; any thread.
#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

namespace ombrelo::platform {

// `home` replaces a leading "~".
std::optional<std::filesystem::path> pathFromEditorTitle(std::string_view title, const std::filesystem::path& home);
std::optional<std::filesystem::path> folderFromShellTitle(std::string_view title, const std::filesystem::path& home);

} // namespace ombrelo::platform
