#include "platform/linux/GnomeShellWindows.h"

#include "support/L10n.h"
#include "support/Log.h"

namespace ombrelo::platform {

namespace {

int onFrontChanged(sd_bus_message* message, void* data, sd_bus_error*) {
    static_cast<GnomeShellWindows*>(data)->reportArrived(message);
    return 0;
}

int onOwnerChanged(sd_bus_message* message, void* data, sd_bus_error*) {
    const char *name = nullptr, *before = nullptr, *after = nullptr;
    if (sd_bus_message_read(message, "sss", &name, &before, &after) >= 0)
        static_cast<GnomeShellWindows*>(data)->extensionChanged(after ? after : "");
    return 0;
}

} // namespace

GnomeShellWindows::GnomeShellWindows(Bus& bus) : bus_(bus) {
    sd_bus_slot* slot = nullptr;
    if (sd_bus_match_signal(bus_.get(), &slot, nullptr, objectPath, interface, "FrontChanged", onFrontChanged, this) >=
        0)
        signal_.reset(slot);
    ownerWatch_ = bus_.watchOwner(service, onOwnerChanged, this);
    extension_ = bus_.ownerOf(service);
    ask();
}

std::optional<WindowReport> GnomeShellWindows::read(sd_bus_message* message) {
    const char *window = nullptr, *app = nullptr, *windowClass = nullptr, *title = nullptr;
    std::uint32_t pid = 0;
    if (sd_bus_message_read(message, "ssssu", &window, &app, &windowClass, &title, &pid) < 0) return std::nullopt;
    WindowReport report{window, app, windowClass, title, int(pid)};
    if (report.desktopID.ends_with(".desktop")) report.desktopID.resize(report.desktopID.size() - 8);
    return report;
}

void GnomeShellWindows::ask() {
    if (!extension_) return;
    try {
        Message reply = bus_.call(service, objectPath, interface, "Front");
        if (auto report = read(reply.get())) take(*report);
    } catch (const BusError& error) {
        Log::get("capture")->warn("Extension GNOME Shell : {}", error.what());
    }
}

void GnomeShellWindows::reportArrived(sd_bus_message* message) {
    // Only the extension's own connection speaks for the Shell.
    const char* sender = sd_bus_message_get_sender(message);
    if (!extension_ || !sender || *extension_ != sender) return;
    if (auto report = read(message)) take(*report);
}

void GnomeShellWindows::extensionChanged(const std::string& owner) {
    if (owner.empty()) {
        extension_.reset();
        forget();
        announceNow();
        return;
    }
    extension_ = owner;
    ask();
    announceNow();
}

WindowSourceState GnomeShellWindows::state() const {
    WindowSourceState state{"gnome", std::string(L10n::text("GNOME Shell (extension Ombrelo)", "GNOME Shell (Ombrelo extension)")),
                            std::nullopt};
    if (!extension_)
        state.missing = std::string(L10n::text(
            "l'extension GNOME Shell d'Ombrelo n'est pas activée : lancez « ombrelo gnome-extension install », "
            "fermez la session et rouvrez-la, puis « gnome-extensions enable ",
            "the Ombrelo GNOME Shell extension is not enabled: run \"ombrelo gnome-extension install\", log out "
            "and back in, then \"gnome-extensions enable ")) +
            extensionID + std::string(L10n::text(" »", "\""));
    return state;
}

} // namespace ombrelo::platform
