#include "app/window/EditableSettings.h"

#include "agent/MCPServer.h"
#include "calendar/HolidayCountry.h"
#include "support/Fold.h"
#include "support/L10n.h"
#include "support/Settings.h"
#include "ui/WindowServer.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace ombrelo::EditableSettings {

using nlohmann::json;

namespace {

enum class Kind { boolean, integer, number, choice, list, days };

std::string_view kindName(Kind kind) {
    switch (kind) {
    case Kind::boolean: return "bool";
    case Kind::integer: return "integer";
    case Kind::number: return "number";
    case Kind::choice: return "choice";
    case Kind::list: return "list";
    case Kind::days: return "days";
    }
    return {};
}

struct Setting {
    std::string_view key;
    Kind kind;
    std::string_view french, english;
    json fallback;
    double min = 0, max = 0;  // integer and number kinds
    std::vector<std::pair<std::string, std::string>> choices = {};  // value, label
};

std::vector<std::pair<std::string, std::string>> countryChoices() {
    std::vector<std::pair<std::string, std::string>> choices{
        {"", std::string(L10n::text("Selon la langue du système", "From the system's locale"))}};
    for (HolidayCountry country : holidayCountries) choices.emplace_back(rawValue(country), label(country));
    return choices;
}

std::vector<Setting> catalogue() {
    auto automatic = std::string(L10n::text("Automatique", "Automatic"));
    return {
        {settings::language.name, Kind::choice, "Langue", "Language", "", 0, 0,
         {{"", automatic}, {"fr", "Français"}, {"en", "English"}}},
        {settings::currency.name, Kind::choice, "Devise", "Currency", "", 0, 0,
         {{"", automatic}, {"EUR", "EUR"}, {"USD", "USD"}, {"GBP", "GBP"}, {"CHF", "CHF"}, {"CAD", "CAD"}}},
        {settings::workHoursEnabled.name, Kind::boolean, "Suivre seulement pendant les heures de travail",
         "Track during working hours only", settings::workHoursEnabled.fallback},
        {settings::workHoursStart.name, Kind::integer, "Début de journée (heure)", "Day starts (hour)",
         settings::workHoursStart.fallback, 0, 23},
        {settings::workHoursEnd.name, Kind::integer, "Fin de journée (heure)", "Day ends (hour)",
         settings::workHoursEnd.fallback, 1, 24},
        {settings::workDays.name, Kind::days, "Jours de travail", "Working days", settings::workDays.fallback},
        {settings::idleSeconds.name, Kind::number, "Inactivité après (secondes)", "Idle after (seconds)",
         settings::idleSeconds.fallback, 30, 7200},
        {settings::privateApps.name, Kind::list, "Applications privées (identifiants)", "Private applications (ids)",
         json::array()},
        {settings::privateDomains.name, Kind::list, "Sites privés", "Private sites", json::array()},
        {settings::privateTitleWords.name, Kind::list, "Mots de titre privés", "Private title words", json::array()},
        {settings::holidayCountry.name, Kind::choice, "Pays des jours fériés", "Public holidays of", "", 0, 0,
         countryChoices()},
        {settings::holidayAlsaceMoselle.name, Kind::boolean, "Jours fériés d'Alsace-Moselle",
         "Alsace-Moselle holidays", settings::holidayAlsaceMoselle.fallback},
        {settings::breakEveryMinutes, Kind::integer, "Pause proposée après (minutes, 0 : jamais)",
         "Break proposed after (minutes, 0: never)", 60, 0, 480},
        {settings::backupDays.name, Kind::integer, "Sauvegardes quotidiennes gardées (jours, 0 : aucune)",
         "Daily backups kept (days, 0: none)", settings::backupDays.fallback, 0, 3650},
        {settings::backupMonths.name, Kind::integer, "Sauvegardes mensuelles gardées (mois)", "Monthly backups kept (months)",
         settings::backupMonths.fallback, 0, 600},
        {settings::mcpEnabled, Kind::boolean, "Serveur pour agents IA", "Server for AI agents", false},
        {settings::mcpPort, Kind::integer, "Port du serveur pour agents", "Agent server port", MCPServer::defaultPort,
         1024, 65535},
        {settings::uiPort, Kind::integer, "Port de l'interface (au prochain démarrage)",
         "Interface port (from the next start)", ui::WindowServer::defaultPort, 1024, 65535},
    };
}

json stored(const Preferences& preferences, const Setting& setting) {
    switch (setting.kind) {
    case Kind::boolean:
        if (auto value = preferences.boolean(setting.key)) return *value;
        break;
    case Kind::integer:
        if (auto value = preferences.integer(setting.key)) return *value;
        break;
    case Kind::number:
        if (auto value = preferences.number(setting.key)) return *value;
        break;
    case Kind::choice:
        if (auto value = preferences.text(setting.key)) return *value;
        break;
    case Kind::list:
        if (auto value = preferences.texts(setting.key)) return *value;
        break;
    case Kind::days:
        if (auto value = preferences.integers(setting.key)) return *value;
        break;
    }
    return setting.fallback;
}

json describe(const Preferences& preferences, const Setting& setting) {
    json item = {{"key", setting.key},
                 {"label", L10n::text(setting.french, setting.english)},
                 {"kind", kindName(setting.kind)},
                 {"value", stored(preferences, setting)},
                 {"default", setting.fallback}};
    if (setting.kind == Kind::integer || setting.kind == Kind::number) {
        item["min"] = setting.min;
        item["max"] = setting.max;
    }
    if (setting.kind == Kind::choice) {
        item["choices"] = json::array();
        for (const auto& [value, label] : setting.choices) item["choices"].push_back({{"value", value}, {"label", label}});
    }
    return item;
}

[[noreturn]] void refuse(const Setting& setting, std::string_view why) {
    throw SettingRefused(fmt::format("{} : {}", L10n::text(setting.french, setting.english), why));
}

double boundedNumber(const Setting& setting, const json& value) {
    if (!value.is_number()) refuse(setting, L10n::text("un nombre est attendu", "a number is expected"));
    double number = value.get<double>();
    if (!(number >= setting.min && number <= setting.max))
        refuse(setting, fmt::format(fmt::runtime(L10n::text("entre {} et {}", "between {} and {}")), setting.min,
                                    setting.max));
    if (setting.kind == Kind::integer && number != std::floor(number))
        refuse(setting, L10n::text("un nombre entier est attendu", "a whole number is expected"));
    return number;
}

std::vector<std::string> textList(const Setting& setting, const json& value) {
    if (!value.is_array()) refuse(setting, L10n::text("une liste est attendue", "a list is expected"));
    std::vector<std::string> items;
    for (const json& entry : value) {
        if (!entry.is_string()) refuse(setting, L10n::text("une liste de textes est attendue", "a list of texts is expected"));
        // One per line in the page: spaces around an item and blank lines are not items.
        std::string_view text = trim(entry.get_ref<const std::string&>());
        if (!text.empty()) items.emplace_back(text);
    }
    return items;
}

std::vector<std::int64_t> weekdays(const Setting& setting, const json& value) {
    if (!value.is_array()) refuse(setting, L10n::text("une liste de jours est attendue", "a list of days is expected"));
    std::vector<std::int64_t> days;
    for (const json& entry : value) {
        // 1 is Sunday, 7 Saturday, as the capture loop counts them.
        if (!entry.is_number_integer() || entry.get<std::int64_t>() < 1 || entry.get<std::int64_t>() > 7)
            refuse(setting, L10n::text("jours de 1 (dimanche) à 7 (samedi)", "days from 1 (Sunday) to 7 (Saturday)"));
        std::int64_t day = entry.get<std::int64_t>();
        if (std::find(days.begin(), days.end(), day) == days.end()) days.push_back(day);
    }
    std::sort(days.begin(), days.end());
    return days;
}

void write(Preferences& preferences, const Setting& setting, const json& value) {
    switch (setting.kind) {
    case Kind::boolean:
        if (!value.is_boolean()) refuse(setting, L10n::text("oui ou non", "yes or no"));
        return preferences.set(setting.key, value.get<bool>());
    case Kind::integer:
        return preferences.set(setting.key, static_cast<std::int64_t>(boundedNumber(setting, value)));
    case Kind::number:
        return preferences.set(setting.key, boundedNumber(setting, value));
    case Kind::choice: {
        std::string chosen = value.is_string() ? value.get<std::string>() : std::string("\x01");
        bool known = std::any_of(setting.choices.begin(), setting.choices.end(),
                                 [&](const auto& choice) { return choice.first == chosen; });
        if (!known) refuse(setting, L10n::text("choix inconnu", "unknown choice"));
        if (chosen.empty()) return preferences.remove(setting.key);
        return preferences.set(setting.key, chosen);
    }
    case Kind::list:
        return preferences.set(setting.key, textList(setting, value));
    case Kind::days:
        return preferences.set(setting.key, weekdays(setting, value));
    }
}

} // namespace

json list(const Preferences& preferences) {
    json items = json::array();
    for (const Setting& setting : catalogue()) items.push_back(describe(preferences, setting));
    return items;
}

json set(Preferences& preferences, std::string_view key, const json& value) {
    for (const Setting& setting : catalogue()) {
        if (setting.key != key) continue;
        write(preferences, setting, value);
        return describe(preferences, setting);
    }
    throw SettingRefused(std::string(L10n::text("Réglage inconnu : ", "Unknown setting: ")) + std::string(key));
}

} // namespace ombrelo::EditableSettings
