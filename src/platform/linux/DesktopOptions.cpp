#include "platform/linux/DesktopOptions.h"

#include "platform/linux/Bus.h"
#include "platform/linux/DesktopEntries.h"
#include "support/L10n.h"

#include <cstdlib>

namespace ombrelo::platform {

namespace {

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

} // namespace

DesktopOptions DesktopOptions::fromEnvironment() {
    DesktopOptions options;
    options.systemBus = Bus::addressFromEnvironment(Bus::Kind::system);
    options.sessionBus = Bus::addressFromEnvironment(Bus::Kind::session);
    if (std::string id = environment("XDG_SESSION_ID"); !id.empty()) options.sessionID = id;
    options.applicationFolders = DesktopEntries::defaultFolders();
    options.locale = nameLocale(L10n::language());
    options.waylandDisplay = environment("WAYLAND_DISPLAY");
    options.sessionType = environment("XDG_SESSION_TYPE");
    options.currentDesktop = environment("XDG_CURRENT_DESKTOP");
    options.windowSource = environment("OMBRELO_WINDOWS");
    options.home = environment("HOME");
    options.requireSessionBus = true;
    return options;
}

} // namespace ombrelo::platform
