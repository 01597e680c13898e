// Logind: the login manager's view of this user's session on the system bus:
// whether the machine is about to sleep, whether the session is locked, whether
// it is the active one (not switched away, not behind the login screen), and
// which processes hold idle inhibitors (films, calls).
//
// It follows the manager's PrepareForSleep signal, the session's Lock and
// Unlock signals and its Active and LockedHint properties, and reports each
// change through `onChange`. Without logind on the bus it reports nothing
// (present() says so; the desktop back-end warns).
//
// While awake it holds a "sleep" delay lock: logind then waits for it before
// suspending, so the process is not frozen before it heard PrepareForSleep. The
// lock is released only after `onChange` has run for the sleep (the current
// activity is closed by then) and taken again on wake.
//
// Owned by the desktop back-end with the bus; main loop thread only.
#pragma once

#include "platform/linux/Bus.h"

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace ombrelo::platform {

class Logind {
public:
    struct State {
        bool sleeping = false;
        bool locked = false;
        bool active = true;
        bool operator==(const State&) const = default;
    };
    enum class Event { sleep, wake, lock, unlock, sessionAway, sessionBack };

    // Finds this process's session: `sessionID` (from XDG_SESSION_ID) when
    // given, else the session of this process, else the user's graphical
    // session; then subscribes. Never throws: without logind, state stays
    // "awake, unlocked, active".
    Logind(Bus& bus, const std::optional<std::string>& sessionID);
    ~Logind();
    Logind(const Logind&) = delete;
    Logind& operator=(const Logind&) = delete;

    // The manager answers on the bus (sleep is followed).
    bool present() const { return sleepMatch_ != nullptr; }
    // The session was found too (lock and switching are followed).
    bool available() const { return !sessionPath_.empty(); }
    // A sleep delay lock is held now.
    bool holdsSleepDelay() const { return sleepDelay_ >= 0; }
    const std::string& sessionPath() const { return sessionPath_; }
    const State& state() const { return state_; }

    // Called after a change of state, with what caused it.
    std::function<void(Event, const State&)> onChange;

    // Processes holding an inhibitor whose "what" names idle; empty when logind
    // cannot be asked.
    std::set<int> idleInhibitorPids();

private:
    struct Signals;  // the sd-bus callbacks

    std::optional<std::string> findSession(const std::optional<std::string>& sessionID);
    // The session's Active and LockedHint as logind reports them now.
    State readSessionState() const;
    void apply(Event event, State next);
    void takeSleepDelay();
    void releaseSleepDelay();

    Bus& bus_;
    std::string sessionPath_;
    State state_;
    int sleepDelay_ = -1;  // the inhibitor's descriptor; closing it releases the lock
    Slot sleepMatch_, lockMatch_, unlockMatch_, propertiesMatch_;
};

} // namespace ombrelo::platform
