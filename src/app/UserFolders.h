// Where the program finds the user's folders and the files it ships.
#pragma once

#include <filesystem>
#include <string_view>

namespace ombrelo {

// $HOME, else "/".
std::filesystem::path homeFolder();
// An XDG base folder: the variable when it holds an absolute path, else
// `fallback` under the home folder.
std::filesystem::path xdgFolder(const char* variable, const std::filesystem::path& fallback);
// A folder of files shipped with the program: installed beside it
// (<prefix>/share/ombrelo/<name>, when `marker` is in it), else the sources it
// was built from.
std::filesystem::path shippedFolder(std::string_view name, const std::filesystem::path& sources,
                                    std::string_view marker);

} // namespace ombrelo
