#include "control/ControlRequest.h"

#include "control/URLCommands.h"
#include "support/L10n.h"

#include <functional>
#include <map>

namespace ombrelo::ControlRequest {

using nlohmann::json;

namespace {

// A request's field of the wrong type, or a missing one.
struct BadField {
    std::string name;
};

template <typename T>
std::optional<T> field(const json& request, const char* name) {
    auto found = request.find(name);
    if (found == request.end() || found->is_null()) return std::nullopt;
    if constexpr (std::is_same_v<T, std::string>) {
        if (!found->is_string()) throw BadField{name};
    } else if constexpr (std::is_same_v<T, bool>) {
        if (!found->is_boolean()) throw BadField{name};
    } else if constexpr (std::is_integral_v<T>) {
        if (!found->is_number_integer()) throw BadField{name};
    } else {
        if (!found->is_number()) throw BadField{name};
    }
    return found->get<T>();
}

const json ok = {{"ok", true}};

json work(const json& request, Controls& controls) {
    std::optional<std::int64_t> id = field<std::int64_t>(request, "project");
    if (!id) throw BadField{"project"};
    std::optional<Project> project = controls.projects().project(*id);
    if (!project)
        return failure(std::string(L10n::text("Projet introuvable : ", "No such project: ")) + std::to_string(*id));
    controls.work(*project, field<std::string>(request, "note"));
    return ok;
}

json link(const json& request, Controls& controls) {
    std::optional<std::string> url = field<std::string>(request, "url");
    if (!url) throw BadField{"url"};
    URLCommands::Result result = URLCommands::handle(*url, controls);
    if (!result.handled) return failure(result.message);
    json answer = ok;
    if (result.opened) answer["page"] = rawValue(*result.opened);
    return answer;
}

json agentState(const json&, Controls& controls) {
    json answer = ok;
    std::optional<AgentServerState> state = controls.agentServer();
    answer["agent_server"] = state ? json{{"running", state->running},
                                          {"port", state->port},
                                          {"problem", state->problem ? json(*state->problem) : json(nullptr)}}
                                   : json(nullptr);
    return answer;
}

json windowLink(const json& request, Controls& controls) {
    Page page = URLCommands::pageNamed(field<std::string>(request, "page").value_or(""));
    std::optional<std::string> url = controls.windowLink(page);
    if (!url) return failure(L10n::text("Ce suivi ne sert pas l'interface.", "This tracker does not serve the interface."));
    json answer = ok;
    answer["url"] = *url;
    return answer;
}

int browserProcess(const json& request) {
    std::optional<int> pid = field<int>(request, "pid");
    if (!pid) throw BadField{"pid"};
    return *pid;
}

BrowserReport browserReport(const json& request) {
    std::optional<double> at = field<double>(request, "at");
    if (!at) throw BadField{"at"};
    return {.pid = browserProcess(request),
            .at = *at,
            .focused = field<bool>(request, "focused").value_or(true),
            .incognito = field<bool>(request, "incognito").value_or(false),
            .url = field<std::string>(request, "url"),
            .title = field<std::string>(request, "title"),
            .domain = field<std::string>(request, "domain")};
}

json browserBlur(const json& request, Controls& controls) {
    BrowserReport report = browserReport(request);
    report.focused = false;
    controls.reportPage(report);
    return ok;
}

json browserState(const json&, Controls& controls) {
    json answer = ok;
    std::optional<Instant> last = controls.lastPageReport();
    answer["last_page_report"] = last ? json(*last) : json(nullptr);
    return answer;
}

json desktopState(const json&, Controls& controls) {
    std::optional<WindowSourceState> state = controls.windowSource();
    if (!state) return failure("no window source in this process");
    json answer = ok;
    answer["window_source"] = windowSourceJSON(*state);
    return answer;
}

using Handler = std::function<json(const json&, Controls&)>;

const std::map<std::string, Handler, std::less<>>& handlers() {
    static const std::map<std::string, Handler, std::less<>> table = {
        {"work", work},
        {"stop", [](const json&, Controls& c) { c.stopWork(); return ok; }},
        {"pause", [](const json& r, Controls& c) { c.pause(field<double>(r, "minutes")); return ok; }},
        {"resume", [](const json&, Controls& c) { c.resume(); return ok; }},
        {"focus-start",
         [](const json& r, Controls& c) {
             c.startFocus(field<std::int64_t>(r, "minutes"), field<std::int64_t>(r, "project"));
             return ok;
         }},
        {"focus-stop", [](const json&, Controls& c) { c.stopFocus(); return ok; }},
        {"break-start", [](const json&, Controls& c) { c.startBreak(); return ok; }},
        {"break-end", [](const json&, Controls& c) { c.endBreak(false); return ok; }},
        {"break-skip", [](const json&, Controls& c) { c.endBreak(true); return ok; }},
        {"link", link},
        {"agent-state", agentState},
        {"window-link", windowLink},
        {"browser-page", [](const json& r, Controls& c) { c.reportPage(browserReport(r)); return ok; }},
        {"browser-blur", browserBlur},
        {"browser-gone", [](const json& r, Controls& c) { c.browserClosed(browserProcess(r)); return ok; }},
        {"browser-state", browserState},
        {"desktop-state", desktopState},
        {"agent-token", [](const json&, Controls& c) { c.agentTokenChanged(); return ok; }},
    };
    return table;
}

} // namespace

json failure(std::string_view message) { return {{"ok", false}, {"error", message}}; }

json windowSourceJSON(const WindowSourceState& state) {
    return {{"backend", state.backend},
            {"description", state.description},
            {"missing", state.missing ? json(*state.missing) : json(nullptr)}};
}

std::optional<WindowSourceState> windowSourceFromJSON(const json& object) {
    if (!object.is_object() || !object.contains("backend") || !object["backend"].is_string()) return std::nullopt;
    WindowSourceState state{object["backend"], object.value("description", ""), std::nullopt};
    if (object.contains("missing") && object["missing"].is_string()) state.missing = object["missing"];
    return state;
}

json perform(const json& request, Controls& controls) {
    if (!request.is_object())
        return failure(L10n::text("Requête invalide : un objet JSON est attendu", "Bad request: a JSON object is expected"));
    try {
        std::optional<std::string> command = field<std::string>(request, "command");
        if (!command) throw BadField{"command"};
        auto handler = handlers().find(*command);
        if (handler == handlers().end())
            return failure(std::string(L10n::text("Requête inconnue : ", "Unknown request: ")) + *command);
        return handler->second(request, controls);
    } catch (const BadField& bad) {
        return failure(std::string(L10n::text("Requête invalide : champ « ", "Bad request: field \"")) + bad.name +
                       std::string(L10n::text(" » absent ou mal typé", "\" missing or of the wrong type")));
    } catch (const ControlFailure& error) {
        return failure(error.what());
    } catch (const std::exception& error) {
        return failure(error.what());
    }
}

json perform(std::string_view line, Controls& controls) {
    json request = json::parse(line, nullptr, false);
    if (request.is_discarded())
        return failure(L10n::text("Requête invalide : ce n'est pas du JSON", "Bad request: not JSON"));
    return perform(request, controls);
}

} // namespace ombrelo::ControlRequest
