// Browsers: the applications recognised as web browsers. Their pages carry a site
// (the capture loop looks it up) and their time without a site counts as
// "Navigation". Identifiers are compared in lower case, so the macOS bundle ids of
// the defaults and the lower-case .desktop ids a Linux desktop reports (including
// Flatpak ids) are both recognised. Immutable; safe from any thread.
#pragma once

#include <span>
#include <string_view>

namespace ombrelo {

// True when `appID` names a known web browser. Case is ignored, and a trailing
// ".desktop" is ignored too, so "firefox", "Firefox.desktop" and
// "org.mozilla.firefox" all answer true.
bool isBrowser(std::string_view appID);

// Every recognised identifier, lower case, in no particular order.
std::span<const std::string_view> browserIDs();

} // namespace ombrelo
