// ombrelo mcp: the agent server. `serve` runs it in the foreground on the
// database (for agents while no tracker runs); `enable` and `disable` have the
// tracker serve or not; `token` shows or replaces the access token; `config`
// prints what to paste into an agent's configuration.
#include "agent/MCPService.h"
#include "agent/MCPToken.h"
#include "app/Commands.h"
#include "app/Output.h"
#include "app/Session.h"
#include "app/commands/ServedAlone.h"
#include "app/commands/TimeModel.h"
#include "control/ControlSocket.h"
#include "support/L10n.h"
#include "support/Log.h"
#include "support/Settings.h"

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <fmt/format.h>
#include <memory>

namespace ombrelo::commands {

namespace {

struct Arguments {
    std::optional<int> port;
    bool regenerate = false;
};

// --port, else the setting's; 0 (any free port) only for a server run here.
std::uint16_t chosenPort(Session& session, const std::optional<int>& port, bool anyAllowed) {
    if (!port) return MCPService::port(session.preferences());
    if (*port == 0 && anyAllowed) return 0;
    if (*port < 1024 || *port > 65535)
        usageFailure(std::string(L10n::text("Port hors de 1024–65535 : ", "Port outside 1024–65535: ")) +
                     std::to_string(*port));
    return static_cast<std::uint16_t>(*port);
}

void serve(Session& session, const Arguments& arguments) {
    Log::setDefaultLevel(spdlog::level::info);
    std::uint16_t port = chosenPort(session, arguments.port, true);
    asio::io_context io;
    asio::signal_set stop(io, SIGINT, SIGTERM);
    ServedAlone served(session, io);
    MCPServer server(MCPToken::loadOrCreate().value, served.model.dispatch(), served.model.poster());
    try {
        server.start(port);
    } catch (const std::system_error& error) {
        throw CommandFailure(exitStatus::failure, MCPServer::portUnavailable(port, error.code()));
    }
    output::line(std::string(L10n::text("Serveur agents sur ", "Agent server on ")) + MCPService::address(server.port()) +
                 std::string(L10n::text(" (Ctrl-C pour arrêter)", " (Ctrl-C to stop)")));
    std::cout.flush();
    stop.async_wait([&](std::error_code, int) {
        server.stop();
        io.stop();
    });
    io.run();
}

// Tells a running tracker to take in the settings or the token now.
void tellTracker(Session& session, const char* command) {
    try {
        ControlClient::send(controlSocketFor(session.databasePath()), {{"command", command}});
    } catch (const std::exception&) {
        // No tracker, or one too old to know the request: it reads them at its start.
    }
}

void enable(Session& session, const Arguments& arguments) {
    Preferences& preferences = session.preferences();
    if (arguments.port) preferences.set(settings::mcpPort, std::int64_t{chosenPort(session, arguments.port, false)});
    preferences.set(settings::mcpEnabled, true);
    output::line(std::string(L10n::text("Serveur agents activé : ", "Agent server enabled: ")) +
                 MCPService::address(MCPService::port(preferences)));
    output::line(L10n::text("Le suivi en cours le démarre aussitôt ; voir « ombrelo mcp config ».",
                            "A running tracker starts it at once; see \"ombrelo mcp config\"."));
}

void disable(Session& session) {
    session.preferences().set(settings::mcpEnabled, false);
    output::line(L10n::text("Serveur agents désactivé.", "Agent server disabled."));
}

void token(Session& session, const Arguments& arguments) {
    StoredToken stored = arguments.regenerate ? MCPToken::regenerate() : MCPToken::loadOrCreate();
    if (arguments.regenerate) {
        tellTracker(session, "agent-token");
        std::cerr << L10n::text("L'ancien jeton cesse de fonctionner : mettez à jour vos agents.",
                                "The old token stops working: update your agents.")
                  << '\n';
    }
    if (session.json) {
        output::json({{"token", stored.value}, {"store", describe(stored.store)}});
        return;
    }
    output::line(stored.value);
}

void config(Session& session) {
    nlohmann::json configurations =
        MCPService::clientConfigurations(MCPService::port(session.preferences()), MCPToken::loadOrCreate().value);
    output::line(L10n::text("Fichier de configuration d'un client de bureau :", "A desktop client's configuration file:"));
    output::json(configurations["desktop"]);
    output::line("");
    output::line(L10n::text("En ligne de commande :", "On the command line:"));
    output::line(configurations["command_line"].get<std::string>());
    if (!MCPService::enabled(session.preferences()))
        output::line(std::string("\n") + std::string(L10n::text(
                                             "Le serveur est désactivé : « ombrelo mcp enable » pour le suivi, ou "
                                             "« ombrelo mcp serve ».",
                                             "The server is off: \"ombrelo mcp enable\" for the tracker, or "
                                             "\"ombrelo mcp serve\".")));
}

} // namespace

void mcp(CLI::App& program, Session& session) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App* command = program.add_subcommand(
        "mcp", std::string(L10n::text("Serveur pour les agents IA locaux (Model Context Protocol)",
                                      "Server for local AI agents (Model Context Protocol)")));
    command->require_subcommand(1);
    std::string portHelp(L10n::text("Port sur 127.0.0.1 (8473 par défaut ; avec serve, 0 : un port libre)",
                                    "Port on 127.0.0.1 (8473 by default; with serve, 0: any free port)"));

    CLI::App* serveCommand = command->add_subcommand(
        "serve", std::string(L10n::text("Sert les agents au premier plan, sans le suivi",
                                        "Serves agents in the foreground, without the tracker")));
    serveCommand->add_option("--port", arguments->port, portHelp);
    serveCommand->callback([&session, arguments] { serve(session, *arguments); });

    CLI::App* enableCommand = command->add_subcommand(
        "enable", std::string(L10n::text("Le suivi sert les agents", "The tracker serves agents")));
    enableCommand->add_option("--port", arguments->port, portHelp);
    enableCommand->callback([&session, arguments] { enable(session, *arguments); });

    command->add_subcommand("disable", std::string(L10n::text("Le suivi ne sert plus les agents",
                                                               "The tracker stops serving agents")))
        ->callback([&session] { disable(session); });

    CLI::App* tokenCommand = command->add_subcommand(
        "token", std::string(L10n::text("Affiche le jeton d'accès des agents", "Shows the agents' access token")));
    tokenCommand->add_flag("--regenerate", arguments->regenerate,
                           std::string(L10n::text("En crée un nouveau (l'ancien cesse de fonctionner)",
                                                  "Makes a new one (the old one stops working)")));
    tokenCommand->add_flag("--json", session.json, std::string(L10n::text("Sortie JSON", "JSON output")));
    tokenCommand->callback([&session, arguments] { token(session, *arguments); });

    command->add_subcommand("config", std::string(L10n::text("Configuration à coller dans un agent",
                                                              "Configuration to paste into an agent")))
        ->callback([&session] { config(session); });
}

} // namespace ombrelo::commands
