// Bus: one D-Bus connection (sd-bus), its address taken from the environment or
// given explicitly, so tests point the program at a private dbus-daemon.
//
// Owned by the desktop back-end; main loop thread only (sd-bus connections are not
// thread-safe). Incoming messages are handled by `process()`, which the event loop
// calls when the connection's descriptor is readable and after each handler, since
// a blocking call may have queued signals that no longer wake the descriptor.
#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

struct sd_bus;
struct sd_bus_slot;
struct sd_bus_message;

namespace ombrelo::platform {

// A D-Bus failure: the connection could not be made or a call failed.
class BusError : public std::runtime_error {
public:
    BusError(const std::string& what, int error) : std::runtime_error(what), code(error) {}
    const int code;  // negative errno, as sd-bus returns
};

struct SlotFree {
    void operator()(sd_bus_slot* slot) const;
};
struct MessageFree {
    void operator()(sd_bus_message* message) const;
};
// A signal match or an exported object; dropping it removes the match.
using Slot = std::unique_ptr<sd_bus_slot, SlotFree>;
using Message = std::unique_ptr<sd_bus_message, MessageFree>;

class Bus {
public:
    enum class Kind { system, session };

    // The address to use: for the system bus OMBRELO_SYSTEM_BUS, else
    // DBUS_SYSTEM_BUS_ADDRESS, else the standard socket; for the session bus
    // DBUS_SESSION_BUS_ADDRESS, else $XDG_RUNTIME_DIR/bus when it exists. Absent
    // when the environment names none.
    static std::optional<std::string> addressFromEnvironment(Kind kind);

    // Connects and says hello. Throws BusError.
    Bus(const std::string& address, std::string_view description);
    ~Bus();
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    sd_bus* get() const { return bus_; }
    const std::string& description() const { return description_; }
    int fd() const;
    // False once the bus has gone away.
    bool open() const;
    // True when sd-bus has queued output that the descriptor must take.
    bool wantsWrite() const;
    // Dispatches everything queued or readable now. Returns false once the
    // connection is closed (the bus went away).
    bool process();

    // A blocking method call with a short timeout, so a hung service cannot stall
    // the loop for long. Throws BusError with the D-Bus error text.
    Message call(const char* destination, const char* path, const char* interface, const char* member,
                 const char* types = nullptr, ...);

    // Whether `name` has an owner on this bus now, and which connection.
    bool hasOwner(const char* name);
    std::optional<std::string> ownerOf(const char* name);
    // This connection's own name (":1.42").
    std::string uniqueName() const;
    // Calls `changed` with each NameOwnerChanged of `name` (name, old, new owner).
    Slot watchOwner(const char* name, sd_bus_message_handler_t changed, void* data);

    static constexpr std::uint64_t callTimeoutMicroseconds = 500'000;

private:
    sd_bus* bus_ = nullptr;
    std::string description_;
};

} // namespace ombrelo::platform
