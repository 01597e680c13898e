// Client and Project: who the user works for and how that work is priced.
// Rows of the `client` and `project` tables, owned by ProjectStore; plain values
// that any thread may copy and read.
//
// A project bills each calendar day of its time on its own: the day's seconds are
// rounded up to the project's unit and priced at its hourly or daily rate
// (`billedDays`, `amountCents`). Saving refuses values that could make an amount
// overflow (`problem`), and the pricing itself checks its arithmetic and stops
// the program rather than return a wrong amount.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ombrelo {

// Why a client or project cannot be saved as it is.
enum class RecordProblem {
    emptyName,
    badColor,            // not a palette key (lower-case letters, digits, "-")
    rateOutOfRange,      // below 0 or above Project::maxRateCents
    dayHoursOutOfRange,  // not in (0, 24] in whole seconds
    budgetOutOfRange,    // not in [1, Project::maxBudgetMinutes]
    unknownClient,       // the client id names no client
};

// The problem in the user's language, for messages.
std::string problemText(RecordProblem problem);

// A palette key such as "teal" or "carmine": 1 to 32 of [a-z0-9-].
bool isColorKey(std::string_view text);

struct Client {
    std::int64_t id = 0;
    std::string name;
    std::string color = "carmine";  // a NULL colour reads as "carmine"

    // What saving would refuse, if anything.
    std::optional<RecordProblem> problem() const;

    bool operator==(const Client&) const = default;
};

struct Project {
    enum class RateKind { hour, day };
    enum class Rounding { none, quarterHour, halfHour, halfDay, day };

    // Limits checked on save. At the largest rate, an amount reaches the 64-bit
    // range only after some 10^9 hours billed in one day, so no real input can
    // overflow; the checked arithmetic stays as the last guard.
    static constexpr std::int64_t maxRateCents = 1'000'000'000;      // 10 million in currency units
    static constexpr double maxDayHours = 24;
    static constexpr std::int64_t maxBudgetMinutes = 100'000'000;    // some 190 years

    std::int64_t id = 0;  // 0 until saved
    std::optional<std::int64_t> clientID;
    std::string name;
    std::string color;
    bool billable = true;
    RateKind rateKind = RateKind::hour;
    std::int64_t rateCents = 0;  // per hour or per day; 0 = no rate
    double dayHours = 7;         // hours that make one billed day
    Rounding rounding = Rounding::none;
    std::optional<std::int64_t> budgetMinutes;
    bool archived = false;

    // What saving would refuse, if anything (the client's existence is the
    // store's to check).
    std::optional<RecordProblem> problem() const;

    // Days billed for `daySeconds` of this project's time on one calendar day:
    // 0 unless billable, daySeconds > 0 and dayHours > 0.
    double billedDays(double daySeconds) const;
    // The amount in cents for one calendar day, rounded half away from zero:
    // 0 unless billable, daySeconds > 0 and rateCents ≥ 1. Aborts the program
    // (after logging) rather than return an amount beyond the 64-bit range.
    std::int64_t amountCents(double daySeconds) const;

    // "Sans taux", "TJM 550,00 €" for a day rate, "62,50 €" for an hourly one.
    std::string rateLabel(std::string_view currencyCode) const;

    bool operator==(const Project&) const = default;
};

// Raw values as stored: "hour"/"day"; "none", "quarterHour", … Parsing gives
// nothing for any other text.
std::string_view rateKindName(Project::RateKind kind);
std::optional<Project::RateKind> parseRateKind(std::string_view text);
std::string_view roundingName(Project::Rounding rounding);
std::optional<Project::Rounding> parseRounding(std::string_view text);
// "Aucun", "Au ¼ d'heure", … in the user's language.
std::string roundingLabel(Project::Rounding rounding);

// "Client › Projet" when the project has a client found in `clients`, else the
// project's name; "Sans projet" / "No project" without a project.
std::string projectLabel(const Project* project, const std::vector<Client>& clients);

// How much of a budget is used; both in the same unit.
struct BudgetGauge {
    double used = 0;
    double budget = 0;

    // The gauge of a project's budget for `usedSeconds` of its time, in seconds;
    // nothing when the project has no budget.
    static std::optional<BudgetGauge> of(const Project& project, double usedSeconds);

    bool exceeded() const { return used > budget; }
    // The whole percentage used, rounded down (0 for an empty budget).
    std::int64_t percent() const;
    // "Budget consommé : 45 %", or once over "Budget dépassé de 2 h 05" (the
    // excess read as seconds).
    std::string text() const;
};

} // namespace ombrelo
