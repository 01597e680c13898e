#include "http/ConnectionManager.h"

#include "http/Connection.h"

namespace ombrelo::http {

void ConnectionManager::start(std::shared_ptr<Connection> connection) {
    connections_.insert(connection);
    size_ = connections_.size();
    connection->start();
}

void ConnectionManager::stop(const std::shared_ptr<Connection>& connection) {
    if (connections_.erase(connection) == 0) return;
    size_ = connections_.size();
    connection->stop();
}

void ConnectionManager::stopAll() {
    // Moved out first, so the set is never changed while it is walked.
    auto all = std::move(connections_);
    connections_.clear();
    size_ = 0;
    for (const auto& connection : all) connection->stop();
}

} // namespace ombrelo::http
