// Notifier: desktop notifications through org.freedesktop.Notifications on the
// session bus (focus reminders, the break's notice). Sending never waits for the
// notification server; a missing server or a refused notification is skipped
// without a word, as a reminder is not worth an error.
//
// Owned by the application shell beside the desktop back-end; main loop thread
// only (it shares the back-end's session bus).
#pragma once

#include "platform/linux/Bus.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace ombrelo::platform {

class Notifier {
public:
    // A button of a notification: the key reported when chosen, and its label.
    struct Action {
        std::string key, label;
    };
    // Receives the id of a shown notification (for close() and for the actions).
    using Shown = std::function<void(std::uint32_t id)>;
    using Chosen = std::function<void(std::uint32_t id, const std::string& key)>;

    // `bus`: the session bus, or null (no notifications at all). Must outlive
    // the notifier.
    explicit Notifier(Bus* bus) : bus_(bus) {}
    ~Notifier();

    // Queues the notification; returns false when it could not even be sent.
    bool notify(const std::string& title, const std::string& body, const std::vector<Action>& actions = {},
                Shown shown = {});
    void close(std::uint32_t id);
    // Whether the server shows buttons (its "actions" capability). A short
    // blocking call, asked each time, as the server may change meanwhile.
    bool offersActions();
    // `chosen` runs for every action the user picks in one of our notifications.
    void onAction(Chosen chosen);

private:
    Bus* bus_;
    Chosen chosen_;
    Slot actionMatch_;
};

} // namespace ombrelo::platform
