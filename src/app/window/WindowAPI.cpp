#include "app/window/WindowAPI.h"

#include "agent/MCPService.h"
#include "agent/MCPToken.h"
#include "app/commands/ClassifyViews.h"
#include "app/commands/LiveViews.h"
#include "app/commands/ProjectViews.h"
#include "app/window/EditableSettings.h"
#include "calendar/Holidays.h"
#include "reports/Format.h"
#include "reports/ReportFiles.h"
#include "support/L10n.h"
#include "support/LocalTime.h"
#include "support/Settings.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

namespace ombrelo {

using nlohmann::json;
using ui::Call;
using ui::Reply;

namespace {

// A refusal with its status and the reason shown to the person.
struct Refused {
    int status;
    std::string message;
};

[[noreturn]] void refuse(std::string_view french, std::string_view english, int status = 400) {
    throw Refused{status, std::string(L10n::text(french, english))};
}

std::vector<std::int64_t> idList(const json& body) {
    auto found = body.find("activity_ids");
    if (found == body.end() || !found->is_array() || found->empty())
        refuse("Aucune activité donnée.", "No activity given.");
    std::vector<std::int64_t> ids;
    for (const json& id : *found) {
        if (!id.is_number_integer()) refuse("Identifiant d'activité invalide.", "Invalid activity id.");
        ids.push_back(id.get<std::int64_t>());
    }
    return ids;
}

std::optional<std::string> textField(const json& body, std::string_view key) {
    auto found = body.find(key);
    if (found == body.end() || found->is_null()) return std::nullopt;
    if (!found->is_string()) refuse("Texte attendu.", "Text expected.");
    return found->get<std::string>();
}

std::string requiredText(const json& body, std::string_view key) {
    std::string text = textField(body, key).value_or("");
    if (text.find_first_not_of(" \t") == std::string::npos)
        throw Refused{400, fmt::format("{} {}", L10n::text("Champ requis :", "Required field:"), key)};
    return text;
}

std::optional<std::int64_t> integerField(const json& body, std::string_view key) {
    auto found = body.find(key);
    if (found == body.end() || found->is_null()) return std::nullopt;
    if (!found->is_number_integer()) throw Refused{400, fmt::format("{} {}", L10n::text("Entier attendu :", "Whole number expected:"), key)};
    return found->get<std::int64_t>();
}

// The agent tools' arguments of a period, from a query: period, from, to.
json periodQuery(const Call& call, std::string_view fallback) {
    json arguments = json::object();
    for (std::string_view key : {"period", "from", "to"})
        if (auto value = call.parameter(key)) arguments[std::string(key)] = *value;
    if (!arguments.contains("period") && !arguments.contains("from")) arguments["period"] = fallback;
    return arguments;
}

// A write the store refused or could not make, with the store's reason.
[[noreturn]] void writeFailed(const std::optional<std::string>& reason) {
    throw Refused{409, reason.value_or(std::string(L10n::text("Écriture impossible.", "Could not write.")))};
}

json holidayJSON(const Holiday& holiday) {
    return {{"date", local::formatDay(holiday.date)}, {"name", Holidays::localizedName(holiday.name)}};
}

template <typename Enum, typename Parse>
Enum choice(const Call& call, std::string_view name, std::string_view fallback, Parse parse) {
    std::string raw = call.parameter(name).value_or(std::string(fallback));
    if (auto parsed = parse(raw)) return *parsed;
    throw Refused{400, fmt::format("{} {} : {}", L10n::text("Valeur inconnue pour", "Unknown value for"), name, raw)};
}

} // namespace

WindowAPI::WindowAPI(Parts parts)
    : parts_(std::move(parts)),
      billing_(parts_.activities.database(), parts_.clock),
      routes_({
          {{"GET", "/api/session"}, &WindowAPI::session},
          {{"GET", "/api/dashboard"}, &WindowAPI::dashboard},
          {{"GET", "/api/summary"}, &WindowAPI::summary},
          {{"GET", "/api/timeline"}, &WindowAPI::timeline},
          {{"GET", "/api/activities"}, &WindowAPI::activities},
          {{"GET", "/api/search"}, &WindowAPI::search},
          {{"GET", "/api/projects"}, &WindowAPI::projectList},
          {{"GET", "/api/rules"}, &WindowAPI::rules},
          {{"GET", "/api/report"}, &WindowAPI::report},
          {{"GET", "/api/report/file"}, &WindowAPI::reportFile},
          {{"GET", "/api/settings"}, &WindowAPI::settings},
          {{"GET", "/api/agent/token"}, &WindowAPI::agentToken},
          {{"POST", "/api/active"}, &WindowAPI::setActive},
          {{"POST", "/api/focus"}, &WindowAPI::focus},
          {{"POST", "/api/pause"}, &WindowAPI::pause},
          {{"POST", "/api/assign"}, &WindowAPI::assign},
          {{"POST", "/api/unassign"}, &WindowAPI::unassign},
          {{"POST", "/api/note"}, &WindowAPI::note},
          {{"POST", "/api/absence"}, &WindowAPI::absence},
          {{"POST", "/api/manual"}, &WindowAPI::manual},
          {{"POST", "/api/split"}, &WindowAPI::split},
          {{"POST", "/api/projects/save"}, &WindowAPI::saveProject},
          {{"POST", "/api/projects/archive"}, &WindowAPI::archiveProject},
          {{"POST", "/api/clients/save"}, &WindowAPI::saveClient},
          {{"POST", "/api/rules/save"}, &WindowAPI::saveRule},
          {{"POST", "/api/rules/delete"}, &WindowAPI::deleteRule},
          {{"POST", "/api/rules/preview"}, &WindowAPI::previewRule},
          {{"POST", "/api/billing/mark"}, &WindowAPI::markBilling},
          {{"POST", "/api/settings"}, &WindowAPI::changeSetting},
          {{"POST", "/api/agent/token"}, &WindowAPI::newAgentToken},
      }) {}

Reply WindowAPI::handle(const Call& call) {
    auto route = routes_.find(std::pair(call.method, call.path));
    if (route == routes_.end()) {
        bool otherMethod = std::any_of(routes_.begin(), routes_.end(),
                                       [&](const auto& entry) { return entry.first.second == call.path; });
        return Reply::error(otherMethod ? 405 : 404, L10n::text("Introuvable", "Not found"));
    }
    try {
        Reply reply = (this->*route->second)(call);
        if (call.method == "POST") parts_.changed();
        return reply;
    } catch (const Refused& refused) {
        return Reply::error(refused.status, refused.message);
    } catch (const ToolError& error) {
        return Reply::error(400, error.message);
    } catch (const ControlFailure& failure) {
        return Reply::error(409, failure.what());
    } catch (const SettingRefused& refused) {
        return Reply::error(400, refused.what());
    } catch (const json::type_error&) {
        // A field of the wrong type read with a default (a text for "dry_run", say).
        return Reply::error(400, L10n::text("Argument mal typé.", "Argument of the wrong type."));
    }
}

std::string WindowAPI::currency() const { return Format::currency(parts_.preferences); }

// --- reads ---

Reply WindowAPI::session(const Call&) {
    return Reply::json({{"language", L10n::french() ? "fr" : "en"},
                        {"currency", currency()},
                        {"today", local::formatDay(parts_.clock.now())}});
}

Reply WindowAPI::dashboard(const Call&) {
    Instant now = parts_.clock.now();
    TimeQueries& queries = parts_.model.queries();
    json holidays = json::array();
    for (const Holiday& holiday : Holidays::fromPreferences(parts_.preferences).upcoming(3, local::startOfDay(now)))
        holidays.push_back(holidayJSON(holiday));
    std::optional<double> pausedUntil = parts_.preferences.number(settings::pausedUntil);
    bool paused = pausedUntil && *pausedUntil > now;
    return Reply::json(
        {{"today", queries.getSummary({{"period", "today"}})},
         {"week", queries.getSummary({{"period", "week"}})},
         {"to_bill", commands::toJSON(commands::billingTotals(parts_.model.workspace(), parts_.activities, billing_, now),
                                      currency())},
         {"active", parts_.model.tools().call("get_active_project", json::object())},
         {"projects", projectsByRecentUse()},
         {"focus", commands::focusJSON(parts_.activities.database(), parts_.projects, now)},
         {"holidays", holidays},
         {"categories", categoryList()},
         {"tracking",
          {{"paused", paused}, {"paused_until", paused ? json(local::formatDateTime(*pausedUntil)) : json(nullptr)}}}});
}

// The projects not archived, those used most recently first (the last two
// weeks), then the others by name: what the quick switcher offers.
json WindowAPI::projectsByRecentUse() {
    Instant now = parts_.clock.now();
    std::map<std::int64_t, Instant> lastUse;
    for (const Classified& item : parts_.model.workspace().items(local::addDays(local::startOfDay(now), -13), now + 1))
        if (item.project) lastUse[item.project->id] = std::max(lastUse[item.project->id], item.activity.end);
    std::vector<Project> projects;
    for (const Project& project : parts_.projects.projects())
        if (!project.archived) projects.push_back(project);
    auto used = [&](const Project& project) {
        auto found = lastUse.find(project.id);
        return found == lastUse.end() ? 0.0 : found->second;
    };
    std::stable_sort(projects.begin(), projects.end(), [&](const Project& a, const Project& b) {
        return used(a) != used(b) ? used(a) > used(b) : parts_.projects.label(&a) < parts_.projects.label(&b);
    });
    json list = json::array();
    for (const Project& project : projects) list.push_back(commands::projectJSON(project, parts_.projects, currency()));
    return list;
}

Reply WindowAPI::summary(const Call& call) {
    return Reply::json(parts_.model.queries().getSummary(periodQuery(call, "today")));
}

json WindowAPI::categoryList() const {
    json categories = json::array();
    for (const Category& category : parts_.catalog.categories())
        categories.push_back(commands::categoryJSON(category, parts_.catalog));
    return categories;
}

Reply WindowAPI::timeline(const Call& call) {
    json arguments = json::object();
    if (auto date = call.parameter("date")) arguments["date"] = *date;
    json answer = parts_.model.tools().call("get_timeline", arguments);
    answer["categories"] = categoryList();
    return Reply::json(answer);
}

Reply WindowAPI::activities(const Call& call) {
    std::vector<Activity> found;
    std::string ids = call.parameter("ids").value_or("");
    for (std::size_t start = 0; start < ids.size() && found.size() < 200;) {
        std::size_t comma = std::min(ids.find(',', start), ids.size());
        std::int64_t id = 0;
        auto [end, error] = std::from_chars(ids.data() + start, ids.data() + comma, id);
        if (error != std::errc() || end != ids.data() + comma) refuse("Identifiant d'activité invalide.", "Invalid activity id.");
        if (auto activity = parts_.activities.activity(id)) found.push_back(*activity);
        start = comma + 1;
    }
    json list = json::array();
    for (const Activity& activity : found) {
        Classification result = parts_.catalog.classifyDetailed({activity}, parts_.projects.projects()).front();
        list.push_back(
            commands::explainJSON(result, parts_.catalog.applicableRules(activity), parts_.catalog, parts_.projects));
    }
    return Reply::json({{"activities", list}});
}

Reply WindowAPI::search(const Call& call) {
    json arguments = {{"query", call.parameter("query").value_or("")}};
    if (auto from = call.parameter("from")) {
        arguments["from"] = *from;
        if (auto to = call.parameter("to")) arguments["to"] = *to;
    } else if (auto days = call.parameter("days")) {
        arguments["days"] = std::atoi(days->c_str());
    }
    // The agent tool's answer, with each group's activities, so that a part of
    // the results can be reassigned.
    TimeQueries& queries = parts_.model.queries();
    SearchReport found = queries.search(arguments);
    json answer = queries.toJSON(found);
    for (std::size_t i = 0; i < found.matches.size() && i < answer["matches"].size(); ++i)
        answer["matches"][i]["activity_ids"] = found.matches[i].activityIDs;
    return Reply::json(answer);
}

json WindowAPI::projectWithUse(const Project& project, const std::map<std::int64_t, double>& used) const {
    json item = commands::projectJSON(project, parts_.projects, currency());
    auto found = used.find(project.id);
    item["used_minutes"] = project.budgetMinutes ? json(wholeMinutes(found == used.end() ? 0 : found->second))
                                                 : json(nullptr);
    return item;
}

Reply WindowAPI::projectList(const Call&) {
    // Only budgets need the whole history's time.
    std::map<std::int64_t, double> used;
    bool budgets = std::any_of(parts_.projects.projects().begin(), parts_.projects.projects().end(),
                               [](const Project& project) { return project.budgetMinutes.has_value(); });
    if (auto first = parts_.activities.firstStart(); budgets && first) {
        Instant now = parts_.clock.now();
        parts_.model.workspace().eachDay(local::startOfDay(*first), local::addDays(local::startOfDay(now), 1),
                                         [&](const ClassifiedList::Run& day) {
                                             for (const Classified& item : *day)
                                                 if (item.project && item.activity.kind != Activity::Kind::idle)
                                                     used[item.project->id] += item.activity.duration();
                                         });
    }
    json clients = json::array(), projects = json::array();
    for (const Client& client : parts_.projects.clients()) clients.push_back(commands::clientJSON(client, parts_.projects));
    for (const Project& project : parts_.projects.projects()) projects.push_back(projectWithUse(project, used));
    return Reply::json({{"clients", clients},
                        {"projects", projects},
                        {"choices",
                         {{"rate_kind", {"hour", "day"}},
                          {"rounding", {"none", "quarterHour", "halfHour", "halfDay", "day"}}}}});
}

// A rule as `rules list --json` gives it, with what it tests and gives in words.
json WindowAPI::ruleView(const Rule& rule) const {
    json item = commands::ruleJSON(rule, parts_.catalog, parts_.projects);
    item["text"] = commands::ruleTest(rule);
    item["target"] = commands::ruleTarget(rule, parts_.catalog, parts_.projects);
    return item;
}

Rule WindowAPI::storedRule(const json& body) const {
    std::int64_t id = integerField(body, "id").value_or(0);
    for (const Rule& rule : parts_.catalog.rules())
        if (rule.id == id) return rule;
    refuse("Règle introuvable.", "Rule not found.", 404);
}

Reply WindowAPI::rules(const Call&) {
    json list = json::array();
    for (const Rule& rule : parts_.catalog.rules()) list.push_back(ruleView(rule));
    return Reply::json({{"rules", list},
                        {"categories", categoryList()},
                        {"fields", {"app", "domain", "title", "path", "url"}},
                        {"operators", {"simple", "contains", "is", "startsWith", "endsWith", "regex"}}});
}

namespace {

struct ReportChoices {
    ReportRequest request;
    ReportTemplate reportTemplate;
    DurationStyle style;
};

ReportChoices reportChoices(const Call& call, const ProjectStore& projects, Instant now) {
    Period range = period(periodQuery(call, "month"), now);
    ReportChoices choices{{range.start, range.end, std::nullopt, StatusFilter::all},
                          choice<ReportTemplate>(call, "template", "statement", parseReportTemplate),
                          choice<DurationStyle>(call, "style", "decimal", parseDurationStyle)};
    choices.request.status = choice<StatusFilter>(call, "status", "all", parseStatusFilter);
    if (auto client = call.parameter("client")) {
        std::int64_t id = std::atoll(client->c_str());
        choices.request.client = projects.client(id);
        if (!choices.request.client) refuse("Client introuvable.", "Client not found.", 404);
    }
    return choices;
}

// The billable activities behind each row of a statement, whose rows are the
// report's lines in order, so that rows can be marked one by one; null for
// the other layouts.
json rowActivities(ReportTemplate reportTemplate, const BuiltReport& built) {
    if (reportTemplate != ReportTemplate::statement) return nullptr;
    json rows = json::array();
    for (const ReportLine& line : built.report.lines) {
        std::vector<std::int64_t> ids;
        for (std::int64_t id : line.activityIDs)
            if (auto status = built.statuses.find(id); status != built.statuses.end() && status->second != BillingStatus::nonBillable)
                ids.push_back(id);
        rows.push_back(ids);
    }
    return rows;
}

} // namespace

Reply WindowAPI::report(const Call& call) {
    ReportChoices choices = reportChoices(call, parts_.projects, parts_.clock.now());
    Holidays holidays = Holidays::fromPreferences(parts_.preferences);
    BuiltReport built = buildReport(choices.request, parts_.model.workspace(), parts_.projects, billing_, holidays);
    ReportFormat format = ReportFormat::current(currency());
    ReportTable table = built.table(choices.reportTemplate, format);

    json rows = json::array(), numeric = json::array();
    for (const TableRow& row : table.rows) rows.push_back(reportRowTexts(row, choices.style, format));
    const TableRow* sample = table.rows.empty() ? (table.totals ? &*table.totals : nullptr) : &table.rows.front();
    for (std::size_t column = 0; column < table.headers.size(); ++column)
        numeric.push_back(sample && (*sample)[column].numeric());
    json holidayList = json::array();
    for (const Holiday& holiday : built.report.holidays)
        holidayList.push_back(holidayJSON(holiday));
    std::vector<std::int64_t> billable;
    for (const auto& [id, status] : built.statuses)
        if (status != BillingStatus::nonBillable) billable.push_back(id);
    std::sort(billable.begin(), billable.end());
    json templates = json::array(), clients = json::array();
    for (ReportTemplate each : {ReportTemplate::statement, ReportTemplate::timesheet, ReportTemplate::detail,
                                ReportTemplate::notes})
        templates.push_back({{"id", rawValue(each)}, {"label", label(each)}});
    for (const Client& client : parts_.projects.clients()) clients.push_back({{"id", client.id}, {"name", client.name}});
    return Reply::json({{"title", table.title},
                        {"subtitle", table.subtitle},
                        {"columns", table.headers},
                        {"numeric", numeric},
                        {"rows", rows},
                        {"totals", table.totals ? json(reportRowTexts(*table.totals, choices.style, format)) : json(nullptr)},
                        {"working_days", built.report.workingDays},
                        {"holidays", holidayList},
                        {"activity_ids", billable},
                        {"row_activity_ids", rowActivities(choices.reportTemplate, built)},
                        {"templates", templates},
                        {"clients", clients}});
}

Reply WindowAPI::reportFile(const Call& call) {
    std::optional<ReportFileFormat> fileFormat = reportFileFormat(call.parameter("format").value_or(""));
    if (!fileFormat) refuse("Format inconnu.", "Unknown format.");
    ReportChoices choices = reportChoices(call, parts_.projects, parts_.clock.now());
    Holidays holidays = Holidays::fromPreferences(parts_.preferences);
    BuiltReport built = buildReport(choices.request, parts_.model.workspace(), parts_.projects, billing_, holidays);
    ReportFormat format = ReportFormat::current(currency());
    Reply reply;
    reply.body = reportFileBytes(*fileFormat, built, choices.reportTemplate, choices.style, format);
    reply.contentType = fileFormat->contentType;
    reply.fileName = reportFileName(built.report, rawValue(choices.reportTemplate), *fileFormat);
    return reply;
}

Reply WindowAPI::settings(const Call&) {
    AgentServerState agent = parts_.controls.agentServer().value_or(AgentServerState{});
    return Reply::json({{"settings", EditableSettings::list(parts_.preferences)},
                        {"agent",
                         {{"enabled", MCPService::enabled(parts_.preferences)},
                          {"port", MCPService::port(parts_.preferences)},
                          {"running", agent.running},
                          {"problem", agent.problem ? json(*agent.problem) : json(nullptr)}}}});
}

Reply WindowAPI::agentToken(const Call&) {
    std::string token = MCPToken::loadOrCreate().value;
    return Reply::json(
        {{"token", token}, {"configs", MCPService::clientConfigurations(MCPService::port(parts_.preferences), token)}});
}

// --- changes ---

std::optional<Project> WindowAPI::projectArgument(const json& value) const {
    if (value.is_null() || (value.is_string() && value.get<std::string>() == "none")) return std::nullopt;
    if (!value.is_number_integer()) refuse("Projet invalide.", "Invalid project.");
    std::optional<Project> project = parts_.projects.project(value.get<std::int64_t>());
    if (!project) refuse("Projet introuvable.", "Project not found.", 404);
    return project;
}

Reply WindowAPI::setActive(const Call& call) {
    std::optional<Project> project = projectArgument(call.body.value("project", json()));
    if (project) parts_.controls.work(*project, textField(call.body, "note"));
    else parts_.controls.stopWork();
    return Reply::json(parts_.model.tools().call("get_active_project", json::object()));
}

Reply WindowAPI::focus(const Call& call) {
    std::string action = textField(call.body, "action").value_or("");
    if (action == "start") {
        std::optional<Project> project = projectArgument(call.body.value("project", json()));
        parts_.controls.startFocus(integerField(call.body, "minutes").value_or(25),
                                   project ? std::optional(project->id) : std::nullopt);
    } else if (action == "stop") {
        parts_.controls.stopFocus();
    } else {
        refuse("Action inconnue.", "Unknown action.");
    }
    return Reply::json(commands::focusJSON(parts_.activities.database(), parts_.projects, parts_.clock.now()));
}

Reply WindowAPI::pause(const Call& call) {
    if (call.body.value("resume", false)) {
        parts_.controls.resume();
    } else {
        auto minutes = call.body.find("minutes");
        if (minutes != call.body.end() && !minutes->is_null() && !(minutes->is_number() && minutes->get<double>() > 0))
            refuse("Durée de pause invalide.", "Invalid pause length.");
        parts_.controls.pause(minutes != call.body.end() && minutes->is_number() ? std::optional(minutes->get<double>())
                                                                                   : std::nullopt);
    }
    std::optional<double> until = parts_.preferences.number(settings::pausedUntil);
    return Reply::json({{"paused", until.has_value()},
                        {"paused_until", until ? json(local::formatDateTime(*until)) : json(nullptr)}});
}

Reply WindowAPI::assign(const Call& call) {
    json arguments = {{"activity_ids", idList(call.body)}, {"dry_run", call.body.value("dry_run", true)}};
    std::optional<Project> project = projectArgument(call.body.value("project", json()));
    arguments["project"] = project ? json(project->id) : json("none");
    return Reply::json(parts_.model.tools().call("assign_time", arguments));
}

// The result of a workspace write: its answer, or the reason it failed.
template <typename Value>
Value written(const std::optional<Value>& result, const Workspace& workspace) {
    if (!result) writeFailed(workspace.writeError());
    return *result;
}

Reply WindowAPI::unassign(const Call& call) {
    if (!parts_.catalog.clearAssignments(idList(call.body)))
        writeFailed(parts_.catalog.lastError());
    return Reply::json({{"ok", true}});
}

Reply WindowAPI::note(const Call& call) {
    std::optional<std::string> text = textField(call.body, "note");
    if (text && text->find_first_not_of(" \t") == std::string::npos) text.reset();
    if (!parts_.catalog.setNote(idList(call.body), text))
        writeFailed(parts_.catalog.lastError());
    return Reply::json({{"ok", true}});
}

Reply WindowAPI::absence(const Call& call) {
    std::optional<Project> project = projectArgument(call.body.value("project", json()));
    std::size_t count = written(parts_.model.workspace().qualifyIdle(idList(call.body), requiredText(call.body, "label"),
                                                                     project ? std::optional(project->id) : std::nullopt),
                                parts_.model.workspace());
    return Reply::json({{"qualified", count}});
}

Reply WindowAPI::manual(const Call& call) {
    Instant start = parseDateTime(requiredText(call.body, "from")), end = parseDateTime(requiredText(call.body, "to"));
    if (!(end > start)) refuse("La fin doit suivre le début.", "The end must come after the start.");
    std::optional<Project> project = projectArgument(call.body.value("project", json()));
    std::vector<std::int64_t> ids =
        written(parts_.model.workspace().addManual(start, end, requiredText(call.body, "label"),
                                                   project ? std::optional(project->id) : std::nullopt),
                parts_.model.workspace());
    return Reply::json({{"activity_ids", ids}});
}

Reply WindowAPI::split(const Call& call) {
    Instant at = parseDateTime(requiredText(call.body, "at"));
    Workspace::Split parts = written(parts_.model.workspace().splitAt(idList(call.body), at), parts_.model.workspace());
    return Reply::json({{"before", parts.before}, {"after", parts.after}});
}

namespace {

// `project` with what `body` changes of it; the fields absent are kept.
Project edited(Project project, const json& body) {
    if (auto name = textField(body, "name")) project.name = *name;
    if (body.contains("client_id")) project.clientID = integerField(body, "client_id");
    if (auto color = textField(body, "color")) project.color = *color;
    if (auto rate = integerField(body, "rate_cents")) project.rateCents = *rate;
    if (auto kind = textField(body, "rate_kind")) {
        auto parsed = parseRateKind(*kind);
        if (!parsed) refuse("Type de tarif inconnu.", "Unknown rate kind.");
        project.rateKind = *parsed;
    }
    if (auto rounding = textField(body, "rounding")) {
        auto parsed = parseRounding(*rounding);
        if (!parsed) refuse("Arrondi inconnu.", "Unknown rounding.");
        project.rounding = *parsed;
    }
    if (auto hours = body.find("day_hours"); hours != body.end()) {
        if (!hours->is_number()) refuse("Durée de journée invalide.", "Invalid day length.");
        project.dayHours = hours->get<double>();
    }
    if (body.contains("budget_minutes")) project.budgetMinutes = integerField(body, "budget_minutes");
    if (auto billable = body.find("billable"); billable != body.end()) {
        if (!billable->is_boolean()) refuse("Facturable : oui ou non.", "Billable: yes or no.");
        project.billable = billable->get<bool>();
    }
    return project;
}

} // namespace

Reply WindowAPI::saveProject(const Call& call) {
    std::optional<std::int64_t> id = integerField(call.body, "id");
    std::optional<Project> stored = id ? parts_.projects.project(*id) : std::nullopt;
    if (id && !stored) refuse("Projet introuvable.", "Project not found.", 404);
    Project project = edited(stored.value_or(Project{}), call.body);
    SaveResult saved;
    if (stored) {
        ProjectChanges changes(parts_.activities.database(), parts_.projects,
                               [this](Instant from, Instant to) { return parts_.model.workspace().items(from, to); });
        EditResult result = changes.save(project, call.body.value("reprice_billed", false));
        if (result.refused) {
            std::string message(L10n::text("Ce changement modifierait des montants déjà facturés ou payés :",
                                           "This change would alter amounts already billed or paid:"));
            for (const std::string& line : commands::repricingLines(result.repricing, currency())) message += "\n" + line;
            throw Refused{409, message};
        }
        saved = result.saved;
    } else {
        saved = parts_.projects.save(project);
    }
    if (!saved) throw Refused{400, saved.error->text()};
    return Reply::json(commands::projectJSON(*parts_.projects.project(saved.id), parts_.projects, currency()));
}

Reply WindowAPI::archiveProject(const Call& call) {
    std::optional<Project> project = parts_.projects.project(integerField(call.body, "id").value_or(0));
    if (!project) refuse("Projet introuvable.", "Project not found.", 404);
    project->archived = call.body.value("archived", true);
    SaveResult saved = parts_.projects.save(*project);
    if (!saved) throw Refused{400, saved.error->text()};
    return Reply::json(commands::projectJSON(*parts_.projects.project(saved.id), parts_.projects, currency()));
}

Reply WindowAPI::saveClient(const Call& call) {
    std::optional<std::int64_t> id = integerField(call.body, "id");
    std::optional<Client> client = id ? parts_.projects.client(*id) : Client{};
    if (!client) refuse("Client introuvable.", "Client not found.", 404);
    client->name = requiredText(call.body, "name");
    SaveResult saved = parts_.projects.save(*client);
    if (!saved) throw Refused{400, saved.error->text()};
    return Reply::json(commands::clientJSON(*parts_.projects.client(saved.id), parts_.projects));
}

namespace {

// A rule from the fields the page sends: field, operator ("simple" or absent
// for the field's own matching), pattern, category_id, project_id.
Rule ruleFrom(const json& body, Rule rule) {
    std::string field = textField(body, "field").value_or(std::string(rawValue(rule.field)));
    auto parsedField = fieldFromRaw(field);
    if (!parsedField) refuse("Champ de règle inconnu.", "Unknown rule field.");
    rule.field = *parsedField;
    std::string op = textField(body, "operator").value_or("simple");
    if (op == "simple" || op.empty()) {
        rule.op.reset();
    } else {
        auto parsed = operatorFromRaw(op);
        if (!parsed) refuse("Opérateur inconnu.", "Unknown operator.");
        rule.op = *parsed;
    }
    rule.pattern = requiredText(body, "pattern");
    if (body.contains("category_id")) rule.categoryID = integerField(body, "category_id");
    if (body.contains("project_id")) rule.projectID = integerField(body, "project_id");
    rule = rule.normalized();
    if (auto problem = rule.regexProblem()) throw Refused{400, *problem};
    return rule;
}

} // namespace

Reply WindowAPI::saveRule(const Call& call) {
    Rule rule = ruleFrom(call.body, call.body.contains("id") ? storedRule(call.body) : Rule{});
    if (!rule.categoryID && !rule.projectID)
        refuse("Une règle donne une catégorie, un projet ou les deux.", "A rule gives a category, a project or both.");
    if (rule.categoryID && !parts_.catalog.category(*rule.categoryID)) refuse("Catégorie introuvable.", "Category not found.", 404);
    if (rule.projectID && !parts_.projects.project(*rule.projectID)) refuse("Projet introuvable.", "Project not found.", 404);
    std::optional<std::int64_t> id = parts_.catalog.save(rule);
    if (!id) writeFailed(parts_.catalog.lastError());
    rule.id = *id;
    return Reply::json(ruleView(rule));
}

Reply WindowAPI::deleteRule(const Call& call) {
    if (!parts_.catalog.remove(storedRule(call.body))) writeFailed(parts_.catalog.lastError());
    return Reply::json({{"ok", true}});
}

// What a rule being written would take among the last two weeks' activities.
Reply WindowAPI::previewRule(const Call& call) {
    Rule rule = ruleFrom(call.body, Rule{});
    Instant now = parts_.clock.now();
    std::vector<Activity> recent = parts_.activities.activities(local::addDays(local::startOfDay(now), -13), now + 1);
    std::size_t count = 0;
    double seconds = 0;
    json examples = json::array();
    for (auto activity = recent.rbegin(); activity != recent.rend(); ++activity) {
        if (activity->kind == Activity::Kind::idle || !rule.specificity(*activity)) continue;
        ++count;
        seconds += activity->duration();
        if (examples.size() < 8)
            examples.push_back({{"id", activity->id},
                                {"start", local::formatDateTime(activity->start)},
                                {"app", activity->appName},
                                {"title", activity->title ? json(*activity->title) : json(nullptr)},
                                {"domain", activity->domain ? json(*activity->domain) : json(nullptr)},
                                {"minutes", wholeMinutes(activity->duration())}});
    }
    return Reply::json({{"count", count}, {"minutes", wholeMinutes(seconds)}, {"examples", examples}});
}

Reply WindowAPI::markBilling(const Call& call) {
    std::vector<std::int64_t> ids = idList(call.body);
    std::string status = textField(call.body, "status").value_or("");
    bool done = false;
    if (status == "tobill") {
        done = billing_.clear(ids);
    } else {
        std::optional<BillingStatus> parsed = parseBillingStatus(status);
        if (!parsed || (*parsed != BillingStatus::billed && *parsed != BillingStatus::paid))
            refuse("Statut inconnu (tobill, billed ou paid).", "Unknown status (tobill, billed or paid).");
        std::optional<std::string> invoice = textField(call.body, "invoice");
        if (invoice && invoice->find_first_not_of(" \t") == std::string::npos) invoice.reset();
        done = billing_.mark(ids, *parsed, invoice);
    }
    if (!done) writeFailed(billing_.writeError());
    return Reply::json({{"marked", ids.size()}});
}

Reply WindowAPI::changeSetting(const Call& call) {
    return Reply::json(
        EditableSettings::set(parts_.preferences, requiredText(call.body, "key"), call.body.value("value", json())));
}

Reply WindowAPI::newAgentToken(const Call& call) {
    if (textField(call.body, "action").value_or("") != "regenerate") refuse("Action inconnue.", "Unknown action.");
    std::string token = MCPToken::regenerate().value;
    parts_.controls.agentTokenChanged();
    return Reply::json(
        {{"token", token}, {"configs", MCPService::clientConfigurations(MCPService::port(parts_.preferences), token)}});
}

} // namespace ombrelo
