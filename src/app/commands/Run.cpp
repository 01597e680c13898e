// ombrelo run: the long-running tracker.
#include "app/Commands.h"
#include "app/Session.h"
#include "support/L10n.h"

namespace ombrelo::commands {

void run(CLI::App& program, Session& session) {
    CLI::App* command = program.add_subcommand(
        "run", std::string(L10n::text("Suit le temps de travail en continu", "Track work time continuously")));
    command->callback([&session] {
        session.database();
        throw CommandFailure(exitStatus::failure,
                             std::string(L10n::text("Aucun module de capture du bureau n'est disponible.",
                                                    "No desktop capture back-end is available.")));
    });
}

} // namespace ombrelo::commands
