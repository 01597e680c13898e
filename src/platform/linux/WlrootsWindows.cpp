#include "platform/linux/WlrootsWindows.h"

#include "support/L10n.h"
#include "support/Log.h"

#include <algorithm>
#include <cstring>
#include <wayland-client.h>

#include "wlr-foreign-toplevel-management-unstable-v1-client-protocol.h"

namespace ombrelo::platform {

namespace {

constexpr std::uint32_t managerVersion = 3;

} // namespace

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
            const auto* first = static_cast<const std::uint32_t*>(states->data);
            const auto* last = first + states->size / sizeof(std::uint32_t);
            static_cast<Toplevel*>(data)->pending.activated =
                std::find(first, last, ZWLR_FOREIGN_TOPLEVEL_HANDLE_V1_STATE_ACTIVATED) != last;
        },
    .done =
        [](void* data, zwlr_foreign_toplevel_handle_v1*) {
            auto* toplevel = static_cast<Toplevel*>(data);
            toplevel->owner->toplevelDone(*toplevel);
        },
    .closed =
        [](void* data, zwlr_foreign_toplevel_handle_v1*) {
            auto* toplevel = static_cast<Toplevel*>(data);
            toplevel->owner->toplevelClosed(*toplevel);
        },
    .parent = [](void*, zwlr_foreign_toplevel_handle_v1*, zwlr_foreign_toplevel_handle_v1*) {},
};

const zwlr_foreign_toplevel_manager_v1_listener managerListener{
    .toplevel =
        [](void* data, zwlr_foreign_toplevel_manager_v1*, zwlr_foreign_toplevel_handle_v1* handle) {
            static_cast<WlrootsWindows*>(data)->toplevelAnnounced(handle);
        },
    .finished = [](void* data, zwlr_foreign_toplevel_manager_v1*) {
        static_cast<WlrootsWindows*>(data)->managerFinished();
    }};

} // namespace

WlrootsWindows::WlrootsWindows(const std::string& display) {
    connection_ = std::make_unique<WaylandConnection>(
        display, [this](wl_registry* registry, std::uint32_t name, const char* interface, std::uint32_t version) {
            if (std::strcmp(interface, zwlr_foreign_toplevel_manager_v1_interface.name) || manager_) return;
            manager_ = static_cast<zwlr_foreign_toplevel_manager_v1*>(wl_registry_bind(
                registry, name, &zwlr_foreign_toplevel_manager_v1_interface, std::min(version, managerVersion)));
            zwlr_foreign_toplevel_manager_v1_add_listener(manager_, &managerListener, this);
        });
    refreshFront();
}

WlrootsWindows::~WlrootsWindows() {
    toplevels_.clear();
    if (manager_) {
        // Asks the compositor to let go; the connection's end flushes it.
        zwlr_foreign_toplevel_manager_v1_stop(manager_);
        zwlr_foreign_toplevel_manager_v1_destroy(manager_);
    }
}

bool WlrootsWindows::offers(std::string_view global) const {
    const std::vector<std::string>& globals = connection_->globals();
    return std::find(globals.begin(), globals.end(), global) != globals.end();
}

void WlrootsWindows::toplevelAnnounced(zwlr_foreign_toplevel_handle_v1* handle) {
    auto toplevel = std::make_unique<Toplevel>(this, handle);
    zwlr_foreign_toplevel_handle_v1_add_listener(handle, &toplevelListener, toplevel.get());
    toplevels_.push_back(std::move(toplevel));
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

void WlrootsWindows::managerFinished() {
    // The compositor withdrew the protocol and destroyed the object on its side.
    zwlr_foreign_toplevel_manager_v1_destroy(manager_);
    manager_ = nullptr;
    toplevels_.clear();
    loseSight();
}

bool WlrootsWindows::dispatch() {
    if (lost_) return false;
    if (!connection_->dispatch()) {
        Log::get("capture")->error("Connexion au compositeur Wayland perdue");
        loseSight();
        return false;
    }
    if (frontMayHaveChanged_) {
        frontMayHaveChanged_ = false;
        refreshFront();
    }
    return !lost_;
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

WindowSourceState WlrootsWindows::state() const {
    std::string idle = connection_->idleProtocol();
    WindowSourceState state{"wlroots", "", std::nullopt};
    state.description = "Wayland (wlr-foreign-toplevel); " + std::string(L10n::text("inactivité : ", "idle: ")) +
                        (idle.empty() ? std::string(L10n::text("celle de la session", "the session's")) : idle);
    if (lost_)
        state.missing = std::string(L10n::text("la connexion au compositeur est perdue",
                                               "the connection to the compositor is lost"));
    return state;
}

} // namespace ombrelo::platform
