#include "agent/MCPTools.h"

#include "control/URLCommands.h"
#include "support/JSONText.h"
#include "support/L10n.h"
#include "support/LocalTime.h"
#include "support/NumberText.h"

#include <algorithm>
#include <map>
#include <set>

namespace ombrelo {

using nlohmann::json;

namespace {

constexpr std::string_view defaultProtocolVersion = "2025-06-18";

std::string tr(std::string_view french, std::string_view english) { return std::string(L10n::text(french, english)); }

json property(std::string_view type, std::string description) {
    return {{"type", type}, {"description", std::move(description)}};
}

json tool(std::string_view name, std::string description, json properties, json required = json::array()) {
    return {{"name", name},
            {"description", std::move(description)},
            {"inputSchema",
             {{"type", "object"},
              {"properties", properties.is_null() ? json::object() : std::move(properties)},
              {"required", std::move(required)},
              {"additionalProperties", false}}}};
}

std::optional<std::string> text(const json& arguments, const char* key) {
    auto found = arguments.find(key);
    if (found == arguments.end() || !found->is_string()) return std::nullopt;
    return found->get<std::string>();
}

std::optional<std::int64_t> integer(const json& arguments, const char* key) {
    auto found = arguments.find(key);
    if (found == arguments.end() || !found->is_number_integer()) return std::nullopt;
    return found->get<std::int64_t>();
}

json objectOr(const json& message, const char* key) {
    auto found = message.find(key);
    return found != message.end() && found->is_object() ? *found : json::object();
}

std::string noProject() { return tr("Sans projet", "No project"); }

[[noreturn]] void projectNotFound(const std::string& value) {
    throw ToolError(tr("Projet introuvable : ", "Project not found: ") + value +
                    tr(". Voir list_projects.", ". See list_projects."));
}

} // namespace

MCPServer::Outcome MCPTools::handle(const json& message) {
    std::string method = message.contains("method") && message["method"].is_string() ? message["method"] : "";
    json params = objectOr(message, "params");
    if (method == "initialize") return initialize(params);
    if (method == "ping") return json::object();
    if (method == "tools/list") return json{{"tools", definitions()}};
    if (method == "tools/call") return callResult(params);
    return MCPServer::RPCError{MCPServer::methodNotFound, tr("Méthode inconnue : ", "Unknown method: ") + method};
}

json MCPTools::initialize(const json& params) const {
    auto version = text(params, "protocolVersion");
    return {{"protocolVersion", version.value_or(std::string(defaultProtocolVersion))},
            {"capabilities", {{"tools", {{"listChanged", false}}}}},
            {"serverInfo", {{"name", "ombrelo"}, {"title", "Ombrelo"}, {"version", "0.1"}}},
            {"instructions", instructions()}};
}

std::string MCPTools::instructions() const {
    const std::string& currency = parts_.currency;
    if (L10n::french())
        return "Ombrelo suit le temps de travail de l'utilisateur sur son ordinateur (applis, fenêtres, sites) et le "
               "rattache à des clients et projets. Durées en minutes, montants hors taxes dans la devise " +
               currency +
               " (champs amount_eur et rate_eur, noms historiques). Dates au format AAAA-MM-JJ, heures locales. "
               "Avant de reclasser du temps, appelez assign_time avec dry_run=true et montrez l'impact.";
    return "Ombrelo tracks the user's work time on their computer (apps, windows, sites) and links it to clients and "
           "projects. Durations in minutes, amounts excluding tax in " +
           currency +
           " (fields amount_eur and rate_eur, historical names). Dates as YYYY-MM-DD, local time. Before reassigning "
           "time, call assign_time with dry_run=true and show the impact.";
}

json MCPTools::callResult(const json& params) {
    std::string name = text(params, "name").value_or("");
    json arguments = objectOr(params, "arguments");
    auto failed = [](const std::string& message) {
        return json{{"content", json::array({{{"type", "text"}, {"text", message}}})}, {"isError", true}};
    };
    try {
        json result = call(name, arguments);
        return {{"content", json::array({{{"type", "text"}, {"text", prettyJSON(result)}}})},
                {"structuredContent", result},
                {"isError", false}};
    } catch (const ToolError& error) {
        return failed(error.message);
    } catch (const std::exception& error) {
        return failed(error.what());
    }
}

json MCPTools::call(std::string_view name, const json& arguments) {
    if (name == "get_summary") return parts_.queries.getSummary(arguments);
    if (name == "get_timeline") return parts_.queries.getTimeline(arguments);
    if (name == "search_activity") return parts_.queries.searchActivity(arguments);
    if (name == "list_projects") return listProjects();
    if (name == "get_active_project") return active();
    if (name == "set_active_project") return setActiveProject(arguments);
    if (name == "stop_active_project") return stopActiveProject();
    if (name == "assign_time") return assignTime(arguments);
    if (name == "start_focus") return startFocus(arguments);
    throw ToolError(tr("Outil inconnu : ", "Unknown tool: ") + std::string(name));
}

json MCPTools::listProjects() const {
    json projects = json::array();
    for (const Project& project : parts_.projects.projects()) {
        std::optional<Client> client = project.clientID ? parts_.projects.client(*project.clientID) : std::nullopt;
        projects.push_back({{"id", project.id},
                            {"name", project.name},
                            {"client", client ? json(client->name) : json(nullptr)},
                            {"billable", project.billable},
                            {"rate_kind", rateKindName(project.rateKind)},
                            {"rate_eur", euros(project.rateCents)},
                            {"archived", project.archived}});
    }
    return {{"projects", std::move(projects)}};
}

json MCPTools::active() {
    ProjectStore& store = parts_.projects;
    std::optional<Project> project = store.activeProject();
    if (!project) return {{"active", false}};
    std::optional<Instant> since = store.activeSince();
    std::optional<std::string> note = store.activeNote();
    return {{"active", true},
            {"project", store.label(project)},
            {"project_id", project->id},
            {"since", since ? json(local::formatTime(*since)) : json(nullptr)},
            {"note", note ? json(*note) : json(nullptr)}};
}

Project MCPTools::findProject(const json& value) const {
    const ProjectStore& store = parts_.projects;
    if (value.is_number_integer()) {
        if (auto project = store.project(value.get<std::int64_t>())) return *project;
        projectNotFound(value.dump());
    }
    std::string name = value.is_string() ? value.get<std::string>() : "";
    if (auto id = integerText<std::int64_t>(name)) {
        if (auto project = store.project(*id)) return *project;
        projectNotFound(name);
    }
    if (auto project = URLCommands::find(name, store)) return *project;
    projectNotFound(name);
}

json MCPTools::setActiveProject(const json& arguments) {
    Project project = findProject(arguments.contains("project") ? arguments["project"] : json());
    try {
        parts_.controls.work(project, text(arguments, "note"));
    } catch (const ControlFailure& failure) {
        throw ToolError(failure.what());
    }
    return active();
}

json MCPTools::stopActiveProject() {
    try {
        parts_.controls.stopWork();
    } catch (const ControlFailure& failure) {
        throw ToolError(failure.what());
    }
    return active();
}

// The items of the activities named by id (over the time they span), or of a
// from/to range.
std::vector<Classified> MCPTools::targets(const json& arguments) {
    std::vector<Classified> found;
    auto ids = arguments.find("activity_ids");
    if (ids != arguments.end() && ids->is_array() && !ids->empty()) {
        std::set<std::int64_t> wanted;
        for (const json& id : *ids)
            if (id.is_number_integer()) wanted.insert(id.get<std::int64_t>());
        std::optional<Instant> start, end;
        for (std::int64_t id : wanted)
            if (auto activity = parts_.activities.activity(id)) {
                start = std::min(start.value_or(activity->start), activity->start);
                end = std::max(end.value_or(activity->end), activity->end);
            }
        if (!start) return found;
        for (const Classified& item : parts_.workspace.items(*start, *end))
            if (wanted.contains(item.activity.id)) found.push_back(item);
        return found;
    }
    auto from = text(arguments, "from"), to = text(arguments, "to");
    if (!from || !to) throw ToolError(tr("Donnez activity_ids ou une plage from/to.", "Give activity_ids or a from/to range."));
    Instant start = parseDateTime(*from), end = parseDateTime(*to);
    if (!(end > start)) throw ToolError(tr("La fin doit suivre le début.", "The end must come after the start."));
    for (const Classified& item : parts_.workspace.items(start, end)) found.push_back(item);
    return found;
}

json MCPTools::assignTime(const json& arguments) {
    std::optional<Project> project;
    std::string asked = text(arguments, "project").value_or("");
    if (asked != "none") project = findProject(arguments.contains("project") ? arguments["project"] : json());
    auto dryRun = arguments.find("dry_run");
    bool dry = dryRun == arguments.end() || !dryRun->is_boolean() || dryRun->get<bool>();

    std::vector<Classified> items = targets(arguments);
    double seconds = 0;
    std::map<std::string, double> currently;
    std::vector<std::int64_t> ids;
    // Several days of one activity are one item each: each id is written once.
    std::set<std::int64_t> seen;
    for (const Classified& item : items) {
        double d = item.activity.duration();
        seconds += d;
        currently[item.project ? parts_.projects.label(item.project) : noProject()] += d / 60;
        if (seen.insert(item.activity.id).second) ids.push_back(item.activity.id);
    }
    if (!dry && !ids.empty())
        // A failure is logged by the catalogue; the agent is told what was asked.
        parts_.catalog.assign(ids, project ? std::optional(project->id) : std::nullopt, std::nullopt, "manual");
    return {{"dry_run", dry},
            {"applied", !dry},
            {"activities", ids.size()},
            {"minutes", wholeMinutes(seconds)},
            {"to_project", project ? parts_.projects.label(project) : noProject()},
            {"currently", currently.empty() ? json::object() : json(currently)}};
}

json MCPTools::startFocus(const json& arguments) {
    std::int64_t minutes = integer(arguments, "minutes").value_or(25);
    std::optional<Project> project;
    if (arguments.contains("project")) project = findProject(arguments["project"]);
    try {
        parts_.controls.startFocus(minutes, project ? std::optional(project->id) : std::nullopt);
    } catch (const ControlFailure& failure) {
        throw ToolError(failure.what());
    }
    return {{"started", true},
            {"minutes", minutes},
            {"project", project ? json(parts_.projects.label(project)) : json(nullptr)}};
}

json MCPTools::definitions() {
    json none = json::object();
    return json::array({
        tool("get_summary",
             tr("Résumé du temps sur une période : temps actif, facturable, montant HT, par projet et par catégorie.",
                "Time summary over a period: active and billable time, amount excluding tax, by project and by "
                "category."),
             {{"period", property("string", tr("today, yesterday, week (semaine en cours), last_week, month (mois en "
                                               "cours) ou last_month. Ignoré si from est donné.",
                                               "today, yesterday, week (current week), last_week, month (current "
                                               "month) or last_month. Ignored when from is given."))},
              {"from", property("string", tr("Premier jour (AAAA-MM-JJ).", "First day (YYYY-MM-DD)."))},
              {"to", property("string", tr("Dernier jour inclus (AAAA-MM-JJ).", "Last day, included (YYYY-MM-DD)."))}}),
        tool("get_timeline",
             tr("Blocs de temps d'une journée (heures, projet, catégorie, applis et sites, note, ids d'activités).",
                "Time blocks of a day (hours, project, category, apps and sites, note, activity ids)."),
             {{"date", property("string", tr("Jour (AAAA-MM-JJ), aujourd'hui par défaut.",
                                             "Day (YYYY-MM-DD), today by default."))}}),
        tool("search_activity",
             tr("Cherche du temps par appli, titre de fenêtre, site ou document.",
                "Finds time by app, window title, site or document."),
             {{"query", property("string", tr("Texte cherché, ex. « Dupont ».", "Text to find, e.g. \"Smith\"."))},
              {"days", property("integer", tr("Nombre de jours en arrière (30 par défaut).",
                                              "Number of days back (30 by default)."))}},
             json::array({"query"})),
        tool("list_projects",
             tr("Liste les clients et projets (tarif, facturable, archivé).",
                "Lists clients and projects (rate, billable, archived)."),
             none),
        tool("get_active_project",
             tr("Le projet « Je travaille pour… » en cours, s'il y en a un.",
                "The current \"Working on…\" project, if any."),
             none),
        tool("set_active_project",
             tr("Choisit le projet pour lequel tout le temps suivant est noté (jusqu'à minuit ou un changement).",
                "Picks the project all upcoming time is recorded for (until midnight or a change)."),
             {{"project", property("string", tr("Nom (ou « client › projet ») ou identifiant du projet.",
                                                "Name (or \"client › project\") or id of the project."))},
              {"note", property("string", tr("Sur quoi, facultatif.", "Doing what, optional."))}},
             json::array({"project"})),
        tool("stop_active_project",
             tr("Revient au classement automatique par les règles.",
                "Goes back to automatic classification by the rules."),
             none),
        tool("assign_time",
             tr("Rattache du temps enregistré à un projet (correction manuelle). Utilisez d'abord dry_run=true.",
                "Assigns recorded time to a project (manual correction). Use dry_run=true first."),
             {{"project", property("string", tr("Nom ou identifiant du projet ; « none » pour retirer le projet.",
                                                "Name or id of the project; \"none\" to remove the project."))},
              {"activity_ids",
               {{"type", "array"},
                {"description", tr("Identifiants d'activités (voir get_timeline).", "Activity ids (see get_timeline).")},
                {"items", {{"type", "integer"}}}}},
              {"from", property("string", tr("Début de plage (AAAA-MM-JJTHH:MM, heure locale).",
                                             "Start of the range (YYYY-MM-DDTHH:MM, local time)."))},
              {"to", property("string", tr("Fin de plage (AAAA-MM-JJTHH:MM).", "End of the range (YYYY-MM-DDTHH:MM)."))},
              {"dry_run", property("boolean", tr("true (par défaut) : renvoie l'impact sans rien modifier.",
                                                 "true (default): returns the impact without changing anything."))}},
             json::array({"project"})),
        tool("start_focus", tr("Démarre une session de concentration.", "Starts a focus session."),
             {{"minutes", property("integer", tr("Durée (25 par défaut ; 0 = libre).",
                                                 "Length (25 by default; 0 = open-ended)."))},
              {"project", property("string", tr("Projet facultatif.", "Optional project."))}}),
    });
}

} // namespace ombrelo
