#include "app/CommandLine.h"

#include "app/Commands.h"
#include "app/Session.h"
#include "support/L10n.h"
#include "support/Log.h"

#include <iostream>

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
