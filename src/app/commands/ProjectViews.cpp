#include "app/commands/ProjectViews.h"

#include "support/LocalTime.h"
#include "support/Money.h"

#include <algorithm>
#include <cmath>

namespace ombrelo::commands {

namespace {
nlohmann::json optionalJSON(const auto& value) { return value ? nlohmann::json(*value) : nlohmann::json(nullptr); }
} // namespace

nlohmann::json clientJSON(const Client& client, const ProjectStore& store) {
    auto projects = std::count_if(store.projects().begin(), store.projects().end(),
                                  [&](const Project& p) { return p.clientID == client.id; });
    return {{"id", client.id}, {"name", client.name}, {"color", client.color}, {"projects", projects}};
}

nlohmann::json projectJSON(const Project& project, const ProjectStore& store, const std::string& currency) {
    std::optional<Client> client = project.clientID ? store.client(*project.clientID) : std::nullopt;
    return {{"id", project.id},
            {"name", project.name},
            {"label", store.label(project)},
            {"client_id", optionalJSON(project.clientID)},
            {"client", client ? nlohmann::json(client->name) : nlohmann::json(nullptr)},
            {"color", project.color},
            {"billable", project.billable},
            {"rate_kind", rateKindName(project.rateKind)},
            {"rate_cents", project.rateCents},
            {"currency", currency},
            {"day_hours", project.dayHours},
            {"rounding", roundingName(project.rounding)},
            {"budget_minutes", optionalJSON(project.budgetMinutes)},
            {"archived", project.archived}};
}

nlohmann::json activeJSON(ProjectStore& store, const std::string& currency) {
    std::optional<Project> active = store.activeProject();
    if (!active) return {{"project", nullptr}, {"label", nullptr}, {"since", nullptr}, {"note", nullptr}};
    return {{"project", projectJSON(*active, store, currency)},
            {"label", store.label(active)},
            {"since", local::formatDateTime(*store.activeSince())},
            {"note", optionalJSON(store.activeNote())}};
}

std::string hoursText(double hours) {
    std::int64_t minutes = std::llround(hours * 60);
    std::string text = std::to_string(minutes / 60) + " h";
    if (minutes % 60) text += (minutes % 60 < 10 ? " 0" : " ") + std::to_string(minutes % 60);
    return text;
}

} // namespace ombrelo::commands
