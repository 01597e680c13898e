// DesktopOptions: what the desktop back-end connects to, and how it says that
// a piece it cannot work without is missing.
#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace ombrelo::platform {

// A piece the tracker cannot work without is missing.
class DesktopUnavailable : public std::runtime_error {
public:
    enum class Piece { display, sessionBus, compositor };
    DesktopUnavailable(Piece missing, const std::string& detail) : std::runtime_error(detail), piece(missing) {}
    const Piece piece;
};

struct DesktopOptions {
    std::string display;                    // empty: $DISPLAY
    std::string waylandDisplay;             // empty: $WAYLAND_DISPLAY
    std::string sessionType;                // $XDG_SESSION_TYPE: "x11", "wayland"
    std::string currentDesktop;             // $XDG_CURRENT_DESKTOP: "GNOME", "KDE", "sway"
    std::string windowSource;               // $OMBRELO_WINDOWS: a source chosen by hand
    std::optional<std::string> systemBus;   // D-Bus addresses; absent: not used (a missing
                                            // system bus is no reason not to track)
    std::optional<std::string> sessionBus;
    std::optional<std::string> sessionID;   // logind session ($XDG_SESSION_ID)
    std::vector<std::filesystem::path> applicationFolders;
    std::string locale;                     // for application names
    std::filesystem::path home;             // for "~" in titles
    bool requireSessionBus = false;         // a session bus the environment does not name is missing

    // Everything from the environment, as `ombrelo run` uses it: the session
    // bus is required.
    static DesktopOptions fromEnvironment();
};

} // namespace ombrelo::platform
