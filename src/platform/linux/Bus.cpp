#include "platform/linux/Bus.h"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <poll.h>
#include <systemd/sd-bus.h>

namespace ombrelo::platform {

void SlotFree::operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
void MessageFree::operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }

namespace {

std::optional<std::string> variable(const char* name) {
    const char* value = std::getenv(name);
    if (!value || !*value) return std::nullopt;
    return std::string(value);
}

} // namespace

std::optional<std::string> Bus::addressFromEnvironment(Kind kind) {
    if (kind == Kind::system) {
        if (auto address = variable("OMBRELO_SYSTEM_BUS")) return address;
        if (auto address = variable("DBUS_SYSTEM_BUS_ADDRESS")) return address;
        return std::string("unix:path=/run/dbus/system_bus_socket");
    }
    if (auto address = variable("DBUS_SESSION_BUS_ADDRESS")) return address;
    if (auto runtime = variable("XDG_RUNTIME_DIR")) {
        std::filesystem::path socket = std::filesystem::path(*runtime) / "bus";
        std::error_code ignored;
        if (std::filesystem::exists(socket, ignored)) return "unix:path=" + socket.string();
    }
    return std::nullopt;
}

Bus::Bus(const std::string& address, std::string_view description) : description_(description) {
    auto fail = [&](const char* step, int code) {
        sd_bus_unref(bus_);
        bus_ = nullptr;
        throw BusError(description_ + ": " + step + ": " + std::strerror(-code), code);
    };
    int r = sd_bus_new(&bus_);
    if (r < 0) fail("sd_bus_new", r);
    if ((r = sd_bus_set_address(bus_, address.c_str())) < 0) fail("address", r);
    if ((r = sd_bus_set_bus_client(bus_, 1)) < 0) fail("client", r);
    sd_bus_set_description(bus_, description_.c_str());
    if ((r = sd_bus_start(bus_)) < 0) fail("connect", r);
    // The hello reply arrives asynchronously; waiting for it here turns a socket
    // that accepts but never answers into an error at start rather than later.
    const char* unique = nullptr;
    if ((r = sd_bus_get_unique_name(bus_, &unique)) < 0) fail("hello", r);
}

Bus::~Bus() {
    if (bus_) sd_bus_flush_close_unref(bus_);
}

int Bus::fd() const { return sd_bus_get_fd(bus_); }

bool Bus::open() const { return sd_bus_is_open(bus_) > 0; }

bool Bus::wantsWrite() const {
    int events = sd_bus_get_events(bus_);
    return events > 0 && (events & POLLOUT);
}

bool Bus::process() {
    for (;;) {
        int r = sd_bus_process(bus_, nullptr);
        if (r == 0) return sd_bus_is_open(bus_) > 0;
        if (r < 0) return false;
    }
}

Message Bus::call(const char* destination, const char* path, const char* interface, const char* member,
                  const char* types, ...) {
    sd_bus_message* raw = nullptr;
    int r = sd_bus_message_new_method_call(bus_, &raw, destination, path, interface, member);
    Message request(raw);
    if (r >= 0 && types) {
        va_list arguments;
        va_start(arguments, types);
        r = sd_bus_message_appendv(request.get(), types, arguments);
        va_end(arguments);
    }
    if (r < 0) throw BusError(std::string(member) + ": " + std::strerror(-r), r);

    sd_bus_error error = SD_BUS_ERROR_NULL;
    sd_bus_message* reply = nullptr;
    r = sd_bus_call(bus_, request.get(), callTimeoutMicroseconds, &error, &reply);
    if (r < 0) {
        std::string text = std::string(destination) + " " + member + ": " +
                           (error.message ? error.message : std::strerror(-r));
        sd_bus_error_free(&error);
        throw BusError(text, r);
    }
    return Message(reply);
}

bool Bus::hasOwner(const char* name) {
    try {
        Message reply = call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                             "NameHasOwner", "s", name);
        int owned = 0;
        return sd_bus_message_read(reply.get(), "b", &owned) >= 0 && owned;
    } catch (const BusError&) {
        return false;
    }
}

std::optional<std::string> Bus::ownerOf(const char* name) {
    try {
        Message reply = call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                             "GetNameOwner", "s", name);
        const char* owner = nullptr;
        if (sd_bus_message_read(reply.get(), "s", &owner) >= 0 && owner) return std::string(owner);
    } catch (const BusError&) {
    }
    return std::nullopt;
}

std::string Bus::uniqueName() const {
    const char* name = nullptr;
    return sd_bus_get_unique_name(bus_, &name) >= 0 && name ? name : "";
}

Slot Bus::watchOwner(const char* name, sd_bus_message_handler_t changed, void* data) {
    sd_bus_slot* slot = nullptr;
    std::string rule = std::string("type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
                                   "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg0='") +
                       name + "'";
    if (sd_bus_add_match(bus_, &slot, rule.c_str(), changed, data) < 0) return nullptr;
    return Slot(slot);
}

} // namespace ombrelo::platform
