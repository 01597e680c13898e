// ombrelo categories list|add|edit|remove: the kinds of work (and of
// distraction) that rules give to time.
#include "app/Commands.h"
#include "app/Output.h"
#include "app/Session.h"
#include "app/commands/ClassifyArguments.h"
#include "app/commands/ClassifyViews.h"
#include "app/commands/TextTable.h"
#include "billing/Project.h"
#include "support/Fold.h"
#include "support/L10n.h"

#include <fmt/format.h>
#include <memory>

namespace ombrelo::commands {

namespace {

struct Arguments {
    std::string category;  // name or id of an existing category
    std::string name;
    std::optional<std::string> newName, color, symbol, distraction;
    bool isDistraction = false;
};

void list(Session& session) {
    Catalog catalog = openCatalog(session);
    if (session.json) {
        nlohmann::json categories = nlohmann::json::array();
        for (const Category& category : catalog.categories()) categories.push_back(categoryJSON(category, catalog));
        output::json({{"categories", categories}});
        return;
    }
    if (catalog.categories().empty()) {
        output::line(L10n::text("Aucune catégorie. Ajoutez-en une : ombrelo categories add NOM",
                                "No categories. Add one: ombrelo categories add NAME"));
        return;
    }
    output::TextTable table({"ID", std::string(L10n::text("Catégorie", "Category")),
                             std::string(L10n::text("Couleur", "Colour")), std::string(L10n::text("Symbole", "Symbol")),
                             std::string(L10n::text("Distraction", "Distraction")),
                             std::string(L10n::text("Règles", "Rules"))});
    for (const Category& category : catalog.categories()) {
        nlohmann::json described = categoryJSON(category, catalog);
        table.add({std::to_string(category.id), category.name, category.color, category.symbol,
                   std::string(category.isDistraction ? L10n::text("oui", "yes") : L10n::text("non", "no")),
                   described["rules"].dump()});
    }
    table.print(std::cout);
}

// Names identify categories on the command line and in sync: two categories
// may not share one (case and accents aside).
void validate(const Catalog& catalog, const Category& category) {
    std::string name(trim(category.name));
    if (name.empty())
        throw CommandFailure(exitStatus::usage,
                             std::string(L10n::text("Le nom de la catégorie est vide.", "The category name is empty.")));
    for (const Category& other : catalog.categories())
        if (other.id != category.id && fold(other.name) == fold(name))
            throw CommandFailure(exitStatus::usage,
                                 fmt::format("{}{} (id {})", L10n::text("Une catégorie porte déjà ce nom : ",
                                                                        "A category already has this name: "),
                                             other.name, other.id));
    if (!isColorKey(category.color))
        throw CommandFailure(exitStatus::usage,
                             fmt::format("{}{}", L10n::text("Couleur invalide (un mot de la palette, par exemple teal ou carmine) : ",
                                                            "Invalid colour (a palette word, for instance teal or carmine): "),
                                         category.color));
}

void saved(Session& session, Catalog& catalog, std::optional<std::int64_t> id) {
    if (!id)
        throw CommandFailure(exitStatus::failure, fmt::format("{}{}", L10n::text("Catégorie non enregistrée : ",
                                                                                  "Category not saved: "),
                                                              catalog.lastError().value_or("")));
    Category category = *catalog.category(*id);
    if (session.json) output::json(categoryJSON(category, catalog));
    else output::line(fmt::format("{}{} (id {})", L10n::text("Catégorie enregistrée : ", "Category saved: "),
                                  category.name, category.id));
}

void add(Session& session, const Arguments& arguments) {
    Catalog catalog = openCatalog(session);
    Category category{0, std::string(trim(arguments.name)), arguments.color.value_or("teal"),
                      arguments.symbol.value_or("tag"), arguments.isDistraction};
    validate(catalog, category);
    saved(session, catalog, catalog.save(category));
}

void edit(Session& session, const Arguments& arguments) {
    Catalog catalog = openCatalog(session);
    Category category = requireCategory(catalog, arguments.category);
    if (arguments.newName) category.name = std::string(trim(*arguments.newName));
    if (arguments.color) category.color = *arguments.color;
    if (arguments.symbol) category.symbol = *arguments.symbol;
    if (arguments.distraction) category.isDistraction = yesNoOption("--distraction", *arguments.distraction);
    validate(catalog, category);
    saved(session, catalog, catalog.save(category));
}

void remove(Session& session, const Arguments& arguments) {
    Catalog catalog = openCatalog(session);
    Category category = requireCategory(catalog, arguments.category);
    if (!catalog.remove(category))
        throw CommandFailure(exitStatus::failure, fmt::format("{}{}", L10n::text("Catégorie non supprimée : ",
                                                                                  "Category not deleted: "),
                                                              catalog.lastError().value_or("")));
    output::line(fmt::format("{}{}", L10n::text("Catégorie supprimée : ", "Category deleted: "), category.name));
    output::line(L10n::text("Les règles de cette catégorie sont supprimées ; le temps redevient non classé.",
                            "The rules of this category are deleted; its time becomes unclassified again."));
}

} // namespace

void categories(CLI::App& program, Session& session) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App* command = program.add_subcommand(
        "categories", std::string(L10n::text("Catégories du temps", "Categories of time")));
    command->require_subcommand(1);
    auto jsonFlag = [&session](CLI::App* sub) {
        sub->add_flag("--json", session.json, std::string(L10n::text("Sortie JSON", "JSON output")));
    };
    std::string colorHelp(L10n::text("Couleur (mot de la palette : teal, carmine, yellow, lavender, green, peach…)",
                                     "Colour (palette word: teal, carmine, yellow, lavender, green, peach…)"));
    std::string symbolHelp(L10n::text("Nom du symbole affiché", "Name of the symbol shown"));

    CLI::App* listCommand =
        command->add_subcommand("list", std::string(L10n::text("Liste les catégories", "List categories")));
    jsonFlag(listCommand);
    listCommand->callback([&session] { list(session); });

    CLI::App* addCommand =
        command->add_subcommand("add", std::string(L10n::text("Ajoute une catégorie", "Add a category")));
    addCommand->add_option("NAME", arguments->name, std::string(L10n::text("Nom", "Name")))->required();
    addCommand->add_option("--color", arguments->color, colorHelp);
    addCommand->add_option("--symbol", arguments->symbol, symbolHelp);
    addCommand->add_flag("--distraction", arguments->isDistraction,
                         std::string(L10n::text("Le temps de cette catégorie est de la distraction",
                                                "Time in this category is distraction")));
    jsonFlag(addCommand);
    addCommand->callback([&session, arguments] { add(session, *arguments); });

    CLI::App* editCommand =
        command->add_subcommand("edit", std::string(L10n::text("Modifie une catégorie", "Edit a category")));
    editCommand->add_option("CATEGORY", arguments->category, std::string(L10n::text("Nom ou id", "Name or id")))
        ->required();
    editCommand->add_option("--name", arguments->newName, std::string(L10n::text("Nouveau nom", "New name")));
    editCommand->add_option("--color", arguments->color, colorHelp);
    editCommand->add_option("--symbol", arguments->symbol, symbolHelp);
    editCommand->add_option("--distraction", arguments->distraction,
                            std::string(L10n::text("Distraction : oui ou non", "Distraction: yes or no")));
    jsonFlag(editCommand);
    editCommand->callback([&session, arguments] { edit(session, *arguments); });

    CLI::App* removeCommand = command->add_subcommand(
        "remove", std::string(L10n::text("Supprime une catégorie et ses règles", "Delete a category and its rules")));
    removeCommand->add_option("CATEGORY", arguments->category, std::string(L10n::text("Nom ou id", "Name or id")))
        ->required();
    removeCommand->callback([&session, arguments] { remove(session, *arguments); });
}

} // namespace ombrelo::commands
