// ombrelo clients list|add|edit|remove: who the user works for.
#include "app/Commands.h"
#include "app/Output.h"
#include "app/Session.h"
#include "app/commands/ProjectArguments.h"
#include "app/commands/ProjectViews.h"
#include "app/commands/TextTable.h"
#include "support/L10n.h"

#include <memory>

namespace ombrelo::commands {

namespace {

struct Arguments {
    std::string client;  // name or id of an existing client
    std::string name;
    std::optional<std::string> newName;
    std::optional<std::string> color;
};

void list(Session& session) {
    ProjectStore store = openProjects(session);
    if (session.json) {
        nlohmann::json clients = nlohmann::json::array();
        for (const Client& c : store.clients()) clients.push_back(clientJSON(c, store));
        output::json({{"clients", clients}});
        return;
    }
    if (store.clients().empty()) {
        output::line(L10n::text("Aucun client. Ajoutez-en un : ombrelo clients add NOM",
                                "No clients. Add one: ombrelo clients add NAME"));
        return;
    }
    output::TextTable table({"ID", std::string(L10n::text("Client", "Client")),
                             std::string(L10n::text("Couleur", "Colour")),
                             std::string(L10n::text("Projets", "Projects"))});
    for (const Client& c : store.clients()) {
        nlohmann::json described = clientJSON(c, store);
        table.add({std::to_string(c.id), c.name, c.color, described["projects"].dump()});
    }
    table.print(std::cout);
}

void saved(Session& session, ProjectStore& store, const SaveResult& result) {
    check(result.error, L10n::text("Client non enregistré", "Client not saved"));
    Client c = *store.client(result.id);
    if (session.json)
        output::json(clientJSON(c, store));
    else
        output::line(std::string(L10n::text("Client enregistré : ", "Client saved: ")) + c.name + " (id " +
                     std::to_string(c.id) + ")");
}

void add(Session& session, const Arguments& arguments) {
    ProjectStore store = openProjects(session);
    Client c;
    c.name = arguments.name;
    if (arguments.color) c.color = *arguments.color;
    validate(c);
    saved(session, store, store.save(c));
}

void edit(Session& session, const Arguments& arguments) {
    ProjectStore store = openProjects(session);
    Client c = requireClient(store, arguments.client);
    if (arguments.newName) c.name = *arguments.newName;
    if (arguments.color) c.color = *arguments.color;
    validate(c);
    saved(session, store, store.save(c));
}

void remove(Session& session, const Arguments& arguments) {
    ProjectStore store = openProjects(session);
    Client c = requireClient(store, arguments.client);
    check(store.remove(c), L10n::text("Client non supprimé", "Client not deleted"));
    output::line(std::string(L10n::text("Client supprimé : ", "Client deleted: ")) + c.name +
                 std::string(L10n::text(" (ses projets restent, sans client)", " (its projects stay, without client)")));
}

} // namespace

void clients(CLI::App& program, Session& session) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App* command = program.add_subcommand("clients", std::string(L10n::text("Clients", "Clients")));
    command->require_subcommand(1);
    auto jsonFlag = [&session](CLI::App* sub) {
        sub->add_flag("--json", session.json, std::string(L10n::text("Sortie JSON", "JSON output")));
    };
    std::string colorHelp(L10n::text("Couleur (mot de la palette, carmine par défaut)",
                                     "Colour (palette word, carmine by default)"));

    CLI::App* listCommand = command->add_subcommand("list", std::string(L10n::text("Liste les clients", "List clients")));
    jsonFlag(listCommand);
    listCommand->callback([&session] { list(session); });

    CLI::App* addCommand = command->add_subcommand("add", std::string(L10n::text("Ajoute un client", "Add a client")));
    addCommand->add_option("NAME", arguments->name, std::string(L10n::text("Nom", "Name")))->required();
    addCommand->add_option("--color", arguments->color, colorHelp);
    jsonFlag(addCommand);
    addCommand->callback([&session, arguments] { add(session, *arguments); });

    CLI::App* editCommand = command->add_subcommand("edit", std::string(L10n::text("Modifie un client", "Edit a client")));
    editCommand->add_option("CLIENT", arguments->client, std::string(L10n::text("Nom ou id", "Name or id")))->required();
    editCommand->add_option("--name", arguments->newName, std::string(L10n::text("Nouveau nom", "New name")));
    editCommand->add_option("--color", arguments->color, colorHelp);
    jsonFlag(editCommand);
    editCommand->callback([&session, arguments] { edit(session, *arguments); });

    CLI::App* removeCommand =
        command->add_subcommand("remove", std::string(L10n::text("Supprime un client", "Delete a client")));
    removeCommand->add_option("CLIENT", arguments->client, std::string(L10n::text("Nom ou id", "Name or id")))->required();
    removeCommand->callback([&session, arguments] { remove(session, *arguments); });
}

} // namespace ombrelo::commands
