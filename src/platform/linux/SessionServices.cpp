#include "platform/linux/SessionServices.h"

#include "support/Fold.h"
#include "support/Log.h"

#include <systemd/sd-bus.h>
#include <vector>

namespace ombrelo::platform {

namespace {

constexpr auto presenceRecheck = std::chrono::seconds(60);
// GsmInhibitorFlag: 8 is "idle" (the session is kept from going idle).
constexpr std::uint32_t inhibitIdle = 8;

} // namespace

bool SessionServices::present(const char* name, Presence& presence) {
    auto now = std::chrono::steady_clock::now();
    if (presence.checked == std::chrono::steady_clock::time_point{} || now - presence.checked >= presenceRecheck) {
        presence.present = bus_.hasOwner(name);
        presence.checked = now;
    }
    return presence.present;
}

std::set<std::string> SessionServices::idleInhibitorApps() {
    std::set<std::string> apps;
    constexpr const char* service = "org.gnome.SessionManager";
    if (!present(service, sessionManager_)) return apps;
    try {
        Message reply = bus_.call(service, "/org/gnome/SessionManager", service, "GetInhibitors");
        std::vector<std::string> paths;
        if (sd_bus_message_enter_container(reply.get(), 'a', "o") < 0) return apps;
        for (const char* path = nullptr; sd_bus_message_read(reply.get(), "o", &path) > 0;) paths.emplace_back(path);
        for (const std::string& path : paths) {
            constexpr const char* inhibitor = "org.gnome.SessionManager.Inhibitor";
            std::uint32_t flags = 0;
            Message flagsReply = bus_.call(service, path.c_str(), inhibitor, "GetFlags");
            if (sd_bus_message_read(flagsReply.get(), "u", &flags) < 0 || !(flags & inhibitIdle)) continue;
            const char* appID = nullptr;
            Message idReply = bus_.call(service, path.c_str(), inhibitor, "GetAppId");
            if (sd_bus_message_read(idReply.get(), "s", &appID) < 0 || !appID || !*appID) continue;
            std::string id = lowerASCII(appID);
            if (id.ends_with(".desktop")) id.resize(id.size() - 8);
            apps.insert(id);
        }
    } catch (const BusError& error) {
        // An inhibitor released between the list and its reading is ordinary.
        Log::get("capture")->debug("Inhibiteurs de la session : {}", error.what());
    }
    return apps;
}

std::optional<std::uint64_t> SessionServices::idleMilliseconds() {
    constexpr const char* mutter = "org.gnome.Mutter.IdleMonitor";
    if (present(mutter, mutter_)) {
        try {
            Message reply = bus_.call(mutter, "/org/gnome/Mutter/IdleMonitor/Core", mutter, "GetIdletime");
            std::uint64_t idle = 0;
            if (sd_bus_message_read(reply.get(), "t", &idle) >= 0) {
                idleSource_ = mutter;
                return idle;
            }
        } catch (const BusError& error) {
            mutter_.present = false;
            Log::get("capture")->debug("Inactivité (Mutter) : {}", error.what());
        }
    }
    constexpr const char* screenSaver = "org.freedesktop.ScreenSaver";
    if (present(screenSaver, screenSaver_)) {
        try {
            Message reply = bus_.call(screenSaver, "/org/freedesktop/ScreenSaver", screenSaver, "GetSessionIdleTime");
            std::uint32_t seconds = 0;
            if (sd_bus_message_read(reply.get(), "u", &seconds) >= 0) {
                idleSource_ = screenSaver;
                return std::uint64_t(seconds) * 1000;
            }
        } catch (const BusError& error) {
            // GNOME registers the name without this method: stop asking.
            screenSaver_.present = false;
            Log::get("capture")->debug("Inactivité (ScreenSaver) : {}", error.what());
        }
    }
    return std::nullopt;
}

} // namespace ombrelo::platform

namespace ombrelo::platform {

void SessionServices::watchScreenSaver(std::function<void(bool active)> changed) {
    screenSaverChanged_ = std::move(changed);
    auto handler = [](sd_bus_message* message, void* self, sd_bus_error*) -> int {
        int active = 0;
        auto& services = *static_cast<SessionServices*>(self);
        if (sd_bus_message_read(message, "b", &active) >= 0 && services.screenSaverChanged_)
            services.screenSaverChanged_(active != 0);
        return 0;
    };
    for (const char* interface : {"org.freedesktop.ScreenSaver", "org.gnome.ScreenSaver", "org.mate.ScreenSaver",
                                  "org.cinnamon.ScreenSaver", "org.xfce.ScreenSaver"}) {
        sd_bus_slot* slot = nullptr;
        if (sd_bus_match_signal(bus_.get(), &slot, nullptr, nullptr, interface, "ActiveChanged", handler, this) >= 0)
            screenSaverMatches_.emplace_back(slot);
    }
}

} // namespace ombrelo::platform
