// Session: what one run of the `ombrelo` command works with: the database (opened
// on first use, from --db, $OMBRELO_DB or the default location), the settings and
// the clock. Commands ask it for what they need, so a command that needs no
// database never creates one.
#pragma once

#include "storage/ActivityStore.h"
#include "storage/Database.h"
#include "support/Clock.h"
#include "support/Preferences.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace ombrelo {

// A command's failure: the message printed and the exit status.
class CommandFailure : public std::runtime_error {
public:
    CommandFailure(int exitStatus, const std::string& message) : std::runtime_error(message), status(exitStatus) {}
    const int status;
};

namespace exitStatus {
inline constexpr int success = 0;
inline constexpr int usage = 1;
inline constexpr int failure = 2;
inline constexpr int newerDatabase = 3;
// The file is not a database, or a damaged one: trying again will not help, so
// the tracker's service is not restarted for it (a folder not mounted yet, a
// lock held too long may pass: those are failures).
inline constexpr int databaseUnavailable = 4;
} // namespace exitStatus

class Session {
public:
    Session();
    ~Session();

    // --db PATH; takes precedence over $OMBRELO_DB.
    std::optional<std::string> databaseOption;
    // --json on read commands.
    bool json = false;

    std::filesystem::path databasePath() const;
    // Opens (creating and migrating) the database. A newer file fails with exit
    // status 3 and the alert text; a damaged file or one that is no database
    // with status 4, any other failure with status 2, both with the "cannot
    // open" alert.
    Database& database();
    ActivityStore& activities();
    Preferences& preferences() { return preferences_; }
    // The wall clock, or the instant in $OMBRELO_NOW ("YYYY-MM-DDTHH:MM:SS" local
    // time, or seconds since 1970) so that tests of the real binary can pin
    // "now". Commands take every "now" from here.
    Clock& clock() { return *clock_; }

private:
    Preferences preferences_;
    std::unique_ptr<ManualClock> pinned_;
    Clock* clock_;
    std::unique_ptr<Database> database_;
    std::unique_ptr<ActivityStore> activities_;
};

// The alert shown when the database cannot be opened, in the user's language.
std::string newerDatabaseAlert();
std::string openFailureAlert(const std::string& detail);

} // namespace ombrelo
