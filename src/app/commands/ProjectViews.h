// ProjectViews: how the clients, projects and active-project commands show
// their records, as JSON for scripts (amounts as integer cents, exact) and as
// short texts for people.
#pragma once

#include "billing/ProjectStore.h"

#include <nlohmann/json.hpp>

#include <string>

namespace ombrelo::commands {

nlohmann::json clientJSON(const Client& client, const ProjectStore& store);
nlohmann::json projectJSON(const Project& project, const ProjectStore& store, const std::string& currency);
// {"project": …or null, "label", "since", "note"} for the active project.
nlohmann::json activeJSON(ProjectStore& store, const std::string& currency);

// "7 h", "7 h 30": a length in hours for a table.
std::string hoursText(double hours);

} // namespace ombrelo::commands
