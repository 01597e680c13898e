#include "agent/MCPServer.h"

#include "http/LocalAddress.h"
#include "support/L10n.h"
#include "support/Log.h"

#include <fmt/format.h>


namespace ombrelo {

using nlohmann::json;

namespace {

// Deeper messages are refused as invalid: serialising the echoed "id" recurses
// once per level, and the tracker's stack is not the agent's to use up.
constexpr int maxDepth = 128;

http::Response jsonResponse(int status, const json& body) {
    http::Response response = http::Response::empty(status);
    try {
        // Broken UTF-8 (a window title, say) is replaced rather than failing the reply.
        response.body = body.dump(-1, ' ', false, json::error_handler_t::replace);
    } catch (const json::exception&) {
        response.body.clear();
    }
    return response;
}

} // namespace

struct MCPServer::Main {
    Dispatch dispatch;
    Poster post;
    std::shared_ptr<spdlog::logger> log;
};

MCPServer::MCPServer(std::string token, Dispatch dispatch, Poster postToMain, http::Limits limits)
    : token_("Bearer " + std::move(token)),
      main_(std::make_shared<Main>(Main{std::move(dispatch), std::move(postToMain), Log::get("mcp")})),
      // Read here, on the main loop: the language belongs to that thread, and a
      // change of settings restarts the server anyway.
      invalidJSON_(L10n::text("JSON invalide", "Invalid JSON")),
      listener_(
          [this](http::Request request, http::Respond respond) { handle(std::move(request), std::move(respond)); },
          limits, "mcp") {}

MCPServer::~MCPServer() { stop(); }

std::uint16_t MCPServer::start(std::uint16_t port) {
    try {
        std::uint16_t bound = listener_.start(port);
        main_->log->info("MCP à l'écoute sur 127.0.0.1:{}", bound);
        return bound;
    } catch (const std::system_error& failure) {
        main_->log->error("MCP : {}", failure.code().message());
        throw;
    }
}

void MCPServer::stop() {
    if (!listener_.running()) return;
    listener_.stop();
    main_->log->debug("MCP arrêté");
}

std::optional<http::Response> MCPServer::check(const http::Request& request) const {
    std::string_view path(request.path);
    if (path.substr(0, path.find('?')) != "/mcp") return http::Response::empty(404);
    if (request.method != "POST") return http::Response::empty(405);
    if (const std::string* host = request.header("host"); host && !http::isLocalHost(*host))
        return http::Response::empty(403);
    if (const std::string* origin = request.header("origin"); origin && !http::isLocalOrigin(*origin))
        return http::Response::empty(403);
    const std::string* authorization = request.header("authorization");
    if (!authorization || !http::constantTimeEqual(*authorization, token_)) {
        http::Response refused = http::Response::empty(401);
        refused.headers.emplace_back("WWW-Authenticate", "Bearer");
        return refused;
    }
    return std::nullopt;
}

void MCPServer::handle(http::Request request, http::Respond respond) {
    if (auto refusal = check(request)) {
        // The status only: the head carries the token, right or wrong.
        main_->log->info("MCP : requête refusée ({})", refusal->status);
        respond(std::move(*refusal));
        return;
    }
    bool tooDeep = false;
    json message = json::parse(
        request.body,
        [&tooDeep](int depth, json::parse_event_t, json&) {
            if (depth > maxDepth) tooDeep = true;
            return true;
        },
        false);
    if (tooDeep || !message.is_object()) {
        respond(jsonResponse(400, error(nullptr, parseError, invalidJSON_)));
        return;
    }
    if (!message.contains("id")) {
        respond(http::Response::empty(202));
        return;
    }
    main_->post([main = main_, message = std::move(message), respond = std::move(respond)]() mutable {
        json id = message.at("id");
        Completion done = [id, respond = std::move(respond)](Outcome outcome) {
            if (auto* failure = std::get_if<RPCError>(&outcome))
                respond(jsonResponse(200, error(id, failure->code, failure->message)));
            else
                respond(jsonResponse(200, success(id, std::move(std::get<json>(outcome)))));
        };
        try {
            main->dispatch(std::move(message), done);
        } catch (const std::exception& failure) {
            main->log->error("MCP : {}", failure.what());
            done(RPCError{internalError, std::string(L10n::text("Erreur interne", "Internal error"))});
        }
    });
}

json MCPServer::success(const json& id, json result) {
    return {{"jsonrpc", "2.0"}, {"id", id}, {"result", std::move(result)}};
}

json MCPServer::error(const json& id, int code, std::string_view message) {
    return {{"jsonrpc", "2.0"}, {"id", id}, {"error", {{"code", code}, {"message", message}}}};
}

std::string MCPServer::portUnavailable(std::uint16_t port, const std::error_code& error) {
    return fmt::format(fmt::runtime(L10n::text("Port {} indisponible : {}", "Port {} unavailable: {}")), port,
                       error.message());
}

} // namespace ombrelo
