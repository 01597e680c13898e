// ombrelo ui: the main window in the browser. The running tracker serves it
// and hands out a one-time address for it; with no tracker (or --serve) this
// command serves it itself until stopped. --print writes the address instead
// of opening a browser.
#include "app/Commands.h"
#include "app/Output.h"
#include "app/Session.h"
#include "app/commands/ServedAlone.h"
#include "app/window/Browser.h"
#include "app/window/WindowHost.h"
#include "control/ControlSocket.h"
#include "control/URLCommands.h"
#include "support/L10n.h"
#include "support/Log.h"

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <csignal>
#include <iostream>
#include <memory>

namespace ombrelo::commands {

namespace {

struct Arguments {
    std::string page = "dashboard";
    bool serve = false;
    bool print = false;
    std::optional<int> port;
};

void show(const std::string& link, bool print) {
    if (print || !Browser::open(link)) output::line(link);
    std::cout.flush();
}

// The address from the running tracker, or nothing when none runs.
std::optional<std::string> trackerLink(Session& session, Page page) {
    std::optional<nlohmann::json> answer;
    try {
        answer = ControlClient::send(controlSocketFor(session.databasePath()),
                                     {{"command", "window-link"}, {"page", rawValue(page)}});
    } catch (const std::exception& error) {
        throw CommandFailure(exitStatus::failure, error.what());
    }
    if (!answer) return std::nullopt;
    if (!answer->value("ok", false))
        throw CommandFailure(exitStatus::failure, answer->value("error", std::string()));
    return answer->value("url", std::string());
}

void serve(Session& session, Page page, bool print, std::optional<int> chosenPort) {
    Log::setDefaultLevel(spdlog::level::info);
    asio::io_context io;
    asio::signal_set stop(io, SIGINT, SIGTERM);
    std::unique_ptr<WindowHost> window;
    ServedAlone served(
        session, io, [&](Page opened) {
            if (auto link = window->link(opened)) show(*link, print);
        },
        [&](Page opened) { return window->link(opened); });
    window = std::make_unique<WindowHost>(io, WindowAPI::Parts{.model = served.model,
                                                               .activities = session.activities(),
                                                               .catalog = served.catalog,
                                                               .projects = served.projects,
                                                               .controls = served.controls,
                                                               .preferences = session.preferences(),
                                                               .clock = session.clock()});
    std::uint16_t port = chosenPort ? static_cast<std::uint16_t>(*chosenPort) : WindowHost::port(session.preferences());
    try {
        window->start(port);
    } catch (const std::system_error& error) {
        throw CommandFailure(exitStatus::failure, windowPortUnavailable(port, error.code()));
    }
    std::cerr << L10n::text("Interface servie ici (Ctrl-C pour arrêter)", "Interface served here (Ctrl-C to stop)")
              << std::endl;
    served.controls.open(page);
    stop.async_wait([&](std::error_code, int) {
        window->stop();
        io.stop();
    });
    io.run();
}

void openWindow(Session& session, const Arguments& arguments) {
    Page page = URLCommands::pageNamed(arguments.page);
    if (!arguments.serve) {
        if (std::optional<std::string> link = trackerLink(session, page)) return show(*link, arguments.print);
    }
    serve(session, page, arguments.print, arguments.port);
}

} // namespace

void window(CLI::App& program, Session& session) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App* command = program.add_subcommand(
        "ui", std::string(L10n::text("Ouvre l'interface dans le navigateur", "Open the interface in the browser")));
    command->add_option("PAGE", arguments->page,
                        std::string(L10n::text("Page : tableau, chronologie, recherche, projets, rapports, réglages",
                                               "Page: dashboard, timeline, search, projects, reports, settings")));
    command->add_flag("--serve", arguments->serve,
                      std::string(L10n::text("Servir l'interface ici, sans le suivi",
                                             "Serve the interface here, without the tracker")));
    command->add_flag("--print", arguments->print,
                      std::string(L10n::text("Écrire l'adresse au lieu d'ouvrir le navigateur",
                                             "Print the address instead of opening the browser")));
    command->add_option("--port", arguments->port,
                        std::string(L10n::text("Avec --serve : le port (0 : un port libre)",
                                               "With --serve: the port (0: any free port)")))
        ->check(CLI::Range(0, 65535));
    command->callback([&session, arguments] { openWindow(session, *arguments); });
}

} // namespace ombrelo::commands
