#include "app/Session.h"

#include "support/L10n.h"

namespace ombrelo {

Session::Session() : preferences_(Preferences::defaultPath()), clock_(&Clock::system()) {}

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
