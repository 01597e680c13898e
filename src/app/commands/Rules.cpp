// ombrelo rules list|add|edit|remove: the rules that give time its category
// and project. A rule tests a field (app, site, title, folder, address) with an
// operator, or the older fixed semantics of a simple rule; conditions, a time
// window and weekdays narrow it. Changing a rule reclassifies all of history.
#include "app/Commands.h"
#include "app/Output.h"
#include "app/Session.h"
#include "app/commands/ClassifyArguments.h"
#include "app/commands/ClassifyViews.h"
#include "app/commands/ProjectArguments.h"
#include "app/commands/TextTable.h"
#include "classify/RegexCache.h"
#include "support/Fold.h"
#include "support/L10n.h"

#include <algorithm>
#include <fmt/format.h>
#include <iostream>
#include <memory>

namespace ombrelo::commands {

namespace {

struct Arguments {
    std::string rule;  // id of an existing rule
    std::string field, pattern;
    std::optional<std::string> newField, newPattern, op, hours, days, category, project;
    std::vector<std::string> conditions;
    bool clearConditions = false;
};

void list(Session& session) {
    Catalog catalog = openCatalog(session);
    ProjectStore projects = openProjects(session);
    if (session.json) {
        nlohmann::json rules = nlohmann::json::array();
        for (const Rule& rule : catalog.rules()) rules.push_back(ruleJSON(rule, catalog, projects));
        output::json({{"rules", rules}});
        return;
    }
    if (catalog.rules().empty()) {
        output::line(L10n::text("Aucune règle. Ajoutez-en une : ombrelo rules add CHAMP MOTIF --category CATÉGORIE",
                                "No rules. Add one: ombrelo rules add FIELD PATTERN --category CATEGORY"));
        return;
    }
    output::TextTable table({"ID", std::string(L10n::text("Règle", "Rule")), std::string(L10n::text("Donne", "Gives"))});
    for (const Rule& rule : catalog.rules()) {
        std::string test = ruleTest(rule);
        if (rule.regexProblem()) test += std::string(L10n::text("  (invalide, ignorée)", "  (invalid, ignored)"));
        table.add({std::to_string(rule.id), test, ruleTarget(rule, catalog, projects)});
    }
    table.print(std::cout);
}

const Rule& requireRule(const Catalog& catalog, std::string_view text) {
    std::string_view wanted = trim(text);
    if (!wanted.empty() && wanted.front() == '#') wanted.remove_prefix(1);
    for (const Rule& rule : catalog.rules())
        if (std::to_string(rule.id) == wanted) return rule;
    throw CommandFailure(exitStatus::failure,
                         fmt::format("{}{}{}", L10n::text("Règle introuvable : ", "Rule not found: "), text,
                                     L10n::text(". Voir « ombrelo rules list ».", ". See \"ombrelo rules list\".")));
}

// The options given, applied to `rule`; names are resolved before anything is
// written.
void apply(const Arguments& arguments, Rule& rule, const Catalog& catalog, Session& session) {
    if (arguments.newField) rule.field = fieldOption(*arguments.newField);
    if (arguments.newPattern) rule.pattern = *arguments.newPattern;
    if (arguments.op) rule.op = operatorOption(*arguments.op);
    if (arguments.clearConditions) rule.conditions.clear();
    if (!arguments.conditions.empty()) {
        rule.conditions.clear();
        for (const std::string& condition : arguments.conditions) rule.conditions.push_back(conditionOption(condition));
    }
    if (arguments.hours) {
        if (isNone(*arguments.hours)) {
            rule.startMinute.reset();
            rule.endMinute.reset();
        } else {
            std::tie(rule.startMinute, rule.endMinute) = hoursOption(*arguments.hours);
        }
    }
    if (arguments.days) rule.weekdays = isNone(*arguments.days) ? std::set<int>{} : weekdaysOption(*arguments.days);
    if (arguments.category)
        rule.categoryID = isNone(*arguments.category) ? std::nullopt
                                                      : std::optional(requireCategory(catalog, *arguments.category).id);
    if (arguments.project) {
        if (isNone(*arguments.project)) rule.projectID.reset();
        else rule.projectID = requireProject(openProjects(session), *arguments.project).id;
    }

    if (trim(rule.pattern).empty())
        throw CommandFailure(exitStatus::usage, std::string(L10n::text("Le motif de la règle est vide.",
                                                                       "The rule's pattern is empty.")));
    if (!rule.categoryID && !rule.projectID)
        throw CommandFailure(exitStatus::usage,
                             std::string(L10n::text("Une règle donne une catégorie, un projet ou les deux : "
                                                    "ajoutez --category ou --project.",
                                                    "A rule gives a category, a project or both: "
                                                    "add --category or --project.")));
}

void saved(Session& session, Catalog& catalog, std::optional<std::int64_t> id, bool reclassifies) {
    if (!id)
        throw CommandFailure(exitStatus::failure, fmt::format("{}{}", L10n::text("Règle non enregistrée : ",
                                                                                  "Rule not saved: "),
                                                              catalog.lastError().value_or("")));
    const Rule& rule = requireRule(catalog, std::to_string(*id));
    ProjectStore projects = openProjects(session);
    // Saved anyway, as the editor does: the rule simply never matches until fixed.
    bool invalidCondition = std::any_of(rule.conditions.begin(), rule.conditions.end(), [](const Rule::Condition& c) {
        return c.op == Rule::Operator::regex && !RegexCache::shared().compiles(c.pattern);
    });
    std::optional<std::string> problem = rule.regexProblem();
    if (!problem && invalidCondition) problem = std::string(invalidRegexMessage());
    if (problem) std::cerr << *problem << '\n';
    if (session.json) {
        output::json(ruleJSON(rule, catalog, projects));
        return;
    }
    output::line(fmt::format("{}#{} {} → {}", L10n::text("Règle enregistrée : ", "Rule saved: "), rule.id,
                             ruleTest(rule), ruleTarget(rule, catalog, projects)));
    if (reclassifies)
        output::line(L10n::text("Le temps concerné sera reclassé par les autres règles.",
                                "The time concerned will be reclassified by the other rules."));
}

void add(Session& session, const Arguments& arguments) {
    Catalog catalog = openCatalog(session);
    Rule rule;
    rule.field = fieldOption(arguments.field);
    rule.pattern = arguments.pattern;
    apply(arguments, rule, catalog, session);
    saved(session, catalog, catalog.save(rule), false);
}

void edit(Session& session, const Arguments& arguments) {
    Catalog catalog = openCatalog(session);
    Rule rule = requireRule(catalog, arguments.rule);
    apply(arguments, rule, catalog, session);
    saved(session, catalog, catalog.save(rule), true);
}

void remove(Session& session, const Arguments& arguments) {
    Catalog catalog = openCatalog(session);
    Rule rule = requireRule(catalog, arguments.rule);
    if (!catalog.remove(rule))
        throw CommandFailure(exitStatus::failure, fmt::format("{}{}", L10n::text("Règle non supprimée : ",
                                                                                  "Rule not deleted: "),
                                                              catalog.lastError().value_or("")));
    output::line(fmt::format("{}#{} {}", L10n::text("Règle supprimée : ", "Rule deleted: "), rule.id, ruleTest(rule)));
    output::line(L10n::text("Le temps concerné sera reclassé par les autres règles.",
                            "The time concerned will be reclassified by the other rules."));
}

void addRuleOptions(CLI::App* command, Arguments& arguments) {
    command->add_option("--op", arguments.op,
                        std::string(L10n::text("Opérateur : contains, is, startsWith, endsWith, regex, ou simple "
                                               "(l'appli par son identifiant, le site et ses sous-domaines ; par défaut)",
                                               "Operator: contains, is, startsWith, endsWith, regex, or simple "
                                               "(the app by its identifier, the site and its subdomains; the default)")));
    command->add_option("--when", arguments.conditions,
                        std::string(L10n::text("Condition de plus, CHAMP:OPÉRATEUR:MOTIF (répétable ; toutes doivent tenir)",
                                               "Further condition, FIELD:OPERATOR:PATTERN (repeatable; all must hold)")))
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command->add_option("--hours", arguments.hours,
                        std::string(L10n::text("Plage horaire HH:MM-HH:MM (22:00-02:00 passe minuit), ou none",
                                               "Time window HH:MM-HH:MM (22:00-02:00 spans midnight), or none")));
    command->add_option("--days", arguments.days,
                        std::string(L10n::text("Jours : lun,mar,… ou lun-ven, ou none", "Days: mon,tue,… or mon-fri, or none")));
    command->add_option("--category", arguments.category,
                        std::string(L10n::text("Catégorie donnée (nom ou id), ou none", "Category given (name or id), or none")));
    command->add_option("--project", arguments.project,
                        std::string(L10n::text("Projet donné (nom ou id), ou none", "Project given (name or id), or none")));
}

} // namespace

void rules(CLI::App& program, Session& session) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App* command = program.add_subcommand(
        "rules", std::string(L10n::text("Règles de classement", "Classification rules")));
    command->require_subcommand(1);
    auto jsonFlag = [&session](CLI::App* sub) {
        sub->add_flag("--json", session.json, std::string(L10n::text("Sortie JSON", "JSON output")));
    };
    std::string fieldHelp(L10n::text("Champ testé : app, domain, title, path, url", "Field tested: app, domain, title, path, url"));

    CLI::App* listCommand = command->add_subcommand("list", std::string(L10n::text("Liste les règles", "List rules")));
    jsonFlag(listCommand);
    listCommand->callback([&session] { list(session); });

    CLI::App* addCommand = command->add_subcommand("add", std::string(L10n::text("Ajoute une règle", "Add a rule")));
    addCommand->add_option("FIELD", arguments->field, fieldHelp)->required();
    addCommand->add_option("PATTERN", arguments->pattern, std::string(L10n::text("Motif", "Pattern")))->required();
    addRuleOptions(addCommand, *arguments);
    jsonFlag(addCommand);
    addCommand->callback([&session, arguments] { add(session, *arguments); });

    CLI::App* editCommand = command->add_subcommand("edit", std::string(L10n::text("Modifie une règle", "Edit a rule")));
    editCommand->add_option("RULE", arguments->rule, std::string(L10n::text("Id de la règle", "Rule id")))->required();
    editCommand->add_option("--field", arguments->newField, fieldHelp);
    editCommand->add_option("--pattern", arguments->newPattern, std::string(L10n::text("Motif", "Pattern")));
    addRuleOptions(editCommand, *arguments);
    editCommand->add_flag("--no-conditions", arguments->clearConditions,
                          std::string(L10n::text("Retire toutes les conditions", "Remove every condition")));
    jsonFlag(editCommand);
    editCommand->callback([&session, arguments] { edit(session, *arguments); });

    CLI::App* removeCommand =
        command->add_subcommand("remove", std::string(L10n::text("Supprime une règle", "Delete a rule")));
    removeCommand->add_option("RULE", arguments->rule, std::string(L10n::text("Id de la règle", "Rule id")))->required();
    removeCommand->callback([&session, arguments] { remove(session, *arguments); });
}

} // namespace ombrelo::commands
