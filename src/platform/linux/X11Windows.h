// X11Windows: the window in front as X11 tells it, followed through the root
// window's _NET_ACTIVE_WINDOW (never polled), with its title, class and pid,
// and the idle time from the MIT-SCREEN-SAVER extension.
//
// In a Wayland session it is the last resort, for compositors without a source
// of their own: it sees XWayland windows only, so while a native Wayland window
// is in front it reports none and says so, rather than crediting the last X
// window; its idle time then covers input to X windows only.
#pragma once

#include "platform/linux/WindowSource.h"
#include "platform/linux/X11Display.h"

namespace ombrelo::platform {

class X11Windows final : public WindowSource {
public:
    // Throws DisplayError when the display cannot be opened.
    X11Windows(const std::string& display, bool underWayland);

    std::optional<FrontWindow> front() override;
    WindowSourceState state() const override;
    std::optional<std::uint64_t> idleMilliseconds() override;
    bool idleSeesAllInput() const override { return !underWayland_; }
    int fd() const override { return display_.fd(); }
    bool dispatch() override;

private:
    X11Display display_;
    const bool underWayland_;
    // The active window as last seen, to tell a real change from a rewrite.
    std::optional<WindowID> lastActive_;
};

} // namespace ombrelo::platform
