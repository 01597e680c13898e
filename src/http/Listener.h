// Listener: a loopback HTTP server with a thread and io_context of its own, so
// that sockets never wait on the tracker's main loop and a slow client never
// delays capture. It accepts on 127.0.0.1 only (never another address, never
// IPv6) and serves each connection as Connection describes, within Limits.
//
// Every member is called from one owning thread, never from a handler (stop()
// joins the listener's thread).
#pragma once

#include "http/Handler.h"

#include <spdlog/logger.h>

#include <cstdint>
#include <memory>
#include <string_view>

namespace ombrelo::http {

class Listener {
public:
    // `logCategory`: the logger of the server built on it ("mcp", …).
    Listener(Handler handler, Limits limits, std::string_view logCategory);
    // Stops.
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    // Binds 127.0.0.1:`port` (0: any free port), listens and starts serving.
    // Returns the port bound. Throws std::system_error when the port cannot be
    // bound (taken, or reserved); nothing is left running then.
    // REQUIRES: not running.
    std::uint16_t start(std::uint16_t port);
    // Stops accepting, closes every connection and joins the thread. An answer
    // given after this is dropped. Nothing when not running.
    void stop();

    bool running() const;
    // The bound port; 0 when not running.
    std::uint16_t port() const;
    // Connections open now (reading, awaiting their answer or sending it).
    std::size_t connections() const;

private:
    struct Running;

    const Handler handler_;
    const Limits limits_;
    std::shared_ptr<spdlog::logger> log_;
    std::unique_ptr<Running> running_;
};

} // namespace ombrelo::http
