// Notifier: desktop notifications through org.freedesktop.Notifications on the
// session bus (the focus reminders use it). Sending never waits for the
// notification server; a missing server or a refused notification is skipped
// without a word, as a reminder is not worth an error.
//
// Owned by the application shell beside the desktop back-end; main loop thread
// only (it shares the back-end's session bus).
#pragma once

#include <string>

namespace ombrelo::platform {

class Bus;

class Notifier {
public:
    // `bus`: the session bus, or null (no notifications at all). Must outlive
    // the notifier.
    explicit Notifier(Bus* bus) : bus_(bus) {}

    // Queues the notification; returns false when it could not even be sent.
    bool notify(const std::string& title, const std::string& body);

private:
    Bus* bus_;
};

} // namespace ombrelo::platform
