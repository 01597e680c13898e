#include "platform/linux/X11Windows.h"

#include "support/L10n.h"
#include "support/Log.h"

namespace ombrelo::platform {

X11Windows::X11Windows(const std::string& display, bool underWayland)
    : display_(display), underWayland_(underWayland) {
    if (!display_.hasIdleExtension())
        Log::get("capture")->warn("Extension MIT-SCREEN-SAVER absente : le temps d'inactivité n'est pas mesuré");
    display_.watchRoot();
    lastActive_ = display_.activeWindow();
}

std::optional<FrontWindow> X11Windows::front() {
    std::optional<WindowID> window = display_.activeWindow();
    if (!window || !display_.isApplicationWindow(*window)) return std::nullopt;
    return FrontWindow{{display_.windowClass(*window), display_.gtkApplicationID(*window), display_.pid(*window)},
                       display_.title(*window)};
}

WindowSourceState X11Windows::state() const {
    if (!underWayland_)
        return {"x11",
                "X11; " + std::string(display_.hasIdleExtension()
                                          ? L10n::text("inactivité : MIT-SCREEN-SAVER", "idle: MIT-SCREEN-SAVER")
                                          : L10n::text("inactivité non mesurée", "idle not measured")),
                std::nullopt};
    WindowSourceState state{"xwayland",
                            std::string(L10n::text("Wayland, fenêtres XWayland seulement", "Wayland, XWayland windows only")),
                            std::nullopt};
    // XWayland names no active window while a native Wayland one has the focus.
    if (!lastActive_)
        state.missing = std::string(
            L10n::text("une fenêtre Wayland native est au premier plan et ce compositeur n'offre aucun moyen de la voir "
                       "(ni wlr-foreign-toplevel-management, ni KWin, ni GNOME Shell)",
                       "a native Wayland window is in front and this compositor offers no way to see it (neither "
                       "wlr-foreign-toplevel-management, nor KWin, nor GNOME Shell)"));
    return state;
}

std::optional<std::uint64_t> X11Windows::idleMilliseconds() { return display_.idleMilliseconds(); }

bool X11Windows::dispatch() {
    // A handler's requests may queue further events: go round until the queue
    // is empty (bounded, in case a client floods it).
    for (int round = 0; round < 16; ++round) {
        if (!display_.drainEvents()) break;
        std::optional<WindowID> active = display_.activeWindow();
        if (active == lastActive_) continue;
        lastActive_ = active;
        announceFrontChange();
    }
    return true;
}

} // namespace ombrelo::platform
