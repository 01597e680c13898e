#include "http/Listener.h"

#include "http/Connection.h"
#include "http/ConnectionManager.h"
#include "support/Log.h"

#include <asio.hpp>

#include <stdexcept>
#include <thread>

namespace ombrelo::http {

using asio::ip::tcp;

struct Listener::Running {
    explicit Running(const Listener& owner)
        : listener(owner), acceptor(io), retry(io), route(std::make_shared<ReplyRoute>(io)) {}

    void accept() {
        acceptor.async_accept([this](std::error_code error, tcp::socket socket) {
            if (error == asio::error::operation_aborted) return;
            if (error) {
                // Out of descriptors, typically: accepting again at once would
                // spin, so let a moment pass.
                listener.log_->warn("Connexion non acceptée : {}", error.message());
                retry.expires_after(std::chrono::milliseconds(100));
                retry.async_wait([this](std::error_code cancelled) {
                    if (!cancelled) accept();
                });
                return;
            }
            if (connections.size() >= listener.limits_.maxConnections) {
                listener.log_->debug("Connexion refusée : {} déjà ouvertes", connections.size());
                std::error_code ignored;
                socket.close(ignored);
            } else {
                connections.start(std::make_shared<Connection>(std::move(socket), connections, listener.handler_,
                                                               listener.limits_, route, listener.log_));
            }
            accept();
        });
    }

    void run() {
        // A handler that throws must not end the thread while connections
        // still need it.
        for (;;) {
            try {
                io.run();
                return;
            } catch (const std::exception& failure) {
                listener.log_->error("Serveur HTTP : {}", failure.what());
            }
        }
    }

    const Listener& listener;
    asio::io_context io;
    tcp::acceptor acceptor;
    asio::steady_timer retry;
    ConnectionManager connections;
    std::shared_ptr<ReplyRoute> route;
    std::uint16_t port = 0;
    std::thread thread;
};

Listener::Listener(Handler handler, Limits limits, std::string_view logCategory)
    : handler_(std::move(handler)), limits_(limits), log_(Log::get(logCategory)) {}

Listener::~Listener() { stop(); }

std::uint16_t Listener::start(std::uint16_t port) {
    if (running_) throw std::logic_error("Listener already started");
    auto running = std::make_unique<Running>(*this);
    // The loopback address is what keeps other machines out: never any other.
    tcp::endpoint endpoint(asio::ip::address_v4::loopback(), port);
    running->acceptor.open(endpoint.protocol());
    running->acceptor.set_option(tcp::acceptor::reuse_address(true));
    running->acceptor.bind(endpoint);
    running->acceptor.listen();
    running->port = running->acceptor.local_endpoint().port();
    running->accept();
    running->thread = std::thread([state = running.get()] { state->run(); });
    running_ = std::move(running);
    return running_->port;
}

void Listener::stop() {
    if (!running_) return;
    // Cut first: an answer posted from now on is dropped, and those posted
    // before run before the thread ends, finding their connection closed.
    running_->route->cut();
    asio::post(running_->io, [state = running_.get()] {
        std::error_code ignored;
        state->acceptor.close(ignored);
        state->retry.cancel();
        state->connections.stopAll();
    });
    running_->thread.join();
    running_.reset();
}

bool Listener::running() const { return running_ != nullptr; }

std::uint16_t Listener::port() const { return running_ ? running_->port : 0; }

std::size_t Listener::connections() const { return running_ ? running_->connections.size() : 0; }

} // namespace ombrelo::http
