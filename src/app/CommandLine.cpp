#include "app/CommandLine.h"

#include "app/Commands.h"
#include "app/Session.h"
#include "support/L10n.h"
#include "support/Log.h"

#include <algorithm>
#include <iostream>
#include <optional>
#include <string_view>
#include <vector>

namespace ombrelo {

namespace {

void frenchHelpLabels(CLI::App& program) {
    auto formatter = program.get_formatter();
    formatter->label("Usage", "Utilisation");
    formatter->label("OPTIONS", "OPTIONS");
    formatter->label("SUBCOMMAND", "COMMANDE");
    formatter->label("SUBCOMMANDS", "COMMANDES");
    formatter->label("Subcommands", "Commandes");
    formatter->label("Positionals", "Arguments");
    formatter->label("REQUIRED", "OBLIGATOIRE");
    formatter->label("TEXT", "TEXTE");
    formatter->label("INT", "ENTIER");
    formatter->label("FILE", "FICHIER");
}

// Edit distance, for naming the commands nearest a mistyped one.
std::size_t distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            std::size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

// Up to three names of `level`'s commands, nearest to `typed` first.
std::vector<std::string> nearest(CLI::App& level, std::string_view typed) {
    std::vector<std::pair<std::size_t, std::string>> ranked;
    for (CLI::App* command : level.get_subcommands({})) {
        const std::string& name = command->get_name();
        bool prefix = name.rfind(typed, 0) == 0 || typed.rfind(name, 0) == 0;
        ranked.emplace_back(prefix ? 0 : distance(typed, name), name);
    }
    std::sort(ranked.begin(), ranked.end());
    std::vector<std::string> names;
    for (const auto& [d, name] : ranked)
        if (names.size() < 3) names.push_back(name);
    return names;
}

// CLI11 answers a mistyped command with "A subcommand is required" or a list of
// unexpected arguments; this names the command that does not exist and the
// nearest that do. Walks the words down the command tree, skipping options and
// their values.
std::optional<std::string> unknownCommand(CLI::App& program, int argc, char** argv) {
    CLI::App* level = &program;
    std::string path = "ombrelo";
    for (int i = 1; i < argc; ++i) {
        std::string_view word = argv[i];
        if (word.size() > 1 && word[0] == '-') {
            std::size_t equals = word.find('=');
            std::string name(word.substr(0, equals));
            const CLI::Option* option = level->get_option_no_throw(name);
            if (!option) option = program.get_option_no_throw(name);
            if (option && option->get_type_size() != 0 && equals == std::string_view::npos) ++i;  // its value
            continue;
        }
        if (level->get_subcommands({}).empty()) return std::nullopt;
        CLI::App* next = nullptr;
        for (CLI::App* command : level->get_subcommands({}))
            if (command->check_name(std::string(word))) next = command;
        if (!next) {
            if (!level->get_options([](const CLI::Option* o) { return o->get_positional(); }).empty())
                return std::nullopt;
            std::string names;
            for (const std::string& name : nearest(*level, word)) names += (names.empty() ? "" : ", ") + path + " " + name;
            return std::string(L10n::text("Commande inconnue : ", "Unknown command: ")) + path + " " +
                   std::string(word) + std::string(L10n::text(". Commandes proches : ", ". Nearest commands: ")) +
                   names;
        }
        level = next;
        path += " " + next->get_name();
    }
    return std::nullopt;
}

} // namespace

namespace {

int parseAndRun(Session& session, int argc, char** argv) {
    L10n::setLanguage(L10n::resolve(session.preferences()));

    CLI::App program{std::string(L10n::text("Ombrelo : suivi du temps de travail, sur cette machine seulement.",
                                            "Ombrelo: work time tracking, on this machine only.")),
                     "ombrelo"};
    program.set_help_flag("-h,--help", std::string(L10n::text("Affiche cette aide", "Print this help")));
    program.require_subcommand(1);
    if (L10n::french()) frenchHelpLabels(program);
    program.add_option("--db", session.databaseOption,
                       std::string(L10n::text("Fichier de base de données (comme OMBRELO_DB)",
                                              "Database file (same as OMBRELO_DB)")));
    for (commands::Registration add : commands::all) add(program, session);
    if (std::optional<std::string> unknown = unknownCommand(program, argc, argv))
        throw CommandFailure(exitStatus::usage, *unknown);

    try {
        program.parse(argc, argv);
        return exitStatus::success;
    } catch (const CLI::ParseError& error) {
        int status = program.exit(error);
        return status == 0 ? exitStatus::success : exitStatus::usage;
    }
}

} // namespace

int runCommandLine(int argc, char** argv) {
    try {
        Session session;
        return parseAndRun(session, argc, argv);
    } catch (const CommandFailure& failure) {
        std::cerr << failure.what() << '\n';
        return failure.status;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return exitStatus::failure;
    }
}

} // namespace ombrelo
