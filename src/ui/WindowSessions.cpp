#include "ui/WindowSessions.h"

#include "http/LocalAddress.h"
#include "support/Secret.h"

namespace ombrelo::ui {

std::string WindowSessions::issueTicket(Clock::time_point now) {
    std::string ticket = randomSecret();
    std::lock_guard lock(mutex_);
    std::erase_if(tickets_, [&](const auto& entry) { return now - entry.second > ticketLife; });
    tickets_.emplace(ticket, now);
    return ticket;
}

std::optional<WindowSessions::Session> WindowSessions::redeem(std::string_view ticket, Clock::time_point now) {
    Session session{randomSecret(), randomSecret()};
    std::lock_guard lock(mutex_);
    auto found = tickets_.find(ticket);
    if (found == tickets_.end()) return std::nullopt;
    bool fresh = now - found->second <= ticketLife;
    tickets_.erase(found);
    if (!fresh) return std::nullopt;
    sessions_.emplace(session.key, session.token);
    order_.push_back(session.key);
    while (order_.size() > maxSessions) {
        sessions_.erase(order_.front());
        order_.pop_front();
    }
    return session;
}

bool WindowSessions::valid(std::string_view key, std::string_view token) const {
    std::lock_guard lock(mutex_);
    auto found = sessions_.find(key);
    return found != sessions_.end() && http::constantTimeEqual(found->second, token);
}

bool WindowSessions::known(std::string_view key) const {
    std::lock_guard lock(mutex_);
    return sessions_.contains(key);
}

} // namespace ombrelo::ui
