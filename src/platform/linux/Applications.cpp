#include "platform/linux/Applications.h"

#include "support/Fold.h"

#include <set>

namespace ombrelo::platform {

namespace {

// Terminals often found without a .desktop entry saying TerminalEmulator (or
// named by their WM_CLASS because no entry matched).
bool isCommonTerminal(std::string_view id) {
    static const std::set<std::string_view> terminals{
        "xterm",     "uxterm",         "debian-xterm", "debian-uxterm", "urxvt",        "rxvt",
        "rxvt-unicode", "st",          "st-256color",  "alacritty",     "kitty",        "foot",
        "footclient", "wezterm",       "org.wezfurlong.wezterm", "konsole", "org.kde.konsole",
        "gnome-terminal", "gnome-terminal-server", "org.gnome.terminal", "org.gnome.console", "kgx",
        "org.gnome.ptyxis", "xfce4-terminal", "terminator", "tilix",     "com.gexperts.tilix", "lxterminal",
        "mate-terminal", "qterminal",  "sakura",       "terminology",   "guake",        "tilda",
        "yakuake",   "org.kde.yakuake", "cool-retro-term", "io.elementary.terminal", "com.mitchellh.ghostty",
        "ghostty"};
    return terminals.contains(id);
}

constexpr std::size_t cacheLimit = 256;

} // namespace

std::optional<FrontApp> Applications::forWindow(const WindowOwner& owner) {
    std::optional<std::string> program;
    if (owner.pid)
        if (auto executable = processes_.executable(*owner.pid)) program = executable->filename().string();

    std::string key;
    if (owner.windowClass) key += owner.windowClass->instance + '\n' + owner.windowClass->name;
    key += '\n' + owner.gtkApplicationID.value_or("") + '\n' + program.value_or("");
    auto cached = cache_.find(key);
    std::optional<FrontApp> app;
    if (cached != cache_.end()) {
        app = cached->second;
    } else {
        // A window never seen may be an application installed since the index
        // was read.
        if (entries_.reloadIfChanged()) cache_.clear();
        if (cache_.size() >= cacheLimit) cache_.clear();
        app = resolve(owner, program);
        cache_.emplace(key, app);
    }
    if (app) app->pid = owner.pid;
    return app;
}

std::optional<FrontApp> Applications::resolve(const WindowOwner& owner, const std::optional<std::string>& program) {
    const DesktopEntry* entry = nullptr;
    if (owner.gtkApplicationID) entry = entries_.byID(*owner.gtkApplicationID);
    if (!entry && owner.windowClass) {
        const WindowClass& windowClass = *owner.windowClass;
        for (const std::string* name : {&windowClass.name, &windowClass.instance})
            if (!entry && !name->empty()) entry = entries_.byID(*name);
        for (const std::string* name : {&windowClass.name, &windowClass.instance})
            if (!entry && !name->empty()) entry = entries_.byWindowClass(*name);
    }
    if (!entry && program) entry = entries_.byProgram(*program);

    std::string spelled;  // the class as the application writes it
    if (owner.windowClass)
        spelled = !owner.windowClass->name.empty() ? owner.windowClass->name : owner.windowClass->instance;
    if (entry) return FrontApp{entry->id, entry->name.empty() ? spelled : entry->name, std::nullopt};
    if (!spelled.empty()) return FrontApp{lowerASCII(spelled), spelled, std::nullopt};
    if (program) return FrontApp{lowerASCII(*program), *program, std::nullopt};
    return std::nullopt;
}

std::optional<std::string> Applications::idForProcess(int pid) {
    auto executable = processes_.executable(pid);
    if (!executable) return std::nullopt;
    std::string program = executable->filename().string();
    if (const DesktopEntry* entry = entries_.byProgram(program)) return entry->id;
    if (const DesktopEntry* entry = entries_.byID(program)) return entry->id;
    return lowerASCII(program);
}

bool Applications::isTerminal(const std::string& id) const {
    if (const DesktopEntry* entry = entries_.byID(id); entry && entry->terminalEmulator) return true;
    return isCommonTerminal(id);
}

} // namespace ombrelo::platform
