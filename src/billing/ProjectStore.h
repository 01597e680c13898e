// ProjectStore: the user's clients and projects, and the active project ("Projet
// en cours") that takes the time being recorded until it is stopped or the day
// ends.
//
// The lists are read from the `client` and `project` tables, sorted by name
// without regard to case, and re-read after every write. Writes never throw: a
// refused or failed write leaves the lists as they were, is logged (logger
// "billing") and comes back to the caller as a StoreError.
//
// The active project is kept in the settings ("activeProject",
// "activeProjectSince", "activeProjectNote"), which every Ombrelo process shares,
// so a command can start or stop it while the tracker runs: the tracker's store
// notices the settings file changed at its next `activeProject()`.
//
// Owned by the main loop; not thread-safe.
#pragma once

#include "billing/Project.h"
#include "storage/Database.h"
#include "support/Clock.h"
#include "support/Preferences.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <spdlog/logger.h>
#include <string>
#include <string_view>
#include <vector>

namespace ombrelo {

// Why a write of the store did not happen.
struct StoreError {
    enum class Kind {
        invalid,      // refused before writing; see `problem`
        notFound,     // no row with that id
        database,     // SQLite failed; `detail` has its message
        preferences,  // the settings file could not be written; `detail` says why
    };
    Kind kind;
    std::optional<RecordProblem> problem;
    std::string detail;

    // The reason in the user's language, for a command's message.
    std::string text() const;
};

// The outcome of a save: the row's id, or the error.
struct SaveResult {
    std::int64_t id = 0;
    std::optional<StoreError> error;
    explicit operator bool() const { return !error; }
};

class ProjectStore {
public:
    // Loads the lists and the active project state. Never throws; a failed read
    // leaves the lists empty (logged).
    ProjectStore(Database& db, Preferences& preferences, Clock& clock = Clock::system());

    // Re-reads both tables. Returns false when reading failed; the lists then
    // stay as they were.
    bool reload();

    const std::vector<Client>& clients() const { return clients_; }
    const std::vector<Project>& projects() const { return projects_; }
    std::optional<Client> client(std::int64_t id) const;
    std::optional<Project> project(std::int64_t id) const;

    // The project a person or an agent means by `text`: a decimal integer (with
    // an optional sign) is an id; otherwise, trimmed, the first project in list
    // order whose name or "Client › Projet" label equals it ignoring case and
    // accents, else the first whose name contains it. Nothing for empty text.
    std::optional<Project> find(std::string_view text) const;
    // The same without ids: what links and agents name.
    std::optional<Project> findByName(std::string_view text) const;
    // The same lookup among clients, by id or name.
    std::optional<Client> findClient(std::string_view text) const;
    // The project label with this store's clients ("Sans projet" for none).
    std::string label(const Project* project) const;
    std::string label(const std::shared_ptr<const Project>& project) const { return label(project.get()); }
    std::string label(const std::optional<Project>& project) const { return label(project ? &*project : nullptr); }

    // id 0 inserts, any other id updates that row. Refuses a record with a
    // problem, a project whose client does not exist, and an update of a missing
    // row.
    SaveResult save(const Client& client);
    SaveResult save(const Project& project);
    // Deleting a client leaves its projects without client; deleting a project
    // removes its rules, and its time loses the project.
    std::optional<StoreError> remove(const Client& client);
    std::optional<StoreError> remove(const Project& project);

    // The active project: set, started today (in the local calendar), still in
    // the list and not archived; else nothing. Reads the settings again first
    // when another process changed them. A project chosen yesterday is nothing
    // today, with no write at midnight.
    std::optional<Project> activeProject();
    // The raw state, as last read or written.
    std::optional<std::int64_t> activeProjectID() const { return active_.projectID; }
    std::optional<Instant> activeSince() const { return active_.since; }
    std::optional<std::string> activeNote() const { return active_.note; }

    // Starts, switches or (with nothing) stops the active project. Choosing the
    // current active project again changes nothing, so its start stays; any real
    // change clears the note, stamps the start with now and runs
    // `didChangeActive`. A project that is not saved in the store is refused.
    // The in-memory state changes even if the settings cannot be written; the
    // error then says so.
    std::optional<StoreError> setActive(const std::optional<Project>& project);
    // Sets or (with nothing) clears the note given to the active project's time.
    std::optional<StoreError> setActiveNote(const std::optional<std::string>& note);

    // Takes in a change of the active project made by another process: cheap
    // when nothing changed (one stat of the settings file). Reloads the lists
    // when the new active project is not in them yet, and runs
    // `didChangeActive`. Returns true when the state changed.
    bool syncActiveFromPreferences();

    // Run after each change of the active project, ours or another process's.
    std::function<void()> didChangeActive;

private:
    struct ActiveState {
        std::optional<std::int64_t> projectID;
        std::optional<Instant> since;
        std::optional<std::string> note;
        bool operator==(const ActiveState&) const = default;
    };

    ActiveState readActiveState() const;
    StoreError failed(StoreError error) const;
    std::optional<StoreError> write(std::string_view sql, const std::vector<SQLValue>& values, bool mustChange,
                                    std::int64_t* insertedID = nullptr);

    Database& db_;
    Preferences& preferences_;
    Clock& clock_;
    std::shared_ptr<spdlog::logger> log_;
    std::vector<Client> clients_;
    std::vector<Project> projects_;
    ActiveState active_;
    std::uint64_t seenGeneration_ = 0;
};

} // namespace ombrelo
