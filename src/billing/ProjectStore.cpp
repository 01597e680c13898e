#include "billing/ProjectStore.h"

#include "support/Fold.h"
#include "support/NumberText.h"
#include "support/L10n.h"
#include "support/LocalTime.h"
#include "support/Log.h"
#include "support/Settings.h"

#include <algorithm>
#include <cmath>

namespace ombrelo {

namespace {

constexpr std::string_view selectClients = "SELECT id, name, color FROM client ORDER BY name COLLATE NOCASE";
constexpr std::string_view selectProjects =
    "SELECT id, client_id, name, color, billable, rate_kind, rate_cents, day_hours, rounding, budget_minutes, "
    "archived FROM project ORDER BY name COLLATE NOCASE";
constexpr std::string_view insertClient = "INSERT INTO client (name, color) VALUES (?, ?)";
constexpr std::string_view updateClient = "UPDATE client SET name = ?, color = ? WHERE id = ?";
constexpr std::string_view insertProject =
    "INSERT INTO project (client_id, name, color, billable, rate_kind, rate_cents, day_hours, rounding,\n"
    "    budget_minutes, archived) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)";
constexpr std::string_view updateProject =
    "UPDATE project SET client_id = ?, name = ?, color = ?, billable = ?, rate_kind = ?, rate_cents = ?,\n"
    "    day_hours = ?, rounding = ?, budget_minutes = ?, archived = ? WHERE id = ?";
constexpr std::string_view deleteClient = "DELETE FROM client WHERE id = ?";
constexpr std::string_view deleteProject = "DELETE FROM project WHERE id = ?";

std::vector<SQLValue> projectValues(const Project& p) {
    return {sqlInt(p.clientID),
            p.name,
            p.color,
            std::int64_t{p.billable},
            std::string(rateKindName(p.rateKind)),
            p.rateCents,
            p.dayHours,
            std::string(roundingName(p.rounding)),
            sqlInt(p.budgetMinutes),
            std::int64_t{p.archived}};
}

} // namespace

std::string StoreError::text() const {
    switch (kind) {
    case Kind::invalid: return problem ? problemText(*problem) : std::string();
    case Kind::notFound: return std::string(L10n::text("introuvable", "not found"));
    case Kind::database:
        return std::string(L10n::text("écriture impossible : ", "could not write: ")) + detail;
    case Kind::preferences:
        return std::string(L10n::text("réglages non enregistrés : ", "settings not saved: ")) + detail;
    }
    return detail;
}

ProjectStore::ProjectStore(Database& db, Preferences& preferences, Clock& clock)
    : db_(db), preferences_(preferences), clock_(clock), log_(Log::get("billing")) {
    reload();
    seenGeneration_ = preferences_.generation();
    active_ = readActiveState();
}

bool ProjectStore::reload() {
    try {
        std::vector<Client> clients;
        Statement clientRows = db_.prepare(selectClients);
        while (clientRows.step())
            clients.push_back({clientRows.int64(0), clientRows.text(1).value_or(""),
                               clientRows.text(2).value_or("carmine")});

        std::vector<Project> projects;
        Statement rows = db_.prepare(selectProjects);
        while (rows.step()) {
            Project p;
            p.id = rows.int64(0);
            p.clientID = rows.optionalInt64(1);
            p.name = rows.text(2).value_or("");
            p.color = rows.text(3).value_or("");
            p.billable = rows.int64(4) != 0;
            std::string kind = rows.text(5).value_or("");
            std::string rounding = rows.text(8).value_or("");
            auto parsedKind = parseRateKind(kind);
            auto parsedRounding = parseRounding(rounding);
            // An unknown value (from a newer version, say) must not price time at
            // random: it falls back to the defaults and says so.
            if (!parsedKind || !parsedRounding)
                log_->warn("Projet {} : tarif « {} » ou arrondi « {} » inconnu, valeurs par défaut utilisées", p.id,
                           kind, rounding);
            p.rateKind = parsedKind.value_or(Project::RateKind::hour);
            p.rounding = parsedRounding.value_or(Project::Rounding::none);
            p.rateCents = rows.int64(6);
            p.dayHours = rows.real(7);
            p.budgetMinutes = rows.optionalInt64(9);
            p.archived = rows.int64(10) != 0;
            projects.push_back(std::move(p));
        }
        clients_ = std::move(clients);
        projects_ = std::move(projects);
        return true;
    } catch (const DatabaseError& error) {
        log_->error("Lecture impossible : {}", error.description());
        return false;
    }
}

std::optional<Client> ProjectStore::client(std::int64_t id) const {
    auto it = std::find_if(clients_.begin(), clients_.end(), [id](const Client& c) { return c.id == id; });
    return it == clients_.end() ? std::nullopt : std::optional(*it);
}

std::optional<Project> ProjectStore::project(std::int64_t id) const {
    auto it = std::find_if(projects_.begin(), projects_.end(), [id](const Project& p) { return p.id == id; });
    return it == projects_.end() ? std::nullopt : std::optional(*it);
}

std::optional<Project> ProjectStore::find(std::string_view text) const {
    text = trim(text);
    if (text.empty()) return std::nullopt;
    if (auto id = integerText(text)) return project(*id);
    return findByName(text);
}

std::optional<Project> ProjectStore::findByName(std::string_view text) const {
    text = trim(text);
    if (text.empty()) return std::nullopt;
    std::string key = fold(text);
    for (const Project& p : projects_)
        if (fold(p.name) == key || fold(label(p)) == key) return p;
    for (const Project& p : projects_)
        if (fold(p.name).find(key) != std::string::npos) return p;
    return std::nullopt;
}

std::optional<Client> ProjectStore::findClient(std::string_view text) const {
    text = trim(text);
    if (text.empty()) return std::nullopt;
    if (auto id = integerText(text)) return client(*id);
    std::string key = fold(text);
    for (const Client& c : clients_)
        if (fold(c.name) == key) return c;
    for (const Client& c : clients_)
        if (fold(c.name).find(key) != std::string::npos) return c;
    return std::nullopt;
}

std::string ProjectStore::label(const Project* project) const { return projectLabel(project, clients_); }

StoreError ProjectStore::failed(StoreError error) const {
    if (error.kind == StoreError::Kind::database || error.kind == StoreError::Kind::preferences)
        log_->error("Écriture impossible : {}", error.detail);
    else
        log_->warn("Écriture refusée : {}", error.text());
    return error;
}

std::optional<StoreError> ProjectStore::write(std::string_view sql, const std::vector<SQLValue>& values,
                                              bool mustChange, std::int64_t* insertedID) {
    std::optional<StoreError> error;
    try {
        std::int64_t id = db_.run(sql, values);
        if (insertedID) *insertedID = id;
        if (mustChange && db_.changes() == 0) error = failed({StoreError::Kind::notFound, std::nullopt, {}});
    } catch (const DatabaseError& e) {
        error = failed({StoreError::Kind::database, std::nullopt, e.description()});
    }
    reload();
    return error;
}

SaveResult ProjectStore::save(const Client& c) {
    if (auto problem = c.problem()) return {0, failed({StoreError::Kind::invalid, problem, {}})};
    std::string name(trim(c.name));
    std::int64_t id = c.id;
    auto error = c.id == 0 ? write(insertClient, {name, c.color}, false, &id)
                           : write(updateClient, {name, c.color, c.id}, true);
    return {error ? 0 : id, error};
}

SaveResult ProjectStore::save(const Project& p) {
    std::optional<RecordProblem> problem = p.problem();
    if (!problem && p.clientID && !client(*p.clientID)) problem = RecordProblem::unknownClient;
    if (problem) return {0, failed({StoreError::Kind::invalid, problem, {}})};
    Project row = p;
    row.name = std::string(trim(p.name));
    // Stored as the exact number of seconds it stands for, over 3600.
    row.dayHours = std::round(p.dayHours * 3600) / 3600;
    std::vector<SQLValue> values = projectValues(row);
    std::int64_t id = p.id;
    std::optional<StoreError> error;
    if (p.id == 0) {
        error = write(insertProject, values, false, &id);
    } else {
        values.push_back(p.id);
        error = write(updateProject, values, true);
    }
    return {error ? 0 : id, error};
}

std::optional<StoreError> ProjectStore::remove(const Client& c) { return write(deleteClient, {c.id}, true); }

std::optional<StoreError> ProjectStore::remove(const Project& p) { return write(deleteProject, {p.id}, true); }

ProjectStore::ActiveState ProjectStore::readActiveState() const {
    return {preferences_.integer(settings::activeProject), preferences_.number(settings::activeProjectSince),
            preferences_.text(settings::activeProjectNote)};
}

bool ProjectStore::syncActiveFromPreferences() {
    std::uint64_t generation = preferences_.generation();
    if (generation == seenGeneration_) return false;
    seenGeneration_ = generation;
    ActiveState state = readActiveState();
    if (state == active_) return false;
    active_ = std::move(state);
    // Another process may have made the project it just started.
    if (active_.projectID && !project(*active_.projectID)) reload();
    if (didChangeActive) didChangeActive();
    return true;
}

std::optional<Project> ProjectStore::activeProject() {
    syncActiveFromPreferences();
    if (!active_.projectID || !active_.since || !local::sameDay(*active_.since, clock_.now())) return std::nullopt;
    auto p = project(*active_.projectID);
    if (!p || p->archived) return std::nullopt;
    return p;
}

std::optional<StoreError> ProjectStore::setActive(const std::optional<Project>& requested) {
    if (requested && !project(requested->id)) {
        reload();
        if (!project(requested->id)) return failed({StoreError::Kind::notFound, std::nullopt, {}});
    }
    auto current = activeProject();
    std::optional<std::int64_t> wanted = requested ? std::optional(requested->id) : std::nullopt;
    if (wanted == (current ? std::optional(current->id) : std::nullopt)) return std::nullopt;

    Instant now = clock_.now();
    active_ = {wanted, wanted ? std::optional(now) : std::nullopt, std::nullopt};
    std::optional<StoreError> error;
    try {
        // One key at a time, the id first: a reader between two writes sees the
        // new project with the old start (at worst not yet active, when that
        // start is from another day), never the old project restarted today.
        preferences_.remove(settings::activeProjectNote);
        if (wanted) {
            preferences_.set(settings::activeProject, *wanted);
            preferences_.set(settings::activeProjectSince, now);
        } else {
            preferences_.remove(settings::activeProject);
            preferences_.remove(settings::activeProjectSince);
        }
    } catch (const std::exception& e) {
        error = failed({StoreError::Kind::preferences, std::nullopt, e.what()});
    }
    seenGeneration_ = preferences_.generation();
    if (didChangeActive) didChangeActive();
    return error;
}

std::optional<StoreError> ProjectStore::setActiveNote(const std::optional<std::string>& note) {
    syncActiveFromPreferences();
    active_.note = note;
    std::optional<StoreError> error;
    try {
        if (note)
            preferences_.set(settings::activeProjectNote, *note);
        else
            preferences_.remove(settings::activeProjectNote);
    } catch (const std::exception& e) {
        error = failed({StoreError::Kind::preferences, std::nullopt, e.what()});
    }
    seenGeneration_ = preferences_.generation();
    return error;
}

} // namespace ombrelo
