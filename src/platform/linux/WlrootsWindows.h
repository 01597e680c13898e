// WlrootsWindows: the window in front on compositors of the wlroots family
// (Sway, Hyprland, river, labwc, Wayfire), from their foreign toplevel protocol:
// each window's app_id, title and activated state, atomically per `done`.
//
// Idle time comes from the compositor's idle notifications (ext-idle-notify,
// else KDE's older idle protocol, which Sway 1.7 serves): notified after a
// second without input, the last input is then that second before. Like the
// compositor's own idle, it stays at zero while an application inhibits idling
// (a film, a call), which the tracker would count as presence anyway.
//
// Owned by the desktop back-end; main loop thread only.
#pragma once

#include "platform/linux/WindowSource.h"

#include <chrono>
#include <memory>
#include <stdexcept>
#include <vector>

namespace ombrelo::platform {

// No Wayland compositor answered.
class WaylandError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class WlrootsWindows final : public WindowSource {
public:
    // Connects to `display` ($WAYLAND_DISPLAY when empty) and reads the
    // compositor's globals and windows. Throws WaylandError.
    explicit WlrootsWindows(const std::string& display);
    ~WlrootsWindows() override;
    WlrootsWindows(const WlrootsWindows&) = delete;
    WlrootsWindows& operator=(const WlrootsWindows&) = delete;

    // Whether the compositor tells which window is in front; without, this
    // source is of no use.
    bool seesWindows() const;
    // The globals the compositor advertised, to tell which desktop it is.
    const std::vector<std::string>& globals() const { return globals_; }

    std::optional<FrontWindow> front() override;
    WindowSourceState state() const override;
    std::optional<std::uint64_t> idleMilliseconds() override;
    int fd() const override;
    bool dispatch() override;

    // How long without input before the compositor says so.
    static constexpr std::uint32_t idleNoticeMilliseconds = 1000;

    struct Connection;
    struct Toplevel;
    // Called by the protocol listeners.
    void toplevelDone(Toplevel& toplevel);
    void toplevelClosed(Toplevel& toplevel);
    void idleChanged(bool idle);

private:
    friend struct WlrootsListeners;
    // Chooses the window in front anew; true (and announced) when it changed.
    bool refreshFront();
    // The compositor withdrew the windows or the connection broke.
    void loseSight();

    std::unique_ptr<Connection> connection_;
    std::vector<std::string> globals_;
    std::vector<std::unique_ptr<Toplevel>> toplevels_;
    const Toplevel* front_ = nullptr;
    std::uint64_t activations_ = 0;
    // Since when no input came, while the compositor says idle.
    std::optional<std::chrono::steady_clock::time_point> idleSince_;
    bool frontMayHaveChanged_ = false;
    bool lost_ = false;
};

} // namespace ombrelo::platform
