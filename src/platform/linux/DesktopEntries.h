// DesktopEntries: the installed applications' .desktop files, indexed so that a
// window or a process can be named by its application: by desktop id, by the
// window class the entry declares (StartupWMClass) and by the program it runs.
//
// Ids follow the desktop-entry rules, lower-cased: applications/kde/konsole.desktop
// is "kde-konsole"; the first folder that holds an id wins, and Hidden=true there
// hides the id altogether. Names are taken in the user's language (Name[fr_FR],
// Name[fr], then Name).
//
// Owned by the desktop back-end; main loop thread only.
#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ombrelo::platform {

struct DesktopEntry {
    std::string id;                   // lower-case, without ".desktop"
    std::string name;                 // in the user's language
    std::string windowClass;          // StartupWMClass, lower-cased; empty when none
    std::vector<std::string> programs;  // base names of Exec's program and TryExec
    bool terminalEmulator = false;    // Categories lists TerminalEmulator
    bool runsInTerminal = false;      // Terminal=true: the window is a terminal's
    bool noDisplay = false;
};

class DesktopEntries {
public:
    // `folders`: "applications" folders, most important first. `locale`: the
    // locale whose names to prefer ("fr_FR.UTF-8"); names fall back to Name.
    DesktopEntries(std::vector<std::filesystem::path> folders, std::string locale);

    // $XDG_DATA_HOME/applications then each $XDG_DATA_DIRS/applications, with
    // the standard defaults.
    static std::vector<std::filesystem::path> defaultFolders();

    // Each returns the entry or nullptr. Matching ignores case.
    const DesktopEntry* byID(std::string_view id) const;
    const DesktopEntry* byWindowClass(std::string_view windowClass) const;
    // Only when one application can be meant: programs shared by several
    // entries (a launcher such as "flatpak", "env") match nothing.
    const DesktopEntry* byProgram(std::string_view baseName) const;

    std::size_t size() const { return entries_.size(); }

    // Reads the folders again when one of them changed (an application was
    // installed); checks at most every `interval`. Returns true when reloaded.
    bool reloadIfChanged(std::chrono::steady_clock::duration interval = std::chrono::seconds(10));

private:
    void load();
    std::vector<std::filesystem::file_time_type> folderTimes() const;

    std::vector<std::filesystem::path> folders_;
    std::vector<std::string> nameKeys_;  // "Name[fr_FR]", "Name[fr]", "Name"
    std::map<std::string, DesktopEntry, std::less<>> entries_;
    std::map<std::string, std::string, std::less<>> byClass_;
    std::map<std::string, std::vector<std::string>, std::less<>> byProgram_;
    std::vector<std::filesystem::file_time_type> loadedTimes_;
    std::chrono::steady_clock::time_point lastCheck_;
};

// The locale whose application names suit the interface language: the
// environment's locale when it is of that language, else the language itself.
std::string nameLocale(const std::string& interfaceLanguage);

} // namespace ombrelo::platform
