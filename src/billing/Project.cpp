#include "billing/Project.h"

#include "support/Fold.h"
#include "support/L10n.h"
#include "support/Money.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace ombrelo {

namespace {

__extension__ typedef unsigned __int128 Wide;

constexpr std::int64_t microsPerSecond = 1'000'000;
// Durations are priced to the microsecond: stored instants near today carry
// about a quarter of a microsecond of resolution, so finer digits are noise.
// Beyond this a single day's time is not a duration but a fault upstream, and
// pricing it stops the program like an overflow would.
constexpr double maxPricedSeconds = 9.0e9;

// The day length in whole seconds, or nothing when `dayHours` cannot be one.
// Saving keeps it within (0, 24] hours; larger stored values still price.
std::optional<std::int64_t> daySecondsOf(double dayHours) {
    if (!std::isfinite(dayHours) || dayHours <= 0 || dayHours > 1e6) return std::nullopt;
    std::int64_t seconds = std::llround(dayHours * 3600);
    return seconds > 0 ? std::optional(seconds) : std::nullopt;
}

// The rounding unit in microseconds; nothing for `none`, or when the unit is a
// day fraction and there is no valid day length.
std::optional<std::int64_t> unitMicros(Project::Rounding rounding, std::optional<std::int64_t> daySeconds) {
    switch (rounding) {
    case Project::Rounding::none: return std::nullopt;
    case Project::Rounding::quarterHour: return 900 * microsPerSecond;
    case Project::Rounding::halfHour: return 1800 * microsPerSecond;
    case Project::Rounding::halfDay:
        if (daySeconds) return *daySeconds * (microsPerSecond / 2);
        return std::nullopt;
    case Project::Rounding::day:
        if (daySeconds) return *daySeconds * microsPerSecond;
        return std::nullopt;
    }
    return std::nullopt;
}

// The day's billed time in microseconds: the time itself, or rounded up to a
// whole number of units. Both rate kinds and all five roundings reduce to this:
// the hourly formulas (⌈4h⌉/4 hours, H × ⌈2h/H⌉/2 hours, …) and the daily ones
// ((⌈4h⌉/4)/H days, ⌈2h/H⌉/2 days, …) all round the seconds up to 15 min, 30 min,
// H/2 or H, and differ only in what the rate is per (an hour or a day of H hours).
std::optional<Wide> billedMicros(const Project& project, double daySeconds) {
    if (!project.billable || !(daySeconds > 0)) return std::nullopt;
    if (daySeconds > maxPricedSeconds)
        moneyOverflow("durée de " + std::to_string(daySeconds) + " s pour un jour du projet " +
                      std::to_string(project.id));
    auto time = static_cast<Wide>(std::llround(daySeconds * microsPerSecond));
    if (project.rounding == Project::Rounding::none) return time;
    auto unit = unitMicros(project.rounding, daySecondsOf(project.dayHours));
    if (!unit) return std::nullopt;
    Wide units = (time + *unit - 1) / *unit;
    return units * static_cast<Wide>(*unit);
}

std::string durationText(double seconds) {
    std::int64_t minutes = std::llround(seconds / 60);
    if (minutes < 60) return std::to_string(minutes) + " min";
    std::string rest = std::to_string(minutes % 60);
    return std::to_string(minutes / 60) + " h " + (rest.size() < 2 ? "0" : "") + rest;
}

} // namespace

std::string problemText(RecordProblem problem) {
    switch (problem) {
    case RecordProblem::emptyName: return std::string(L10n::text("le nom est vide", "the name is empty"));
    case RecordProblem::badColor:
        return std::string(L10n::text("couleur invalide (un mot de la palette, par exemple teal ou carmine)",
                                      "invalid colour (a palette word, for instance teal or carmine)"));
    case RecordProblem::rateOutOfRange:
        return std::string(L10n::text("taux hors limites (de 0 à 10 000 000,00)",
                                      "rate out of range (0 to 10,000,000.00)"));
    case RecordProblem::dayHoursOutOfRange:
        return std::string(L10n::text("heures par jour hors limites (plus de 0 et au plus 24, en secondes entières)",
                                      "hours per day out of range (more than 0 and at most 24, in whole seconds)"));
    case RecordProblem::budgetOutOfRange:
        return std::string(L10n::text("budget hors limites (de 1 minute à 100 000 000 minutes)",
                                      "budget out of range (1 minute to 100,000,000 minutes)"));
    case RecordProblem::unknownClient: return std::string(L10n::text("client inconnu", "unknown client"));
    }
    return {};
}

bool isColorKey(std::string_view text) {
    return !text.empty() && text.size() <= 32 && std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-';
    });
}

std::optional<RecordProblem> Client::problem() const {
    if (trim(name).empty()) return RecordProblem::emptyName;
    if (!isColorKey(color)) return RecordProblem::badColor;
    return std::nullopt;
}

std::optional<RecordProblem> Project::problem() const {
    if (trim(name).empty()) return RecordProblem::emptyName;
    if (!color.empty() && !isColorKey(color)) return RecordProblem::badColor;
    if (rateCents < 0 || rateCents > maxRateCents) return RecordProblem::rateOutOfRange;
    double seconds = dayHours * 3600;
    if (!(dayHours > 0 && dayHours <= maxDayHours) || std::abs(seconds - std::round(seconds)) > 1e-6)
        return RecordProblem::dayHoursOutOfRange;
    if (budgetMinutes && (*budgetMinutes < 1 || *budgetMinutes > maxBudgetMinutes))
        return RecordProblem::budgetOutOfRange;
    return std::nullopt;
}

double Project::billedDays(double daySeconds) const {
    auto day = daySecondsOf(dayHours);
    auto billed = billedMicros(*this, daySeconds);
    if (!day || !billed) return 0;
    return static_cast<double>(*billed) / static_cast<double>(*day * microsPerSecond);
}

// amount = billed time × rate / (the time the rate is for), rounded once, at the
// end, half away from zero, in 128-bit integers so that nothing is lost on the
// way. Worked example, a day rate of 500,00 € (50 000 cents) with 7-hour days:
//   3 h 10 = 11 400 s. Half-day rounding: unit 3 h 30 = 12 600 s, ⌈11 400 / 12 600⌉
//   = 1 unit, billed 12 600 s, amount = 12 600 × 50 000 / 25 200 = 25 000 cents.
//   No rounding: 11 400 × 50 000 / 25 200 = 22 619.05… → 22 619 cents.
// And a true half: 30 min at 0,01 € per hour = 1 800 × 1 / 3 600 = 0.5 → 1 cent.
std::int64_t Project::amountCents(double daySeconds) const {
    if (rateCents < 1) return 0;
    auto billed = billedMicros(*this, daySeconds);
    if (!billed) return 0;
    std::optional<std::int64_t> per = rateKind == RateKind::hour ? std::optional<std::int64_t>(3600)
                                                                  : daySecondsOf(dayHours);
    if (!per) return 0;
    // billed ≤ 2^54 µs, rate < 2^63: the product stays under 2^117.
    Wide numerator = *billed * static_cast<Wide>(rateCents);
    Wide denominator = static_cast<Wide>(*per) * microsPerSecond;
    Wide amount = numerator / denominator;
    if (2 * (numerator % denominator) >= denominator) ++amount;
    if (amount > static_cast<Wide>(std::numeric_limits<std::int64_t>::max()))
        moneyOverflow("montant du projet " + std::to_string(id) + " pour " + std::to_string(daySeconds) + " s");
    return static_cast<std::int64_t>(amount);
}

std::string Project::rateLabel(std::string_view currencyCode) const {
    if (rateCents <= 0) return std::string(L10n::text("Sans taux", "No rate"));
    std::string amount = formatMoney(rateCents, currencyCode);
    if (rateKind == RateKind::day) return std::string(L10n::text("TJM ", "Day rate ")) + amount;
    return amount;
}

std::string_view rateKindName(Project::RateKind kind) { return kind == Project::RateKind::day ? "day" : "hour"; }

std::optional<Project::RateKind> parseRateKind(std::string_view text) {
    if (text == "hour") return Project::RateKind::hour;
    if (text == "day") return Project::RateKind::day;
    return std::nullopt;
}

namespace {
struct RoundingNames {
    Project::Rounding rounding;
    std::string_view raw, french, english;
};
constexpr RoundingNames roundings[] = {
    {Project::Rounding::none, "none", "Aucun", "None"},
    {Project::Rounding::quarterHour, "quarterHour", "Au ¼ d'heure", "To the quarter hour"},
    {Project::Rounding::halfHour, "halfHour", "À la ½ heure", "To the half hour"},
    {Project::Rounding::halfDay, "halfDay", "À la ½ journée", "To the half day"},
    {Project::Rounding::day, "day", "À la journée", "To the day"},
};
} // namespace

std::string_view roundingName(Project::Rounding rounding) {
    for (const auto& names : roundings)
        if (names.rounding == rounding) return names.raw;
    return "none";
}

std::optional<Project::Rounding> parseRounding(std::string_view text) {
    for (const auto& names : roundings)
        if (names.raw == text) return names.rounding;
    return std::nullopt;
}

std::string roundingLabel(Project::Rounding rounding) {
    for (const auto& names : roundings)
        if (names.rounding == rounding) return std::string(L10n::text(names.french, names.english));
    return {};
}

std::string projectLabel(const Project* project, const std::vector<Client>& clients) {
    if (!project) return std::string(L10n::text("Sans projet", "No project"));
    if (project->clientID) {
        auto client = std::find_if(clients.begin(), clients.end(),
                                   [&](const Client& c) { return c.id == *project->clientID; });
        if (client != clients.end()) return client->name + " › " + project->name;
    }
    return project->name;
}

std::optional<BudgetGauge> BudgetGauge::of(const Project& project, double usedSeconds) {
    if (!project.budgetMinutes) return std::nullopt;
    return BudgetGauge{usedSeconds, static_cast<double>(*project.budgetMinutes) * 60};
}

std::int64_t BudgetGauge::percent() const {
    if (!(budget > 0) || !(used > 0)) return 0;
    return static_cast<std::int64_t>(std::floor(std::min(used / budget, 1e12) * 100));
}

std::string BudgetGauge::text() const {
    if (exceeded())
        return std::string(L10n::text("Budget dépassé de ", "Budget exceeded by ")) + durationText(used - budget);
    // French sets the percent sign off with a narrow no-break space.
    return std::string(L10n::text("Budget consommé : ", "Budget used: ")) + std::to_string(percent()) +
           std::string(L10n::text("\u202F%", "%"));
}

} // namespace ombrelo
