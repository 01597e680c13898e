// TimeModel: what the time commands (summary, timeline, search, manual,
// billing) work with: the session's catalogue, projects and classified
// workspace, and the time queries the agent tools share, plus the few pieces of
// argument reading and terminal rendering those commands have in common.
#pragma once

#include "agent/TimeQueries.h"
#include "app/Session.h"
#include "billing/ProjectStore.h"
#include "classify/Catalog.h"
#include "classify/Workspace.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace ombrelo::commands {

struct TimeModel {
    // Opens the database. Throws CommandFailure (status 2) when it cannot be read.
    explicit TimeModel(Session& session);

    Catalog catalog;
    ProjectStore projects;
    Workspace workspace;
    TimeQueries queries;
};

// The arguments of the agent tools' `period`: --from and --to (days, the last
// one included) or --period. Throws CommandFailure (status 1) for --to without
// --from.
// Adds --period (`defaultPeriod` when absent, as the help says), --from and --to.
void addPeriodOptions(CLI::App& command, std::optional<std::string>& period, std::optional<std::string>& from,
                      std::optional<std::string>& to, std::string_view defaultPeriod);
nlohmann::json periodArguments(const std::optional<std::string>& period, const std::optional<std::string>& from,
                               const std::optional<std::string>& to);

// The result of a time query; a ToolError (bad date, unknown period) becomes a
// usage failure (status 1) with the same message.
template <typename Query>
auto answer(Query&& query) -> decltype(query()) {
    try {
        return query();
    } catch (const ToolError& error) {
        throw CommandFailure(exitStatus::usage, error.message);
    }
}

// [from, to) from "YYYY-MM-DD" (whole days, the last one included) or
// "YYYY-MM-DDTHH:MM" (that instant). Throws CommandFailure (status 1) for a bad
// value or an end that does not follow the start.
Period rangeOptions(const std::string& from, const std::string& to);

// A compact bar of `part` out of `whole`: "█████░░░░░░░".
std::string bar(double part, double whole, int width = 12);
// "80 %" / "80%": the whole percentage of `part` out of `whole`.
std::string percent(double part, double whole);
// Pads every text of the column on the left to the widest, so numbers line up.
void alignRight(std::vector<std::string>& column);
// "Dupont › Refonte" for a project, "—" for none.
std::string projectCell(const ProjectStore& projects, const Project* project);

// "2026-11-23 09:30": a moment as the commands show it.
std::string dayAndTime(Instant t);

// "3 activités" / "3 activities".
std::string activityCount(std::size_t count);

[[noreturn]] void usageFailure(const std::string& message);

} // namespace ombrelo::commands
