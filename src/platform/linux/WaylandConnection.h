// WaylandConnection: one connection to the compositor: its globals, the idle
// notifications it offers, and reading its events without waiting.
//
// Idle time comes from ext-idle-notify, else KDE's older idle protocol (which
// Sway 1.7 serves): notified after a second without input, the last input is
// that second before. Like the compositor's own idle, it stays at zero while
// an application inhibits idling (a film, a call), which the tracker would
// count as presence anyway.
//
// Main loop thread only.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

struct wl_display;
struct wl_registry;

namespace ombrelo::platform {

// No Wayland compositor answered, or it broke the connection at once.
class WaylandError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class WaylandConnection {
public:
    // Called for each global the compositor announces, to bind what the owner
    // of the connection needs beyond idle time.
    using GlobalHandler =
        std::function<void(wl_registry* registry, std::uint32_t name, const char* interface, std::uint32_t version)>;

    // Connects to `display` ($WAYLAND_DISPLAY when empty), reads the globals and
    // what binding them sent. Throws WaylandError.
    explicit WaylandConnection(const std::string& display, GlobalHandler onGlobal = {});
    ~WaylandConnection();
    WaylandConnection(const WaylandConnection&) = delete;
    WaylandConnection& operator=(const WaylandConnection&) = delete;

    int fd() const;
    const std::vector<std::string>& globals() const;
    // Reads and handles what arrived, without waiting; false once the
    // connection is broken.
    bool dispatch();

    // Milliseconds since the last input; absent when the compositor offers no
    // idle protocol.
    std::optional<std::uint64_t> idleMilliseconds() const;
    // The idle protocol used, empty when none.
    std::string idleProtocol() const;

    static constexpr std::uint32_t idleNoticeMilliseconds = 1000;

    struct Parts;

private:
    std::unique_ptr<Parts> parts_;
};

} // namespace ombrelo::platform
