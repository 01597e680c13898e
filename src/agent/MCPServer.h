// MCPServer: the agent protocol server. Agents on this machine send one JSON-RPC
// 2.0 message per HTTP request, `POST /mcp` on 127.0.0.1 with the access token
// as a bearer credential, and get one response per connection.
//
// The HTTP side (http::Listener) runs on a thread of its own: requests are
// parsed and checked there, and nothing of a refused request goes further. Each
// accepted JSON-RPC request is posted to the main loop, where `dispatch` (the
// agent tools) answers it; the answer is wrapped in its JSON-RPC envelope and
// sent back from there. Notifications (no "id") are answered 202 at once and
// never reach the tools.
//
// What a client gets:
//   200  a JSON-RPC request answered (result or JSON-RPC error)
//   202  a notification; empty body
//   400  an unreadable head, a Content-Length over 1,000,000, or a body that is
//        not a JSON object (arrays, hence batches, included): -32700 error, id null
//   401  no bearer token, or a wrong one; "WWW-Authenticate: Bearer"
//   403  a Host or Origin that is not this machine (DNS rebinding, web pages)
//   404  a path other than /mcp;  405  a method other than POST
//   413  more than 1,016,384 bytes sent
// Refusals have empty bodies; JSON bodies are compact with sorted keys.
//
// Construct, start, stop and destroy from one thread (the main loop's).
#pragma once

#include "http/Listener.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <variant>

namespace ombrelo {

class MCPServer {
public:
    struct RPCError {
        int code;
        std::string message;
    };
    // The result object of a request, or its JSON-RPC error.
    using Outcome = std::variant<nlohmann::json, RPCError>;
    using Completion = std::function<void(Outcome)>;
    // Runs on the main loop with a JSON-RPC request (an object with an "id");
    // calls `done` once, at once or later, from the main loop. A `done` dropped
    // uncalled closes the connection without an answer.
    using Dispatch = std::function<void(nlohmann::json message, Completion done)>;
    // Runs a task on the main loop; called from the server's thread.
    using Poster = std::function<void(std::function<void()>)>;

    static constexpr int parseError = -32700;
    static constexpr int methodNotFound = -32601;
    static constexpr int internalError = -32603;  // `dispatch` threw
    static constexpr std::uint16_t defaultPort = 8473;

    // No socket until start(). `token`: the access token agents must send.
    MCPServer(std::string token, Dispatch dispatch, Poster postToMain, http::Limits limits = {});
    // Stops.
    ~MCPServer();
    MCPServer(const MCPServer&) = delete;
    MCPServer& operator=(const MCPServer&) = delete;

    // Listens on 127.0.0.1:`port` (0: any free port) and returns the port bound.
    // Throws std::system_error when the port cannot be bound, after logging it.
    std::uint16_t start(std::uint16_t port);
    // Closes the listener and every connection; answers arriving later are dropped.
    void stop();
    bool running() const { return listener_.running(); }
    std::uint16_t port() const { return listener_.port(); }
    std::size_t connections() const { return listener_.connections(); }

    // The HTTP-level gate, in this order: path, method, Host, Origin, token. The
    // refusal, or nothing when the request may pass.
    std::optional<http::Response> check(const http::Request& request) const;

    // JSON-RPC replies: {"jsonrpc": "2.0", "id": id, "result": result} and
    // {"jsonrpc": "2.0", "id": id, "error": {"code": code, "message": message}}.
    static nlohmann::json success(const nlohmann::json& id, nlohmann::json result);
    static nlohmann::json error(const nlohmann::json& id, int code, std::string_view message);

    // "Port 8473 indisponible : …", the text the settings show when start()
    // failed.
    static std::string portUnavailable(std::uint16_t port, const std::error_code& error);

private:
    void handle(http::Request request, http::Respond respond);

    struct Main;
    const std::string token_;
    std::shared_ptr<const Main> main_;  // shared with tasks on the main loop, which may outlive the server
    const std::string invalidJSON_;
    http::Listener listener_;
};

} // namespace ombrelo
