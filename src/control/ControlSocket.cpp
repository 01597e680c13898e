#include "control/ControlSocket.h"

#include "control/RuntimeFolder.h"
#include "control/ControlRequest.h"
#include "support/L10n.h"
#include "support/Log.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

namespace ombrelo {

namespace fs = std::filesystem;
using nlohmann::json;
using Local = asio::local::stream_protocol;

fs::path controlSocketFor(const fs::path& database) { return trackerFile(database, ".sock"); }

namespace {

std::string line(const json& answer) {
    // Replacing broken UTF-8 (a link's bytes echoed in a message) rather than
    // failing to answer at all.
    return answer.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

} // namespace

class ControlServer::Connection : public std::enable_shared_from_this<Connection> {
public:
    Connection(Local::socket socket, std::shared_ptr<Handler> handler, std::shared_ptr<int> open)
        : socket_(std::move(socket)), deadline_(socket_.get_executor()), handler_(std::move(handler)),
          open_(std::move(open)) {
        ++*open_;
    }
    ~Connection() { --*open_; }

    void start(uid_t allowedUser) {
        deadline_.expires_after(readTimeout);
        deadline_.async_wait([self = shared_from_this()](std::error_code error) {
            if (!error) self->close();
        });
        if (peerUser() != allowedUser) {
            Log::get("control")->warn("Requête d'un autre utilisateur refusée");
            answer(ControlRequest::failure(L10n::text("Refusé : ce suivi appartient à un autre utilisateur",
                                                      "Refused: this tracker belongs to another user")));
            return;
        }
        asio::async_read_until(socket_, asio::dynamic_buffer(request_, ControlRequest::maxRequestBytes), '\n',
                               [self = shared_from_this()](std::error_code error, std::size_t length) {
                                   self->received(error, length);
                               });
    }

private:
    std::optional<uid_t> peerUser() {
        struct ucred credentials {};
        socklen_t size = sizeof credentials;
        if (::getsockopt(socket_.native_handle(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0)
            return std::nullopt;
        return credentials.uid;
    }

    void received(std::error_code error, std::size_t length) {
        if (error == asio::error::not_found) {
            answer(ControlRequest::failure(L10n::text("Requête trop longue", "Request too long")));
            return;
        }
        if (error) {  // the client went away or the deadline passed
            close();
            return;
        }
        std::string_view text(request_.data(), length - 1);
        if (!text.empty() && text.back() == '\r') text.remove_suffix(1);
        answer((*handler_)(text));
    }

    void answer(const json& reply) {
        reply_ = line(reply);
        asio::async_write(socket_, asio::buffer(reply_), [self = shared_from_this()](std::error_code, std::size_t) {
            self->close();
        });
    }

    void close() {
        std::error_code ignored;
        deadline_.cancel();
        socket_.shutdown(Local::socket::shutdown_both, ignored);
        socket_.close(ignored);
    }

    Local::socket socket_;
    asio::steady_timer deadline_;
    std::shared_ptr<Handler> handler_;
    std::shared_ptr<int> open_;
    std::string request_, reply_;
};

ControlServer::ControlServer(asio::io_context& io, fs::path socket, Handler handler, uid_t allowedUser)
    : acceptor_(io), path_(std::move(socket)), handler_(std::make_shared<Handler>(std::move(handler))),
      open_(std::make_shared<int>(0)), allowedUser_(allowedUser) {
    std::error_code ignored;
    fs::remove(path_, ignored);
    acceptor_.open();
    acceptor_.bind(Local::endpoint(path_.string()));
    // The folder is private already; the socket is too, from its first moment on.
    if (::chmod(path_.c_str(), 0600) != 0) throw std::system_error(errno, std::generic_category(), path_.string());
    acceptor_.listen();
    accept();
}

ControlServer::~ControlServer() {
    std::error_code ignored;
    acceptor_.close(ignored);
    fs::remove(path_, ignored);
}

void ControlServer::accept() {
    acceptor_.async_accept([this](std::error_code error, Local::socket socket) {
        if (error == asio::error::operation_aborted) return;
        if (!error) {
            if (*open_ >= maxConnections) {
                std::error_code ignored;
                socket.close(ignored);
            } else {
                std::make_shared<Connection>(std::move(socket), handler_, open_)->start(allowedUser_);
            }
        }
        accept();
    });
}

namespace ControlClient {

namespace {

class Descriptor {
public:
    explicit Descriptor(int descriptor) : fd(descriptor) {}
    ~Descriptor() {
        if (fd >= 0) ::close(fd);
    }
    const int fd;
};

[[noreturn]] void unanswered(std::string_view why) {
    throw std::runtime_error(std::string(L10n::text("Le suivi en cours n'a pas répondu (",
                                                    "The running tracker did not answer (")) +
                             std::string(why) + ")");
}

// Waits for `events` until the deadline; false when it passed.
bool wait(int fd, short events, std::chrono::steady_clock::time_point deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return false;
    pollfd entry{fd, events, 0};
    int ready = ::poll(&entry, 1, int(left.count()));
    return ready > 0 || (ready < 0 && errno == EINTR);
}

} // namespace

std::optional<json> send(const fs::path& socket, const json& request) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socket.native().size() >= sizeof address.sun_path) throw std::runtime_error("socket path too long: " + socket.string());
    std::memcpy(address.sun_path, socket.c_str(), socket.native().size() + 1);
    Descriptor connection(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (connection.fd < 0) throw std::system_error(errno, std::generic_category(), "socket");
    if (::connect(connection.fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        if (errno == ENOENT || errno == ECONNREFUSED) return std::nullopt;
        unanswered(std::strerror(errno));
    }
    auto deadline = std::chrono::steady_clock::now() + answerTimeout;
    std::string out = line(request);
    for (std::size_t sent = 0; sent < out.size();) {
        if (!wait(connection.fd, POLLOUT, deadline)) unanswered("timeout");
        ssize_t n = ::send(connection.fd, out.data() + sent, out.size() - sent, MSG_NOSIGNAL);
        if (n < 0 && errno != EINTR && errno != EAGAIN) unanswered(std::strerror(errno));
        if (n > 0) sent += std::size_t(n);
    }
    std::string in;
    char buffer[4096];
    while (in.find('\n') == std::string::npos) {
        if (!wait(connection.fd, POLLIN, deadline)) unanswered("timeout");
        ssize_t n = ::recv(connection.fd, buffer, sizeof buffer, 0);
        if (n == 0) unanswered("connection closed");
        if (n < 0 && errno != EINTR && errno != EAGAIN) unanswered(std::strerror(errno));
        if (n > 0) in.append(buffer, std::size_t(n));
    }
    json answer = json::parse(in.substr(0, in.find('\n')), nullptr, false);
    if (!answer.is_object()) unanswered("not JSON");
    return answer;
}

} // namespace ControlClient

} // namespace ombrelo
