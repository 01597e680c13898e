// ControlRequest: the requests that reach the running tracker through its
// control socket, and how they are carried out. A command that finds no tracker
// carries out the same request itself, on the database and the settings.
//
// One request per connection: a JSON object on one line of at most
// maxRequestBytes, answered by one JSON object on one line.
//
//   {"command": "work", "project": 12, "note": "Audit"}   project id; note optional, "" clears it
//   {"command": "stop"}
//   {"command": "pause", "minutes": 15}                   no minutes: until resumed
//   {"command": "resume"}
//   {"command": "focus-start", "minutes": 25, "project": 12}   both optional
//   {"command": "focus-stop"}
//   {"command": "break-start"} | {"command": "break-end"} | {"command": "break-skip"}
//   {"command": "link", "url": "ombrelo://…"}
//   {"command": "agent-state"}      answer: "agent_server": {"running", "port", "problem"} or null
//   {"command": "agent-token"}      the agent server takes the token stored now
//   {"command": "window-link", "page": "timeline"}   answer: "url", the window's one-time address
//   {"command": "browser-page", "pid": 4242, "at": 1763880000.5, "focused": true, "incognito": false,
//    "url": "https://…", "title": "…", "domain": "…"}   the browser extension's report (browser-host)
//   {"command": "browser-blur", "pid": 4242, "at": …}   no window of that browser has the focus
//   {"command": "browser-gone", "pid": 4242}             that browser closed, or its extension stopped
//   {"command": "browser-state"}    answer: "last_page_report", seconds since 1970 or null
//   {"command": "desktop-state"}    answer: "window_source": {"backend", "description", "missing"}
//
// Answer: {"ok": true}, with "page" for a link that opened one, or
// {"ok": false, "error": "…"} (the reason in the tracker's language).
#pragma once

#include "control/Controls.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <optional>
#include <string_view>

namespace ombrelo::ControlRequest {

inline constexpr std::size_t maxRequestBytes = 64 * 1024;

// Never throws: a malformed request or a failure is an error answer.
nlohmann::json perform(const nlohmann::json& request, Controls& controls);
// The same from the text of one line.
nlohmann::json perform(std::string_view line, Controls& controls);

nlohmann::json failure(std::string_view message);

// A window source's state as the answers and `ombrelo status --json` carry it.
nlohmann::json windowSourceJSON(const WindowSourceState& state);
std::optional<WindowSourceState> windowSourceFromJSON(const nlohmann::json& object);

} // namespace ombrelo::ControlRequest
