// Our GNOME Shell extension as a given GNOME Shell takes it: one shared body
// (windows.js), wrapped as a legacy script up to GNOME 44 and as a module from
// GNOME 45, which changed how extensions are written.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace ombrelo {

inline constexpr const char* gnomeExtensionUUID = "ombrelo@ombrelo.fr";

// extension.js and metadata.json for GNOME Shell `major`, made from the
// shipped sources in `folder`. Throws std::runtime_error naming a missing file.
std::map<std::string, std::string> gnomeExtensionFiles(const std::filesystem::path& folder, int major);

// The major version of the installed GNOME Shell, from "GNOME Shell 43.9".
std::optional<int> gnomeShellMajor(const std::string& versionLine);

} // namespace ombrelo
