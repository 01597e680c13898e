// ControlSocket: the way into the running tracker. `ombrelo run` listens on a
// Unix socket beside its lock, in the private runtime folder (0700; the socket
// itself 0600), and answers only processes of its own user (SO_PEERCRED). The
// commands that change live state send their request there (ControlRequest.h)
// and fall back to acting themselves when no tracker listens.
#pragma once

#include <asio.hpp>
#include <nlohmann/json.hpp>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <sys/types.h>

namespace ombrelo {

// The socket of the tracker recording `database`.
std::filesystem::path controlSocketFor(const std::filesystem::path& database);

// Serves on the tracker's event loop: requests run on the loop's thread, like
// capture, with no lock. The server lives inside the tracker, so no client can
// be allowed to take capture down with it: a client that stops mid-request is
// dropped after readTimeout, a request longer than the limit is answered with
// an error, and connections over maxConnections are closed at once, so that
// descriptors and memory stay bounded whatever a local program does.
class ControlServer {
public:
    using Handler = std::function<nlohmann::json(std::string_view line)>;

    static constexpr int maxConnections = 8;
    static constexpr std::chrono::seconds readTimeout{5};

    // Binds `socket` (replacing a stale one: the caller holds the tracker lock)
    // and starts accepting. `allowedUser`: the only uid answered. Throws
    // std::system_error when the socket cannot be made.
    ControlServer(asio::io_context& io, std::filesystem::path socket, Handler handler, uid_t allowedUser);
    // Stops accepting and removes the socket file.
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

private:
    class Connection;
    void accept();

    asio::local::stream_protocol::acceptor acceptor_;
    std::filesystem::path path_;
    std::shared_ptr<Handler> handler_;
    std::shared_ptr<int> open_;  // connections alive; shared with them, as they may outlive the server
    uid_t allowedUser_;
};

namespace ControlClient {

// How long a command waits for the tracker's answer.
inline constexpr std::chrono::seconds answerTimeout{10};

// The running tracker's answer to `request`, or nothing when no tracker listens
// on `socket` (none, or a stale one). Throws std::runtime_error when a tracker
// was reached but gave no answer.
std::optional<nlohmann::json> send(const std::filesystem::path& socket, const nlohmann::json& request);

} // namespace ControlClient

} // namespace ombrelo
