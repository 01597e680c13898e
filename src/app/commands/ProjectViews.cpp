#include "app/commands/ProjectViews.h"

#include "app/commands/TimeModel.h"
#include "reports/Format.h"
#include "support/L10n.h"
#include "support/LocalTime.h"
#include "support/Money.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
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

std::string commandWord(const ProjectStore& store, const Project& project) {
    std::optional<Project> found = store.find(project.name);
    // A leading "-" would read as an option, quoted or not.
    if (!found || found->id != project.id || project.name.starts_with('-')) return std::to_string(project.id);
    bool plain = std::all_of(project.name.begin(), project.name.end(), [](char c) {
        auto byte = static_cast<unsigned char>(c);
        return byte >= 0x80 || std::isalnum(byte) || std::string_view("-_.,:/@+%=").find(c) != std::string_view::npos;
    });
    if (plain) return project.name;
    std::string quoted = "'";
    for (char c : project.name) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

std::string timeText(const RemovalImpact& impact) {
    return activityCount(impact.activities) + " (" + Format::duration(impact.seconds) + ")";
}

std::string amountsText(const RemovalImpact& impact, const std::string& currency) {
    return fmt::format(fmt::runtime(L10n::text("à facturer {}, facturé {}, payé {}", "to bill {}, billed {}, paid {}")),
                       Format::money(impact.toBillCents, currency), Format::money(impact.billedCents, currency),
                       Format::money(impact.paidCents, currency));
}

std::vector<std::string> repricingLines(const RepricingImpact& impact, const std::string& currency) {
    std::vector<std::string> lines;
    for (const Repricing& r : impact.statuses) {
        std::string days = L10n::french() ? fmt::format("{} jour{}", r.days, r.days > 1 ? "s" : "")
                                          : fmt::format("{} day{}", r.days, r.days > 1 ? "s" : "");
        lines.push_back(fmt::format(fmt::runtime(L10n::text("{} : {}, {} → {}", "{}: {}, {} → {}")),
                                    statusLabel(r.status), days, Format::money(r.beforeCents, currency),
                                    Format::money(r.afterCents, currency)));
    }
    return lines;
}

nlohmann::json repricingJSON(const RepricingImpact& impact) {
    nlohmann::json statuses = nlohmann::json::array();
    for (const Repricing& r : impact.statuses)
        statuses.push_back({{"status", rawValue(r.status)},
                            {"days", r.days},
                            {"before_cents", r.beforeCents},
                            {"after_cents", r.afterCents}});
    return statuses;
}

} // namespace ombrelo::commands
