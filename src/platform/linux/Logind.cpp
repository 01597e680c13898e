#include "platform/linux/Logind.h"

#include "support/Log.h"

#include <cstring>
#include <fcntl.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

namespace ombrelo::platform {

namespace {

constexpr const char* service = "org.freedesktop.login1";
constexpr const char* managerPath = "/org/freedesktop/login1";
constexpr const char* managerInterface = "org.freedesktop.login1.Manager";
constexpr const char* sessionInterface = "org.freedesktop.login1.Session";

bool containsWord(std::string_view list, std::string_view word) {
    // "what" is a colon-separated list: "sleep:idle".
    std::size_t start = 0;
    while (start <= list.size()) {
        std::size_t end = list.find(':', start);
        if (end == std::string_view::npos) end = list.size();
        if (list.substr(start, end - start) == word) return true;
        start = end + 1;
    }
    return false;
}

Logind& owner(void* self) { return *static_cast<Logind*>(self); }

} // namespace

struct Logind::Signals {
    static int sleep(sd_bus_message* message, void* self, sd_bus_error*);
    static int lock(sd_bus_message* message, void* self, sd_bus_error*);
    static int unlock(sd_bus_message* message, void* self, sd_bus_error*);
    static int properties(sd_bus_message* message, void* self, sd_bus_error*);
};

Logind::Logind(Bus& bus, const std::optional<std::string>& sessionID) : bus_(bus) {
    if (!bus_.hasOwner(service)) return;
    sd_bus_slot* slot = nullptr;
    if (sd_bus_match_signal(bus_.get(), &slot, service, managerPath, managerInterface, "PrepareForSleep",
                            &Signals::sleep, this) >= 0) {
        sleepMatch_.reset(slot);
        // Only while PrepareForSleep is heard, or nothing would release it.
        takeSleepDelay();
    }

    auto path = findSession(sessionID);
    if (!path) return;
    sessionPath_ = *path;
    const char* session = sessionPath_.c_str();
    if (sd_bus_match_signal(bus_.get(), &slot, service, session, sessionInterface, "Lock", &Signals::lock,
                            this) >= 0)
        lockMatch_.reset(slot);
    if (sd_bus_match_signal(bus_.get(), &slot, service, session, sessionInterface, "Unlock",
                            &Signals::unlock, this) >= 0)
        unlockMatch_.reset(slot);
    if (sd_bus_match_signal(bus_.get(), &slot, service, session, "org.freedesktop.DBus.Properties",
                            "PropertiesChanged", &Signals::properties, this) >= 0)
        propertiesMatch_.reset(slot);
    // At start nothing "happened": the state is taken as it is, without event.
    state_ = readSessionState();
}

Logind::~Logind() { releaseSleepDelay(); }

void Logind::takeSleepDelay() {
    if (sleepDelay_ >= 0) return;
    try {
        Message reply = bus_.call(service, managerPath, managerInterface, "Inhibit", "ssss", "sleep", "Ombrelo",
                                  "Enregistre la fin de l'activité en cours avant la veille", "delay");
        int fd = -1;
        if (sd_bus_message_read(reply.get(), "h", &fd) >= 0 && fd >= 0)
            sleepDelay_ = ::fcntl(fd, F_DUPFD_CLOEXEC, 3);  // the message owns its copy
    } catch (const BusError& error) {
        Log::get("capture")->warn("Verrou de veille refusé : {}", error.what());
    }
}

void Logind::releaseSleepDelay() {
    if (sleepDelay_ < 0) return;
    ::close(sleepDelay_);
    sleepDelay_ = -1;
}

std::optional<std::string> Logind::findSession(const std::optional<std::string>& sessionID) {
    auto objectPath = [](const Message& reply) -> std::optional<std::string> {
        const char* path = nullptr;
        if (sd_bus_message_read(reply.get(), "o", &path) < 0 || !path) return std::nullopt;
        return std::string(path);
    };
    auto log = Log::get("capture");
    if (sessionID) {
        try {
            return objectPath(bus_.call(service, managerPath, managerInterface, "GetSession", "s",
                                        sessionID->c_str()));
        } catch (const BusError& error) {
            log->debug("Session {} : {}", *sessionID, error.what());
        }
    }
    try {
        return objectPath(bus_.call(service, managerPath, managerInterface, "GetSessionByPID", "u",
                                    std::uint32_t(::getpid())));
    } catch (const BusError& error) {
        log->debug("Session du processus : {}", error.what());
    }
    // A systemd user service belongs to no session: take the user's display.
    try {
        auto user = objectPath(bus_.call(service, managerPath, managerInterface, "GetUser", "u",
                                         std::uint32_t(::getuid())));
        if (!user) return std::nullopt;
        Message reply = bus_.call(service, user->c_str(), "org.freedesktop.DBus.Properties", "Get", "ss",
                                  "org.freedesktop.login1.User", "Display");
        const char* id = nullptr;
        const char* path = nullptr;
        if (sd_bus_message_read(reply.get(), "v", "(so)", &id, &path) < 0 || !path || std::strcmp(path, "/") == 0)
            return std::nullopt;
        return std::string(path);
    } catch (const BusError& error) {
        log->debug("Session de l'utilisateur : {}", error.what());
    }
    return std::nullopt;
}

Logind::State Logind::readSessionState() const {
    auto read = [this](const char* property) -> std::optional<bool> {
        try {
            Message reply = bus_.call(service, sessionPath_.c_str(), "org.freedesktop.DBus.Properties", "Get", "ss",
                                      sessionInterface, property);
            int value = 0;
            if (sd_bus_message_read(reply.get(), "v", "b", &value) < 0) return std::nullopt;
            return value != 0;
        } catch (const BusError&) {
            return std::nullopt;
        }
    };
    State next = state_;
    if (auto active = read("Active")) next.active = *active;
    if (auto locked = read("LockedHint")) next.locked = *locked;
    return next;
}

void Logind::apply(Event event, State next) {
    if (next == state_) return;
    state_ = next;
    if (onChange) onChange(event, state_);
}

int Logind::Signals::sleep(sd_bus_message* message, void* self, sd_bus_error*) {
    int sleeping = 0;
    if (sd_bus_message_read(message, "b", &sleeping) < 0) return 0;
    Logind& logind = owner(self);
    State next = logind.state_;
    next.sleeping = sleeping;
    logind.apply(sleeping ? Event::sleep : Event::wake, next);
    // Only now, with the activity closed, may the machine go to sleep.
    if (sleeping) logind.releaseSleepDelay();
    else logind.takeSleepDelay();
    return 0;
}

int Logind::Signals::lock(sd_bus_message*, void* self, sd_bus_error*) {
    State next = owner(self).state_;
    next.locked = true;
    owner(self).apply(Event::lock, next);
    return 0;
}

int Logind::Signals::unlock(sd_bus_message*, void* self, sd_bus_error*) {
    State next = owner(self).state_;
    next.locked = false;
    owner(self).apply(Event::unlock, next);
    return 0;
}

int Logind::Signals::properties(sd_bus_message* message, void* self, sd_bus_error*) {
    Logind& logind = owner(self);
    const char* interface = nullptr;
    if (sd_bus_message_read(message, "s", &interface) < 0 || std::strcmp(interface, sessionInterface) != 0) return 0;
    State next = logind.state_;
    bool activeSeen = false, lockedSeen = false;
    if (sd_bus_message_enter_container(message, 'a', "{sv}") < 0) return 0;
    while (sd_bus_message_enter_container(message, 'e', "sv") > 0) {
        const char* name = nullptr;
        if (sd_bus_message_read(message, "s", &name) < 0) return 0;
        int value = 0;
        if (std::strcmp(name, "Active") == 0 && sd_bus_message_read(message, "v", "b", &value) >= 0) {
            next.active = value;
            activeSeen = true;
        } else if (std::strcmp(name, "LockedHint") == 0 && sd_bus_message_read(message, "v", "b", &value) >= 0) {
            next.locked = value;
            lockedSeen = true;
        } else if (sd_bus_message_skip(message, "v") < 0) {
            return 0;
        }
        sd_bus_message_exit_container(message);
    }
    sd_bus_message_exit_container(message);
    // Properties announced as changed without their value are read back.
    bool readBack = false;
    if (sd_bus_message_enter_container(message, 'a', "s") >= 0) {
        const char* invalidated = nullptr;
        while (sd_bus_message_read(message, "s", &invalidated) > 0)
            readBack |= std::strcmp(invalidated, "Active") == 0 || std::strcmp(invalidated, "LockedHint") == 0;
    }
    if (readBack) {
        State current = logind.readSessionState();
        if (!activeSeen) next.active = current.active;
        if (!lockedSeen) next.locked = current.locked;
    }
    // Lock and switching are reported as separate events, in that order.
    if (next.locked != logind.state_.locked) {
        State step = logind.state_;
        step.locked = next.locked;
        logind.apply(next.locked ? Event::lock : Event::unlock, step);
    }
    if (next.active != logind.state_.active) {
        State step = logind.state_;
        step.active = next.active;
        logind.apply(next.active ? Event::sessionBack : Event::sessionAway, step);
    }
    return 0;
}

std::set<int> Logind::idleInhibitorPids() {
    std::set<int> pids;
    if (!sleepMatch_) return pids;  // logind absent
    try {
        Message reply = bus_.call(service, managerPath, managerInterface, "ListInhibitors");
        if (sd_bus_message_enter_container(reply.get(), 'a', "(ssssuu)") < 0) return pids;
        const char *what = nullptr, *who = nullptr, *why = nullptr, *mode = nullptr;
        std::uint32_t uid = 0, pid = 0;
        while (sd_bus_message_read(reply.get(), "(ssssuu)", &what, &who, &why, &mode, &uid, &pid) > 0)
            if (uid == ::getuid() && pid > 0 && containsWord(what, "idle")) pids.insert(int(pid));
    } catch (const BusError& error) {
        Log::get("capture")->debug("Inhibiteurs logind : {}", error.what());
    }
    return pids;
}

} // namespace ombrelo::platform
