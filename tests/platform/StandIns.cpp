#include "platform/StandIns.h"

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <stdexcept>
#include <unistd.h>
#include <systemd/sd-bus.h>

namespace ombrelo::testing {

namespace {

constexpr const char* managerPath = "/org/freedesktop/login1";
constexpr const char* managerInterface = "org.freedesktop.login1.Manager";
constexpr const char* sessionInterface = "org.freedesktop.login1.Session";

template <typename T>
T& self(void* userdata) {
    return *static_cast<T*>(userdata);
}

// ---- logind ----

int getSession(sd_bus_message* call, void*, sd_bus_error* error) {
    const char* id = nullptr;
    if (sd_bus_message_read(call, "s", &id) < 0) return -EINVAL;
    if (std::string(id) != StandInLogind::sessionID)
        return sd_bus_error_set(error, "org.freedesktop.login1.NoSuchSession", "no such session");
    return sd_bus_reply_method_return(call, "o", StandInLogind::sessionPath);
}

int noSession(sd_bus_message*, void*, sd_bus_error* error) {
    return sd_bus_error_set(error, "org.freedesktop.login1.NoSessionForPID", "not in a session");
}

int listInhibitors(sd_bus_message* call, void* userdata, sd_bus_error*) {
    auto& logind = self<StandInLogind>(userdata);
    sd_bus_message* reply = nullptr;
    sd_bus_message_new_method_return(call, &reply);
    sd_bus_message_open_container(reply, 'a', "(ssssuu)");
    {
        std::lock_guard lock(logind.mutex);
        for (const auto& inhibitor : logind.inhibitors)
            sd_bus_message_append(reply, "(ssssuu)", inhibitor.what.c_str(), "test", "a film", "block",
                                  inhibitor.uid, inhibitor.pid);
    }
    sd_bus_message_close_container(reply);
    int r = sd_bus_send(nullptr, reply, nullptr);
    sd_bus_message_unref(reply);
    return r;
}

// A delay lock is a pipe: the caller gets the write end, logind watches the
// read end, which hangs up once every copy of the write end is closed.
int inhibit(sd_bus_message* call, void* userdata, sd_bus_error*) {
    auto& logind = self<StandInLogind>(userdata);
    const char *what = nullptr, *who = nullptr, *why = nullptr, *mode = nullptr;
    if (sd_bus_message_read(call, "ssss", &what, &who, &why, &mode) < 0) return -EINVAL;
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return -errno;
    {
        std::lock_guard lock(logind.mutex);
        logind.delayLocks.push_back({std::string(what) + ":" + mode, fds[0]});
    }
    int r = sd_bus_reply_method_return(call, "h", fds[1]);  // sent as a copy
    ::close(fds[1]);
    return r;
}

int sessionProperty(sd_bus*, const char*, const char*, const char* property, sd_bus_message* reply, void* userdata,
                    sd_bus_error*) {
    auto& logind = self<StandInLogind>(userdata);
    std::lock_guard lock(logind.mutex);
    int value = std::string(property) == "Active" ? logind.active : logind.lockedHint;
    return sd_bus_message_append(reply, "b", value);
}

const sd_bus_vtable managerTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("GetSession", "s", "o", getSession, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("GetSessionByPID", "u", "o", noSession, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("GetUser", "u", "o", noSession, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("ListInhibitors", "", "a(ssssuu)", listInhibitors, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Inhibit", "ssss", "h", inhibit, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_SIGNAL("PrepareForSleep", "b", 0),
    SD_BUS_VTABLE_END};

const sd_bus_vtable sessionTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("Active", "b", sessionProperty, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_PROPERTY("LockedHint", "b", sessionProperty, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_SIGNAL("Lock", "", 0),
    SD_BUS_SIGNAL("Unlock", "", 0),
    SD_BUS_VTABLE_END};

// ---- notifications ----

int notify(sd_bus_message* call, void* userdata, sd_bus_error*) {
    auto& server = self<StandInNotifications>(userdata);
    const char *app = nullptr, *icon = nullptr, *summary = nullptr, *body = nullptr;
    std::uint32_t replaces = 0;
    if (sd_bus_message_read(call, "susss", &app, &replaces, &icon, &summary, &body) < 0) return -EINVAL;
    StandInNotifications::Received received{app, summary, body, {}};
    if (sd_bus_message_enter_container(call, 'a', "s") < 0) return -EINVAL;
    for (const char* text = nullptr; sd_bus_message_read(call, "s", &text) > 0;) received.actions.push_back(text);
    std::lock_guard lock(server.mutex);
    server.list.push_back(received);
    return sd_bus_reply_method_return(call, "u", std::uint32_t(server.list.size()));
}

int capabilities(sd_bus_message* call, void* userdata, sd_bus_error*) {
    auto& server = self<StandInNotifications>(userdata);
    std::lock_guard lock(server.mutex);
    if (server.showsActions) return sd_bus_reply_method_return(call, "as", 2, "body", "actions");
    return sd_bus_reply_method_return(call, "as", 1, "body");
}

int closeNotification(sd_bus_message* call, void* userdata, sd_bus_error*) {
    auto& server = self<StandInNotifications>(userdata);
    std::uint32_t id = 0;
    if (sd_bus_message_read(call, "u", &id) < 0) return -EINVAL;
    std::lock_guard lock(server.mutex);
    server.closed.push_back(id);
    return sd_bus_reply_method_return(call, "");
}

const sd_bus_vtable notificationsTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Notify", "susssasa{sv}i", "u", notify, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("GetCapabilities", "", "as", capabilities, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("CloseNotification", "u", "", closeNotification, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_SIGNAL("ActionInvoked", "us", 0),
    SD_BUS_VTABLE_END};

// ---- GNOME session ----

struct InhibitorObject {
    StandInGnomeSession* session;
    std::size_t index;
};

std::string inhibitorPath(std::size_t index) { return "/org/gnome/SessionManager/Inhibitor" + std::to_string(index); }

int getInhibitors(sd_bus_message* call, void* userdata, sd_bus_error*) {
    auto& session = self<StandInGnomeSession>(userdata);
    sd_bus_message* reply = nullptr;
    sd_bus_message_new_method_return(call, &reply);
    sd_bus_message_open_container(reply, 'a', "o");
    {
        std::lock_guard lock(session.mutex);
        for (std::size_t i = 0; i < session.inhibitors.size(); ++i)
            sd_bus_message_append(reply, "o", inhibitorPath(i).c_str());
    }
    sd_bus_message_close_container(reply);
    int r = sd_bus_send(nullptr, reply, nullptr);
    sd_bus_message_unref(reply);
    return r;
}

int inhibitorAppID(sd_bus_message* call, void* userdata, sd_bus_error*) {
    auto& object = self<InhibitorObject>(userdata);
    std::lock_guard lock(object.session->mutex);
    return sd_bus_reply_method_return(call, "s", object.session->inhibitors.at(object.index).appID.c_str());
}

int inhibitorFlags(sd_bus_message* call, void* userdata, sd_bus_error*) {
    auto& object = self<InhibitorObject>(userdata);
    std::lock_guard lock(object.session->mutex);
    return sd_bus_reply_method_return(call, "u", object.session->inhibitors.at(object.index).flags);
}

int idleTime(sd_bus_message* call, void* userdata, sd_bus_error*) {
    auto& session = self<StandInGnomeSession>(userdata);
    std::lock_guard lock(session.mutex);
    return sd_bus_reply_method_return(call, "t", session.idleMilliseconds);
}

const sd_bus_vtable sessionManagerTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("GetInhibitors", "", "ao", getInhibitors, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

const sd_bus_vtable inhibitorTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("GetAppId", "", "s", inhibitorAppID, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("GetFlags", "", "u", inhibitorFlags, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

const sd_bus_vtable idleMonitorTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("GetIdletime", "", "t", idleTime, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

void check(int result, const char* what) {
    if (result < 0) throw std::runtime_error(std::string("stand-in: ") + what + " failed");
}

} // namespace

// ---- StandInLogind ----

StandInLogind::StandInLogind(const std::string& busAddress, bool startActive, bool startLocked)
    : active(startActive), lockedHint(startLocked), service_(busAddress) {
    service_.run([this](sd_bus* bus) {
        check(sd_bus_add_object_vtable(bus, &manager_, managerPath, managerInterface, managerTable, this), "manager");
        check(sd_bus_add_object_vtable(bus, &session_, sessionPath, sessionInterface, sessionTable, this), "session");
    });
    service_.own("org.freedesktop.login1");
}

StandInLogind::~StandInLogind() {
    service_.run([this](sd_bus*) {
        sd_bus_slot_unref(manager_);
        sd_bus_slot_unref(session_);
    });
    for (const DelayLock& lock : delayLocks) ::close(lock.readEnd);
}

int StandInLogind::heldSleepDelays() {
    std::lock_guard guard(mutex);
    int held = 0;
    for (const DelayLock& lock : delayLocks) {
        pollfd watch{lock.readEnd, POLLIN, 0};
        bool hungUp = ::poll(&watch, 1, 0) > 0 && (watch.revents & (POLLHUP | POLLERR));
        held += lock.what == "sleep:delay" && !hungUp;
    }
    return held;
}

void StandInScreenSaver::setActive(bool active) {
    service_.run([active](sd_bus* bus) {
        check(sd_bus_emit_signal(bus, "/org/freedesktop/ScreenSaver", "org.freedesktop.ScreenSaver", "ActiveChanged",
                                 "b", int(active)),
              "ActiveChanged");
    });
}

void StandInLogind::prepareForSleep(bool sleeping) {
    service_.run([&](sd_bus* bus) {
        check(sd_bus_emit_signal(bus, managerPath, managerInterface, "PrepareForSleep", "b", int(sleeping)), "signal");
    });
}

void StandInLogind::lock() {
    service_.run([](sd_bus* bus) { check(sd_bus_emit_signal(bus, sessionPath, sessionInterface, "Lock", ""), "lock"); });
}

void StandInLogind::unlock() {
    service_.run(
        [](sd_bus* bus) { check(sd_bus_emit_signal(bus, sessionPath, sessionInterface, "Unlock", ""), "unlock"); });
}

void StandInLogind::setActive(bool value) {
    {
        std::lock_guard guard(mutex);
        active = value;
    }
    service_.run([](sd_bus* bus) {
        check(sd_bus_emit_properties_changed(bus, sessionPath, sessionInterface, "Active", nullptr), "Active");
    });
}

void StandInLogind::setLockedHint(bool value) {
    {
        std::lock_guard guard(mutex);
        lockedHint = value;
    }
    service_.run([](sd_bus* bus) {
        check(sd_bus_emit_properties_changed(bus, sessionPath, sessionInterface, "LockedHint", nullptr), "LockedHint");
    });
}

void StandInLogind::setInhibitors(std::vector<Inhibitor> list) {
    std::lock_guard guard(mutex);
    inhibitors = std::move(list);
}

// ---- StandInNotifications ----

StandInNotifications::StandInNotifications(const std::string& busAddress) : service_(busAddress) {
    service_.run([this](sd_bus* bus) {
        check(sd_bus_add_object_vtable(bus, &slot_, "/org/freedesktop/Notifications", "org.freedesktop.Notifications",
                                       notificationsTable, this),
              "notifications");
    });
    service_.own("org.freedesktop.Notifications");
}

StandInNotifications::~StandInNotifications() {
    service_.run([this](sd_bus*) { sd_bus_slot_unref(slot_); });
}

std::vector<StandInNotifications::Received> StandInNotifications::received() {
    std::lock_guard lock(mutex);
    return list;
}

std::vector<std::uint32_t> StandInNotifications::closedIDs() {
    std::lock_guard lock(mutex);
    return closed;
}

void StandInNotifications::invoke(std::uint32_t id, const std::string& key) {
    service_.run([&](sd_bus* bus) {
        check(sd_bus_emit_signal(bus, "/org/freedesktop/Notifications", "org.freedesktop.Notifications",
                                 "ActionInvoked", "us", id, key.c_str()),
              "ActionInvoked");
    });
}

// ---- StandInGnomeSession ----

StandInGnomeSession::StandInGnomeSession(const std::string& busAddress, std::vector<Inhibitor> list,
                                         std::uint64_t idle)
    : inhibitors(std::move(list)), idleMilliseconds(idle), service_(busAddress) {
    static std::vector<std::unique_ptr<InhibitorObject>> objects;  // live as long as the program
    service_.run([this](sd_bus* bus) {
        sd_bus_slot* slot = nullptr;
        check(sd_bus_add_object_vtable(bus, &slot, "/org/gnome/SessionManager", "org.gnome.SessionManager",
                                       sessionManagerTable, this),
              "session manager");
        slots_.push_back(slot);
        for (std::size_t i = 0; i < inhibitors.size(); ++i) {
            objects.push_back(std::make_unique<InhibitorObject>(InhibitorObject{this, i}));
            check(sd_bus_add_object_vtable(bus, &slot, inhibitorPath(i).c_str(), "org.gnome.SessionManager.Inhibitor",
                                           inhibitorTable, objects.back().get()),
                  "inhibitor");
            slots_.push_back(slot);
        }
        check(sd_bus_add_object_vtable(bus, &slot, "/org/gnome/Mutter/IdleMonitor/Core",
                                       "org.gnome.Mutter.IdleMonitor", idleMonitorTable, this),
              "idle monitor");
        slots_.push_back(slot);
    });
    service_.own("org.gnome.SessionManager");
    service_.own("org.gnome.Mutter.IdleMonitor");
}

StandInGnomeSession::~StandInGnomeSession() {
    service_.run([this](sd_bus*) {
        for (sd_bus_slot* slot : slots_) sd_bus_slot_unref(slot);
    });
}

} // namespace ombrelo::testing
