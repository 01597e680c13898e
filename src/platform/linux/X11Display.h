// X11Display: the connection to the X server and the window properties the
// tracker reads (EWMH and ICCCM), with X errors turned into absent values.
//
// Windows close at any moment, so any read may hit a window that is gone: the
// connection installs an error handler that records the error instead of ending
// the process, and every read answers "absent" when the server refused it.
//
// Owned by the desktop back-end; main loop thread only.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace ombrelo::platform {

// The X display could not be opened.
class DisplayError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// An X window id (XID).
using WindowID = unsigned long;

struct WindowClass {
    std::string instance;  // first string of WM_CLASS ("navigator")
    std::string name;      // second string ("firefox"), as the application spells it
};

class X11Display {
public:
    // Opens `name` (":1"), or $DISPLAY when empty. Throws DisplayError.
    explicit X11Display(const std::string& name = {});
    ~X11Display();
    X11Display(const X11Display&) = delete;
    X11Display& operator=(const X11Display&) = delete;

    int fd() const;
    WindowID root() const;
    // Whether the server has the MIT-SCREEN-SAVER extension (idle time).
    bool hasIdleExtension() const { return idleExtension_; }

    // Selects property changes on the root window, where the window manager
    // publishes _NET_ACTIVE_WINDOW.
    void watchRoot();
    // Reads every queued event; returns true when _NET_ACTIVE_WINDOW changed
    // among them. Never blocks.
    bool drainEvents();

    // The client window the window manager marks active; absent when none.
    std::optional<WindowID> activeWindow();
    // False for the desktop, docks and panels, which no one "uses".
    bool isApplicationWindow(WindowID window);
    std::optional<WindowClass> windowClass(WindowID window);
    // _NET_WM_NAME (UTF-8), else WM_NAME; absent when empty or unreadable.
    std::optional<std::string> title(WindowID window);
    // _NET_WM_PID, only when the client runs on this machine.
    std::optional<int> pid(WindowID window);
    std::optional<std::string> gtkApplicationID(WindowID window);
    // Milliseconds since the last input, from the screen saver extension; absent
    // without the extension.
    std::optional<std::uint64_t> idleMilliseconds();

    // Whether any X error was reported since the last call (for tests and logs).
    bool takeErrorFlag();

private:
    struct Atoms;
    std::optional<std::vector<unsigned char>> property(WindowID window, unsigned long atom, unsigned long type,
                                                       int* format = nullptr, unsigned long* actualType = nullptr);

    struct DisplayClose {
        void operator()(void* display) const;
    };
    std::unique_ptr<void, DisplayClose> display_;
    std::unique_ptr<Atoms> atoms_;
    bool idleExtension_ = false;
    std::string hostname_;
};

// Text of an X property in UTF-8: UTF8_STRING as is (invalid bytes replaced),
// STRING converted from Latin-1.
std::string utf8FromUTF8Property(const std::vector<unsigned char>& bytes);
std::string utf8FromLatin1(const std::vector<unsigned char>& bytes);

} // namespace ombrelo::platform
