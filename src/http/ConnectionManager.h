// ConnectionManager: the connections of one listener, so that stopping the
// listener can close them all and the connection cap can count them. Used on the
// listener's thread only, except size(), which any thread may read.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <set>

namespace ombrelo::http {

class Connection;

class ConnectionManager {
public:
    ConnectionManager() = default;
    ConnectionManager(const ConnectionManager&) = delete;
    ConnectionManager& operator=(const ConnectionManager&) = delete;

    // Keeps `connection` and starts it.
    void start(std::shared_ptr<Connection> connection);
    // Closes `connection` and lets it go; nothing when it was already let go.
    void stop(const std::shared_ptr<Connection>& connection);
    void stopAll();

    std::size_t size() const { return size_.load(); }

private:
    std::set<std::shared_ptr<Connection>> connections_;
    std::atomic<std::size_t> size_{0};
};

} // namespace ombrelo::http
