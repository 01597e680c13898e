// WindowSource: where the desktop back-end learns which window is in front. X11
// reads it off the root window; each family of Wayland compositors has its own
// way: wlroots' foreign toplevel protocol, a KWin script, a GNOME Shell
// extension of ours.
//
// Owned by the desktop back-end; main loop thread only.
#pragma once

#include "platform/linux/Applications.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace ombrelo::platform {

// The window in front, as its source tells it.
struct FrontWindow {
    WindowOwner owner;                 // what names its application
    std::optional<std::string> title;  // absent when it has none
};

class WindowSource {
public:
    virtual ~WindowSource() = default;

    // The window in front now; absent when there is none (a bare desktop, a
    // panel) or when the source cannot see it (state().missing says why).
    virtual std::optional<FrontWindow> front() = 0;
    virtual WindowSourceState state() const = 0;
    // Milliseconds since the last input, where the source itself can tell;
    // partial when it sees only some of the input (XWayland), and then the
    // session's own idle time is preferred.
    virtual std::optional<std::uint64_t> idleMilliseconds() { return std::nullopt; }
    virtual bool idleSeesAllInput() const { return true; }

    // The descriptor of the source's own connection, -1 when it speaks over the
    // session bus; dispatch() handles what arrived on it and answers false once
    // the connection is lost.
    virtual int fd() const { return -1; }
    virtual bool dispatch() { return true; }
    // Called once everything received has been handled: a source that gathers
    // changes announces them there, once.
    virtual void settle() {}

    // Set by the back-end: called when another window (or none) came to the
    // front, or when the source lost or regained its sight. Title changes are
    // read at the next sample instead.
    std::function<void()> frontChanged;

protected:
    void announceFrontChange() {
        if (frontChanged) frontChanged();
    }
};

} // namespace ombrelo::platform
