// Stand-ins for the desktop's D-Bus services, registered by the tests on a
// private bus: logind (manager and one session), a notification server,
// GNOME's session manager with its inhibitors, and Mutter's idle monitor.
// Each serves from a ServiceThread; the test changes their state through
// methods that run there.
#pragma once

#include "platform/DesktopFixture.h"

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

struct sd_bus_slot;

namespace ombrelo::testing {

class StandInLogind {
public:
    struct Inhibitor {
        std::string what;  // "sleep:idle"
        std::uint32_t uid;
        std::uint32_t pid;
    };
    static constexpr const char* sessionID = "c7";
    static constexpr const char* sessionPath = "/org/freedesktop/login1/session/c7";

    // `active`, `lockedHint`: the session's state at start.
    explicit StandInLogind(const std::string& busAddress, bool startActive = true, bool startLocked = false);
    ~StandInLogind();

    void prepareForSleep(bool sleeping);
    void lock();
    void unlock();
    // Changes Active and announces it (PropertiesChanged), as logind does when
    // the user switches to another session or to the login screen.
    void setActive(bool active);
    void setLockedHint(bool locked);
    void setInhibitors(std::vector<Inhibitor> inhibitors);
    // Delay locks on sleep taken through Inhibit and not released yet.
    int heldSleepDelays();

    // Served from the service thread; public for the C callbacks.
    std::mutex mutex;
    bool active, lockedHint;
    std::vector<Inhibitor> inhibitors;
    struct DelayLock {
        std::string what;  // "sleep:delay"
        int readEnd;
    };
    std::vector<DelayLock> delayLocks;

private:
    ServiceThread service_;
    sd_bus_slot *manager_ = nullptr, *session_ = nullptr;
};

class StandInNotifications {
public:
    explicit StandInNotifications(const std::string& busAddress);
    ~StandInNotifications();

    struct Received {
        std::string appName, summary, body;
        std::vector<std::string> actions;  // key, label, key, label…
    };
    // Ids are 1, 2, … in the order received.
    std::vector<Received> received();
    std::vector<std::uint32_t> closedIDs();
    // The user picks the action `key` of notification `id`.
    void invoke(std::uint32_t id, const std::string& key);

    std::mutex mutex;
    std::vector<Received> list;
    std::vector<std::uint32_t> closed;
    bool showsActions = true;

private:
    ServiceThread service_;
    sd_bus_slot* slot_ = nullptr;
};

// A screen saver that only announces ActiveChanged, as the lock of sessions
// without logind.
class StandInScreenSaver {
public:
    explicit StandInScreenSaver(const std::string& busAddress) : service_(busAddress) {}
    void setActive(bool active);

private:
    ServiceThread service_;
};

// org.gnome.SessionManager with inhibitors, and org.gnome.Mutter.IdleMonitor.
class StandInGnomeSession {
public:
    struct Inhibitor {
        std::string appID;
        std::uint32_t flags;  // 8: idle
    };
    StandInGnomeSession(const std::string& busAddress, std::vector<Inhibitor> list, std::uint64_t idle);
    ~StandInGnomeSession();

    std::mutex mutex;
    std::vector<Inhibitor> inhibitors;
    std::uint64_t idleMilliseconds;

private:
    ServiceThread service_;
    std::vector<sd_bus_slot*> slots_;
};

} // namespace ombrelo::testing
