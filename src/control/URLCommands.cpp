#include "control/URLCommands.h"

#include "support/Fold.h"
#include "support/L10n.h"
#include "support/Log.h"
#include "support/NumberText.h"

#include <map>

namespace ombrelo::URLCommands {

namespace {

struct Link {
    std::string scheme;
    std::string command;  // host, then path: "focus/stop"
    std::map<std::string, std::string> parameters;
};

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// %XX sequences decoded ("+" stays a plus); nothing when one is broken.
std::optional<std::string> percentDecoded(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            result += text[i];
            continue;
        }
        if (i + 2 >= text.size()) return std::nullopt;
        int high = hexDigit(text[i + 1]), low = hexDigit(text[i + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        result += char(high * 16 + low);
        i += 2;
    }
    return result;
}

// "scheme://host/path?query#fragment"; nothing when it is not a link at all.
std::optional<Link> parse(std::string_view url) {
    std::size_t colon = url.find(':');
    if (colon == std::string_view::npos || colon == 0) return std::nullopt;
    Link link{lowerASCII(url.substr(0, colon)), {}, {}};
    std::string_view rest = url.substr(colon + 1);
    rest = rest.substr(0, rest.find('#'));
    std::string_view query;
    if (std::size_t mark = rest.find('?'); mark != std::string_view::npos) {
        query = rest.substr(mark + 1);
        rest = rest.substr(0, mark);
    }
    if (rest.substr(0, 2) == "//") rest.remove_prefix(2);
    std::optional<std::string> command = percentDecoded(rest);
    if (!command) return std::nullopt;
    link.command = *command;
    while (!query.empty()) {
        std::size_t amp = query.find('&');
        std::string_view item = query.substr(0, amp);
        query = amp == std::string_view::npos ? std::string_view() : query.substr(amp + 1);
        if (item.empty()) continue;
        std::size_t equals = item.find('=');
        std::optional<std::string> name = percentDecoded(item.substr(0, equals));
        std::optional<std::string> value =
            percentDecoded(equals == std::string_view::npos ? std::string_view() : item.substr(equals + 1));
        if (!name || !value) return std::nullopt;
        link.parameters.try_emplace(*name, *value);  // the first of a repeated name counts
    }
    return link;
}

std::optional<std::string> parameter(const Link& link, const char* french, const char* english = nullptr) {
    if (auto found = link.parameters.find(french); found != link.parameters.end()) return found->second;
    if (english)
        if (auto found = link.parameters.find(english); found != link.parameters.end()) return found->second;
    return std::nullopt;
}

Result refused(std::string message) { return {false, std::move(message), std::nullopt}; }

bool is(const std::string& command, const char* french, const char* english) {
    return command == french || command == english;
}

Result work(const Link& link, Controls& controls) {
    std::optional<std::string> name = parameter(link, "projet", "project");
    std::optional<Project> project = name ? find(*name, controls.projects()) : std::nullopt;
    if (!project)
        return refused(name ? std::string(L10n::text("Aucun projet ne correspond à « ", "No project matches \"")) +
                                  *name + std::string(L10n::text(" »", "\""))
                            : std::string(L10n::text("Lien sans projet (projet=…)", "Link without a project (project=…)")));
    controls.work(*project, parameter(link, "note"));
    return {true, {}, std::nullopt};
}

Result focus(const Link& link, Controls& controls) {
    std::optional<std::int64_t> minutes;
    if (auto text = parameter(link, "minutes")) minutes = integerText(*text);
    std::optional<std::int64_t> projectID;
    if (auto name = parameter(link, "projet", "project"))
        if (auto project = find(*name, controls.projects())) projectID = project->id;
    controls.startFocus(minutes, projectID);
    return {true, {}, std::nullopt};
}

Result dispatch(const Link& link, Controls& controls) {
    const std::string& command = link.command;
    if (is(command, "travailler", "work")) return work(link, controls);
    if (is(command, "arreter", "stop")) {
        controls.stopWork();
    } else if (command == "focus") {
        return focus(link, controls);
    } else if (is(command, "focus/arreter", "focus/stop")) {
        controls.stopFocus();
    } else if (command == "pause") {
        std::optional<std::string> minutes = parameter(link, "minutes");
        controls.pause(minutes ? decimalText(*minutes) : std::nullopt);
    } else if (is(command, "reprendre", "resume")) {
        controls.resume();
    } else if (is(command, "ouvrir", "open")) {
        Page page = pageNamed(parameter(link, "page").value_or(""));
        controls.open(page);
        return {true, {}, page};
    } else {
        return refused(std::string(L10n::text("Commande de lien inconnue : ", "Unknown link command: ")) + command);
    }
    return {true, {}, std::nullopt};
}

} // namespace

Result handle(std::string_view url, Controls& controls) {
    std::optional<Link> link = parse(url);
    if (!link) return refused(std::string(L10n::text("Lien mal formé : ", "Malformed link: ")) + std::string(url));
    if (link->scheme != "ombrelo")
        return refused(std::string(L10n::text("Lien d'un autre programme (", "Link for another program (")) +
                       link->scheme + std::string(L10n::text(" :) ; Ombrelo ne suit que ombrelo://",
                                                             ":); Ombrelo follows ombrelo:// only")));
    Log::get("links")->info("Commande {}", link->command);
    try {
        return dispatch(*link, controls);
    } catch (const ControlFailure& failure) {
        return refused(failure.what());
    }
}

std::optional<Project> find(std::string_view name, const ProjectStore& projects) { return projects.findByName(name); }

Page pageNamed(std::string_view name) {
    static const std::map<std::string, Page, std::less<>> pages = {
        {"tableau", Page::dashboard},   {"dashboard", Page::dashboard}, {"chronologie", Page::timeline},
        {"recherche", Page::search},    {"projets", Page::projects},    {"rapports", Page::reports},
        {"reglages", Page::settings},
    };
    std::string lowered = lowerASCII(name);
    if (auto found = pages.find(lowered); found != pages.end()) return found->second;
    return pageFromRaw(lowered).value_or(Page::dashboard);
}

} // namespace ombrelo::URLCommands
