#include "platform/linux/WlrootsWindows.h"

#include "support/L10n.h"
#include "support/Log.h"

#include <cstring>
#include <poll.h>
#include <wayland-client.h>

#include "ext-idle-notify-v1-client-protocol.h"
#include "idle-client-protocol.h"
#include "wlr-foreign-toplevel-management-unstable-v1-client-protocol.h"

namespace ombrelo::platform {

namespace {

constexpr std::uint32_t toplevelVersion = 3;

template <typename Proxy, void (*destroy)(Proxy*)>
struct Drop {
    void operator()(Proxy* proxy) const {
        if (proxy) destroy(proxy);
    }
};

void disconnect(wl_display* display) { wl_display_disconnect(display); }
void stopToplevels(zwlr_foreign_toplevel_manager_v1* manager) {
    // Stopping asks the compositor to let go; the proxy goes with it.
    zwlr_foreign_toplevel_manager_v1_stop(manager);
    zwlr_foreign_toplevel_manager_v1_destroy(manager);
}

} // namespace

// Declared before the toplevels so that it goes last: they hold its proxies.
struct WlrootsWindows::Connection {
    std::unique_ptr<wl_display, Drop<wl_display, disconnect>> display;
    std::unique_ptr<wl_registry, Drop<wl_registry, wl_registry_destroy>> registry;
    std::unique_ptr<wl_seat, Drop<wl_seat, wl_seat_destroy>> seat;
    std::unique_ptr<zwlr_foreign_toplevel_manager_v1, Drop<zwlr_foreign_toplevel_manager_v1, stopToplevels>>
        toplevels;
    std::unique_ptr<ext_idle_notifier_v1, Drop<ext_idle_notifier_v1, ext_idle_notifier_v1_destroy>> idleNotifier;
    std::unique_ptr<ext_idle_notification_v1, Drop<ext_idle_notification_v1, ext_idle_notification_v1_destroy>>
        idleNotification;
    std::unique_ptr<org_kde_kwin_idle, Drop<org_kde_kwin_idle, org_kde_kwin_idle_destroy>> kdeIdle;
    std::unique_ptr<org_kde_kwin_idle_timeout, Drop<org_kde_kwin_idle_timeout, org_kde_kwin_idle_timeout_release>>
        kdeIdleTimeout;
    const char* idleProtocol = nullptr;

    ~Connection() {
        // Requests before the display goes, in the order the objects depend.
        idleNotification.reset();
        kdeIdleTimeout.reset();
        idleNotifier.reset();
        kdeIdle.reset();
        toplevels.reset();
        seat.reset();
        registry.reset();
        if (display) wl_display_flush(display.get());
    }
};

struct WlrootsWindows::Toplevel {
    struct Details {
        std::string appID, title;
        bool activated = false;
    };
    Toplevel(WlrootsWindows* source, zwlr_foreign_toplevel_handle_v1* proxy) : owner(source), handle(proxy) {}
    ~Toplevel() { zwlr_foreign_toplevel_handle_v1_destroy(handle); }
    Toplevel(const Toplevel&) = delete;
    Toplevel& operator=(const Toplevel&) = delete;

    WlrootsWindows* owner;
    zwlr_foreign_toplevel_handle_v1* handle;
    Details current, pending;
    std::uint64_t activatedAt = 0;  // order of activation, to choose among several activated
};

namespace {

using Toplevel = WlrootsWindows::Toplevel;

const zwlr_foreign_toplevel_handle_v1_listener toplevelListener{
    .title = [](void* data, zwlr_foreign_toplevel_handle_v1*,
                const char* title) { static_cast<Toplevel*>(data)->pending.title = title ? title : ""; },
    .app_id = [](void* data, zwlr_foreign_toplevel_handle_v1*,
                 const char* appID) { static_cast<Toplevel*>(data)->pending.appID = appID ? appID : ""; },
    .output_enter = [](void*, zwlr_foreign_toplevel_handle_v1*, wl_output*) {},
    .output_leave = [](void*, zwlr_foreign_toplevel_handle_v1*, wl_output*) {},
    .state =
        [](void* data, zwlr_foreign_toplevel_handle_v1*, wl_array* states) {
            bool activated = false;
            const auto* begin = static_cast<const std::uint32_t*>(states->data);
            for (std::size_t i = 0; i < states->size / sizeof(std::uint32_t); ++i)
                activated |= begin[i] == ZWLR_FOREIGN_TOPLEVEL_HANDLE_V1_STATE_ACTIVATED;
            static_cast<Toplevel*>(data)->pending.activated = activated;
        },
    .done = [](void* data, zwlr_foreign_toplevel_handle_v1*) {
        auto* toplevel = static_cast<Toplevel*>(data);
        toplevel->owner->toplevelDone(*toplevel);
    },
    .closed = [](void* data, zwlr_foreign_toplevel_handle_v1*) {
        auto* toplevel = static_cast<Toplevel*>(data);
        toplevel->owner->toplevelClosed(*toplevel);
    },
    .parent = [](void*, zwlr_foreign_toplevel_handle_v1*, zwlr_foreign_toplevel_handle_v1*) {},
};

} // namespace

// The listeners that need the source's private parts.
struct WlrootsListeners {
    static void global(void* data, wl_registry* registry, std::uint32_t name, const char* interface,
                       std::uint32_t version) {
        auto* source = static_cast<WlrootsWindows*>(data);
        WlrootsWindows::Connection& connection = *source->connection_;
        source->globals_.emplace_back(interface);
        auto bind = [&](const wl_interface& kind, std::uint32_t wanted) {
            return wl_registry_bind(registry, name, &kind, std::min(version, wanted));
        };
        if (!std::strcmp(interface, wl_seat_interface.name) && !connection.seat)
            connection.seat.reset(static_cast<wl_seat*>(bind(wl_seat_interface, 1)));
        else if (!std::strcmp(interface, zwlr_foreign_toplevel_manager_v1_interface.name)) {
            connection.toplevels.reset(static_cast<zwlr_foreign_toplevel_manager_v1*>(
                bind(zwlr_foreign_toplevel_manager_v1_interface, toplevelVersion)));
            zwlr_foreign_toplevel_manager_v1_add_listener(connection.toplevels.get(), &managerListener, source);
        } else if (!std::strcmp(interface, ext_idle_notifier_v1_interface.name))
            connection.idleNotifier.reset(static_cast<ext_idle_notifier_v1*>(bind(ext_idle_notifier_v1_interface, 1)));
        else if (!std::strcmp(interface, org_kde_kwin_idle_interface.name))
            connection.kdeIdle.reset(static_cast<org_kde_kwin_idle*>(bind(org_kde_kwin_idle_interface, 1)));
    }

    static void toplevel(void* data, zwlr_foreign_toplevel_manager_v1*, zwlr_foreign_toplevel_handle_v1* handle) {
        auto* source = static_cast<WlrootsWindows*>(data);
        auto toplevel = std::make_unique<Toplevel>(source, handle);
        zwlr_foreign_toplevel_handle_v1_add_listener(handle, &toplevelListener, toplevel.get());
        source->toplevels_.push_back(std::move(toplevel));
    }

    static void finished(void* data, zwlr_foreign_toplevel_manager_v1*) {
        // The compositor withdrew the protocol: the proxy is gone on its side.
        auto* source = static_cast<WlrootsWindows*>(data);
        zwlr_foreign_toplevel_manager_v1_destroy(source->connection_->toplevels.release());
        source->loseSight();
    }

    static constexpr wl_registry_listener registryListener{.global = global, .global_remove = [](void*, wl_registry*,
                                                                                                 std::uint32_t) {}};
    static constexpr zwlr_foreign_toplevel_manager_v1_listener managerListener{.toplevel = toplevel,
                                                                                 .finished = finished};
    static constexpr ext_idle_notification_v1_listener idleListener{
        .idled = [](void* data, ext_idle_notification_v1*) { static_cast<WlrootsWindows*>(data)->idleChanged(true); },
        .resumed = [](void* data,
                      ext_idle_notification_v1*) { static_cast<WlrootsWindows*>(data)->idleChanged(false); }};
    static constexpr org_kde_kwin_idle_timeout_listener kdeIdleListener{
        .idle = [](void* data, org_kde_kwin_idle_timeout*) { static_cast<WlrootsWindows*>(data)->idleChanged(true); },
        .resumed = [](void* data,
                      org_kde_kwin_idle_timeout*) { static_cast<WlrootsWindows*>(data)->idleChanged(false); }};
};

WlrootsWindows::WlrootsWindows(const std::string& display) : connection_(std::make_unique<Connection>()) {
    Connection& connection = *connection_;
    connection.display.reset(wl_display_connect(display.empty() ? nullptr : display.c_str()));
    if (!connection.display)
        throw WaylandError("no Wayland compositor answers at " +
                           (display.empty() ? std::string("$WAYLAND_DISPLAY") : display) + " (" +
                           std::strerror(errno) + ")");
    connection.registry.reset(wl_display_get_registry(connection.display.get()));
    wl_registry_add_listener(connection.registry.get(), &WlrootsListeners::registryListener, this);
    // The globals, then what binding them sent: the windows and their state.
    if (wl_display_roundtrip(connection.display.get()) < 0 || wl_display_roundtrip(connection.display.get()) < 0)
        throw WaylandError("the Wayland compositor closed the connection while listing its globals");
    refreshFront();

    if (connection.seat && connection.idleNotifier) {
        connection.idleNotification.reset(ext_idle_notifier_v1_get_idle_notification(
            connection.idleNotifier.get(), idleNoticeMilliseconds, connection.seat.get()));
        ext_idle_notification_v1_add_listener(connection.idleNotification.get(), &WlrootsListeners::idleListener,
                                              this);
        connection.idleProtocol = "ext-idle-notify";
    } else if (connection.seat && connection.kdeIdle) {
        connection.kdeIdleTimeout.reset(
            org_kde_kwin_idle_get_idle_timeout(connection.kdeIdle.get(), connection.seat.get(), idleNoticeMilliseconds));
        org_kde_kwin_idle_timeout_add_listener(connection.kdeIdleTimeout.get(), &WlrootsListeners::kdeIdleListener,
                                               this);
        connection.idleProtocol = "org_kde_kwin_idle";
    }
    wl_display_flush(connection.display.get());
}

WlrootsWindows::~WlrootsWindows() {
    toplevels_.clear();
    connection_.reset();
}

bool WlrootsWindows::seesWindows() const { return connection_->toplevels != nullptr; }

int WlrootsWindows::fd() const { return wl_display_get_fd(connection_->display.get()); }

bool WlrootsWindows::dispatch() {
    if (lost_ && !connection_->toplevels) return false;
    wl_display* display = connection_->display.get();
    // Read what is there without waiting: the loop only calls when readable,
    // and samples call to catch up.
    while (wl_display_prepare_read(display) != 0)
        if (wl_display_dispatch_pending(display) < 0) break;
    wl_display_flush(display);
    pollfd readable{.fd = wl_display_get_fd(display), .events = POLLIN, .revents = 0};
    if (poll(&readable, 1, 0) > 0) wl_display_read_events(display);
    else wl_display_cancel_read(display);
    if (wl_display_dispatch_pending(display) < 0 || wl_display_get_error(display)) {
        if (!lost_) {
            Log::get("capture")->error("Connexion au compositeur Wayland perdue");
            loseSight();
        }
        return false;
    }
    if (frontMayHaveChanged_) {
        frontMayHaveChanged_ = false;
        refreshFront();
    }
    return true;
}

// A switch comes as two updates, the old window's and the new one's: the
// window in front is chosen once everything read has been handled, so that a
// switch is never seen as nothing in front in between.
void WlrootsWindows::toplevelDone(Toplevel& toplevel) {
    if (toplevel.pending.activated && !toplevel.current.activated) toplevel.activatedAt = ++activations_;
    toplevel.current = toplevel.pending;
    frontMayHaveChanged_ = true;
}

void WlrootsWindows::toplevelClosed(Toplevel& toplevel) {
    std::erase_if(toplevels_, [&](const auto& each) { return each.get() == &toplevel; });
    frontMayHaveChanged_ = true;
}

bool WlrootsWindows::refreshFront() {
    const Toplevel* front = nullptr;
    if (!lost_)
        for (const auto& toplevel : toplevels_)
            if (toplevel->current.activated && (!front || toplevel->activatedAt > front->activatedAt))
                front = toplevel.get();
    // The pointer may be of a window just closed: compare, never follow it.
    if (front == front_) return false;
    front_ = front;
    announceFrontChange();
    return true;
}

void WlrootsWindows::loseSight() {
    lost_ = true;
    if (!refreshFront()) announceFrontChange();
}

// From what the last dispatch left: reading the connection here could run
// listeners from inside another listener's announcement.
std::optional<FrontWindow> WlrootsWindows::front() {
    if (!front_) return std::nullopt;
    const Toplevel::Details& details = front_->current;
    WindowOwner owner;
    if (!details.appID.empty()) {
        owner.windowClass = WindowClass{details.appID, details.appID};
        owner.gtkApplicationID = details.appID;
    }
    std::optional<std::string> title;
    if (!details.title.empty()) title = details.title;
    return FrontWindow{owner, title};
}

void WlrootsWindows::idleChanged(bool idle) {
    auto now = std::chrono::steady_clock::now();
    if (idle) idleSince_ = now - std::chrono::milliseconds(idleNoticeMilliseconds);
    else idleSince_.reset();
}

std::optional<std::uint64_t> WlrootsWindows::idleMilliseconds() {
    if (!connection_->idleProtocol) return std::nullopt;
    if (!idleSince_) return 0;
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - *idleSince_)
        .count();
}

WindowSourceState WlrootsWindows::state() const {
    WindowSourceState state{"wlroots", "", std::nullopt};
    state.description = "Wayland (wlr-foreign-toplevel); " + std::string(L10n::text("inactivité : ", "idle: ")) +
                        std::string(connection_->idleProtocol ? std::string_view(connection_->idleProtocol)
                                                              : L10n::text("celle de la session", "the session's"));
    if (lost_)
        state.missing = std::string(L10n::text("la connexion au compositeur est perdue", "the connection to the compositor is lost"));
    return state;
}

} // namespace ombrelo::platform
