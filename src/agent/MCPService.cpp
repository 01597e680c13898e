#include "agent/MCPService.h"

#include <fmt/format.h>

#include "support/Log.h"
#include "support/Preferences.h"
#include "support/Settings.h"

namespace ombrelo {

MCPService::MCPService(Preferences& preferences, MCPServer::Dispatch dispatch, MCPServer::Poster postToMain,
                       http::Limits limits)
    : preferences_(preferences),
      dispatch_(std::move(dispatch)),
      postToMain_(std::move(postToMain)),
      limits_(limits) {}

std::string MCPService::address(std::uint16_t port) { return fmt::format("http://127.0.0.1:{}/mcp", port); }

nlohmann::json MCPService::clientConfigurations(std::uint16_t port, const std::string& token) {
    std::string url = address(port);
    std::string header = "Authorization: Bearer " + token;
    return {{"desktop",
             {{"mcpServers",
               {{"ombrelo", {{"command", "npx"}, {"args", {"mcp-remote", url, "--header", header}}}}}}}},
            {"command_line", "claude mcp add --transport http ombrelo " + url + " --header \"" + header + "\""}};
}

std::uint16_t MCPService::port(const Preferences& preferences) {
    std::int64_t value = preferences.integer(settings::mcpPort).value_or(0);
    return value >= 1024 && value <= 65535 ? static_cast<std::uint16_t>(value) : MCPServer::defaultPort;
}

bool MCPService::enabled(const Preferences& preferences) { return preferences.boolean(settings::mcpEnabled).value_or(false); }

void MCPService::apply(bool force) {
    Wanted wanted{enabled(preferences_), port(preferences_)};
    if (!force && applied_ == wanted) return;
    applied_ = wanted;
    stop();
    if (!wanted.enabled) return;
    if (!token_) token_ = MCPToken::loadOrCreate();
    server_ = std::make_unique<MCPServer>(token_->value, dispatch_, postToMain_, limits_);
    try {
        server_->start(wanted.port);
        lastError_.reset();
        Log::get("mcp")->info("Serveur agents sur 127.0.0.1:{}", server_->port());
    } catch (const std::system_error& error) {
        // Logged by the server; the tracker goes on without it.
        lastError_ = MCPServer::portUnavailable(wanted.port, error.code());
        server_.reset();
    }
}

void MCPService::reloadToken() {
    token_.reset();
    apply(true);
}

void MCPService::stop() {
    if (server_) server_->stop();
    server_.reset();
}

} // namespace ombrelo
