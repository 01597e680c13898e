// WlrootsWindows: the window in front on compositors of the wlroots family
// (Sway, Hyprland, river, labwc, Wayfire), from their foreign toplevel protocol:
// each window's app_id, title and activated state, atomically per `done`. Idle
// time comes from the same connection (see WaylandConnection).
//
// Owned by the desktop back-end; main loop thread only.
#pragma once

#include "platform/linux/WaylandConnection.h"
#include "platform/linux/WindowSource.h"

#include <memory>
#include <string_view>
#include <vector>

struct zwlr_foreign_toplevel_manager_v1;
struct zwlr_foreign_toplevel_handle_v1;

namespace ombrelo::platform {

class WlrootsWindows final : public WindowSource {
public:
    // Connects to `display` ($WAYLAND_DISPLAY when empty) and reads the
    // compositor's windows. Throws WaylandError.
    explicit WlrootsWindows(const std::string& display);
    ~WlrootsWindows() override;
    WlrootsWindows(const WlrootsWindows&) = delete;
    WlrootsWindows& operator=(const WlrootsWindows&) = delete;

    // Whether the compositor tells which window is in front; without, this
    // source is of no use.
    bool seesWindows() const { return manager_ != nullptr; }
    // Whether the compositor advertises that global, to tell which it is.
    bool offers(std::string_view global) const;

    std::optional<FrontWindow> front() override;
    WindowSourceState state() const override;
    std::optional<std::uint64_t> idleMilliseconds() override { return connection_->idleMilliseconds(); }
    int fd() const override { return connection_->fd(); }
    bool dispatch() override;

    struct Toplevel;
    // Called by the protocol's listeners.
    void toplevelAnnounced(zwlr_foreign_toplevel_handle_v1* handle);
    void toplevelDone(Toplevel& toplevel);
    void toplevelClosed(Toplevel& toplevel);
    void managerFinished();

private:
    // Chooses the window in front anew; true (and announced) when it changed.
    bool refreshFront();
    // The compositor withdrew the windows or the connection broke.
    void loseSight();

    std::unique_ptr<WaylandConnection> connection_;
    zwlr_foreign_toplevel_manager_v1* manager_ = nullptr;
    std::vector<std::unique_ptr<Toplevel>> toplevels_;
    const Toplevel* front_ = nullptr;
    std::uint64_t activations_ = 0;
    bool frontMayHaveChanged_ = false;
    bool lost_ = false;
};

} // namespace ombrelo::platform
