// URLCommands: the `ombrelo://` links that launchers, scripts and shortcuts use
// to drive the tracker, each command in French and English:
//
//   travailler|work?projet|project=NAME[&note=TEXT]   the project in progress
//   arreter|stop                                       back to the rules
//   focus[?minutes=N][&projet|project=NAME]            a focus session (no N: open-ended)
//   focus/arreter|focus/stop                           ends it
//   pause[?minutes=N]                                  pause tracking (no N: until resumed)
//   reprendre|resume                                   resume tracking
//   ouvrir|open[?page=NAME]                            the window on a page
//
// A link with another scheme or command, or a work link naming no project, is
// refused and changes nothing.
#pragma once

#include "control/Controls.h"

#include <optional>
#include <string>
#include <string_view>

namespace ombrelo::URLCommands {

struct Result {
    bool handled = false;
    std::string message;            // why it was refused, in the user's language
    std::optional<Page> opened;     // the page shown, for an open link
};

Result handle(std::string_view url, Controls& controls);

// The project a link or an agent names: trimmed, the first whose name or
// "client › project" label equals it ignoring case, else the first whose name
// contains it.
std::optional<Project> find(std::string_view name, const ProjectStore& projects);

// The page a link names, in French or English ("rapports", "Timeline", …);
// anything else is the dashboard.
Page pageNamed(std::string_view name);

} // namespace ombrelo::URLCommands
