#include "app/Session.h"

#include "support/L10n.h"
#include "support/LocalTime.h"

#include <charconv>
#include <cstdlib>

namespace ombrelo {

namespace {

std::optional<Instant> pinnedNow() {
    const char* text = std::getenv("OMBRELO_NOW");
    if (!text || !*text) return std::nullopt;
    if (auto local = local::parseDateTime(text)) return local;
    double seconds = 0;
    std::string_view view(text);
    auto [end, error] = std::from_chars(view.data(), view.data() + view.size(), seconds);
    if (error != std::errc() || end != view.data() + view.size())
        throw CommandFailure(exitStatus::usage, "OMBRELO_NOW: " + std::string(text));
    return seconds;
}

} // namespace

Session::Session() : preferences_(Preferences::defaultPath()), clock_(&Clock::system()) {
    if (auto now = pinnedNow()) {
        pinned_ = std::make_unique<ManualClock>(*now);
        clock_ = pinned_.get();
    }
}

Session::~Session() = default;

std::filesystem::path Session::databasePath() const {
    return databaseOption ? std::filesystem::path(*databaseOption) : Database::defaultURL();
}

std::string newerDatabaseAlert() {
    return std::string(L10n::text(
        "Vos données viennent d'une version plus récente de Ombrelo\n"
        "Cette copie de Ombrelo est plus ancienne : elle ne peut pas lire ces données sans risquer de les abîmer. "
        "Installez la dernière version de Ombrelo. Vos données n'ont pas été modifiées.",
        "Your data comes from a newer version of Ombrelo\n"
        "This copy of Ombrelo is older: it cannot read this data without risking damage to it. "
        "Install the latest version of Ombrelo. Your data has not been changed."));
}

std::string openFailureAlert(const std::string& detail) {
    return std::string(L10n::text("Ombrelo ne peut pas ouvrir sa base de données\nLe suivi est désactivé. Détail : ",
                                  "Ombrelo cannot open its database\nTracking is turned off. Detail: ")) +
           detail;
}

Database& Session::database() {
    if (database_) return *database_;
    try {
        database_ = std::make_unique<Database>(databasePath());
    } catch (const NewerDatabaseError&) {
        throw CommandFailure(exitStatus::newerDatabase, newerDatabaseAlert());
    } catch (const DatabaseError& error) {
        if (!error.unusableFile()) throw CommandFailure(exitStatus::failure, openFailureAlert(error.what()));
        throw CommandFailure(exitStatus::databaseUnavailable,
                             openFailureAlert(error.what()) +
                                 std::string(L10n::text("\nUne sauvegarde peut la remplacer : ombrelo backups les "
                                                        "liste, ombrelo restore DATE en remet une.",
                                                        "\nA backup can replace it: ombrelo backups lists them, "
                                                        "ombrelo restore DATE puts one back.")));
    } catch (const std::exception& error) {
        throw CommandFailure(exitStatus::failure, openFailureAlert(error.what()));
    }
    return *database_;
}

ActivityStore& Session::activities() {
    if (!activities_) activities_ = std::make_unique<ActivityStore>(database());
    return *activities_;
}

} // namespace ombrelo
