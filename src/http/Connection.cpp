#include "http/Connection.h"

#include "http/ConnectionManager.h"

#include <atomic>

namespace ombrelo::http {

bool ReplyRoute::post(std::function<void()> task) {
    std::lock_guard lock(mutex_);
    if (!io_) return false;
    asio::post(*io_, std::move(task));
    return true;
}

void ReplyRoute::cut() {
    std::lock_guard lock(mutex_);
    io_ = nullptr;
}

namespace {

// Behind the handler's `respond`: used at most once, from any thread; if it is
// dropped unused, the connection is closed so it does not wait for ever.
class Responder {
public:
    Responder(std::weak_ptr<Connection> connection, std::shared_ptr<ReplyRoute> route)
        : connection_(std::move(connection)), route_(std::move(route)) {}
    ~Responder() {
        if (used_.exchange(true)) return;
        route_->post([connection = connection_] {
            if (auto alive = connection.lock()) alive->abandon();
        });
    }
    Responder(const Responder&) = delete;
    Responder& operator=(const Responder&) = delete;

    void operator()(Response response) {
        if (used_.exchange(true)) return;
        route_->post([connection = connection_, response = std::move(response)]() mutable {
            if (auto alive = connection.lock()) alive->answer(std::move(response));
        });
    }

private:
    std::weak_ptr<Connection> connection_;
    std::shared_ptr<ReplyRoute> route_;
    std::atomic<bool> used_{false};
};

} // namespace

Connection::Connection(asio::ip::tcp::socket socket, ConnectionManager& manager, const Handler& handler, Limits limits,
                       std::shared_ptr<ReplyRoute> route, std::shared_ptr<spdlog::logger> log)
    : socket_(std::move(socket)), deadline_(socket_.get_executor()), manager_(manager), handler_(handler),
      limits_(limits), route_(std::move(route)), log_(std::move(log)) {}

void Connection::start() {
    arm();
    read();
}

void Connection::stop() {
    stopped_ = true;
    std::error_code ignored;
    deadline_.cancel();
    socket_.shutdown(asio::ip::tcp::socket::shutdown_both, ignored);
    socket_.close(ignored);
}

// The client's time to send its request, and again to take the answer.
void Connection::arm() {
    deadline_.expires_after(limits_.timeout);
    deadline_.async_wait([self = shared_from_this()](std::error_code error) {
        // A wait that completed just before being re-armed is not an expiry.
        if (error || self->deadline_.expiry() > std::chrono::steady_clock::now()) return;
        self->manager_.stop(self);
    });
}

void Connection::read() {
    socket_.async_read_some(asio::buffer(chunk_),
                            [self = shared_from_this()](std::error_code error, std::size_t length) {
                                self->received(error, length);
                            });
}

void Connection::received(std::error_code error, std::size_t length) {
    if (stopped_) return;
    if (error) {  // the client left mid-request, or the deadline closed the socket: no answer
        manager_.stop(shared_from_this());
        return;
    }
    switch (parser_.consume(std::string_view(chunk_.data(), length))) {
    case RequestParser::Result::incomplete:
        read();
        return;
    case RequestParser::Result::invalid:
        answer(Response::empty(400));
        return;
    case RequestParser::Result::tooLarge:
        answer(Response::empty(413));
        return;
    case RequestParser::Result::complete:
        break;
    }
    // The handler may take its time (it waits for the main loop); the client has
    // sent all it had to.
    deadline_.cancel();
    try {
        handler_(parser_.take(), responder());
    } catch (const std::exception& failure) {
        log_->error("Requête non traitée : {}", failure.what());
        manager_.stop(shared_from_this());
    }
}

Respond Connection::responder() {
    auto responder = std::make_shared<Responder>(weak_from_this(), route_);
    return [responder](Response response) { (*responder)(std::move(response)); };
}

void Connection::answer(Response response) {
    if (stopped_ || answered_) return;
    answered_ = true;
    out_ = response.serialize();
    arm();
    asio::async_write(socket_, asio::buffer(out_), [self = shared_from_this()](std::error_code error, std::size_t) {
        if (self->stopped_) return;
        if (error) {
            self->manager_.stop(self);
            return;
        }
        std::error_code ignored;
        self->socket_.shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
        self->drain();
    });
}

void Connection::abandon() {
    if (!stopped_ && !answered_) manager_.stop(shared_from_this());
}

// Closing with unread bytes in the socket (the rest of a refused body) would
// reset the connection and could destroy the answer before the client reads
// it: read and drop until the client closes its side, or the deadline passes.
void Connection::drain() {
    socket_.async_read_some(asio::buffer(chunk_), [self = shared_from_this()](std::error_code error, std::size_t) {
        if (self->stopped_) return;
        if (error)
            self->manager_.stop(self);
        else
            self->drain();
    });
}

} // namespace ombrelo::http
