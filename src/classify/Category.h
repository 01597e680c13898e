// Category: a kind of work (or of distraction) that rules give to activities.
// One row of the `category` table.
#pragma once

#include <cstdint>
#include <string>

namespace ombrelo {

struct Category {
    std::int64_t id = 0;  // 0 until saved
    std::string name;     // default categories are stored under their localised name
    std::string color;    // palette key: "teal", "yellow", "lavender", "green", "peach", "carmine"
    std::string symbol;   // icon name
    bool isDistraction = false;

    bool operator==(const Category&) const = default;
};

} // namespace ombrelo
