// ProjectViews: how the clients, projects and active-project commands show
// their records, as JSON for scripts (amounts as integer cents, exact) and as
// short texts for people.
#pragma once

#include "billing/ProjectChanges.h"
#include "billing/ProjectStore.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace ombrelo::commands {

nlohmann::json clientJSON(const Client& client, const ProjectStore& store);
nlohmann::json projectJSON(const Project& project, const ProjectStore& store, const std::string& currency);
// {"project": …or null, "label", "since", "note"} for the active project.
nlohmann::json activeJSON(ProjectStore& store, const std::string& currency);

// "7 h", "7 h 30": a length in hours for a table.
std::string hoursText(double hours);

// How a command typed by the user names the project: its name, quoted for the
// shell when needed, or its id when the name would find another project.
std::string commandWord(const ProjectStore& store, const Project& project);

// "2 activités (2 h 00)": the time a project has.
std::string timeText(const RemovalImpact& impact);
// "à facturer 0,00 €, facturé 78,57 €, payé 78,57 €".
std::string amountsText(const RemovalImpact& impact, const std::string& currency);
// "Facturé : 1 jour, 78,57 € → 100,00 €": one line per status.
std::vector<std::string> repricingLines(const RepricingImpact& impact, const std::string& currency);
// [{"status": "billed", "days", "before_cents", "after_cents"}, …].
nlohmann::json repricingJSON(const RepricingImpact& impact);

} // namespace ombrelo::commands
