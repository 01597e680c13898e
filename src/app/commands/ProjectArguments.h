// ProjectArguments: what the clients, projects and active-project commands read
// from their arguments. Clients and projects are named by id or by name (case
// and accents ignored); rates, day lengths and budgets are read exactly, without
// floating point. A bad value fails the command with status 1 and a message that
// names the option; a name that matches nothing fails with status 2. Either way
// nothing has been written yet.
#pragma once

#include "billing/ProjectStore.h"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ombrelo {
class Session;
}

namespace ombrelo::commands {

// The session's clients and projects (opening the database).
ProjectStore openProjects(Session& session);

// The project or client `text` names. Throws CommandFailure (status 2) when none.
Project requireProject(const ProjectStore& store, std::string_view text);
Client requireClient(const ProjectStore& store, std::string_view text);

// Throws CommandFailure (status 2) carrying the store's reason, after `what`
// ("Projet non enregistré").
void check(const std::optional<StoreError>& error, std::string_view what);
// Throws CommandFailure (status 1) when saving would refuse the record.
void validate(const Client& client);
void validate(const Project& project);

// "550", "62.50", "62,50" → cents, within Project::maxRateCents.
std::int64_t rateOption(std::string_view text);
// "7", "7.5", "7,5", "7h30", "7:30" → hours, more than 0 and at most 24.
double dayHoursOption(std::string_view text);
// The same forms in hours, as whole minutes; "none"/"aucun" → no budget.
std::optional<std::int64_t> budgetOption(std::string_view text);

// The options that set a project's fields, shared by `projects add` and
// `projects edit`: only the options given change the project.
struct ProjectOptions {
    std::optional<std::string> client, color, billable, rateKind, rate, dayHours, rounding, budget;

    void addTo(CLI::App& command);
    // Applies the given options to `project`, resolving the client in `store`.
    // Throws CommandFailure for a bad value or an unknown client.
    void applyTo(Project& project, const ProjectStore& store) const;
};

} // namespace ombrelo::commands
