#include "platform/linux/WindowSources.h"

#include "platform/linux/GnomeShellWindows.h"
#include "platform/linux/KWinWindows.h"
#include "platform/linux/WlrootsWindows.h"
#include "platform/linux/X11Windows.h"
#include "support/Fold.h"
#include "support/Log.h"

namespace ombrelo::platform {

namespace {

bool isWaylandSession(const DesktopOptions& options) {
    // Started outside the login session (a systemd user unit, a nested
    // compositor's terminal), the session type is unsaid: a compositor's socket
    // tells, whatever XWayland's DISPLAY says.
    if (options.sessionType.empty()) return !options.waylandDisplay.empty();
    return options.sessionType == "wayland";
}

bool desktopIs(const DesktopOptions& options, std::string_view name) {
    // XDG_CURRENT_DESKTOP is a colon-separated list: "ubuntu:GNOME".
    std::string list = ":" + lowerASCII(options.currentDesktop) + ":";
    return list.find(":" + std::string(name) + ":") != std::string::npos;
}

const char* nameOf(WindowBackend backend) {
    switch (backend) {
    case WindowBackend::x11: return "x11";
    case WindowBackend::wlroots: return "wlroots";
    case WindowBackend::kwin: return "kwin";
    case WindowBackend::gnome: return "gnome";
    }
    return "";
}

std::optional<WindowBackend> windowBackendNamed(const std::string& name) {
    for (WindowBackend backend : {WindowBackend::x11, WindowBackend::wlroots, WindowBackend::kwin, WindowBackend::gnome})
        if (name == nameOf(backend)) return backend;
    return std::nullopt;
}

// KWin's Wayland connection, for its idle protocol; none outside its session.
std::unique_ptr<WaylandConnection> idleConnection(const DesktopOptions& options) {
    try {
        return std::make_unique<WaylandConnection>(options.waylandDisplay);
    } catch (const WaylandError& error) {
        Log::get("capture")->info("Inactivité par Wayland indisponible : {}", error.what());
        return nullptr;
    }
}

std::unique_ptr<WindowSource> open(WindowBackend backend, const DesktopOptions& options, Bus* sessionBus,
                                   std::string& why) {
    switch (backend) {
    case WindowBackend::x11:
        try {
            return std::make_unique<X11Windows>(options.display, isWaylandSession(options));
        } catch (const DisplayError& error) {
            why = error.what();
        }
        break;
    case WindowBackend::wlroots:
        try {
            auto source = std::make_unique<WlrootsWindows>(options.waylandDisplay);
            if (source->seesWindows()) return source;
            // A session that does not say its desktop: KWin and GNOME Shell
            // show themselves by globals of their own.
            if (sessionBus && source->offers("org_kde_plasma_shell"))
                return open(WindowBackend::kwin, options, sessionBus, why);
            if (sessionBus && source->offers("gtk_shell1"))
                return open(WindowBackend::gnome, options, sessionBus, why);
            why = "the compositor offers no zwlr_foreign_toplevel_manager_v1";
        } catch (const WaylandError& error) {
            why = error.what();
        }
        break;
    case WindowBackend::kwin:
    case WindowBackend::gnome:
        if (!sessionBus) {
            why = "no session bus";
            break;
        }
        if (backend == WindowBackend::kwin) return std::make_unique<KWinWindows>(*sessionBus, idleConnection(options));
        return std::make_unique<GnomeShellWindows>(*sessionBus);
    }
    return nullptr;
}

} // namespace

std::vector<WindowBackend> windowBackendsFor(const DesktopOptions& options) {
    if (auto chosen = windowBackendNamed(options.windowSource)) return {*chosen};
    if (!isWaylandSession(options)) return {WindowBackend::x11};
    if (desktopIs(options, "gnome")) return {WindowBackend::gnome};
    if (desktopIs(options, "kde")) return {WindowBackend::kwin};
    // Any other compositor: the wlroots protocol when it has it, else what
    // XWayland shows.
    return {WindowBackend::wlroots, WindowBackend::x11};
}

std::unique_ptr<WindowSource> openWindowSource(const DesktopOptions& options, Bus* sessionBus) {
    if (!options.windowSource.empty() && !windowBackendNamed(options.windowSource))
        throw DesktopUnavailable(DesktopUnavailable::Piece::compositor,
                                 "OMBRELO_WINDOWS=" + options.windowSource +
                                     " names no window source (x11, wlroots, kwin or gnome)");
    std::string lacks;
    for (WindowBackend backend : windowBackendsFor(options)) {
        std::string why;
        if (auto source = open(backend, options, sessionBus, why)) {
            if (!lacks.empty()) Log::get("capture")->warn("Sources de fenêtres écartées : {}", lacks);
            return source;
        }
        lacks += (lacks.empty() ? "" : "; ") + std::string(nameOf(backend)) + ": " + why;
    }
    bool onlyX = windowBackendsFor(options) == std::vector<WindowBackend>{WindowBackend::x11};
    throw DesktopUnavailable(onlyX ? DesktopUnavailable::Piece::display : DesktopUnavailable::Piece::compositor, lacks);
}

} // namespace ombrelo::platform
