#include "PricedYear.h"

#include "classify/Rule.h"
#include "storage/Database.h"

#include <stdexcept>
#include <vector>

namespace ombrelo::bench {

namespace {

using Field = Rule::Field;
using Op = Rule::Operator;


using Field = Rule::Field;
using Op = Rule::Operator;

Rule makeRule(Field field, std::string pattern, std::optional<Op> op, std::optional<std::int64_t> category,
              std::optional<std::int64_t> project = std::nullopt) {
    Rule rule;
    rule.field = field;
    rule.pattern = std::move(pattern);
    rule.op = op;
    rule.categoryID = category;
    rule.projectID = project;
    return rule;
}

// 50 user rules (10 regular expressions, 10 with conditions, 10 with windows or
// weekdays, 20 plain) and one rule per project.
void addRules(Catalog& catalog, const std::vector<std::int64_t>& projects) {
    const auto& categories = catalog.categories();
    std::int64_t code = categories[0].id, design = categories[1].id, meetings = categories[3].id,
                 writing = categories[4].id, admin = categories[5].id;
    const char* clients[] = {"Dupont", "Martin", "Leroy", "Moreau", "Garcia", "Bernard", "Petit", "Roux"};
    const char* regexes[] = {"devis\\s+\\w+\\s+\\d+$", "^facture (dupont|martin)", "bug \\w+ [0-9]{2}", "r[ée]union",
                             "\\bapi\\b.*3\\d$", "maquette\\s+(leroy|roux)", "^relecture", "refonte.*\\d{2}",
                             "(?i)GARCIA\\s+1\\d", "petit 2[0-9]"};
    std::vector<Rule> rules;
    for (int i = 0; i < 10; ++i) rules.push_back(makeRule(Field::title, regexes[i], Op::regex, i % 2 ? admin : writing));
    for (int i = 0; i < 10; ++i) {
        Rule rule = makeRule(Field::domain, i % 2 ? "github.com" : "docs.google.com", Op::is, code);
        rule.conditions = {{Field::title, Op::contains, clients[i % 8]}};
        rules.push_back(rule);
    }
    for (int i = 0; i < 10; ++i) {
        Rule rule = makeRule(Field::title, std::string("maquette ") + clients[i % 8], Op::startsWith, design);
        rule.startMinute = 8 * 60 + 30 * i;
        rule.endMinute = i == 9 ? 2 * 60 : 12 * 60 + 30 * i;
        if (i % 2) rule.weekdays = {2 + i % 5};
        rules.push_back(rule);
    }
    const Op ops[] = {Op::contains, Op::is, Op::startsWith, Op::endsWith};
    for (int i = 0; i < 20; ++i) {
        Field field = i < 8 ? Field::title : i < 12 ? Field::app : i < 16 ? Field::domain : Field::url;
        std::string pattern = field == Field::title    ? std::string("réunion ") + clients[i % 8]
                              : field == Field::app    ? (i % 2 ? "slack" : "Zoom")
                              : field == Field::domain ? (i % 2 ? "client-dupont.fr" : ".fr")
                                                       : "https://intranet";
        rules.push_back(makeRule(field, pattern, ops[i % 4], i % 2 ? meetings : admin));
    }
    for (std::size_t i = 0; i < projects.size(); ++i) {
        Field field = i < 12 ? Field::title : i < 16 ? Field::domain : Field::app;
        std::string pattern = field == Field::title    ? clients[i % 8] + std::string(" ") + std::to_string(i)
                              : field == Field::domain ? (i % 2 ? "client-dupont.fr" : "figma.com")
                                                       : (i % 2 ? "code" : "org.gnome.terminal");
        rules.push_back(makeRule(field, pattern, field == Field::title ? std::optional(Op::endsWith) : std::nullopt,
                                 std::nullopt, projects[i]));
    }
    for (const Rule& rule : rules)
        if (!catalog.save(rule)) throw std::runtime_error("rule not saved");
}

} // namespace

Year::Year() {
    std::filesystem::create_directories(dir);
    writeSyntheticYear(path, yearStart);
    Database db(path);
    Catalog catalog(db);
    const Project::Rounding roundings[] = {Project::Rounding::none, Project::Rounding::quarterHour,
                                           Project::Rounding::halfHour, Project::Rounding::halfDay,
                                           Project::Rounding::day};
    std::vector<std::int64_t> clients, projects;
    for (int i = 0; i < 8; ++i)
        clients.push_back(db.run("INSERT INTO client (name, color) VALUES (?, 'teal')",
                                 {"Client " + std::to_string(i)}));
    for (int i = 0; i < 20; ++i)
        projects.push_back(db.run(
            "INSERT INTO project (client_id, name, color, billable, rate_kind, rate_cents, rounding) "
            "VALUES (?, ?, 'teal', ?, ?, ?, ?)",
            {clients[i % 8], "Projet " + std::to_string(i), std::int64_t{i % 10 != 9},
             std::string(i % 3 ? "hour" : "day"), std::int64_t{i % 3 ? 6000 + 500 * i : 50000 + 1000 * i},
             std::string(roundingName(roundings[i % 5]))}));
    addRules(catalog, projects);

    Transaction transaction(db);
    for (std::int64_t id = 1; id <= 250'000; id += 997)
        db.run("INSERT INTO assignment (activity_id, project_id, source) VALUES (?, ?, 'manual')",
               {id, projects[id % 20]});
    // The first eight months billed, the first five of them paid.
    std::int64_t billed = 250'000 * 8 / 12, paid = 250'000 * 5 / 12;
    for (std::int64_t id = 1; id <= billed; ++id)
        db.run("INSERT INTO billing (activity_id, status, invoice, at) VALUES (?, ?, ?, 0)",
               {id, std::string(id <= paid ? "paid" : "billed"), "F-" + std::to_string(id / 20'000)});
    transaction.commit();
}

Year& year() {
    static Year shared;
    return shared;
}

} // namespace ombrelo::bench
