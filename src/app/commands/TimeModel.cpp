#include "app/commands/TimeModel.h"

#include "app/Session.h"
#include "app/commands/ClassifyArguments.h"
#include "app/commands/ProjectArguments.h"
#include "support/L10n.h"
#include "support/LocalTime.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

namespace ombrelo::commands {

namespace {
std::size_t width(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}
} // namespace

TimeModel::TimeModel(Session& session)
    : catalog(openCatalog(session)),
      projects(openProjects(session)),
      // A command reads each day once: keeping the days would only hold memory.
      workspace(&session.activities(), catalog, projects, session.clock(), Workspace::DayCache::none),
      queries(workspace, projects, session.clock()) {}

void usageFailure(const std::string& message) { throw CommandFailure(exitStatus::usage, message); }

void addPeriodOptions(CLI::App& command, std::optional<std::string>& period, std::optional<std::string>& from,
                      std::optional<std::string>& to, std::string_view defaultPeriod) {
    command
        .add_option("--period", period,
                    fmt::format("{}{}{}", L10n::text("today, yesterday, week, last_week, month ou last_month (",
                                                     "today, yesterday, week, last_week, month or last_month (default "),
                                defaultPeriod, L10n::text(" par défaut)", ")")))
        ->check(CLI::IsMember({"today", "yesterday", "week", "last_week", "month", "last_month"}));
    command.add_option("--from", from, std::string(L10n::text("Premier jour (AAAA-MM-JJ)", "First day (YYYY-MM-DD)")));
    command.add_option("--to", to, std::string(L10n::text("Dernier jour inclus (AAAA-MM-JJ)", "Last day, included (YYYY-MM-DD)")));
}

nlohmann::json periodArguments(const std::optional<std::string>& period, const std::optional<std::string>& from,
                               const std::optional<std::string>& to) {
    nlohmann::json arguments = nlohmann::json::object();
    if (to && !from) usageFailure(std::string(L10n::text("--to va avec --from.", "--to goes with --from.")));
    if (from) {
        arguments["from"] = *from;
        if (to) arguments["to"] = *to;
    } else if (period) {
        arguments["period"] = *period;
    }
    return arguments;
}

Period rangeOptions(const std::string& from, const std::string& to) {
    auto read = [](const char* option, const std::string& text, bool end) {
        if (text.find('T') != std::string::npos) return dateTimeOption(option, text);
        Instant day = dayOption(option, text);
        return end ? local::addDays(day, 1) : day;
    };
    Period range{read("--from", from, false), read("--to", to, true)};
    if (!(range.end > range.start))
        usageFailure(std::string(L10n::text("La fin doit suivre le début.", "The end must come after the start.")));
    return range;
}

std::string bar(double part, double whole, int cells) {
    int filled = whole > 0 ? static_cast<int>(std::lround(std::clamp(part / whole, 0.0, 1.0) * cells)) : 0;
    std::string text;
    for (int i = 0; i < cells; ++i) text += i < filled ? "█" : "░";
    return text;
}

std::string percent(double part, double whole) {
    long value = whole > 0 ? std::lround(std::clamp(part / whole, 0.0, 1.0) * 100) : 0;
    // French sets the sign off with a narrow no-break space.
    return fmt::format("{}{}", value, L10n::text("\u202F%", "%"));
}

void alignRight(std::vector<std::string>& column) {
    std::size_t widest = 0;
    for (const std::string& text : column) widest = std::max(widest, width(text));
    for (std::string& text : column) text.insert(0, widest - width(text), ' ');
}

std::string projectCell(const ProjectStore& projects, const Project* project) {
    return project ? projects.label(project) : "—";
}

std::string dayAndTime(Instant t) { return local::formatDay(t) + " " + local::formatTime(t); }

std::string activityCount(std::size_t count) {
    if (L10n::french()) return fmt::format("{} activité{}", count, count > 1 ? "s" : "");
    return fmt::format("{} activit{}", count, count == 1 ? "y" : "ies");
}

} // namespace ombrelo::commands
