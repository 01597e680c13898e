// MCPService: the agent server as the settings want it — serving on
// 127.0.0.1:"mcpPort" while "mcpEnabled" is on, stopped otherwise — and what
// the user is shown of it: whether it runs, and why not when it could not
// start. A port already taken is logged and remembered; the program goes on
// without the server.
//
// Main loop thread.
#pragma once

#include "agent/MCPServer.h"
#include "agent/MCPToken.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace ombrelo {

class Preferences;

class MCPService {
public:
    MCPService(Preferences& preferences, MCPServer::Dispatch dispatch, MCPServer::Poster postToMain,
               http::Limits limits = {});

    // The port "mcpPort" names, 8473 when it is unset or outside 1024–65535.
    static std::uint16_t port(const Preferences& preferences);
    static bool enabled(const Preferences& preferences);
    // "http://127.0.0.1:8473/mcp": where agents reach the server on `port`.
    static std::string address(std::uint16_t port);
    // What agents' configurations need to reach the server: {"desktop": a
    // desktop client's configuration file, "command_line": the command that
    // adds the server to a command-line agent}.
    static nlohmann::json clientConfigurations(std::uint16_t port, const std::string& token);

    // Starts, restarts or stops the server to match the settings. Cheap when
    // they did not change since the last call, unless `force`.
    void apply(bool force = false);
    // Reads the token again (another process made a new one) and restarts.
    void reloadToken();
    void stop();

    bool running() const { return server_ && server_->running(); }
    std::uint16_t boundPort() const { return server_ ? server_->port() : 0; }
    // "Port 8473 indisponible : …" after a failed start, kept until one succeeds.
    const std::optional<std::string>& lastError() const { return lastError_; }
    std::optional<TokenStore> tokenStore() const { return token_ ? std::optional(token_->store) : std::nullopt; }

private:
    struct Wanted {
        bool enabled = false;
        std::uint16_t port = 0;
        bool operator==(const Wanted&) const = default;
    };

    Preferences& preferences_;
    MCPServer::Dispatch dispatch_;
    MCPServer::Poster postToMain_;
    http::Limits limits_;
    std::optional<Wanted> applied_;
    std::optional<StoredToken> token_;
    std::unique_ptr<MCPServer> server_;
    std::optional<std::string> lastError_;
};

} // namespace ombrelo
