#include "app/commands/ClassifyArguments.h"

#include "app/Session.h"
#include "classify/DefaultCatalog.h"
#include "support/Fold.h"
#include "support/L10n.h"
#include "support/LocalTime.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>

namespace ombrelo::commands {

namespace {

std::string quoted(std::string_view text) {
    return fmt::format("{}{}{}", L10n::text("« ", "\""), text, L10n::text(" »", "\""));
}

[[noreturn]] void badValue(std::string_view what, std::string_view text, std::string_view hint) {
    throw CommandFailure(exitStatus::usage, fmt::format("{}{}{}{}{}", what, L10n::text(" : ", ": "), quoted(text),
                                                        L10n::text(" n'est pas valable. ", " is not valid. "), hint));
}

std::optional<std::int64_t> positiveInteger(std::string_view text) {
    std::int64_t value = 0;
    if (text.empty() || !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value <= 0) return std::nullopt;
    return value;
}

// One or two decimal digits.
std::optional<int> smallNumber(std::string_view text) {
    if (text.empty() || text.size() > 2 || !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    int value = 0;
    for (char c : text) value = value * 10 + (c - '0');
    return value;
}

// "09:00", "9:30", "9h", "9h30", "9", "24:00" → minutes after midnight.
std::optional<int> clockMinute(std::string_view text) {
    auto mark = text.find_first_of(":h");
    auto hours = smallNumber(text.substr(0, mark));
    std::optional<int> minutes = 0;
    if (mark != std::string_view::npos) {
        std::string_view after = text.substr(mark + 1);
        minutes = after.empty() && text[mark] == 'h' ? std::optional(0) : smallNumber(after);
    }
    if (!hours || !minutes || *minutes > 59 || *hours > 24 || (*hours == 24 && *minutes != 0)) return std::nullopt;
    return *hours * 60 + *minutes;
}

struct DayName {
    int weekday;
    std::string_view names[4];
};

constexpr DayName dayNames[] = {
    {2, {"lun", "lundi", "mon", "monday"}},   {3, {"mar", "mardi", "tue", "tuesday"}},
    {4, {"mer", "mercredi", "wed", "wednesday"}}, {5, {"jeu", "jeudi", "thu", "thursday"}},
    {6, {"ven", "vendredi", "fri", "friday"}}, {7, {"sam", "samedi", "sat", "saturday"}},
    {1, {"dim", "dimanche", "sun", "sunday"}},
};

std::optional<int> weekdayNamed(std::string_view text) {
    std::string name = fold(trim(text));
    if (!name.empty() && name.back() == '.') name.pop_back();
    for (const DayName& day : dayNames)
        for (std::string_view candidate : day.names)
            if (name == candidate) return day.weekday;
    return std::nullopt;
}

// Monday first, as a French week reads.
int weekOrder(int weekday) { return (weekday + 5) % 7; }

} // namespace

Catalog openCatalog(Session& session) {
    Database& db = session.database();
    try {
        return Catalog(db);
    } catch (const DatabaseError& error) {
        throw CommandFailure(exitStatus::failure,
                             std::string(L10n::text("Catalogue illisible : ", "Cannot read the catalogue: ")) +
                                 error.what());
    }
}

Category requireCategory(const Catalog& catalog, std::string_view text) {
    std::string_view wanted = trim(text);
    if (auto id = positiveInteger(wanted))
        if (auto category = catalog.category(*id)) return *category;
    std::string key = fold(defaultKey(wanted));
    for (const Category& category : catalog.categories())
        if (fold(category.name) == fold(wanted) || fold(defaultKey(category.name)) == key) return category;
    throw CommandFailure(exitStatus::failure,
                         fmt::format("{}{}{}", L10n::text("Catégorie introuvable : ", "Category not found: "), text,
                                     L10n::text(". Voir « ombrelo categories list ».",
                                                ". See \"ombrelo categories list\".")));
}

bool isNone(std::string_view text) {
    std::string t = fold(trim(text));
    return t == "none" || t == "aucun" || t == "aucune";
}

bool yesNoOption(std::string_view option, std::string_view text) {
    std::string t = fold(trim(text));
    if (t == "oui" || t == "yes" || t == "true" || t == "1") return true;
    if (t == "non" || t == "no" || t == "false" || t == "0") return false;
    badValue(option, text, L10n::text("Réponses possibles : oui, non.", "Possible answers: yes, no."));
}

std::vector<std::int64_t> idsOption(std::string_view text) {
    std::vector<std::int64_t> ids;
    std::string_view rest = text;
    while (true) {
        auto cut = rest.find(',');
        auto id = positiveInteger(trim(rest.substr(0, cut)));
        if (!id)
            badValue("--ids", text,
                     L10n::text("Des numéros d'activité séparés par des virgules, par exemple 12,13,15.",
                                "Activity numbers separated by commas, for instance 12,13,15."));
        if (std::find(ids.begin(), ids.end(), *id) == ids.end()) ids.push_back(*id);
        if (cut == std::string_view::npos) break;
        rest.remove_prefix(cut + 1);
    }
    return ids;
}

void requireActivities(Session& session, const std::vector<std::int64_t>& ids) {
    for (std::int64_t id : ids)
        if (!session.activities().activity(id))
            throw CommandFailure(exitStatus::failure,
                                 fmt::format("{}{}{}", L10n::text("Activité introuvable : ", "Activity not found: "), id,
                                             L10n::text(". Rien n'a été modifié.", ". Nothing was changed.")));
}

Instant dayOption(std::string_view option, std::string_view text) {
    if (auto day = local::parseDay(trim(text))) return *day;
    badValue(option, text, L10n::text("Une date AAAA-MM-JJ.", "A date YYYY-MM-DD."));
}

Instant dateTimeOption(std::string_view option, std::string_view text) {
    if (auto instant = local::parseDateTime(trim(text))) return *instant;
    badValue(option, text, L10n::text("Une date et une heure AAAA-MM-JJTHH:MM.", "A date and time YYYY-MM-DDTHH:MM."));
}

Rule::Field fieldOption(std::string_view text) {
    std::string t = fold(trim(text));
    for (auto field : {Rule::Field::app, Rule::Field::domain, Rule::Field::title, Rule::Field::path, Rule::Field::url})
        if (t == rawValue(field) || t == fold(noun(field))) return field;
    badValue(L10n::text("Champ", "Field"), text,
             L10n::text("Champs possibles : app, domain, title, path, url.",
                        "Possible fields: app, domain, title, path, url."));
}

std::optional<Rule::Operator> operatorOption(std::string_view text) {
    std::string t = fold(trim(text));
    if (t == "simple") return std::nullopt;
    for (auto op : {Rule::Operator::contains, Rule::Operator::is, Rule::Operator::startsWith, Rule::Operator::endsWith,
                    Rule::Operator::regex})
        if (t == fold(rawValue(op))) return op;
    badValue(L10n::text("Opérateur", "Operator"), text,
             L10n::text("Opérateurs possibles : contains, is, startsWith, endsWith, regex, simple.",
                        "Possible operators: contains, is, startsWith, endsWith, regex, simple."));
}

Rule::Condition conditionOption(std::string_view text) {
    auto first = text.find(':');
    auto second = first == std::string_view::npos ? first : text.find(':', first + 1);
    if (second == std::string_view::npos || trim(text.substr(second + 1)).empty())
        badValue("--when", text,
                 L10n::text("La forme est CHAMP:OPÉRATEUR:MOTIF, par exemple title:contains:dupont.",
                            "The form is FIELD:OPERATOR:PATTERN, for instance title:contains:dupont."));
    auto op = operatorOption(text.substr(first + 1, second - first - 1));
    if (!op)
        badValue("--when", text,
                 L10n::text("Une condition a toujours un opérateur.", "A condition always has an operator."));
    return {fieldOption(text.substr(0, first)), *op, std::string(text.substr(second + 1))};
}

std::pair<int, int> hoursOption(std::string_view text) {
    std::string_view t = trim(text);
    auto dash = t.find('-');
    std::optional<int> start, end;
    if (dash != std::string_view::npos) {
        start = clockMinute(trim(t.substr(0, dash)));
        end = clockMinute(trim(t.substr(dash + 1)));
    }
    if (!start || !end || *start == 1440 || *start == *end)
        badValue("--hours", text,
                 L10n::text("Une plage HH:MM-HH:MM de deux heures différentes, par exemple 09:00-12:00 ou 22:00-02:00.",
                            "A range HH:MM-HH:MM of two different times, for instance 09:00-12:00 or 22:00-02:00."));
    return {*start, *end};
}

std::set<int> weekdaysOption(std::string_view text) {
    std::set<int> days;
    std::string_view rest = trim(text);
    auto fail = [&] {
        badValue("--days", text,
                 L10n::text("Des jours séparés par des virgules, par exemple lun,mer,ven ou lun-ven.",
                            "Days separated by commas, for instance mon,wed,fri or mon-fri."));
    };
    while (true) {
        auto cut = rest.find(',');
        std::string_view piece = trim(rest.substr(0, cut));
        if (auto dash = piece.find('-'); dash != std::string_view::npos) {
            auto from = weekdayNamed(piece.substr(0, dash)), to = weekdayNamed(piece.substr(dash + 1));
            if (!from || !to) fail();
            // A range runs forward through the week, Monday first: "ven-lun" is Fri, Sat, Sun, Mon.
            for (int day = *from;; day = day % 7 + 1) {
                days.insert(day);
                if (day == *to) break;
            }
        } else if (auto day = weekdayNamed(piece)) {
            days.insert(*day);
        } else {
            fail();
        }
        if (cut == std::string_view::npos) break;
        rest.remove_prefix(cut + 1);
    }
    return days;
}

std::string windowText(int startMinute, int endMinute) {
    return fmt::format("{:02}:{:02}–{:02}:{:02}", startMinute / 60, startMinute % 60, endMinute / 60, endMinute % 60);
}

std::string weekdaysText(const std::set<int>& weekdays) {
    std::vector<int> ordered(weekdays.begin(), weekdays.end());
    std::sort(ordered.begin(), ordered.end(), [](int a, int b) { return weekOrder(a) < weekOrder(b); });
    std::string text;
    for (int day : ordered) {
        std::string_view name = "?";
        for (const DayName& known : dayNames)
            if (known.weekday == day) name = L10n::french() ? known.names[0] : known.names[2];
        if (!text.empty()) text += ", ";
        text += name;
    }
    return text;
}

} // namespace ombrelo::commands
