// WindowSources: which window source follows a session. X11 sessions have X11.
// Wayland sessions have their compositor's: GNOME Shell through our extension,
// KWin through a script, the wlroots family through its foreign toplevel
// protocol; another compositor leaves XWayland, which sees its own windows only.
// The desktop is the one $XDG_CURRENT_DESKTOP names, else the one the
// compositor's globals show. $OMBRELO_WINDOWS names a source by hand.
#pragma once

#include "platform/linux/DesktopOptions.h"
#include "platform/linux/WindowSource.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ombrelo::platform {

class Bus;

enum class WindowBackend { x11, wlroots, kwin, gnome };

// The back-ends to try for a session, in order.
std::vector<WindowBackend> windowBackendsFor(const DesktopOptions& options);

// The first of them that opens. Throws DesktopUnavailable saying what each
// lacked when none does.
std::unique_ptr<WindowSource> openWindowSource(const DesktopOptions& options, Bus* sessionBus);

} // namespace ombrelo::platform
