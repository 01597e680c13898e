// ombrelo replay FILE: a recorded desktop session through the real capture loop.
#include "app/Commands.h"
#include "app/Session.h"
#include "support/L10n.h"

namespace ombrelo::commands {

void replay(CLI::App& program, Session& session) {
    auto* file = new std::string;
    CLI::App* command = program.add_subcommand(
        "replay", std::string(L10n::text("Rejoue une session enregistrée (JSON Lines)",
                                         "Replay a recorded session (JSON Lines)")));
    command->add_option("FILE", *file, std::string(L10n::text("Fichier d'événements", "Event file")))->required();
    command->callback([&session] {
        session.database();
        throw CommandFailure(exitStatus::failure, "replay: not yet available");
    });
}

} // namespace ombrelo::commands
