// Applications: names a window or a process by its application, the way the
// rest of the program knows applications: a stable lower-case id and a display
// name.
//
// For a window, in order: the .desktop entry named by _GTK_APPLICATION_ID, the
// one whose id or StartupWMClass is the WM_CLASS, the one whose program is the
// process's executable; else the WM_CLASS class lower-cased as the id and as
// spelled as the name. Results are remembered per (class, application id,
// executable), so the 5-second sample does not read .desktop files again.
//
// Owned by the desktop back-end; main loop thread only.
#pragma once

#include "capture/Desktop.h"
#include "platform/linux/DesktopEntries.h"
#include "platform/linux/Processes.h"
#include "platform/linux/X11Display.h"

#include <map>
#include <optional>
#include <string>

namespace ombrelo::platform {

// What X11 tells of a window's owner.
struct WindowOwner {
    std::optional<WindowClass> windowClass;
    std::optional<std::string> gtkApplicationID;
    std::optional<int> pid;
};

class Applications {
public:
    Applications(DesktopEntries& entries, const Processes& processes) : entries_(entries), processes_(processes) {}

    // Absent when nothing names the window's application (no class, no
    // application id, no readable process): no activity beats a wrong one.
    std::optional<FrontApp> forWindow(const WindowOwner& owner);
    // The application id of a process (an inhibitor's holder); absent when the
    // process has ended.
    std::optional<std::string> idForProcess(int pid);

    // Whether `id` is a terminal emulator (its .desktop entry says so, or it is
    // one of the common terminals without one).
    bool isTerminal(const std::string& id) const;

private:
    std::optional<FrontApp> resolve(const WindowOwner& owner, const std::optional<std::string>& program);

    DesktopEntries& entries_;
    const Processes& processes_;
    std::map<std::string, std::optional<FrontApp>> cache_;
};

} // namespace ombrelo::platform
