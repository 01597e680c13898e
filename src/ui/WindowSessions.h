// WindowSessions: who may use the window. `ombrelo ui` (or a link, or the tray)
// gets a ticket from the tracker and opens the browser on it; the browser
// trades the ticket, once and within two minutes, for a session: a key kept in
// an HttpOnly cookie and a token the page holds and sends with every call.
// Cookies are shared by every port of 127.0.0.1, so the key alone opens
// nothing: a call needs both, and only the page ever saw the token.
//
// Any thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace ombrelo::ui {

class WindowSessions {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr Clock::duration ticketLife = std::chrono::minutes(2);
    // Past this, the oldest session ends: a browser that was closed never says so.
    static constexpr std::size_t maxSessions = 32;

    struct Session {
        std::string key;    // the cookie's value
        std::string token;  // the page's
    };

    std::string issueTicket(Clock::time_point now = Clock::now());
    // The new session, or nothing for a ticket unknown, used or expired.
    std::optional<Session> redeem(std::string_view ticket, Clock::time_point now = Clock::now());
    // Whether `key` and `token` are one session's.
    bool valid(std::string_view key, std::string_view token) const;
    bool known(std::string_view key) const;

private:
    mutable std::mutex mutex_;
    std::map<std::string, Clock::time_point, std::less<>> tickets_;  // ticket → issued
    std::map<std::string, std::string, std::less<>> sessions_;       // key → token
    std::deque<std::string> order_;                                  // keys, oldest first
};

} // namespace ombrelo::ui
