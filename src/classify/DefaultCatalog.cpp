#include "classify/DefaultCatalog.h"

#include "support/L10n.h"

namespace ombrelo {

namespace {

using F = Rule::Field;

constexpr DefaultCategory categories[] = {
    {"Code", "Code", "teal", "chevron.left.forwardslash.chevron.right", false},
    {"Design", "Design", "carmine", "paintpalette", false},
    {"Communication", "Communication", "yellow", "bubble.left.and.bubble.right", false},
    {"Réunions", "Meetings", "lavender", "person.2", false},
    {"Rédaction", "Writing", "green", "doc.text", false},
    {"Administratif", "Admin", "peach", "tray.full", false},
    {"Navigation", "Browsing", "teal", "safari", false},
    {"Divertissement", "Entertainment", "carmine", "play.rectangle", true},
    {"Réseaux sociaux", "Social media", "peach", "heart.text.square", true},
    {"Ombrelo", "Ombrelo", "carmine", "timer", false},
};

// Site rules name each service's main domain; as simple rules they also cover
// its sub-domains (www.youtube.com falls under youtube.com).
constexpr DefaultRule rules[] = {
    {F::app, "fr.ombrelo.app", "Ombrelo"},
    // Code
    {F::app, "com.apple.dt.xcode", "Code"},
    {F::app, "com.microsoft.vscode", "Code"},
    {F::app, "com.todesktop.230313mzl4w4u92", "Code"},
    {F::app, "dev.zed.zed", "Code"},
    {F::app, "com.apple.terminal", "Code"},
    {F::app, "com.googlecode.iterm2", "Code"},
    {F::app, "com.mitchellh.ghostty", "Code"},
    {F::app, "dev.warp.warp-stable", "Code"},
    {F::app, "com.jetbrains.intellij", "Code"},
    {F::app, "com.sublimetext.4", "Code"},
    {F::domain, "github.com", "Code"},
    {F::domain, "gitlab.com", "Code"},
    {F::domain, "stackoverflow.com", "Code"},
    {F::domain, "developer.apple.com", "Code"},
    {F::domain, "vercel.com", "Code"},
    // Design
    {F::app, "com.figma.desktop", "Design"},
    {F::app, "com.bohemiancoding.sketch3", "Design"},
    {F::app, "com.adobe.photoshop", "Design"},
    {F::app, "com.adobe.illustrator", "Design"},
    {F::app, "com.seriflabs.affinitydesigner2", "Design"},
    {F::app, "com.pixelmatorteam.pixelmator.x", "Design"},
    {F::domain, "figma.com", "Design"},
    {F::domain, "canva.com", "Design"},
    {F::domain, "dribbble.com", "Design"},
    // Communication
    {F::app, "com.apple.mail", "Communication"},
    {F::app, "com.microsoft.outlook", "Communication"},
    {F::app, "com.tinyspeck.slackmacgap", "Communication"},
    {F::app, "com.apple.mobilesms", "Communication"},
    {F::app, "net.whatsapp.whatsapp", "Communication"},
    {F::app, "ru.keepcoding.telegram", "Communication"},
    {F::domain, "mail.google.com", "Communication"},
    {F::domain, "outlook.office.com", "Communication"},
    {F::domain, "app.slack.com", "Communication"},
    // Réunions
    {F::app, "com.microsoft.teams2", "Réunions"},
    {F::app, "us.zoom.xos", "Réunions"},
    {F::app, "com.apple.facetime", "Réunions"},
    {F::app, "com.cisco.webexmeetingsapp", "Réunions"},
    {F::domain, "meet.google.com", "Réunions"},
    {F::domain, "teams.microsoft.com", "Réunions"},
    {F::domain, "zoom.us", "Réunions"},
    // Rédaction
    {F::app, "com.apple.notes", "Rédaction"},
    {F::app, "com.apple.iwork.pages", "Rédaction"},
    {F::app, "com.microsoft.word", "Rédaction"},
    {F::app, "notion.id", "Rédaction"},
    {F::app, "md.obsidian", "Rédaction"},
    {F::app, "net.shinyfrog.bear", "Rédaction"},
    {F::domain, "docs.google.com", "Rédaction"},
    {F::domain, "notion.so", "Rédaction"},
    // Administratif
    {F::app, "com.apple.iwork.numbers", "Administratif"},
    {F::app, "com.microsoft.excel", "Administratif"},
    {F::app, "com.apple.ical", "Administratif"},
    {F::app, "com.apple.finder", "Administratif"},
    {F::domain, "impots.gouv.fr", "Administratif"},
    {F::domain, "urssaf.fr", "Administratif"},
    {F::domain, "autoentrepreneur.urssaf.fr", "Administratif"},
    {F::domain, "qonto.com", "Administratif"},
    {F::domain, "pennylane.com", "Administratif"},
    {F::domain, "indy.fr", "Administratif"},
    {F::domain, "freebe.me", "Administratif"},
    {F::domain, "tiime.fr", "Administratif"},
    // Divertissement
    {F::domain, "youtube.com", "Divertissement"},
    {F::domain, "netflix.com", "Divertissement"},
    {F::domain, "twitch.tv", "Divertissement"},
    {F::domain, "primevideo.com", "Divertissement"},
    {F::app, "com.spotify.client", "Divertissement"},
    {F::app, "com.apple.tv", "Divertissement"},
    // Réseaux sociaux
    {F::domain, "x.com", "Réseaux sociaux"},
    {F::domain, "twitter.com", "Réseaux sociaux"},
    {F::domain, "facebook.com", "Réseaux sociaux"},
    {F::domain, "instagram.com", "Réseaux sociaux"},
    {F::domain, "linkedin.com", "Réseaux sociaux"},
    {F::domain, "reddit.com", "Réseaux sociaux"},
    {F::domain, "tiktok.com", "Réseaux sociaux"},
    {F::domain, "bsky.app", "Réseaux sociaux"},
};
static_assert(std::size(rules) == 75);

// The same kinds of applications as a Linux desktop names them: distribution
// .desktop ids and Flatpak ids, lower-cased. Ids already covered above (Zed,
// Ghostty and Spotify's Flatpak) are not repeated.
constexpr DefaultRule linuxRules[] = {
    // Code: editors, IDEs and terminals
    {F::app, "code", "Code"},
    {F::app, "code-oss", "Code"},
    {F::app, "codium", "Code"},
    {F::app, "com.visualstudio.code", "Code"},
    {F::app, "cursor", "Code"},
    {F::app, "sublime_text", "Code"},
    {F::app, "jetbrains-idea", "Code"},
    {F::app, "jetbrains-pycharm", "Code"},
    {F::app, "org.gnome.builder", "Code"},
    {F::app, "emacs", "Code"},
    {F::app, "org.gnome.terminal", "Code"},
    {F::app, "org.gnome.console", "Code"},
    {F::app, "org.kde.konsole", "Code"},
    {F::app, "xfce4-terminal", "Code"},
    {F::app, "kitty", "Code"},
    {F::app, "alacritty", "Code"},
    {F::app, "org.wezfurlong.wezterm", "Code"},
    {F::app, "com.gexperts.tilix", "Code"},
    // Design
    {F::app, "gimp", "Design"},
    {F::app, "org.gimp.gimp", "Design"},
    {F::app, "inkscape", "Design"},
    {F::app, "org.inkscape.inkscape", "Design"},
    {F::app, "org.kde.krita", "Design"},
    {F::app, "figma-linux", "Design"},
    // Communication
    {F::app, "thunderbird", "Communication"},
    {F::app, "org.mozilla.thunderbird", "Communication"},
    {F::app, "org.gnome.evolution", "Communication"},
    {F::app, "org.kde.kmail2", "Communication"},
    {F::app, "slack", "Communication"},
    {F::app, "com.slack.slack", "Communication"},
    {F::app, "org.telegram.desktop", "Communication"},
    {F::app, "signal-desktop", "Communication"},
    {F::app, "element-desktop", "Communication"},
    // Réunions
    {F::app, "zoom", "Réunions"},
    {F::app, "us.zoom.zoom", "Réunions"},
    {F::app, "teams-for-linux", "Réunions"},
    // Rédaction
    {F::app, "libreoffice-writer", "Rédaction"},
    {F::app, "obsidian", "Rédaction"},
    {F::app, "md.obsidian.obsidian", "Rédaction"},
    {F::app, "org.gnome.texteditor", "Rédaction"},
    {F::app, "org.gnome.gedit", "Rédaction"},
    {F::app, "org.kde.kate", "Rédaction"},
    // Administratif: spreadsheets, file managers, calendars
    {F::app, "libreoffice-calc", "Administratif"},
    {F::app, "org.gnome.nautilus", "Administratif"},
    {F::app, "org.kde.dolphin", "Administratif"},
    {F::app, "thunar", "Administratif"},
    {F::app, "nemo", "Administratif"},
    {F::app, "org.gnome.calendar", "Administratif"},
    {F::app, "org.kde.merkuro.calendar", "Administratif"},
    // Divertissement: music and video players
    {F::app, "spotify", "Divertissement"},
    {F::app, "vlc", "Divertissement"},
    {F::app, "mpv", "Divertissement"},
    {F::app, "org.gnome.totem", "Divertissement"},
    {F::app, "org.gnome.rhythmbox3", "Divertissement"},
    {F::app, "org.gnome.music", "Divertissement"},
};

} // namespace

std::span<const DefaultCategory> defaultCategories() { return categories; }
std::span<const DefaultRule> defaultRules() { return rules; }
std::span<const DefaultRule> linuxDefaultRules() { return linuxRules; }

std::string localizedCategoryName(std::string_view defaultName) {
    for (const DefaultCategory& category : categories)
        if (category.name == defaultName) return std::string(L10n::text(category.name, category.english));
    return std::string(defaultName);
}

std::string defaultKey(std::string_view name) {
    for (const DefaultCategory& category : categories)
        if (name == category.name || name == category.english) return std::string(category.name);
    return std::string(name);
}

} // namespace ombrelo
