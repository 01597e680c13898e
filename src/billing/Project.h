// Client and Project: who the user works for and how that work is priced.
// Rows of the `client` and `project` tables.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ombrelo {

struct Client {
    std::int64_t id = 0;
    std::string name;
    std::string color = "carmine";  // a NULL colour reads as "carmine"

    bool operator==(const Client&) const = default;
};

struct Project {
    enum class RateKind { hour, day };
    enum class Rounding { none, quarterHour, halfHour, halfDay, day };

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

    bool operator==(const Project&) const = default;
};

} // namespace ombrelo
