#include "app/commands/ProjectArguments.h"

#include "app/Session.h"
#include "support/Fold.h"
#include "support/L10n.h"
#include "support/Money.h"

#include <algorithm>

namespace ombrelo::commands {

namespace {

std::string quoted(std::string_view text) {
    return std::string(L10n::text("« ", "\"")) + std::string(text) + std::string(L10n::text(" »", "\""));
}

[[noreturn]] void badValue(std::string_view what, std::string_view text, std::string_view hint) {
    throw CommandFailure(exitStatus::usage, std::string(what) + std::string(L10n::text(" : ", ": ")) + quoted(text) +
                                                std::string(L10n::text(" n'est pas valable. ", " is not valid. ")) +
                                                std::string(hint));
}

bool allDigits(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::int64_t digitsValue(std::string_view text) {
    std::int64_t value = 0;
    for (char c : text) value = value * 10 + (c - '0');
    return value;
}

// A duration in hours, exactly, as seconds: "7", "7.5", "7,25", "7h", "7h30",
// "7:30". Nothing for any other text or a fraction of a second.
std::optional<std::int64_t> hoursAsSeconds(std::string_view text) {
    std::string lowered = lowerASCII(trim(text));
    std::string_view t = lowered;
    if (auto mark = t.find_first_of("h:"); mark != std::string_view::npos) {
        std::string_view hours = t.substr(0, mark), minutes = t.substr(mark + 1);
        if (hours.empty() || hours.size() > 6 || !allDigits(hours) || minutes.size() > 2 || !allDigits(minutes) ||
            (t[mark] == ':' && minutes.empty()))
            return std::nullopt;
        std::int64_t m = minutes.empty() ? 0 : digitsValue(minutes);
        if (m >= 60) return std::nullopt;
        return digitsValue(hours) * 3600 + m * 60;
    }
    auto mark = t.find_first_of(".,");
    std::string_view whole = t.substr(0, mark);
    std::string_view fraction = mark == std::string_view::npos ? std::string_view() : t.substr(mark + 1);
    if (whole.empty() || whole.size() > 6 || !allDigits(whole) || fraction.size() > 6 || !allDigits(fraction) ||
        (mark != std::string_view::npos && fraction.empty()))
        return std::nullopt;
    // 7.25 h = 725/100 h = 725 × 3600 / 100 s: whole seconds only when it divides.
    std::int64_t scale = 1;
    for (std::size_t i = 0; i < fraction.size(); ++i) scale *= 10;
    std::int64_t scaledSeconds = (digitsValue(whole) * scale + digitsValue(fraction)) * 3600;
    if (scaledSeconds % scale != 0) return std::nullopt;
    return scaledSeconds / scale;
}

bool isNone(std::string_view text) {
    std::string t = fold(trim(text));
    return t == "none" || t == "aucun" || t == "aucune";
}

bool yesNo(std::string_view option, std::string_view text) {
    std::string t = fold(trim(text));
    if (t == "oui" || t == "yes" || t == "true" || t == "1") return true;
    if (t == "non" || t == "no" || t == "false" || t == "0") return false;
    badValue(option, text, L10n::text("Réponses possibles : oui, non.", "Possible answers: yes, no."));
}

} // namespace

ProjectStore openProjects(Session& session) {
    return ProjectStore(session.database(), session.preferences(), session.clock());
}

Project requireProject(const ProjectStore& store, std::string_view text) {
    if (auto project = store.find(text)) return *project;
    throw CommandFailure(exitStatus::failure,
                         std::string(L10n::text("Projet introuvable : ", "Project not found: ")) + std::string(text) +
                             std::string(L10n::text(". Voir « ombrelo projects list ».",
                                                    ". See \"ombrelo projects list\".")));
}

Client requireClient(const ProjectStore& store, std::string_view text) {
    if (auto client = store.findClient(text)) return *client;
    throw CommandFailure(exitStatus::failure,
                         std::string(L10n::text("Client introuvable : ", "Client not found: ")) + std::string(text) +
                             std::string(L10n::text(". Voir « ombrelo clients list ».",
                                                    ". See \"ombrelo clients list\".")));
}

void check(const std::optional<StoreError>& error, std::string_view what) {
    if (error) throw CommandFailure(exitStatus::failure, std::string(what) + " : " + error->text());
}

namespace {
void refuse(const std::optional<RecordProblem>& problem) {
    if (problem)
        throw CommandFailure(exitStatus::usage,
                             std::string(L10n::text("Enregistrement refusé : ", "Not saved: ")) + problemText(*problem));
}
} // namespace

void validate(const Client& client) { refuse(client.problem()); }

void validate(const Project& project) { refuse(project.problem()); }

std::int64_t rateOption(std::string_view text) {
    ParsedMoney parsed = parseMoney(text);
    std::string_view what = L10n::text("Taux", "Rate");
    if (parsed.problem == MoneyProblem::tooManyDecimals)
        badValue(what, text, L10n::text("Deux décimales au plus (un centime).", "Two decimals at most (one cent)."));
    if (parsed.problem == MoneyProblem::malformed)
        badValue(what, text,
                 L10n::text("Un montant comme 550, 62.50 ou 62,50.", "An amount such as 550, 62.50 or 62,50."));
    if (!parsed.cents || *parsed.cents > Project::maxRateCents)
        badValue(what, text, L10n::text("Au plus 10000000.", "At most 10000000."));
    return *parsed.cents;
}

double dayHoursOption(std::string_view text) {
    auto seconds = hoursAsSeconds(text);
    if (!seconds || *seconds <= 0 || *seconds > 24 * 3600)
        badValue(L10n::text("Heures par jour", "Hours per day"), text,
                 L10n::text("Par exemple 7, 7.5 ou 7h30 ; plus de 0 et au plus 24.",
                            "For instance 7, 7.5 or 7h30; more than 0 and at most 24."));
    return static_cast<double>(*seconds) / 3600;
}

std::optional<std::int64_t> budgetOption(std::string_view text) {
    if (isNone(text)) return std::nullopt;
    auto seconds = hoursAsSeconds(text);
    if (!seconds || *seconds % 60 != 0 || *seconds < 60 || *seconds / 60 > Project::maxBudgetMinutes)
        badValue(L10n::text("Budget", "Budget"), text,
                 L10n::text("En heures, à la minute : 40, 12.5 ou 40h30 ; « none » pour aucun.",
                            "In hours, to the minute: 40, 12.5 or 40h30; \"none\" for no budget."));
    return *seconds / 60;
}

void ProjectOptions::addTo(CLI::App& command) {
    command.add_option("--client", client,
                       std::string(L10n::text("Client (nom ou id ; « none » pour aucun)",
                                              "Client (name or id; \"none\" for none)")));
    command.add_option("--color", color, std::string(L10n::text("Couleur (mot de la palette)", "Colour (palette word)")));
    command.add_option("--billable", billable, std::string(L10n::text("Facturable : oui ou non", "Billable: yes or no")));
    command.add_option("--rate-kind", rateKind,
                       std::string(L10n::text("Taux horaire (hour) ou TJM (day)", "Hourly (hour) or day (day) rate")));
    command.add_option("--rate", rate,
                       std::string(L10n::text("Taux en unités de la devise (550, 62.50)",
                                              "Rate in currency units (550, 62.50)")));
    command.add_option("--day-hours", dayHours,
                       std::string(L10n::text("Heures d'une journée facturée (7, 7h30)", "Hours of a billed day (7, 7h30)")));
    command.add_option("--rounding", rounding,
                       std::string(L10n::text("Arrondi : none, quarterHour, halfHour, halfDay, day",
                                              "Rounding: none, quarterHour, halfHour, halfDay, day")));
    command.add_option("--budget", budget,
                       std::string(L10n::text("Budget en heures (40, 40h30) ou « none »", "Budget in hours (40, 40h30) or \"none\"")));
}

void ProjectOptions::applyTo(Project& project, const ProjectStore& store) const {
    // Every value is read before the client is looked up, so a usage error
    // (status 1) is reported as such even when the client is unknown too.
    if (color) {
        if (!isColorKey(trim(*color)))
            badValue(L10n::text("Couleur", "Colour"), *color,
                     L10n::text("Un mot de la palette : teal, yellow, lavender, green, peach, carmine…",
                                "A palette word: teal, yellow, lavender, green, peach, carmine…"));
        project.color = std::string(trim(*color));
    }
    if (billable) project.billable = yesNo(L10n::text("Facturable", "Billable"), *billable);
    if (rateKind) {
        std::string kind = fold(trim(*rateKind));
        if (kind == "heure") kind = "hour";
        if (kind == "jour" || kind == "tjm") kind = "day";
        auto parsed = parseRateKind(kind);
        if (!parsed)
            badValue(L10n::text("Type de taux", "Rate kind"), *rateKind,
                     L10n::text("hour (horaire) ou day (TJM).", "hour or day."));
        project.rateKind = *parsed;
    }
    if (rate) project.rateCents = rateOption(*rate);
    if (dayHours) project.dayHours = dayHoursOption(*dayHours);
    if (rounding) {
        std::string wanted = fold(trim(*rounding));
        std::optional<Project::Rounding> parsed;
        for (auto r : {Project::Rounding::none, Project::Rounding::quarterHour, Project::Rounding::halfHour,
                       Project::Rounding::halfDay, Project::Rounding::day})
            if (fold(roundingName(r)) == wanted) parsed = r;
        if (!parsed)
            badValue(L10n::text("Arrondi", "Rounding"), *rounding,
                     L10n::text("none, quarterHour, halfHour, halfDay ou day.",
                                "none, quarterHour, halfHour, halfDay or day."));
        project.rounding = *parsed;
    }
    if (budget) project.budgetMinutes = budgetOption(*budget);
    if (client) project.clientID = isNone(*client) ? std::nullopt : std::optional(requireClient(store, *client).id);
}

} // namespace ombrelo::commands
