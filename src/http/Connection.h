// Connection: one client of a loopback server. Reads one request (at most
// 64 KiB per read, through RequestParser), hands it to the handler, writes the
// one response and closes: every connection carries exactly one exchange. Lives
// on the listener's thread; the handler's answer may come from any other thread
// and is carried back through a ReplyRoute.
#pragma once

#include "http/Handler.h"
#include "http/RequestParser.h"

#include <asio.hpp>
#include <spdlog/logger.h>

#include <array>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace ombrelo::http {

class ConnectionManager;

// The way back to the listener's thread for answers made elsewhere. The
// listener cuts it before it stops, so an answer arriving late is dropped rather
// than posted to an io_context that is gone.
class ReplyRoute {
public:
    explicit ReplyRoute(asio::io_context& io) : io_(&io) {}
    // Runs `task` on the listener's thread; false (and `task` dropped) once cut.
    bool post(std::function<void()> task);
    void cut();

private:
    std::mutex mutex_;
    asio::io_context* io_;  // null once cut; guarded by mutex_
};

class Connection : public std::enable_shared_from_this<Connection> {
public:
    // `manager`, `handler` and `log` must outlive the listener's io_context run.
    Connection(asio::ip::tcp::socket socket, ConnectionManager& manager, const Handler& handler, Limits limits,
               std::shared_ptr<ReplyRoute> route, std::shared_ptr<spdlog::logger> log);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void start();
    // Closes the socket at once, whatever is under way.
    void stop();

    // Sends `response`, then closes. Listener's thread only; nothing once stopped
    // or answered.
    void answer(Response response);
    // The handler let go of its answer: close without one.
    void abandon();

private:
    void arm();
    void read();
    void received(std::error_code error, std::size_t length);
    void drain();
    Respond responder();

    asio::ip::tcp::socket socket_;
    asio::steady_timer deadline_;
    ConnectionManager& manager_;
    const Handler& handler_;
    const Limits limits_;
    std::shared_ptr<ReplyRoute> route_;
    std::shared_ptr<spdlog::logger> log_;
    RequestParser parser_;
    std::array<char, 65'536> chunk_;
    std::string out_;
    bool answered_ = false;
    bool stopped_ = false;
};

} // namespace ombrelo::http
