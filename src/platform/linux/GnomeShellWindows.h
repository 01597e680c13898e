// GnomeShellWindows: the window in front on GNOME Shell, which offers no public
// way to know it: our own Shell extension (ombrelo gnome-extension install)
// serves it on the session bus and signals each change of window or title.
// The extension being enabled or disabled is followed through its bus name;
// while it is off, the source says exactly how to turn it on.
//
// Idle time is Mutter's IdleMonitor, which the session services read.
//
// Owned by the desktop back-end; main loop thread only.
#pragma once

#include "platform/linux/Bus.h"
#include "platform/linux/ReportedWindows.h"

namespace ombrelo::platform {

class GnomeShellWindows final : public ReportedWindows {
public:
    explicit GnomeShellWindows(Bus& bus);

    WindowSourceState state() const override;

    static constexpr const char* service = "fr.ombrelo.Shell";
    static constexpr const char* objectPath = "/fr/ombrelo/Shell";
    static constexpr const char* interface = "fr.ombrelo.Shell.Windows";
    static constexpr const char* extensionID = "ombrelo@ombrelo.fr";

    // Called from the bus.
    void reportArrived(sd_bus_message* message);
    void extensionChanged(const std::string& owner);

private:
    // Reads the window in front from the extension, if it is there.
    void ask();
    static std::optional<WindowReport> read(sd_bus_message* message);

    Bus& bus_;
    Slot signal_, ownerWatch_;
    std::optional<std::string> extension_;  // its connection (the Shell's), while enabled
};

} // namespace ombrelo::platform
