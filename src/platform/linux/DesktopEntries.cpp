#include "platform/linux/DesktopEntries.h"

#include "support/Fold.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>

namespace ombrelo::platform {

namespace fs = std::filesystem;

namespace {

// Programs that start other programs: an entry's Exec naming one of them says
// nothing about which application a process running it belongs to.
bool isLauncher(std::string_view program) {
    static const std::set<std::string_view> launchers{
        "env",  "flatpak", "snap", "sh",   "bash", "dash",     "zsh",      "perl",       "ruby",    "java",
        "node", "gjs",     "sudo", "pkexec", "xdg-open", "exo-open", "gtk-launch", "electron", "mono", "wine"};
    return launchers.contains(program) || program.starts_with("python");
}

std::string unescape(std::string_view value) {
    std::string out;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (value[i] != '\\' || i + 1 == value.size()) {
            out += value[i];
            continue;
        }
        char next = value[++i];
        out += next == 's' ? ' ' : next == 'n' ? '\n' : next == 't' ? '\t' : next == 'r' ? '\r' : next;
    }
    return out;
}

std::string baseName(std::string_view path) {
    auto slash = path.rfind('/');
    return lowerASCII(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

// The program an Exec line runs: its first word, past "env VAR=value".
std::optional<std::string> execProgram(std::string_view exec) {
    std::vector<std::string> words;
    std::string word;
    bool quoted = false, any = false;
    for (std::size_t i = 0; i < exec.size(); ++i) {
        char c = exec[i];
        if (quoted) {
            if (c == '\\' && i + 1 < exec.size()) word += exec[++i];
            else if (c == '"') quoted = false;
            else word += c;
        } else if (c == '"') {
            quoted = any = true;
        } else if (c == ' ' || c == '\t') {
            if (any || !word.empty()) words.push_back(word);
            word.clear();
            any = false;
        } else {
            word += c;
        }
    }
    if (any || !word.empty()) words.push_back(word);
    std::size_t at = 0;
    if (at < words.size() && baseName(words[at]) == "env") {
        ++at;
        while (at < words.size() && (words[at].find('=') != std::string::npos || words[at].starts_with("-"))) ++at;
    }
    if (at >= words.size() || words[at].empty()) return std::nullopt;
    return baseName(words[at]);
}

std::vector<std::string> localeNameKeys(const std::string& locale) {
    // lang_COUNTRY.ENCODING@MODIFIER → the desktop-entry lookup order.
    std::string text = locale, modifier;
    if (auto at = text.find('@'); at != std::string::npos) {
        modifier = text.substr(at);
        text.erase(at);
    }
    if (auto dot = text.find('.'); dot != std::string::npos) text.erase(dot);
    std::string language = text.substr(0, text.find('_'));
    std::vector<std::string> keys;
    auto add = [&keys](const std::string& tag) {
        std::string key = "Name[" + tag + "]";
        if (!tag.empty() && std::find(keys.begin(), keys.end(), key) == keys.end()) keys.push_back(key);
    };
    if (!modifier.empty()) add(text + modifier);
    add(text);
    if (!modifier.empty()) add(language + modifier);
    add(language);
    keys.push_back("Name");
    return keys;
}

std::optional<DesktopEntry> parse(const fs::path& file, std::string id, const std::vector<std::string>& nameKeys,
                                  bool& hidden) {
    std::ifstream in(file);
    if (!in) return std::nullopt;
    std::map<std::string, std::string, std::less<>> values;
    std::string line;
    bool inMainGroup = false;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty() || line[0] == '#') continue;
        if (line[0] == '[') {
            inMainGroup = line == "[Desktop Entry]";
            continue;
        }
        if (!inMainGroup) continue;
        auto equals = line.find('=');
        if (equals == std::string::npos) continue;
        std::string key(trim(std::string_view(line).substr(0, equals)));
        std::string value(trim(std::string_view(line).substr(equals + 1)));
        values.emplace(std::move(key), std::move(value));
    }
    auto value = [&values](std::string_view key) -> std::string {
        auto found = values.find(key);
        return found == values.end() ? std::string() : found->second;
    };
    hidden = value("Hidden") == "true";
    if (hidden || value("Type") != "Application") return std::nullopt;

    DesktopEntry entry;
    entry.id = std::move(id);
    for (const std::string& key : nameKeys) {
        if (auto found = values.find(key); found != values.end() && !found->second.empty()) {
            entry.name = unescape(found->second);
            break;
        }
    }
    entry.windowClass = lowerASCII(value("StartupWMClass"));
    entry.runsInTerminal = value("Terminal") == "true";
    entry.noDisplay = value("NoDisplay") == "true";
    std::string categories = ";" + value("Categories") + ";";
    entry.terminalEmulator = categories.find(";TerminalEmulator;") != std::string::npos;
    if (auto program = execProgram(value("Exec"))) entry.programs.push_back(*program);
    if (std::string tryExec = value("TryExec"); !tryExec.empty()) {
        std::string program = baseName(tryExec);
        if (std::find(entry.programs.begin(), entry.programs.end(), program) == entry.programs.end())
            entry.programs.push_back(program);
    }
    return entry;
}

} // namespace

std::string nameLocale(const std::string& interfaceLanguage) {
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(variable);
        if (!value || !*value) continue;
        std::string locale(value);
        if (locale.substr(0, locale.find_first_of("_.@")) == interfaceLanguage) return locale;
        break;
    }
    return interfaceLanguage;
}

DesktopEntries::DesktopEntries(std::vector<fs::path> folders, std::string locale)
    : folders_(std::move(folders)), nameKeys_(localeNameKeys(locale)) {
    load();
}

std::vector<fs::path> DesktopEntries::defaultFolders() {
    std::vector<fs::path> folders;
    const char* dataHome = std::getenv("XDG_DATA_HOME");
    const char* home = std::getenv("HOME");
    if (dataHome && *dataHome) folders.push_back(fs::path(dataHome) / "applications");
    else if (home && *home) folders.push_back(fs::path(home) / ".local/share/applications");
    const char* dataDirs = std::getenv("XDG_DATA_DIRS");
    std::string dirs = dataDirs && *dataDirs ? dataDirs : "/usr/local/share:/usr/share";
    std::stringstream list(dirs);
    for (std::string dir; std::getline(list, dir, ':');)
        if (!dir.empty()) folders.push_back(fs::path(dir) / "applications");
    return folders;
}

void DesktopEntries::load() {
    entries_.clear();
    byClass_.clear();
    byProgram_.clear();
    std::set<std::string> seen;  // ids decided by a more important folder, hidden ones included
    for (const fs::path& folder : folders_) {
        std::error_code error;
        auto walk = fs::recursive_directory_iterator(folder, fs::directory_options::skip_permission_denied, error);
        if (error) continue;
        for (auto it = walk; it != fs::recursive_directory_iterator(); it.increment(error)) {
            if (error) break;
            const fs::path& file = it->path();
            if (file.extension() != ".desktop" || !it->is_regular_file(error)) continue;
            std::string relative = fs::relative(file, folder, error).replace_extension().string();
            std::replace(relative.begin(), relative.end(), '/', '-');
            std::string id = lowerASCII(relative);
            if (!seen.insert(id).second) continue;
            bool hidden = false;
            if (auto entry = parse(file, id, nameKeys_, hidden)) entries_.emplace(id, std::move(*entry));
        }
    }
    for (const auto& [id, entry] : entries_) {
        if (!entry.windowClass.empty()) byClass_.emplace(entry.windowClass, id);
        if (entry.runsInTerminal) continue;
        for (const std::string& program : entry.programs)
            if (!isLauncher(program)) byProgram_[program].push_back(id);
    }
    loadedTimes_ = folderTimes();
    lastCheck_ = std::chrono::steady_clock::now();
}

std::vector<fs::file_time_type> DesktopEntries::folderTimes() const {
    std::vector<fs::file_time_type> times;
    for (const fs::path& folder : folders_) {
        std::error_code error;
        times.push_back(fs::last_write_time(folder, error));
    }
    return times;
}

bool DesktopEntries::reloadIfChanged(std::chrono::steady_clock::duration interval) {
    auto now = std::chrono::steady_clock::now();
    if (now - lastCheck_ < interval) return false;
    lastCheck_ = now;
    if (folderTimes() == loadedTimes_) return false;
    load();
    return true;
}

const DesktopEntry* DesktopEntries::byID(std::string_view id) const {
    std::string key = lowerASCII(id);
    if (key.ends_with(".desktop")) key.resize(key.size() - 8);
    auto found = entries_.find(key);
    return found == entries_.end() ? nullptr : &found->second;
}

const DesktopEntry* DesktopEntries::byWindowClass(std::string_view windowClass) const {
    auto found = byClass_.find(lowerASCII(windowClass));
    return found == byClass_.end() ? nullptr : byID(found->second);
}

const DesktopEntry* DesktopEntries::byProgram(std::string_view baseName) const {
    std::string key = lowerASCII(baseName);
    auto found = byProgram_.find(key);
    if (found == byProgram_.end()) return nullptr;
    // Several entries for one program are usually one application with extra
    // launchers (hidden actions, URL handlers): keep the visible ones.
    std::vector<const DesktopEntry*> visible;
    for (const std::string& id : found->second)
        if (const DesktopEntry* entry = byID(id); entry && !entry->noDisplay) visible.push_back(entry);
    if (visible.size() == 1) return visible.front();
    if (visible.empty() && found->second.size() == 1) return byID(found->second.front());
    return nullptr;
}

} // namespace ombrelo::platform
