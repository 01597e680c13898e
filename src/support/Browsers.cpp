#include "support/Browsers.h"

#include "support/Fold.h"

#include <algorithm>

namespace ombrelo {

namespace {

// Stable channels and their common variants; a browser missing here still works,
// it only loses the "Navigation" fallback and page lookups.
constexpr std::string_view identifiers[] = {
    // macOS bundle identifiers.
    "com.apple.safari", "com.apple.safaritechnologypreview", "com.google.chrome", "com.google.chrome.canary",
    "org.mozilla.firefox", "org.mozilla.firefoxdeveloperedition", "org.mozilla.nightly", "com.microsoft.edgemac",
    "company.thebrowser.browser", "com.brave.browser", "com.operasoftware.opera", "com.vivaldi.vivaldi",
    "org.chromium.chromium", "com.kagi.kagimacos", "app.zen-browser.zen",
    // Linux .desktop ids (distribution packages).
    "firefox", "firefox-esr", "firefox-developer-edition", "firefox-nightly", "firefox_firefox", "chromium",
    "chromium-browser", "chromium_chromium", "google-chrome", "google-chrome-beta", "google-chrome-unstable",
    "brave-browser", "brave-browser-beta", "brave-browser-nightly", "microsoft-edge", "microsoft-edge-beta",
    "microsoft-edge-dev", "vivaldi-stable", "vivaldi-snapshot", "vivaldi", "org.gnome.epiphany", "epiphany",
    "librewolf", "opera", "opera-beta", "falkon", "org.kde.falkon", "qutebrowser", "org.qutebrowser.qutebrowser",
    "midori", "waterfox", "floorp", "zen", "zen-browser",
    // Flatpak ids (lower-cased).
    // Flatpak ids (lower-cased); org.mozilla.firefox, com.google.chrome,
    // com.brave.browser, com.vivaldi.vivaldi and org.chromium.chromium are above.
    "com.microsoft.edge", "io.gitlab.librewolf-community", "com.opera.opera", "app.zen_browser.zen",
    "one.ablaze.floorp", "net.waterfox.waterfox"};

} // namespace

bool isBrowser(std::string_view appID) {
    std::string id = lowerASCII(trim(appID));
    constexpr std::string_view suffix = ".desktop";
    if (id.size() > suffix.size() && id.ends_with(suffix)) id.resize(id.size() - suffix.size());
    return std::find(std::begin(identifiers), std::end(identifiers), id) != std::end(identifiers);
}

std::span<const std::string_view> browserIDs() { return identifiers; }

} // namespace ombrelo
