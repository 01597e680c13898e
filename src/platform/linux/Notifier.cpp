#include "platform/linux/Notifier.h"

#include "support/Log.h"

#include <systemd/sd-bus.h>

namespace ombrelo::platform {

namespace {

constexpr const char* service = "org.freedesktop.Notifications";
constexpr const char* objectPath = "/org/freedesktop/Notifications";

int replied(sd_bus_message* reply, void* userdata, sd_bus_error*) {
    if (const sd_bus_error* error = sd_bus_message_get_error(reply)) {
        Log::get("notifications")->debug("Notification refusée : {}", error->message ? error->message : "");
        return 0;
    }
    std::uint32_t id = 0;
    auto* shown = static_cast<Notifier::Shown*>(userdata);
    if (shown && *shown && sd_bus_message_read(reply, "u", &id) >= 0) (*shown)(id);
    return 0;
}

void forgetShown(void* userdata) { delete static_cast<Notifier::Shown*>(userdata); }

int appendActions(sd_bus_message* call, const std::vector<Notifier::Action>& actions) {
    int r = sd_bus_message_open_container(call, 'a', "s");
    for (const Notifier::Action& action : actions) {
        if (r >= 0) r = sd_bus_message_append(call, "s", action.key.c_str());
        if (r >= 0) r = sd_bus_message_append(call, "s", action.label.c_str());
    }
    return r >= 0 ? sd_bus_message_close_container(call) : r;
}

} // namespace

Notifier::~Notifier() = default;

bool Notifier::notify(const std::string& title, const std::string& body, const std::vector<Action>& actions,
                      Shown shown) {
    if (!bus_) return false;
    sd_bus_message* raw = nullptr;
    if (sd_bus_message_new_method_call(bus_->get(), &raw, service, objectPath, service, "Notify") < 0) return false;
    Message call(raw);
    // app_name, replaces_id, app_icon, summary, body, actions, hints, timeout;
    // the desktop-entry hint lets the server show our name and icon.
    int r = sd_bus_message_append(call.get(), "susss", "Ombrelo", std::uint32_t(0), "ombrelo", title.c_str(),
                                  body.c_str());
    if (r >= 0) r = appendActions(call.get(), actions);
    if (r >= 0) r = sd_bus_message_append(call.get(), "a{sv}", 1, "desktop-entry", "s", "ombrelo");
    if (r >= 0) r = sd_bus_message_append(call.get(), "i", std::int32_t(-1));
    sd_bus_slot* slot = nullptr;
    auto* waiting = new Shown(std::move(shown));
    if (r >= 0) r = sd_bus_call_async(bus_->get(), &slot, call.get(), replied, waiting, 0);
    if (r < 0) {
        delete waiting;
        Log::get("notifications")->debug("Notification non envoyée : {}", r);
        return false;
    }
    // Handed to the bus, which frees the slot and the callback with the reply
    // (or when it closes).
    sd_bus_slot_set_destroy_callback(slot, forgetShown);
    sd_bus_slot_set_floating(slot, 1);
    sd_bus_slot_unref(slot);
    return true;
}

void Notifier::close(std::uint32_t id) {
    if (!bus_) return;
    sd_bus_call_method_async(bus_->get(), nullptr, service, objectPath, service, "CloseNotification", nullptr, nullptr,
                             "u", id);
}

bool Notifier::offersActions() {
    if (!bus_) return false;
    try {
        Message reply = bus_->call(service, objectPath, service, "GetCapabilities");
        if (sd_bus_message_enter_container(reply.get(), 'a', "s") < 0) return false;
        const char* capability = nullptr;
        while (sd_bus_message_read(reply.get(), "s", &capability) > 0)
            if (std::string_view(capability) == "actions") return true;
    } catch (const BusError& error) {
        Log::get("notifications")->debug("Capacités inconnues : {}", error.what());
    }
    return false;
}

void Notifier::onAction(Chosen chosen) {
    chosen_ = std::move(chosen);
    if (!bus_ || actionMatch_) return;
    sd_bus_slot* slot = nullptr;
    auto invoked = [](sd_bus_message* message, void* userdata, sd_bus_error*) -> int {
        auto* self = static_cast<Notifier*>(userdata);
        std::uint32_t id = 0;
        const char* key = nullptr;
        if (sd_bus_message_read(message, "us", &id, &key) >= 0 && self->chosen_) self->chosen_(id, key);
        return 0;
    };
    if (sd_bus_match_signal(bus_->get(), &slot, nullptr, objectPath, service, "ActionInvoked", invoked, this) >= 0)
        actionMatch_.reset(slot);
}

} // namespace ombrelo::platform
