// SessionServices: what the desktop session offers on the session bus beyond
// X11: the session manager's inhibitors (GNOME: applications keeping the display
// awake), idle time where X11 cannot see all input (Wayland: Mutter's idle
// monitor on GNOME, the ScreenSaver interface's session idle time on Plasma),
// and the screen saver's ActiveChanged signal, which stands for the lock where
// logind cannot tell it.
//
// Each service is asked only while its name is on the bus, checked again now and
// then, so a desktop without it costs one call a minute.
//
// Owned by the desktop back-end with the bus; main loop thread only.
#pragma once

#include "platform/linux/Bus.h"

#include <chrono>
#include <functional>
#include <optional>
#include <vector>
#include <set>
#include <string>

namespace ombrelo::platform {

class SessionServices {
public:
    explicit SessionServices(Bus& bus) : bus_(bus) {}

    // Application ids (as the session manager names them, lower-case, without
    // ".desktop") of the inhibitors that keep the session from going idle.
    std::set<std::string> idleInhibitorApps();

    // Milliseconds since the last input as the compositor sees it; absent when
    // no such service answers.
    std::optional<std::uint64_t> idleMilliseconds();
    // Which service answered idleMilliseconds last, for the start-up log.
    std::string idleSource() const { return idleSource_; }

    // Follows the screen savers' ActiveChanged signal (freedesktop, GNOME,
    // MATE, Cinnamon, Xfce), calling `changed` with its value.
    void watchScreenSaver(std::function<void(bool active)> changed);

private:
    struct Presence {
        bool present = false;
        std::chrono::steady_clock::time_point checked{};
    };
    bool present(const char* name, Presence& presence);

    Bus& bus_;
    Presence sessionManager_, mutter_, screenSaver_;
    std::string idleSource_;
    std::function<void(bool)> screenSaverChanged_;
    std::vector<Slot> screenSaverMatches_;
};

} // namespace ombrelo::platform
