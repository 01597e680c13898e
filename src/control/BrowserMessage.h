// BrowserMessage: a message of the browser extension, as `ombrelo browser-host`
// receives it from the browser, turned into the request it passes to the
// tracker. Everything the browser sends is checked here: a message that is not
// one of the two kinds, or carries a field of the wrong type, is dropped with
// its reason, so nothing malformed reaches the tracker.
//
//   {"kind": "page", "at": <ms since 1970>, "focused": true, "incognito": false,
//    "url": "https://…" | null, "title": "…" | null}
//   {"kind": "blur", "at": <ms since 1970>}
//
// What a private window's page is, and any address that is not http or https
// (a file's path, a browser's own page), never goes further, with its title.
#pragma once

#include <nlohmann/json.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace ombrelo::BrowserMessage {

// Longer messages are dropped unread.
inline constexpr std::size_t maxBytes = 64 * 1024;

// The tracker's request for `message` from the browser process `pid`
// (ControlRequest.h: browser-page or browser-blur), or why it is dropped (for
// the log).
std::variant<nlohmann::json, std::string> toRequest(std::string_view message, int pid);

// The host of an http or https address, lower-cased, without port or final
// dot; nothing for another scheme or an address without a host.
std::optional<std::string> domainOf(std::string_view url);

} // namespace ombrelo::BrowserMessage
