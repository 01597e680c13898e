#include "control/BrowserMessage.h"

#include <cmath>

namespace ombrelo::BrowserMessage {

using nlohmann::json;

namespace {

constexpr std::size_t maxURL = 8192;
constexpr std::size_t maxTitle = 2048;

std::string lower(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
    return out;
}

// A text field: absent or null is nothing; another type, or one too long, is a fault.
std::optional<std::string> text(const json& message, const char* name, std::size_t limit, std::string& fault) {
    auto found = message.find(name);
    if (found == message.end() || found->is_null()) return std::nullopt;
    if (!found->is_string() || found->get_ref<const std::string&>().size() > limit) fault = name;
    return fault.empty() ? std::optional(found->get<std::string>()) : std::nullopt;
}

bool flag(const json& message, const char* name, bool fallback, std::string& fault) {
    auto found = message.find(name);
    if (found == message.end()) return fallback;
    if (!found->is_boolean()) fault = name;
    return found->is_boolean() ? found->get<bool>() : fallback;
}

} // namespace

std::optional<std::string> domainOf(std::string_view url) {
    std::size_t colon = url.find("://");
    if (colon == std::string_view::npos) return std::nullopt;
    std::string scheme = lower(url.substr(0, colon));
    if (scheme != "http" && scheme != "https") return std::nullopt;
    std::string_view authority = url.substr(colon + 3);
    authority = authority.substr(0, authority.find_first_of("/?#"));
    if (std::size_t at = authority.rfind('@'); at != std::string_view::npos) authority.remove_prefix(at + 1);
    if (authority.starts_with('[')) {
        std::size_t close = authority.find(']');
        if (close == std::string_view::npos) return std::nullopt;
        authority = authority.substr(0, close + 1);
    } else {
        authority = authority.substr(0, authority.find(':'));
    }
    while (authority.ends_with('.')) authority.remove_suffix(1);
    if (authority.empty()) return std::nullopt;
    return lower(authority);
}

std::variant<json, std::string> toRequest(std::string_view bytes, int pid) {
    json message = json::parse(bytes, nullptr, false);
    if (message.is_discarded() || !message.is_object()) return std::string("pas un objet JSON");
    auto kind = message.find("kind");
    auto at = message.find("at");
    if (kind == message.end() || !kind->is_string()) return std::string("sans « kind »");
    if (at == message.end() || !at->is_number() || !std::isfinite(at->get<double>())) return std::string("sans « at »");
    double seconds = at->get<double>() / 1000;
    if (*kind == "blur") return json{{"command", "browser-blur"}, {"pid", pid}, {"at", seconds}};
    if (*kind != "page") return "« kind » inconnu : " + kind->dump();

    std::string fault;
    bool focused = flag(message, "focused", true, fault);
    bool incognito = flag(message, "incognito", false, fault);
    std::optional<std::string> url = text(message, "url", maxURL, fault);
    std::optional<std::string> title = text(message, "title", maxTitle, fault);
    if (!fault.empty()) return "champ invalide : " + fault;
    std::optional<std::string> domain = url ? domainOf(*url) : std::nullopt;
    if (incognito || !domain) {
        url.reset();
        title.reset();
        domain.reset();
    }
    auto orNull = [](const std::optional<std::string>& value) { return value ? json(*value) : json(nullptr); };
    return json{{"command", "browser-page"}, {"pid", pid},         {"at", seconds},         {"focused", focused},
                {"incognito", incognito},    {"url", orNull(url)}, {"title", orNull(title)}, {"domain", orNull(domain)}};
}

} // namespace ombrelo::BrowserMessage
