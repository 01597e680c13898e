#include "platform/linux/Notifier.h"

#include "platform/linux/Bus.h"
#include "support/Log.h"

#include <systemd/sd-bus.h>

namespace ombrelo::platform {

namespace {

int replied(sd_bus_message* reply, void*, sd_bus_error*) {
    if (const sd_bus_error* error = sd_bus_message_get_error(reply))
        Log::get("notifications")->debug("Notification refusée : {}", error->message ? error->message : "");
    return 0;
}

} // namespace

bool Notifier::notify(const std::string& title, const std::string& body) {
    if (!bus_) return false;
    sd_bus_message* raw = nullptr;
    if (sd_bus_message_new_method_call(bus_->get(), &raw, "org.freedesktop.Notifications",
                                       "/org/freedesktop/Notifications", "org.freedesktop.Notifications",
                                       "Notify") < 0)
        return false;
    Message call(raw);
    // app_name, replaces_id, app_icon, summary, body, actions, hints, timeout;
    // the desktop-entry hint lets the server show our name and icon.
    int r = sd_bus_message_append(call.get(), "susss", "Ombrelo", std::uint32_t(0), "ombrelo", title.c_str(),
                                  body.c_str());
    if (r >= 0) r = sd_bus_message_append(call.get(), "as", 0);
    if (r >= 0) r = sd_bus_message_append(call.get(), "a{sv}", 1, "desktop-entry", "s", "ombrelo");
    if (r >= 0) r = sd_bus_message_append(call.get(), "i", std::int32_t(-1));
    // The reply is only logged; no slot kept, sd-bus frees it with the call.
    if (r >= 0) r = sd_bus_call_async(bus_->get(), nullptr, call.get(), replied, nullptr, 0);
    if (r < 0) Log::get("notifications")->debug("Notification non envoyée : {}", r);
    return r >= 0;
}

} // namespace ombrelo::platform
