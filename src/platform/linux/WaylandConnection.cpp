#include "platform/linux/WaylandConnection.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <poll.h>
#include <wayland-client.h>

#include "ext-idle-notify-v1-client-protocol.h"
#include "idle-client-protocol.h"

namespace ombrelo::platform {

namespace {

template <typename Proxy, void (*destroy)(Proxy*)>
struct Drop {
    void operator()(Proxy* proxy) const {
        if (proxy) destroy(proxy);
    }
};

void disconnect(wl_display* display) {
    wl_display_flush(display);
    wl_display_disconnect(display);
}

} // namespace

// Declared in the order they are made, so that they go in the reverse.
struct WaylandConnection::Parts {
    std::unique_ptr<wl_display, Drop<wl_display, disconnect>> display;
    std::unique_ptr<wl_registry, Drop<wl_registry, wl_registry_destroy>> registry;
    std::unique_ptr<wl_seat, Drop<wl_seat, wl_seat_destroy>> seat;
    std::unique_ptr<ext_idle_notifier_v1, Drop<ext_idle_notifier_v1, ext_idle_notifier_v1_destroy>> idleNotifier;
    std::unique_ptr<org_kde_kwin_idle, Drop<org_kde_kwin_idle, org_kde_kwin_idle_destroy>> kdeIdle;
    std::unique_ptr<ext_idle_notification_v1, Drop<ext_idle_notification_v1, ext_idle_notification_v1_destroy>>
        idleNotification;
    std::unique_ptr<org_kde_kwin_idle_timeout, Drop<org_kde_kwin_idle_timeout, org_kde_kwin_idle_timeout_release>>
        kdeIdleTimeout;

    GlobalHandler onGlobal;
    std::vector<std::string> globals;
    std::string idleProtocol;
    // Since when no input came, while the compositor says idle.
    std::optional<std::chrono::steady_clock::time_point> idleSince;

    void idleChanged(bool idle) {
        if (idle)
            idleSince = std::chrono::steady_clock::now() - std::chrono::milliseconds(idleNoticeMilliseconds);
        else
            idleSince.reset();
    }

    void global(wl_registry* registry, std::uint32_t name, const char* interface, std::uint32_t version) {
        globals.emplace_back(interface);
        auto bind = [&](const wl_interface& kind) { return wl_registry_bind(registry, name, &kind, 1); };
        if (!std::strcmp(interface, wl_seat_interface.name) && !seat)
            seat.reset(static_cast<wl_seat*>(bind(wl_seat_interface)));
        else if (!std::strcmp(interface, ext_idle_notifier_v1_interface.name))
            idleNotifier.reset(static_cast<ext_idle_notifier_v1*>(bind(ext_idle_notifier_v1_interface)));
        else if (!std::strcmp(interface, org_kde_kwin_idle_interface.name))
            kdeIdle.reset(static_cast<org_kde_kwin_idle*>(bind(org_kde_kwin_idle_interface)));
        else if (onGlobal)
            onGlobal(registry, name, interface, version);
    }

    void followIdle();
};

namespace {

using Parts = WaylandConnection::Parts;

const wl_registry_listener registryListener{
    .global =
        [](void* data, wl_registry* registry, std::uint32_t name, const char* interface, std::uint32_t version) {
            static_cast<Parts*>(data)->global(registry, name, interface, version);
        },
    .global_remove = [](void*, wl_registry*, std::uint32_t) {}};

const ext_idle_notification_v1_listener idleListener{
    .idled = [](void* data, ext_idle_notification_v1*) { static_cast<Parts*>(data)->idleChanged(true); },
    .resumed = [](void* data, ext_idle_notification_v1*) { static_cast<Parts*>(data)->idleChanged(false); }};

const org_kde_kwin_idle_timeout_listener kdeIdleListener{
    .idle = [](void* data, org_kde_kwin_idle_timeout*) { static_cast<Parts*>(data)->idleChanged(true); },
    .resumed = [](void* data, org_kde_kwin_idle_timeout*) { static_cast<Parts*>(data)->idleChanged(false); }};

} // namespace

void WaylandConnection::Parts::followIdle() {
    if (!seat) return;
    if (idleNotifier) {
        idleNotification.reset(
            ext_idle_notifier_v1_get_idle_notification(idleNotifier.get(), idleNoticeMilliseconds, seat.get()));
        ext_idle_notification_v1_add_listener(idleNotification.get(), &idleListener, this);
        idleProtocol = "ext-idle-notify";
    } else if (kdeIdle) {
        kdeIdleTimeout.reset(org_kde_kwin_idle_get_idle_timeout(kdeIdle.get(), seat.get(), idleNoticeMilliseconds));
        org_kde_kwin_idle_timeout_add_listener(kdeIdleTimeout.get(), &kdeIdleListener, this);
        idleProtocol = "org_kde_kwin_idle";
    }
}

WaylandConnection::WaylandConnection(const std::string& display, GlobalHandler onGlobal)
    : parts_(std::make_unique<Parts>()) {
    Parts& parts = *parts_;
    parts.onGlobal = std::move(onGlobal);
    parts.display.reset(wl_display_connect(display.empty() ? nullptr : display.c_str()));
    if (!parts.display)
        throw WaylandError("no Wayland compositor answers at " +
                           (display.empty() ? std::string("$WAYLAND_DISPLAY") : display) + " (" +
                           std::strerror(errno) + ")");
    parts.registry.reset(wl_display_get_registry(parts.display.get()));
    wl_registry_add_listener(parts.registry.get(), &registryListener, &parts);
    // The globals, then what binding them sent.
    if (wl_display_roundtrip(parts.display.get()) < 0 || wl_display_roundtrip(parts.display.get()) < 0)
        throw WaylandError("the Wayland compositor closed the connection while listing its globals");
    parts.followIdle();
    wl_display_flush(parts.display.get());
}

WaylandConnection::~WaylandConnection() = default;

int WaylandConnection::fd() const { return wl_display_get_fd(parts_->display.get()); }

const std::vector<std::string>& WaylandConnection::globals() const { return parts_->globals; }

bool WaylandConnection::dispatch() {
    wl_display* display = parts_->display.get();
    if (wl_display_get_error(display)) return false;
    while (wl_display_prepare_read(display) != 0)
        if (wl_display_dispatch_pending(display) < 0) return false;
    wl_display_flush(display);
    pollfd readable{.fd = wl_display_get_fd(display), .events = POLLIN, .revents = 0};
    if (poll(&readable, 1, 0) > 0) wl_display_read_events(display);
    else wl_display_cancel_read(display);
    return wl_display_dispatch_pending(display) >= 0 && !wl_display_get_error(display);
}

std::optional<std::uint64_t> WaylandConnection::idleMilliseconds() const {
    if (parts_->idleProtocol.empty()) return std::nullopt;
    if (!parts_->idleSince) return 0;
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 *parts_->idleSince)
        .count();
}

std::string WaylandConnection::idleProtocol() const { return parts_->idleProtocol; }

} // namespace ombrelo::platform
