// ReportedWindows: a window source fed by reports from inside the compositor
// (a KWin script, our GNOME Shell extension) over the session bus: the window
// in front is what the last report said.
#pragma once

#include "platform/linux/WindowSource.h"

namespace ombrelo::platform {

// One report: all empty when no window is in front.
struct WindowReport {
    std::string window;       // the compositor's id for the window, to tell two of one application apart
    std::string desktopID;    // the .desktop id the compositor matched, without ".desktop"
    std::string windowClass;  // WM_CLASS, or the Wayland app_id
    std::string title;
    int pid = 0;

    bool empty() const { return window.empty() && desktopID.empty() && windowClass.empty(); }
};

class ReportedWindows : public WindowSource {
public:
    std::optional<FrontWindow> front() override;
    // A switch may come as two reports, none in front then the new window:
    // only where the reports ended is announced.
    void settle() override;

protected:
    // Takes a report in: another window (or none) in front is announced when
    // the reports settle, a new title is kept for the next sample.
    void take(const WindowReport& report);
    // Forgets the window in front (the reporter went away).
    void forget();
    // Announces at once, for a change the reports do not show: the reporter
    // going or coming back.
    void announceNow();

private:
    std::optional<WindowReport> report_;
    std::optional<WindowReport> announced_;
};

} // namespace ombrelo::platform
